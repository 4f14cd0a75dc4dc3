// The IFD0 and IFD1 values collected in header-only decoding of the corpus agree with exiftool's.
// The scan results of the same files are pinned by the golden jpeg_corpus.txt.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "decode/decode_state.h"
#include "tests/support/jpeg_builder.h"
#include "tests/support/require.h"

namespace corvi {
namespace {

// The ids that corvi collects for exiftool's tags, in the order asked for.
constexpr uint32_t kCollectedIds[4] = {0x10F, 0x110, 0x132, 0x112};
constexpr const char* kExiftoolTags =
    " -IFD0:Make -IFD0:Model -IFD0:ModifyDate -IFD0:Orientation"
    " -IFD1:Make -IFD1:Model -IFD1:ModifyDate -IFD1:Orientation";

// Trailing zero bytes and blanks are not part of the value.
std::string Trim(std::string s) {
  s.erase(s.find_last_not_of(std::string(" \0", 2)) + 1);  // npos + 1: all of it
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
  uint16_t v = 0;
  std::memcpy(&v, p->data, 2);
  return p->type == 3 ? std::to_string(v) : "(type " + std::to_string(p->type) + ")";
}

TEST(ExifCorpus, AgreesWithExiftoolOnIFD0Values) {
  CORVI_NEED(test::CorpusAvailable(), "the corpus");
  CORVI_NEED(std::filesystem::exists("/usr/bin/exiftool"), "exiftool");
  // One run over the whole corpus: the file name, then IFD0's values and IFD1's, tab-separated.
  const std::string command = "/usr/bin/exiftool -q -T -n -ext jpg -FileName" +
                              std::string(kExiftoolTags) + " '" + test::CorpusPath("") +
                              "' 2>/dev/null";
  std::string output;
  if (FILE* pipe = popen(command.c_str(), "r")) {
    char buffer[4096];
    for (size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) {
      output.append(buffer, n);
    }
    pclose(pipe);
  }
  int compared = 0;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    std::vector<std::string> f;
    std::istringstream fields(line);
    for (std::string field; std::getline(fields, field, '\t');) {
      f.push_back(field);
    }
    f.resize(9);
    SCOPED_TRACE(f[0]);
    const test::Bytes bytes = test::ReadFile(test::CorpusPath(f[0]));
    test::ScanResult r = test::ScanBytes(bytes);
    if (!r.error.empty()) {
      continue;
    }
    RawLayer layer;
    try {
      DecodeState state;
      DecodeImage(*r.markers, state, layer, true);
    } catch (const RawLayerException&) {
      // the values are collected before the decode fails
    }
    // Both directories of the chain go into one list and the later value replaces the earlier:
    // IFD1's value wins where it has one (sony-dsc-p12-progressive.jpg has DateTime and
    // Orientation in both).
    for (size_t i = 0; i < 4; ++i) {
      const std::string& value = f[i + 5] != "-" ? f[i + 5] : f[i + 1];
      if (value != "-") {
        ++compared;
        EXPECT_EQ(PropertyText(layer.properties, kCollectedIds[i]), Trim(value)) << i;
      }
    }
  }
  EXPECT_GT(compared, 20) << output;
}

}  // namespace
}  // namespace corvi
