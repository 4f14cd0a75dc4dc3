// The report of a file: every JSON line against the schema, corvi's counts and failures, the
// bounds that hostile files meet, the whole report of the golden samples, and the forms of the
// renderers (numbers, text of values, names that are not UTF-8, CSV quoting).
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <map>
#include <regex>
#include <sstream>
#include <string>

#include "report/file_report.h"
#include "report/json_writer.h"
#include "report/report_format.h"
#include "tests/support/damage.h"
#include "tests/support/golden.h"
#include "tests/support/jpeg_builder.h"
#include "tests/support/process.h"
#include "tests/support/require.h"

namespace corvi {
namespace {

using test::Bytes;

FileReport Full(const std::string& name, const Bytes& bytes, bool decode = false) {
  InspectOptions options;
  options.full = true;
  options.decode = decode;
  return InspectBytes(name, bytes.data(), bytes.size(), options);
}

std::string SourceDir() {
  return std::string(CORVI_GOLDEN_DIR) + "/../..";
}

bool HaveJsonSchema() {
  return access("/usr/bin/python3", X_OK) == 0 &&
         test::RunProgram("/usr/bin/python3", "python3", "/", {"-c", "import jsonschema"}).status ==
             0;
}

std::vector<std::string> FindingFiles() {
  std::vector<std::string> files;
  for (const char* folder : {"scan_findings", "decode_findings", "merge_findings"}) {
    std::error_code error;
    const std::string path = SourceDir() + "/tests/fuzz/" + folder;
    for (const auto& entry : std::filesystem::directory_iterator(path, error)) {
      files.push_back(entry.path().string());
    }
  }
  return files;
}

// Every line the report makes: of each corpus photo and three damaged variants, the golden
// samples, the fuzzers' findings; summary and full, with the decode for some, and one with a
// name that is not UTF-8. Each is made twice, and both must be the same bytes.
TEST(Report, EveryJsonLineFollowsTheSchema) {
  CORVI_NEED(test::CorpusAvailable(), "the shared corpus");
  CORVI_NEED(HaveJsonSchema(), "Debian's /usr/bin/python3 with python3-jsonschema");
  std::string lines;
  size_t count = 0;
  auto add = [&](const std::string& name, const Bytes& bytes, bool decode) {
    const FileReport report = Full(name, bytes, decode);
    for (const bool full : {false, true}) {
      const std::string line = ReportJson(report, full);
      EXPECT_EQ(line, ReportJson(Full(name, bytes, decode), full)) << name;
      lines += line + "\n";
      ++count;
    }
  };
  std::vector<std::string> files = test::CorpusFiles();
  for (const char* sample : {"sample", "jfif_baseline", "jfif_thumbnail", "adobe_progressive"}) {
    files.push_back(std::string(CORVI_GOLDEN_DIR) + "/" + sample + ".jpg");
  }
  const std::vector<std::string> findings = FindingFiles();
  files.insert(files.end(), findings.begin(), findings.end());
  for (size_t i = 0; i < files.size(); ++i) {
    const Bytes file = test::ReadFile(files[i]);
    add(files[i], file, i % 4 == 0);
    const std::vector<test::Variant> variants = test::MakeVariants(file, 3, 1);
    for (size_t v = 0; v < variants.size(); v += 4) {
      add(files[i] + " " + variants[v].name, variants[v].bytes, false);
    }
  }
  add("caf\xE9 \"\x01\".jpg", test::TinyGrayJpeg(), true);
  const std::string path = test::WriteTempFile("reports.jsonl", Bytes(lines.begin(), lines.end()));
  const test::ProcessResult r = test::RunProgram("/usr/bin/python3", "python3", "/",
                                                 {SourceDir() + "/tests/report/validate_report.py",
                                                  SourceDir() + "/docs/report.schema.json", path});
  EXPECT_EQ(r.status, 0) << r.out << r.err;
  EXPECT_NE(r.out.find(std::to_string(count) + " reports, 0 problems"), std::string::npos) << r.out;
}

// The counts of identified and left bytes, and the failures, are those of corvi's report line.
TEST(Report, CountsAndFailuresAreCorvis) {
  CORVI_NEED(test::CorpusAvailable(), "the shared corpus");
  const test::ProcessResult r =
      test::RunProgram(CORVI_TOOL_PATH, "corvi", CORVI_CORPUS_DIR, {"-q", "."});
  ASSERT_EQ(r.status, 0);
  const std::regex finished(
      R"(Finished parsing (.*) \(identified (\d+) bytes out of (\d+), (\d+) left\)\.)");
  const std::regex failed(R"(Failed on (.*?): (.*))");
  size_t files = 0;
  std::istringstream lines(r.out);
  for (std::string line; std::getline(lines, line);) {
    std::smatch m;
    const bool ok = std::regex_match(line, m, finished);
    if (!ok && !std::regex_match(line, m, failed)) {
      continue;
    }
    const std::string path = std::string(CORVI_CORPUS_DIR) + "/" + m[1].str();
    SCOPED_TRACE(path);
    InspectOptions options;
    options.full = false;
    const FileReport report = Inspect(path, options);
    EXPECT_EQ(report.scanned, ok);
    if (ok) {
      EXPECT_EQ(report.identified, std::stoul(m[2].str()));
      EXPECT_EQ(report.length, std::stoul(m[3].str()));
      EXPECT_EQ(report.left, std::stoul(m[4].str()));
    } else {
      // The path in corvi's message is the one it was given.
      std::string expected = m[2].str();
      const std::string relative = m[1].str();
      if (const size_t at = expected.find(relative); at != std::string::npos) {
        expected.replace(at, relative.size(), path);
      }
      EXPECT_EQ(report.scan_failure, expected);
    }
    ++files;
  }
  EXPECT_EQ(files, test::CorpusFiles().size());
}

size_t Depth(const StreamReport& stream) {
  size_t deepest = 0;
  std::vector<std::pair<const StreamReport*, size_t>> stack{{&stream, 0}};
  while (!stack.empty()) {
    const auto [s, depth] = stack.back();
    stack.pop_back();
    deepest = std::max(deepest, depth);
    for (const StreamReport& t : s->thumbnails) {
      stack.emplace_back(&t, depth + 1);
    }
  }
  return deepest;
}

// 900 thumbnails nested in a 65 KB file, and a chain of 4,600 directories: small reports that
// say how much they leave out.
TEST(Report, HostileFilesGiveSmallBoundedReports) {
  const std::string folder = SourceDir() + "/tests/fuzz/scan_findings/";
  const FileReport nested = Full("nested", test::ReadFile(folder + "nested-thumbnails-900.jpg"));
  EXPECT_EQ(Depth(nested.stream), 8u);
  const StreamReport* deepest = &nested.stream;
  while (!deepest->thumbnails.empty()) {
    deepest = &deepest->thumbnails[0];
  }
  EXPECT_GT(deepest->thumbnails_deeper, 800u);
  EXPECT_LT(ReportJson(nested, true).size(), 64u * 1024);
  const FileReport chain = Full("chain", test::ReadFile(folder + "exif-ifd-chain-4600.jpg"));
  EXPECT_EQ(chain.stream.directories.size(), 256u);
  EXPECT_GT(chain.stream.directories_omitted, 4000u);
  EXPECT_LT(ReportJson(chain, true).size(), 200u * 1024);
}

// The JSON of a report laid out a member a line down to the third level, for a readable golden.
std::string Layout(const std::string& json) {
  std::string out;
  int depth = 0;
  bool in_string = false;
  for (size_t i = 0; i < json.size(); ++i) {
    const char c = json[i];
    out += c;
    if (in_string) {
      if (c == '\\') {
        out += json[++i];
      } else if (c == '"') {
        in_string = false;
      }
      continue;
    }
    if (c == '"') {
      in_string = true;
    } else if (c == '{' || c == '[') {
      ++depth;
    } else if (c == '}' || c == ']') {
      --depth;
    }
    if ((c == ',' || c == '{' || c == '[') && depth <= 3 && depth > 0) {
      out += "\n" + std::string(static_cast<size_t>(depth) * 2, ' ');
    }
  }
  return out + "\n";
}

TEST(Report, GoldenSamplesReportInFull) {
  std::string text;
  for (const char* sample : {"sample", "jfif_thumbnail", "adobe_progressive"}) {
    const std::string name = std::string(sample) + ".jpg";
    text += Layout(ReportJson(
        Full(name, test::ReadFile(std::string(CORVI_GOLDEN_DIR) + "/" + name), true), true));
  }
  test::ExpectGolden("report_samples", text);
}

TEST(JsonWriter, WritesValuesThatReadBackExactly) {
  const struct {
    const char* name;
    std::function<void(JsonWriter&)> write;
    const char* text;
  } cases[] = {
      {"shortest double", [](JsonWriter& j) { j.Double(0.1); }, "0.1"},
      {"large double", [](JsonWriter& j) { j.Double(1e300); }, "1e+300"},
      {"shortest float", [](JsonWriter& j) { j.Float(0.1f); }, "0.1"},
      {"NaN", [](JsonWriter& j) { j.Double(std::nan("")); }, "\"NaN\""},
      {"infinities",
       [](JsonWriter& j) {
         j.BeginArray();
         j.Float(std::numeric_limits<float>::infinity());
         j.Double(-std::numeric_limits<double>::infinity());
         j.EndArray();
       },
       "[\"Infinity\",\"-Infinity\"]"},
      {"latin-1 text", [](JsonWriter& j) { j.Latin1("Caf\xE9\n\"\\\x7F"); },
       "\"Caf\xC3\xA9\\n\\\"\\\\\\u007f\""},
      {"a name that is not UTF-8", [](JsonWriter& j) { j.Utf8("a\xE9\xC3\xA9\xF0\x9F\x98\x80!"); },
       "\"a\\udce9\xC3\xA9\xF0\x9F\x98\x80!\""},
      {"overlong and surrogate sequences", [](JsonWriter& j) { j.Utf8("\xC0\xAF\xED\xA0\x80"); },
       "\"\\udcc0\\udcaf\\udced\\udca0\\udc80\""},
      {"hex", [](JsonWriter& j) { j.Hex(std::string("\x00\xAB\x10", 3)); }, "\"00ab10\""},
      {"members and commas",
       [](JsonWriter& j) {
         j.BeginObject();
         j.Key("a");
         j.Int(-1);
         j.Key("b");
         j.BeginArray();
         j.UInt(1);
         j.Null();
         j.Bool(true);
         j.EndArray();
         j.EndObject();
       },
       "{\"a\":-1,\"b\":[1,null,true]}"},
  };
  for (const auto& c : cases) {
    std::string text;
    JsonWriter json(text);
    c.write(json);
    EXPECT_EQ(text, c.text) << c.name;
  }
}

TEST(ReportFormat, TextAndCsvKeepTheNameAndQuoteIt) {
  FileReport report = UnreadableReport("a,\"b\"\n\xE9.jpg", "No such file or directory");
  EXPECT_EQ(ReportText(report),
            "a,\"b\"\n\xE9.jpg: broken\n  unreadable (broken): No such file or directory\n");
  EXPECT_EQ(ReportCsvHeader(),
            "file,verdict,issues,kind,severity,offset,message,length,identified,left\n");
  EXPECT_EQ(
      ReportCsv(report),
      "\"a,\"\"b\"\"\n\xE9.jpg\",broken,1,unreadable,broken,,No such file or directory,0,,\n");
  const Bytes tiny = test::TinyGrayJpeg();
  report = Full("tiny.jpg", tiny);
  EXPECT_EQ(ReportCsv(report), "tiny.jpg,clean,0,,,,," + std::to_string(tiny.size()) + "," +
                                   std::to_string(report.identified) + "," +
                                   std::to_string(report.left) + "\n");
}

}  // namespace
}  // namespace corvi
