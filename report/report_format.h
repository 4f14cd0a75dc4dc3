// The report of a file as text, one JSON object, or one CSV row.
#pragma once

#include <string>

#include "report/file_report.h"

namespace corvi {

// The schema that every JSON line names.
extern const char kReportSchema[];

// "PATH: VERDICT" and one indented line per issue, each ending in "\n".
std::string ReportText(const FileReport& report);
// One JSON object on one line (no line end): the summary, and with `full` the whole report.
std::string ReportJson(const FileReport& report, bool full);
// The CSV header line and one row, each ending in "\n", quoted as RFC 4180 says.
std::string ReportCsvHeader();
std::string ReportCsv(const FileReport& report);

}  // namespace corvi
