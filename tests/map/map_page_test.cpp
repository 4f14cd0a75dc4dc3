// The file map: the page is drawn from the report and corvi's own pass over the file (its line,
// claims and dumps), text from the file can never become markup, and the page works in a real
// browser.
#include "map/map_page.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "jpeg/jpeg_reader.h"
#include "jpeg/markers.h"
#include "platform/format.h"
#include "tests/support/jpeg_builder.h"
#include "tests/support/process.h"
#include "tests/support/require.h"
#include "tests/support/sample_jpeg.h"

namespace corvi {
namespace {

using test::Bytes;

FileMap Map(const Bytes& bytes, bool decode = false) {
  return MapBytes("x.jpg", bytes.data(), bytes.size(), decode);
}

uint64_t Claimed(const FileMap& map) {
  uint64_t claimed = 0;
  for (const ByteRange& claim : map.claims) {
    claimed += static_cast<uint64_t>(claim.end - claim.start);
  }
  return claimed;
}

// The segment names of a stream with each scan's data behind its SOS, as the page's bands name
// them when nothing lies between.
std::string Kinds(const StreamReport& stream) {
  std::string kinds = "SOI";
  for (const SegmentRecord& s : stream.segments) {
    kinds += std::string(" ") + MarkerName(s.code);
    kinds += s.data_last >= 0 ? " data" : "";
  }
  return stream.eoi >= 0 ? kinds + " EOI" : kinds;
}

TEST(MapBytes, SampleLineClaimsDumpsAndDecode) {
  const Bytes sample = test::MakeSampleJpeg();
  const FileMap map = Map(sample, true);
  const FileReport& report = map.report;
  ASSERT_TRUE(report.scanned);
  EXPECT_EQ(map.line, Format("Finished parsing x.jpg (identified %u bytes out of %zu, %u left).",
                             report.identified, sample.size(), report.left));
  // Every claimed byte once: the claims add up to the identified count.
  EXPECT_EQ(Claimed(map), report.identified);
  EXPECT_EQ(Kinds(report.stream), "SOI APP0 APP1 COM DQT SOF0 DHT DHT DHT DHT SOS data EOI");
  ASSERT_EQ(report.stream.thumbnails.size(), 1u);
  EXPECT_EQ(Kinds(report.stream.thumbnails[0]), "SOI DQT SOF0 DHT DHT DHT DHT SOS data EOI");
  // A dump for each segment of the file and of its thumbnail, each as corvi prints it.
  EXPECT_EQ(map.dumps.size(),
            report.stream.segments.size() + report.stream.thumbnails[0].segments.size());
  const std::string dump = test::DumpText(test::ScanBytes(sample), sample);
  for (const SegmentDump& d : map.dumps) {
    EXPECT_NE(dump.find(d.text), std::string::npos) << d.first;
    EXPECT_EQ(sample[static_cast<size_t>(d.first)], 0xFF);
  }
  EXPECT_EQ(map.mcu_width, 16);
  EXPECT_EQ(map.decode_text.rfind("Decoded 64 x 48 pixels\n", 0), 0u) << map.decode_text;
  EXPECT_NE(map.decode_text.find("corvi"), std::string::npos);  // the Make property
}

// A failing file keeps what corvi's scan claimed before the failure, and the report's segments.
TEST(MapBytes, FailingFileKeepsWhatTheScanReached) {
  Bytes bad = test::MakeSampleJpeg();
  const size_t app1 = 20;  // the APP1 segment's marker
  ASSERT_EQ(bad[app1 + 1], 0xE1);
  bad[app1 + 2] = 0xFF;  // its length runs past the file
  const FileMap refused = Map(bad);
  EXPECT_EQ(refused.line.rfind("Failed on x.jpg: ", 0), 0u) << refused.line;
  EXPECT_FALSE(refused.report.scan_failure.empty());
  EXPECT_GT(Claimed(refused), 0u);
  ASSERT_EQ(refused.dumps.size(), 1u);  // APP0; the APP1 that failed is not dumped
  EXPECT_EQ(refused.dumps[0].first, 2);
  EXPECT_EQ(Kinds(refused.report.stream), "SOI APP0");  // the check stops at the overrun

  // Cut inside the data: corvi takes the thumbnail's end for the file's and fails behind it; the
  // check reads every segment up to the cut.
  Bytes cut = test::MakeSampleJpeg();
  cut.resize(cut.size() - 40);
  const FileMap cut_map = Map(cut);
  EXPECT_EQ(cut_map.line, "Failed on x.jpg: Invalid header length or corrupt data");
  EXPECT_GT(Claimed(cut_map), 0u);
  EXPECT_EQ(Kinds(cut_map.report.stream), "SOI APP0 APP1 COM DQT SOF0 DHT DHT DHT DHT SOS data");

  const FileMap no_end = Map(Bytes{0xFF, 0xD8, 0xFF, 0xFE, 0, 4, 'a', 'b'});
  EXPECT_EQ(no_end.line, "Failed on x.jpg: Missing JPEG EOI");
  EXPECT_EQ(Claimed(no_end), 0u);  // the end is looked for before anything is claimed
  EXPECT_EQ(Kinds(no_end.report.stream), "SOI COM");

  const FileMap empty = Map(Bytes{});
  EXPECT_EQ(empty.report.verdict, Verdict::kBroken);
  EXPECT_TRUE(empty.dumps.empty());
}

TEST(MapPage, TextFromTheFileNeverBecomesMarkup) {
  const struct {
    std::string text;
    std::string json;
  } cases[] = {
      {"plain", "\"plain\""},
      {"a\"b\\c", "\"a\\\"b\\\\c\""},
      {"</script><script>alert(1)</script>",
       "\"\\u003c/script\\u003e\\u003cscript\\u003ealert(1)\\u003c/script\\u003e\""},
      {"<!-- & -->", "\"\\u003c!-- \\u0026 --\\u003e\""},
      {std::string("\n\x01\x1f", 3), "\"\\n\\u0001\\u001f\""},
      {"\xE2\x80\xA8\xE2\x80\xA9", "\"\\u2028\\u2029\""},
      {"\xFF", "\"\\udcff\""},  // not UTF-8
  };
  for (const auto& c : cases) {
    EXPECT_EQ(JsonString(c.text), c.json);
  }
  // A comment segment and a file name holding a script: the page holds them only escaped.
  Bytes sample = test::MakeSampleJpeg();
  const std::string script = "<script>alert(1)</script>";
  Bytes com = {0xFF, 0xFE, 0, static_cast<uint8_t>(script.size() + 2)};
  com.insert(com.end(), script.begin(), script.end());
  sample.insert(sample.begin() + 2, com.begin(), com.end());
  const FileMap map = MapBytes("</script><b>.jpg", sample.data(), sample.size(), false);
  const std::string page = MapPage(map, sample.data());
  EXPECT_EQ(page.find("alert(1)</script>"), std::string::npos);
  EXPECT_EQ(page.find("</script><b>"), std::string::npos);
  EXPECT_NE(page.find("\\u003cscript\\u003ealert(1)"), std::string::npos);
}

// Each claim names its owner: a segment's payload its segment (a thumbnail's segments theirs),
// the stream's own bytes (markers, lengths, compressed data) the stream's owner.
TEST(ByteCoverage, ClaimsNameTheirOwners) {
  const Bytes sample = test::MakeSampleJpeg();
  JPEGReader reader(sample.data(), static_cast<uint32_t>(sample.size()));
  std::vector<ClaimRecord> claims;
  reader.claims = &claims;
  reader.Scan();
  const MarkerList& markers = *reader.markers;
  const auto* app1 = dynamic_cast<const APP1Marker*>(markers.items[1]);
  ASSERT_NE(app1, nullptr);
  ASSERT_NE(app1->thumbnail, nullptr);
  auto owner_at = [&](int64_t offset) -> const void* {
    for (const ClaimRecord& c : claims) {
      if (c.start <= offset && offset < c.end) {
        return c.owner;
      }
    }
    return &claims;  // unclaimed
  };
  for (uint32_t i = 0; i < markers.count; ++i) {
    const JPEGReader::Marker& m = *markers.items[i];
    EXPECT_EQ(owner_at(m.FirstByte(reader.view)), nullptr);      // the marker's 0xFF
    EXPECT_EQ(owner_at(m.FirstByte(reader.view) + 2), nullptr);  // its length
    if (m.length > 0 && owner_at(m.FirstByte(reader.view) + 4) != &claims) {
      EXPECT_EQ(owner_at(m.FirstByte(reader.view) + 4), &m);
    }
  }
  const MarkerList& thumbnail = *app1->thumbnail;
  const JPEGReader::Marker& inner = *thumbnail.items[0];
  EXPECT_EQ(owner_at(inner.FirstByte(reader.view)), app1);  // the thumbnail stream's own bytes
  EXPECT_EQ(owner_at(inner.FirstByte(reader.view) + 4), &inner);
  EXPECT_EQ(owner_at(markers.compressed_data - reader.view), nullptr);
}

// The bands' kinds without the stretches between segments and behind the last.
std::string Segments(const std::string& kinds) {
  std::string out;
  size_t from = 0;
  while (from <= kinds.size()) {
    size_t to = kinds.find(' ', from);
    to = to == std::string::npos ? kinds.size() : to;
    const std::string kind = kinds.substr(from, to - from);
    if (kind != "gap" && kind != "tail") {
      out += (out.empty() ? "" : " ") + kind;
    }
    from = to + 1;
  }
  return out;
}

// The value of `name` among the body's data attributes that the page sets when it is done.
std::string Attribute(const std::string& dom, const std::string& name) {
  const std::string key = " data-" + name + "=\"";
  const size_t at = dom.find(key);
  if (at == std::string::npos) {
    return "(missing)";
  }
  const size_t from = at + key.size();
  return dom.substr(from, dom.find('"', from) - from);
}

size_t CountDirectories(const StreamReport& stream, size_t& entries) {
  size_t directories = stream.directories.size();
  for (const ExifDirectoryRecord& d : stream.directories) {
    entries += d.entries.size();
  }
  for (const StreamReport& t : stream.thumbnails) {
    directories += CountDirectories(t, entries);
  }
  return directories;
}

// Chromium loads the page headless; the page reports what it drew on its body element, and
// each count is checked against the report.
TEST(MapPage, RendersInChromium) {
  const char* chromium = "/usr/bin/chromium";
  CORVI_NEED(std::filesystem::exists(chromium), "chromium");
  struct Case {
    std::string name;
    Bytes bytes;
  };
  std::vector<Case> cases = {{"sample", test::MakeSampleJpeg()}};
  Bytes bad = test::MakeSampleJpeg();
  bad[22] = 0xFF;  // the APP1 length runs past the file
  cases.push_back({"refused", bad});
  Bytes cut = test::MakeSampleJpeg();
  cut.resize(cut.size() - 40);
  cases.push_back({"cut", cut});
  if (test::CorpusAvailable()) {
    cases.push_back({"canon", test::ReadFile(test::CorpusPath("canon-powershot-s40.jpg"))});
    cases.push_back(
        {"progressive", test::ReadFile(test::CorpusPath("derived-hx5v-420-progressive.jpg"))});
  }
  const std::string dir = test::MakeTempDir();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string jpeg = dir + "/" + c.name + ".jpg";
    const std::string html = jpeg + ".html";
    std::filesystem::remove(html);
    {
      FILE* f = std::fopen(jpeg.c_str(), "wb");
      ASSERT_NE(f, nullptr);
      std::fwrite(c.bytes.data(), 1, c.bytes.size(), f);
      std::fclose(f);
    }
    const FileMap map = MapBytes(jpeg, c.bytes.data(), c.bytes.size(), true);
    const FileReport& report = map.report;
    const test::ProcessResult made =
        test::RunProgram(CORVI_MAP_PATH, "corvi-map", dir, {"-d", jpeg});
    ASSERT_EQ(made.status, 0) << made.err;
    const test::ProcessResult shown =
        test::RunProgram(chromium, "chromium", dir,
                         {"--headless", "--no-sandbox", "--disable-gpu",
                          "--virtual-time-budget=5000", "--dump-dom", "file://" + html});
    ASSERT_EQ(shown.status, 0) << shown.err;
    const std::string& dom = shown.out;
    EXPECT_EQ(Attribute(dom, "ready"), "1");
    EXPECT_NE(dom.find("<div id=\"errors\"></div>"), std::string::npos) << "a script error";
    EXPECT_NE(dom.find("<title>" + jpeg + " - corvi map</title>"), std::string::npos);
    // Every segment a band, and each scan's data one of its own; the cut file ends in data.
    EXPECT_EQ(Segments(Attribute(dom, "kinds")), Kinds(report.stream));
    size_t data_bands = 0;
    for (const SegmentRecord& s : report.stream.segments) {
      data_bands += s.data_last >= 0 ? 1 : 0;
    }
    EXPECT_EQ(data_bands, report.scans);
    EXPECT_EQ(Attribute(dom, "issues"), std::to_string(report.issues.items().size()));
    EXPECT_EQ(Attribute(dom, "unclaimed-rows"), std::to_string(report.unclaimed.size()));
    size_t entries = 0;
    const size_t directories = CountDirectories(report.stream, entries);
    EXPECT_EQ(Attribute(dom, "directories"), std::to_string(directories));
    EXPECT_EQ(Attribute(dom, "exif-rows"), std::to_string(entries));
    EXPECT_EQ(Attribute(dom, "maps"), std::to_string(1 + report.stream.thumbnails.size()));
    EXPECT_EQ(Attribute(dom, "claimed"), std::to_string(Claimed(map)));
    const bool failed = !report.scan_failure.empty();
    EXPECT_EQ(failed, dom.find("class=\"report failed\"") != std::string::npos);
    // A file in trouble opens at the trouble, its bytes marked.
    EXPECT_EQ(report.verdict != Verdict::kClean,
              dom.find("<span class=\"f\">") != std::string::npos);
    if (c.name == "sample") {
      EXPECT_EQ(Attribute(dom, "kinds"), "SOI APP0 APP1 COM DQT SOF0 DHT DHT DHT DHT SOS data EOI");
      EXPECT_NE(dom.find("<td>Make</td><td>ASCII</td><td>6</td><td>\"corvi\"</td>"),
                std::string::npos);
      EXPECT_NE(dom.find("Decoded 64 x 48 pixels"), std::string::npos);
    }
  }
  // A screenshot of one page is not blank: it holds far more than an empty page's few bytes.
  const test::ProcessResult shot =
      test::RunProgram(chromium, "chromium", dir,
                       {"--headless", "--no-sandbox", "--disable-gpu", "--virtual-time-budget=5000",
                        "--window-size=1200,900", "--screenshot=" + dir + "/shot.png",
                        "file://" + dir + "/sample.jpg.html"});
  ASSERT_EQ(shot.status, 0) << shot.err;
  EXPECT_GT(std::filesystem::file_size(dir + "/shot.png"), 20000u);
}

}  // namespace
}  // namespace corvi
