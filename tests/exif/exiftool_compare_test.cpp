// Corpus tests of the Exif reader: every file scans and dumps, and the IFD0 values collected in
// header-only decoding agree with exiftool's.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "decode/decode_state.h"
#include "jpeg/markers.h"
#include "platform/format.h"
#include "tests/support/jpeg_builder.h"
#include "tests/support/require.h"

namespace corvi {
namespace {

using test::Bytes;

std::vector<std::string> CorpusFiles() {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(test::CorpusPath(""))) {
    std::string name = entry.path().filename().string();
    if (name.size() > 4 && name.substr(name.size() - 4) == ".jpg") {
      names.push_back(name);
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

bool HasExif(const Bytes& bytes) {
  static const uint8_t kSignature[] = {0xFF, 0xE1, 0, 0, 'E', 'x', 'i', 'f', 0, 0};
  for (size_t i = 0; i + sizeof kSignature <= bytes.size(); ++i) {
    if (bytes[i] == 0xFF && bytes[i + 1] == 0xE1 &&
        std::memcmp(&bytes[i + 4], kSignature + 4, 6) == 0) {
      return true;
    }
  }
  return false;
}

// Values of IFD0 and IFD1 as exiftool reports them; empty when it has none.
struct ExiftoolValues {
  std::string ifd0[4];
  std::string ifd1[4];
};

// The ids that corvi collects for the four tags, in the order of kExiftoolTags.
constexpr uint32_t kCollectedIds[4] = {0x10F, 0x110, 0x132, 0x112};
constexpr const char* kExiftoolTags[4] = {"Make", "Model", "ModifyDate", "Orientation"};

// Files of the corpus that corvi refuses by its own rules, and why.
struct KnownFailure {
  const char* name;
  const wchar_t* error;
};
constexpr KnownFailure kKnownFailures[] = {
    // IFD0 holds an entry of tag 0x1 with type 0.
    {"sony-dsc-hx5v.jpg", L"Unknown TIFF data type"},
    {"derived-hx5v-exif-arithmetic-progressive.jpg", L"Unknown TIFF data type"},
    {"derived-hx5v-exif-arithmetic.jpg", L"Unknown TIFF data type"},
    {"derived-hx5v-exif-progressive.jpg", L"Unknown TIFF data type"},
    {"derived-hx5v-exif-restart-3mcu.jpg", L"Unknown TIFF data type"},
    // The second Exif segment is too short for a TIFF header.
    {"multiple-exif.jpg", L"Invalid offset or corrupt data"},
    {"tiff-bad-byte-order.jpg", L"Exif header has invalid byte order"},
};

const wchar_t* KnownError(const std::string& name) {
  for (const KnownFailure& known : kKnownFailures) {
    if (name == known.name) {
      return known.error;
    }
  }
  return L"";
}

bool ExiftoolAvailable() {
  return std::filesystem::exists("/usr/bin/exiftool");
}

std::vector<std::string> SplitTabs(const std::string& line) {
  std::vector<std::string> fields(1);
  for (char c : line) {
    if (c == '\t') {
      fields.emplace_back();
    } else if (c != '\n' && c != '\r') {
      fields.back() += c;
    }
  }
  return fields;
}

ExiftoolValues RunExiftool(const std::string& path) {
  std::string command = "/usr/bin/exiftool -T -n";
  for (const char* group : {"IFD0", "IFD1"}) {
    for (const char* tag : kExiftoolTags) {
      command += std::string(" -") + group + ":" + tag;
    }
  }
  command += " '" + path + "' 2>/dev/null";
  std::string output;
  if (FILE* pipe = popen(command.c_str(), "r")) {
    char buffer[4096];
    size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) {
      output.append(buffer, n);
    }
    pclose(pipe);
  }
  std::vector<std::string> f = SplitTabs(output);
  f.resize(8);
  ExiftoolValues values;
  for (size_t i = 0; i < 4; ++i) {
    values.ifd0[i] = f[i] == "-" ? "" : f[i];
    values.ifd1[i] = f[i + 4] == "-" ? "" : f[i + 4];
  }
  return values;
}

// Trailing zero bytes and blanks are not part of the value.
std::string Trim(std::string s) {
  while (!s.empty() && (s.back() == '\0' || s.back() == ' ')) {
    s.pop_back();
  }
  return s;
}

std::string PropertyText(const PropertyList& list, uint32_t id) {
  const Property* p = list.Find(id);
  if (p == nullptr) {
    return "";
  }
  if (p->type == 2) {
    return Trim(std::string(reinterpret_cast<const char*>(p->data), p->count));
  }
  if (p->type == 3) {
    uint16_t v = 0;
    std::memcpy(&v, p->data, 2);
    return std::to_string(v);
  }
  return "(type " + std::to_string(p->type) + ")";
}

TEST(ExifCorpus, ScansDumpsAndAgreesWithExiftoolOnIFD0Values) {
  CORVI_NEED(test::CorpusAvailable(), "the corpus");
  const bool exiftool = ExiftoolAvailable();
  EXPECT_TRUE(exiftool || !test::PeersRequired()) << "needs exiftool (CORVI_REQUIRE_PEERS)";
  int exif_files = 0;
  int compared = 0;
  for (const std::string& name : CorpusFiles()) {
    SCOPED_TRACE(name);
    Bytes bytes = test::ReadFile(test::CorpusPath(name));
    if (bytes.size() < 2 || !HasExif(bytes)) {
      continue;
    }
    test::ScanResult r = test::ScanBytes(bytes);
    EXPECT_EQ(r.error, KnownError(name));
    if (!r.error.empty()) {
      continue;  // the tool prints no dump for a file that fails its scan
    }
    ++exif_files;
    EXPECT_NE(test::DumpText(r, bytes).find("  Marker APP1 (bytes "), std::string::npos);
    if (!exiftool) {
      continue;
    }
    RawLayer layer;
    std::wstring decode_error;
    try {
      DecodeState state;
      DecodeImage(*r.markers, state, layer, true);
    } catch (const RawLayerException& e) {
      decode_error = e.message != nullptr ? e.message : L"";
    }
    // Both directories of the chain go into one list and the later value replaces the earlier:
    // IFD1's value wins where it has one (sony-dsc-p12-progressive.jpg has DateTime and
    // Orientation in both).
    ExiftoolValues expected = RunExiftool(test::CorpusPath(name));
    for (size_t i = 0; i < 4; ++i) {
      const std::string& value = expected.ifd1[i].empty() ? expected.ifd0[i] : expected.ifd1[i];
      if (value.empty()) {
        continue;
      }
      ++compared;
      EXPECT_EQ(PropertyText(layer.properties, kCollectedIds[i]), Trim(value))
          << kExiftoolTags[i] << "; DecodeImage: " << EncodeUtf8(decode_error.c_str());
    }
  }
  EXPECT_GT(exif_files, 10);
  EXPECT_TRUE(!exiftool || compared > 20) << compared << " values compared";
}

}  // namespace
}  // namespace corvi
