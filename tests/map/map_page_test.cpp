// The file map: the page's data comes from the scan's own records (bands, claims, unclaimed
// ranges, Exif rows, thumbnails), text from the file can never become markup, and the page works
// in a real browser.
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

FileMap MapBytes(const Bytes& bytes, bool decode = false) {
  const std::string path = test::WriteTempFile("x.jpg", bytes);
  return MapFile(DecodeUtf8(path.data(), path.size()).c_str(), decode);
}

// The bands tile the stream without gap or overlap, and every claim lies inside it.
void ExpectTiled(const StreamMap& map) {
  int64_t next = map.first;
  for (const MapBand& band : map.bands) {
    EXPECT_EQ(band.first, next) << band.kind;
    EXPECT_LE(band.first, band.last) << band.kind;
    next = band.last + 1;
  }
  EXPECT_EQ(next, map.last + 1);
  for (const ClaimRecord& claim : map.claims) {
    EXPECT_TRUE(claim.start >= map.first && claim.end <= map.last + 1 && claim.start < claim.end);
  }
  for (const StreamMap& thumbnail : map.thumbnails) {
    ExpectTiled(thumbnail);
  }
}

std::string Kinds(const StreamMap& map) {
  std::string kinds;
  for (const MapBand& band : map.bands) {
    kinds += band.kind + " ";
  }
  return kinds;
}

TEST(MapFile, SampleBandsClaimsExifAndThumbnail) {
  const Bytes sample = test::MakeSampleJpeg();
  const FileMap map = MapBytes(sample, true);
  EXPECT_FALSE(map.failed);
  EXPECT_EQ(map.identified + map.left, sample.size());
  EXPECT_EQ(Kinds(map.file), "SOI APP0 APP1 COM DQT SOF0 DHT DHT DHT DHT SOS data EOI ");
  ExpectTiled(map.file);
  // Every claimed byte once: the claims add up to the identified count.
  uint64_t claimed = 0;
  for (const ClaimRecord& claim : map.file.claims) {
    claimed += static_cast<uint64_t>(claim.end - claim.start);
  }
  EXPECT_EQ(claimed, map.identified);
  ASSERT_EQ(map.file.thumbnails.size(), 1u);
  EXPECT_EQ(Kinds(map.file.thumbnails[0]), "SOI DQT SOF0 DHT DHT DHT DHT SOS data EOI ");
  bool make = false;
  for (const MapExifRow& row : map.file.exif) {
    make = make || (row.tag == 0x10F && row.name == "Make" && row.value == "\"corvi\"");
  }
  EXPECT_TRUE(make);
  EXPECT_EQ(map.width, 64u);
  EXPECT_EQ(map.mcu_width, 16);
  EXPECT_NE(map.decode_report.find("Decoded 64 x 48 pixels"), std::string::npos);
  // The dump of a band is the tool's.
  const std::string dump = test::DumpText(test::ScanBytes(sample), sample);
  for (const MapBand& band : map.file.bands) {
    EXPECT_NE(dump.find(band.dump), std::string::npos) << band.kind;
  }
}

// Each claim names its owner: a segment's payload its segment (a thumbnail's segments theirs),
// the stream's own bytes (markers, lengths, compressed data) the stream's owner.
TEST(ByteCoverage, ClaimsNameTheirOwners) {
  const Bytes sample = test::MakeSampleJpeg();
  const std::string path = test::WriteTempFile("owners.jpg", sample);
  JPEGReader reader(DecodeUtf8(path.data(), path.size()).c_str());
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

TEST(MapFile, FailingFileKeepsWhatTheScanReached) {
  Bytes cut = test::MakeSampleJpeg();
  cut.resize(cut.size() / 2);  // no end-of-image marker any more
  const FileMap no_end = MapBytes(cut);
  EXPECT_TRUE(no_end.failed);
  EXPECT_EQ(no_end.report.rfind("Failed on ", 0), 0u) << no_end.report;
  // A segment whose length runs past the file: the map shows the segments before it, and the
  // failure at the refused claim.
  Bytes bad = test::MakeSampleJpeg();
  const size_t app1 = 20;  // the APP1 segment's marker
  ASSERT_EQ(bad[app1 + 1], 0xE1);
  bad[app1 + 2] = 0xFF;
  const FileMap refused = MapBytes(bad);
  EXPECT_TRUE(refused.failed);
  EXPECT_EQ(Kinds(refused.file).rfind("SOI APP0 APP1 ", 0), 0u) << Kinds(refused.file);
  EXPECT_GE(refused.failed_at.start, static_cast<int32_t>(app1));
  ExpectTiled(refused.file);
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
  };
  for (const auto& c : cases) {
    EXPECT_EQ(JsonString(c.text), c.json);
  }
  // A comment segment holding a script: the page holds it only escaped.
  Bytes sample = test::MakeSampleJpeg();
  const std::string script = "<script>alert(1)</script>";
  Bytes com = {0xFF, 0xFE, 0, static_cast<uint8_t>(script.size() + 2)};
  com.insert(com.end(), script.begin(), script.end());
  sample.insert(sample.begin() + 2, com.begin(), com.end());
  const FileMap map = MapBytes(sample);
  const std::string page = MapPage(map, sample.data());
  EXPECT_EQ(page.find("alert(1)</script>"), std::string::npos);
  EXPECT_NE(page.find("\\u003cscript\\u003ealert(1)"), std::string::npos);
}

// Chromium loads the page headless; the page reports what it drew on its body element.
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
  if (test::CorpusAvailable()) {
    cases.push_back({"canon", test::ReadFile(test::CorpusPath("canon-powershot-s40.jpg"))});
  }
  const std::string dir = test::MakeTempDir();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string jpeg = dir + "/" + c.name + ".jpg";
    const std::string html = jpeg + ".html";
    std::filesystem::remove(html);
    {
      const Bytes& b = c.bytes;
      FILE* f = std::fopen(jpeg.c_str(), "wb");
      ASSERT_NE(f, nullptr);
      std::fwrite(b.data(), 1, b.size(), f);
      std::fclose(f);
    }
    const FileMap map = MapBytes(c.bytes, true);
    const test::ProcessResult made =
        test::RunProgram(CORVI_MAP_PATH, "corvi-map", dir, {"-d", jpeg});
    ASSERT_EQ(made.status, 0) << made.err;
    const test::ProcessResult shown =
        test::RunProgram(chromium, "chromium", dir,
                         {"--headless", "--no-sandbox", "--disable-gpu",
                          "--virtual-time-budget=5000", "--dump-dom", "file://" + html});
    ASSERT_EQ(shown.status, 0) << shown.err;
    const std::string& dom = shown.out;
    EXPECT_NE(dom.find("data-ready=\"1\""), std::string::npos);
    EXPECT_NE(dom.find("<div id=\"errors\"></div>"), std::string::npos) << "a script error";
    EXPECT_NE(dom.find("data-bands=\"" + std::to_string(map.file.bands.size()) + "\""),
              std::string::npos);
    size_t exif_rows = map.file.exif.size();
    for (const StreamMap& t : map.file.thumbnails) {
      exif_rows += t.exif.size();
    }
    EXPECT_NE(dom.find("data-exif-rows=\"" + std::to_string(exif_rows) + "\""), std::string::npos);
    // One stripe for each unclaimed range in each band it touches.
    size_t stripes = 0;
    for (const MapBand& band : map.file.bands) {
      for (const ByteRange& u : map.file.unclaimed) {
        stripes += u.start <= band.last && u.end > band.first ? 1 : 0;
      }
    }
    EXPECT_NE(dom.find("data-unclaimed=\"" + std::to_string(stripes) + "\""), std::string::npos);
    EXPECT_EQ(map.failed, dom.find("class=\"report failed\"") != std::string::npos);
    // A failing file opens the segment where the scan stopped, its failing bytes marked.
    EXPECT_EQ(map.failed, dom.find("<span class=\"f\">") != std::string::npos);
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
