// Shared by the segment and Exif tests: streams written in hex, the text reports of a scan and
// of the values it applies, and golden files that hold each input stream beside its report.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>

#include "base/raw_layer.h"
#include "decode/decode_state.h"
#include "jpeg/markers.h"
#include "platform/format.h"
#include "tests/support/golden.h"
#include "tests/support/jpeg_builder.h"

namespace corvi::test {

// Bytes as hex pairs between blanks, "AB*40" standing for 40 bytes 0xAB: "FF D8 00*3 FF D9".
inline Bytes Hex(const std::string& text) {
  Bytes bytes;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    const auto value = static_cast<uint8_t>(std::stoi(word.substr(0, 2), nullptr, 16));
    bytes.insert(bytes.end(), word.size() > 3 ? std::stoul(word.substr(3)) : 1, value);
  }
  return bytes;
}

// A scan of `stream` as text: the error, the segment count, the bytes left unclaimed, the
// length and start of the compressed data and, when the scan succeeded, the dump. The bytes are
// copied to a buffer of their exact size, so that the address sanitizer sees any read behind them.
inline std::string ScanReport(const Bytes& stream) {
  const Bytes exact(stream);
  ScanResult r = ScanBytes(exact);
  std::string text = r.error.empty() ? "" : "error: " + EncodeUtf8(r.error.c_str()) + "\n";
  text += std::to_string(r.markers->count) + " segments, " +
          std::to_string(r.coverage->LeftCount()) + " of " + std::to_string(exact.size()) +
          " bytes left, compressed " + std::to_string(r.markers->compressed_length);
  if (const uint8_t* at = r.markers->compressed_data) {
    text.append(" from ").append(std::to_string(at - exact.data()));
  }
  text += "\n";
  return r.error.empty() ? text + DumpText(r, exact) : text;
}

// What applying every segment in turn leaves in a layer that held a Y Resolution of 7/3: its
// size, each value's id, type and count, and the printed list; then the same for its thumbnail.
inline std::string ApplyReport(const Bytes& stream) {
  ScanResult r = ScanBytes(stream);
  RawLayer layer;
  DecodeState state;
  layer.properties.SetRational(0x11B, 7, 3);
  for (uint32_t i = 0; i < r.markers->count; ++i) {
    r.markers->items[i]->Apply(state, layer, false);
  }
  std::string text;
  for (const RawLayer* l = &layer; l != nullptr; l = l == &layer ? layer.thumbnail : nullptr) {
    text += "layer " + std::to_string(l->width) + "x" + std::to_string(l->height) +
            (l->pixels != nullptr ? " with pixels\n" : "\n");
    OutStream printed;
    for (uint32_t i = 0; i < l->properties.count; ++i) {
      const Property& p = *l->properties.items[i];
      Print(printed, L"  %x type %u count %u\n", p.id, p.type, p.count);
    }
    l->properties.PrintProperties(printed);
    text += printed.Text();
  }
  return text;
}

// Golden cases: each "== NAME" line is followed by its input stream on lines that start with
// "<< ", then by the report that `report` gives for it. The reports are made afresh from the
// inputs and the whole text is compared; an update keeps the inputs and rewrites the reports.
// Lines that start with "#" before the first case are comments, kept as they stand.
inline void ExpectGoldenCases(const std::string& golden,
                              const std::function<std::string(const Bytes&)>& report) {
  const Bytes file = ReadFile(std::string(CORVI_GOLDEN_DIR) + "/" + golden + ".txt");
  std::istringstream lines(std::string(file.begin(), file.end()));
  std::string text, input;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("== ") && text.find("== ") != std::string::npos) {
      text += report(Hex(input));
      input.clear();
    }
    if (line.starts_with("#") && text.find("== ") == std::string::npos) {
      text += line + "\n";
      continue;
    }
    if (line.starts_with("== ") || line.starts_with("<< ")) {
      text += line + "\n";
      input += line.starts_with("<< ") ? line.substr(3) + " " : "";
    }
  }
  ASSERT_FALSE(text.empty()) << "no cases in " << golden;
  ExpectGolden(golden, text + report(Hex(input)));
}

}  // namespace corvi::test
