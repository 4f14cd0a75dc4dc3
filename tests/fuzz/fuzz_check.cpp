// libFuzzer target: the checker's report of one input, in every form corvi-check prints, with
// and without the decode: corvi's scan, the lenient scan, the walk over every scan's data, the
// thumbnails, the Exif directories and the renderers.
#include <cstddef>
#include <cstdint>
#include <string>

#include "report/file_report.h"
#include "report/report_format.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > (1u << 24)) {
    return 0;
  }
  corvi::InspectOptions options;
  options.full = true;
  // The decode runs for one input in four, by its first byte: it is the slower half.
  options.decode = size > 0 && (data[0] & 3) == 0;
  const corvi::FileReport report = corvi::InspectBytes("fuzz.jpg", data, size, options);
  const std::string text =
      corvi::ReportJson(report, true) + corvi::ReportText(report) + corvi::ReportCsv(report);
  return text.empty() ? 1 : 0;
}
