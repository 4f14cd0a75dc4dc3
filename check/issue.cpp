// Issues, their bounded list in file order, and the verdict they give.
#include "check/issue.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace corvi {

const char* SeverityName(Severity severity) {
  switch (severity) {
    case Severity::kInfo:
      return "info";
    case Severity::kBenign:
      return "benign";
    case Severity::kDamaged:
      return "damaged";
    case Severity::kBroken:
      return "broken";
  }
  return "info";
}

const char* VerdictName(Verdict verdict) {
  switch (verdict) {
    case Verdict::kClean:
      return "clean";
    case Verdict::kBenign:
      return "benign";
    case Verdict::kUnsupported:
      return "unsupported";
    case Verdict::kDamaged:
      return "damaged";
    case Verdict::kBroken:
      return "broken";
  }
  return "clean";
}

void IssueList::Add(Issue issue) {
  worst = std::max(worst, issue.severity);
  if (list.size() >= kMaxIssues) {
    ++dropped;
    return;
  }
  list.push_back(std::move(issue));
}

void IssueList::AddFromThumbnail(const Issue& issue, int64_t thumbnail_offset) {
  Issue copy = issue;
  copy.severity = std::min(issue.severity, Severity::kBenign);
  copy.message =
      Format("thumbnail at %lld: ", static_cast<long long>(thumbnail_offset)) + issue.message;
  Add(std::move(copy));
}

void IssueList::Sort() {
  // Unknown offsets (-1) come last: they concern the file as a whole.
  std::stable_sort(list.begin(), list.end(), [](const Issue& a, const Issue& b) {
    return static_cast<uint64_t>(a.offset) < static_cast<uint64_t>(b.offset);
  });
}

void IssueList::Append(const IssueList& other) {
  for (const Issue& issue : other.list) {
    Add(issue);
  }
  dropped += other.dropped;
  worst = std::max(worst, other.worst);
}

Issue* IssueList::Find(const char* kind) {
  for (Issue& issue : list) {
    if (std::strcmp(issue.kind, kind) == 0) {
      return &issue;
    }
  }
  return nullptr;
}

Verdict VerdictOf(const IssueList& issues, bool process_checked) {
  switch (issues.Worst()) {
    case Severity::kBroken:
      return Verdict::kBroken;
    case Severity::kDamaged:
      return Verdict::kDamaged;
    case Severity::kBenign:
      return process_checked ? Verdict::kBenign : Verdict::kUnsupported;
    case Severity::kInfo:
      break;
  }
  return process_checked ? Verdict::kClean : Verdict::kUnsupported;
}

std::string Format(const char* format, ...) {
  char buffer[512];
  va_list args;
  va_start(args, format);
  const int n = std::vsnprintf(buffer, sizeof buffer, format, args);
  va_end(args);
  if (n < 0) {
    return std::string();
  }
  return std::string(buffer, std::min<size_t>(static_cast<size_t>(n), sizeof buffer - 1));
}

}  // namespace corvi
