// The sample JPEG: a template and a drawn layer handed to the rewriter.
#include "tests/support/sample_jpeg.h"

#include <algorithm>
#include <cstdint>
#include <string>

#include "base/property.h"
#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "decode/decode_state.h"
#include "merge/merge.h"
#include "platform/file_search.h"
#include "platform/file_write.h"
#include "tests/support/tiff_builder.h"

namespace corvi::test {
namespace {

constexpr const char* kDateTime = "2026:11:22 12:00:00";

// T.81 Table K.1 and K.2, natural order.
constexpr uint8_t kQuant[2][64] = {
    {16, 11, 10, 16, 24,  40,  51,  61,  12, 12, 14, 19, 26,  58,  60,  55,
     14, 13, 16, 24, 40,  57,  69,  56,  14, 17, 22, 29, 51,  87,  80,  62,
     18, 22, 37, 56, 68,  109, 103, 77,  24, 35, 55, 64, 81,  104, 113, 92,
     49, 64, 78, 87, 103, 121, 120, 101, 72, 92, 95, 98, 112, 100, 103, 99},
    {17, 18, 24, 47, 99, 99, 99, 99, 18, 21, 26, 66, 99, 99, 99, 99, 24, 26, 56, 99, 99, 99,
     99, 99, 47, 66, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99,
     99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99}};

// Both tables at quality 75 (the usual scaling halves them), in the zig-zag order of the file.
Bytes QuantPayload() {
  Bytes payload;
  for (uint8_t table = 0; table < 2; ++table) {
    payload.push_back(table);
    for (int i = 0; i < 64; ++i) {
      payload.push_back(
          static_cast<uint8_t>(std::max((kQuant[table][zigzag[i]] * 50 + 50) / 100, 1)));
    }
  }
  return payload;
}

// The segments of a 4:2:0 frame up to its scan, with one byte of scan data: a template for the
// rewriter, which keeps the tables and the frame and makes the scan anew. Its Huffman tables
// only name the four tables that the rewriter builds.
JpegBuilder& FrameTemplate(JpegBuilder& builder, uint16_t width, uint16_t height) {
  return builder.Segment(0xDB, QuantPayload())
      .Sof(0xC0, 8, width, height, {{1, 0x22, 0}, {2, 0x11, 1}, {3, 0x11, 1}})
      .Dht(0, 0, {1}, {0})
      .Dht(1, 0, {1}, {0})
      .Dht(0, 1, {1}, {0})
      .Dht(1, 1, {1}, {0})
      .Sos({{1, 0x00}, {2, 0x11}, {3, 0x11}})
      .Entropy({0x00})
      .Eoi();
}

// An Intel TIFF: IFD0 with Make, Model, Orientation, XResolution, DateTime and the Exif
// directory (DateTimeOriginal), then IFD1 naming a 16x12 thumbnail template.
Bytes MakeExifPayload() {
  TiffBuilder tiff(false);
  const TiffDirectoryPlace ifd0 = tiff.Directory({{0x010F, 2, 6, TiffBuilder::Ascii("corvi")},
                                                  {0x0110, 2, 7, TiffBuilder::Ascii("sample")},
                                                  {0x0112, 3, 1, tiff.Short(1)},
                                                  {0x011A, 5, 1, tiff.Rational(72, 1)},
                                                  {0x0132, 2, 20, TiffBuilder::Ascii(kDateTime)},
                                                  {0x8769, 4, 1, tiff.Long(0)}});
  tiff.Patch32(ifd0.value_field[5], tiff.Here());
  tiff.Directory({{0x9003, 2, 20, TiffBuilder::Ascii(kDateTime)}});
  tiff.Patch32(ifd0.next_field, tiff.Here());
  const TiffDirectoryPlace ifd1 = tiff.Directory(
      {{0x0103, 3, 1, tiff.Short(6)}, {0x0201, 4, 1, tiff.Long(0)}, {0x0202, 4, 1, tiff.Long(0)}});
  JpegBuilder builder;
  const Bytes thumbnail = FrameTemplate(builder.Soi(), 16, 12).bytes();
  tiff.Patch32(ifd1.value_field[1], tiff.Append(thumbnail));
  tiff.Patch32(ifd1.value_field[2], static_cast<uint32_t>(thumbnail.size()));
  return tiff.ExifPayload();
}

}  // namespace

Bytes MakeSampleJpeg() {
  constexpr int kWidth = 64, kHeight = 48;
  const Bytes jfif{'J', 'F', 'I', 'F', 0, 1, 1, 1, 0, 72, 0, 72, 0, 0};  // 1.01, 72 dpi, no thumb
  const std::string comment = "corvi sample";
  JpegBuilder builder;
  builder.Soi()
      .Segment(0xE0, jfif)
      .Segment(0xE1, MakeExifPayload())
      .Segment(0xFE, Bytes(comment.begin(), comment.end()));
  const std::string template_path =
      WriteTempFile("template.jpg", FrameTemplate(builder, kWidth, kHeight).bytes());
  const std::string directory = template_path.substr(0, template_path.rfind('/'));
  const std::string output_path = directory + "/sample.jpg";  // both go when the tests end
  try {
    JPEGReader reader(DecodeArgument(template_path.c_str()).c_str());
    reader.Scan();
    RawLayer layer;
    layer.width = kWidth, layer.height = kHeight;
    layer.AllocatePixels();
    // A diagonal colour gradient with an orange disc, a dark blue box and a white line on it.
    for (int y = 0; y < kHeight; ++y) {
      for (int x = 0; x < kWidth; ++x) {
        int r = 40 + x * 3, g = 30 + y * 4, b = 200 - x - y;
        if ((x - 20) * (x - 20) + (y - 22) * (y - 22) <= 12 * 12) {
          r = 240, g = 140, b = 20;
        }
        if (x >= 38 && x < 58 && y >= 6 && y < 20) {
          r = 20, g = 30, b = 120;
        }
        if (x >= 34 && x - 34 == (y - 26) * 2 && y >= 26 && y < 40) {
          r = g = b = 250;
        }
        uint16_t* pixel = &layer.pixels[(y * kWidth + x) * 4];
        for (const int v : {r, g, b, 255}) {
          *pixel++ = static_cast<uint16_t>(v * 257);
        }
      }
    }
    {
      OutputFile file(DecodeArgument(output_path.c_str()).c_str());
      Merge(file, layer, *reader.markers, PropertyList(), Background(),
            DecodeArgument(directory.c_str()).c_str());
    }
    return ReadFile(output_path);
  } catch (const RawLayerException&) {
    return {};
  }
}

}  // namespace corvi::test
