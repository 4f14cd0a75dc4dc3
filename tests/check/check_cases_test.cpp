// The check on hand-built streams kept as hex in a golden file beside what it finds in each:
// every kind of issue, each scan kind's block routine, restarts, the walk between segments.
#include <gtest/gtest.h>

#include <string>

#include "report/file_report.h"
#include "tests/support/segment_cases.h"

namespace corvi {
namespace {

// The verdict, then each issue: kind, severity, offset, the MCU and component in entropy-coded
// data, and the message.
std::string Findings(const test::Bytes& bytes) {
  const test::Bytes exact(bytes);  // a buffer of its own size: the sanitizer sees any overread
  InspectOptions options;
  options.full = false;
  const FileReport report = InspectBytes("case.jpg", exact.data(), exact.size(), options);
  std::string text = std::string("= ") + VerdictName(report.verdict) + "\n";
  for (const Issue& issue : report.issues.items()) {
    text += Format("  %s %s @%lld", issue.kind, SeverityName(issue.severity),
                   static_cast<long long>(issue.offset));
    if (issue.mcu_row >= 0) {
      text += Format(" [mcu %d,%d comp %d]", issue.mcu_row, issue.mcu_column, issue.component);
    }
    text += ": " + issue.message + "\n";
  }
  return text;
}

TEST(Check, HandBuiltStreamsGiveTheirIssues) {
  test::ExpectGoldenCases("check_cases", Findings);
}

}  // namespace
}  // namespace corvi
