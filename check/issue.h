// What a check finds: issues with a kind, a severity and a place, and the verdict they give.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace corvi {

// How much an issue costs the picture, from least to most.
enum class Severity : uint8_t {
  kInfo,     // legal, or harmless: nothing is wrong
  kBenign,   // a rule is broken, but nothing of the picture is lost
  kDamaged,  // the file is not what an encoder wrote
  kBroken,   // the picture cannot be read
};

// The verdict of a file, from best to worst.
enum class Verdict : uint8_t {
  kClean,        // no issue, or only info
  kBenign,       // the worst issue is benign
  kUnsupported,  // the frame's process is not checked (arithmetic, lossless, hierarchical)
  kDamaged,
  kBroken,
};

const char* SeverityName(Severity severity);
const char* VerdictName(Verdict verdict);

// One finding. Offsets are from the start of the file; -1 where not known.
struct Issue {
  const char* kind = "";  // stable name, one of the kinds in docs/report.md
  Severity severity = Severity::kInfo;
  int64_t offset = -1;
  int64_t length = -1;      // bytes concerned, -1 where not known
  int32_t mcu_row = -1;     // entropy-coded data: the MCU (or block, in a single-component scan)
  int32_t mcu_column = -1;  // row and column where it happened,
  int32_t component = -1;   // and the component's id in the frame
  int32_t thumbnail = 0;    // 0 for the file itself, n for a thumbnail nested n deep
  std::string message;      // UTF-8
};

// The issues of one file in file order, bounded: past `kMaxIssues` only their count is kept.
class IssueList {
 public:
  static constexpr size_t kMaxIssues = 200;

  void Add(Issue issue);
  // Every issue of `other`, and what it left out, in its order.
  void Append(const IssueList& other);
  // An issue of the thumbnail that starts at `thumbnail_offset`: named as the thumbnail's, and
  // at most benign.
  void AddFromThumbnail(const Issue& issue, int64_t thumbnail_offset);
  // Sorts into file order (stable: issues at one offset keep the order they were found in).
  void Sort();

  const std::vector<Issue>& items() const { return list; }
  Issue& Last() { return list.back(); }
  size_t omitted() const { return dropped; }
  Severity Worst() const { return worst; }
  // The first issue of `kind`, or null.
  Issue* Find(const char* kind);

 private:
  std::vector<Issue> list;
  size_t dropped = 0;
  Severity worst = Severity::kInfo;
};

// The verdict of a file: the worst severity of its issues, or unsupported when the frame's
// process is not checked and nothing worse was found.
Verdict VerdictOf(const IssueList& issues, bool process_checked);

// printf into a std::string.
[[gnu::format(printf, 1, 2)]] std::string Format(const char* format, ...);

}  // namespace corvi
