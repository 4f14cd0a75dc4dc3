// A small deterministic colour JPEG made by a minimal baseline encoder, for runs and golden tests.
#include "tests/support/sample_jpeg.h"

#include <cmath>
#include <cstdint>
#include <string>

namespace corvi::test {
namespace {

constexpr int kWidth = kSampleJpegWidth;
constexpr int kHeight = kSampleJpegHeight;
constexpr int kRestartInterval = 4;
constexpr const char* kDateTime = "2026:11:22 12:00:00";

// T.81 Table K.1 and K.2, natural order.
constexpr uint8_t kLuminanceQuant[64] = {
    16, 11, 10, 16, 24,  40,  51,  61,  12, 12, 14, 19, 26,  58,  60,  55,  //
    14, 13, 16, 24, 40,  57,  69,  56,  14, 17, 22, 29, 51,  87,  80,  62,  //
    18, 22, 37, 56, 68,  109, 103, 77,  24, 35, 55, 64, 81,  104, 113, 92,  //
    49, 64, 78, 87, 103, 121, 120, 101, 72, 92, 95, 98, 112, 100, 103, 99,  //
};
constexpr uint8_t kChrominanceQuant[64] = {
    17, 18, 24, 47, 99, 99, 99, 99, 18, 21, 26, 66, 99, 99, 99, 99,  //
    24, 26, 56, 99, 99, 99, 99, 99, 47, 66, 99, 99, 99, 99, 99, 99,  //
    99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99,  //
    99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99,  //
};

// T.81 Annex K.3: code counts by length 1 to 16, then the symbols.
constexpr uint8_t kDcLuminanceBits[16] = {0, 1, 5, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0};
constexpr uint8_t kDcChrominanceBits[16] = {0, 3, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0};
constexpr uint8_t kDcValues[12] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
constexpr uint8_t kAcLuminanceBits[16] = {0, 2, 1, 3, 3, 2, 4, 3, 5, 5, 4, 4, 0, 0, 1, 0x7D};
constexpr uint8_t kAcLuminanceValues[162] = {
    0x01, 0x02, 0x03, 0x00, 0x04, 0x11, 0x05, 0x12, 0x21, 0x31, 0x41, 0x06, 0x13, 0x51, 0x61,  //
    0x07, 0x22, 0x71, 0x14, 0x32, 0x81, 0x91, 0xA1, 0x08, 0x23, 0x42, 0xB1, 0xC1, 0x15, 0x52,  //
    0xD1, 0xF0, 0x24, 0x33, 0x62, 0x72, 0x82, 0x09, 0x0A, 0x16, 0x17, 0x18, 0x19, 0x1A, 0x25,  //
    0x26, 0x27, 0x28, 0x29, 0x2A, 0x34, 0x35, 0x36, 0x37, 0x38, 0x39, 0x3A, 0x43, 0x44, 0x45,  //
    0x46, 0x47, 0x48, 0x49, 0x4A, 0x53, 0x54, 0x55, 0x56, 0x57, 0x58, 0x59, 0x5A, 0x63, 0x64,  //
    0x65, 0x66, 0x67, 0x68, 0x69, 0x6A, 0x73, 0x74, 0x75, 0x76, 0x77, 0x78, 0x79, 0x7A, 0x83,  //
    0x84, 0x85, 0x86, 0x87, 0x88, 0x89, 0x8A, 0x92, 0x93, 0x94, 0x95, 0x96, 0x97, 0x98, 0x99,  //
    0x9A, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7, 0xA8, 0xA9, 0xAA, 0xB2, 0xB3, 0xB4, 0xB5, 0xB6,  //
    0xB7, 0xB8, 0xB9, 0xBA, 0xC2, 0xC3, 0xC4, 0xC5, 0xC6, 0xC7, 0xC8, 0xC9, 0xCA, 0xD2, 0xD3,  //
    0xD4, 0xD5, 0xD6, 0xD7, 0xD8, 0xD9, 0xDA, 0xE1, 0xE2, 0xE3, 0xE4, 0xE5, 0xE6, 0xE7, 0xE8,  //
    0xE9, 0xEA, 0xF1, 0xF2, 0xF3, 0xF4, 0xF5, 0xF6, 0xF7, 0xF8, 0xF9, 0xFA,                    //
};
constexpr uint8_t kAcChrominanceBits[16] = {0, 2, 1, 2, 4, 4, 3, 4, 7, 5, 4, 4, 0, 1, 2, 0x77};
constexpr uint8_t kAcChrominanceValues[162] = {
    0x00, 0x01, 0x02, 0x03, 0x11, 0x04, 0x05, 0x21, 0x31, 0x06, 0x12, 0x41, 0x51, 0x07, 0x61,  //
    0x71, 0x13, 0x22, 0x32, 0x81, 0x08, 0x14, 0x42, 0x91, 0xA1, 0xB1, 0xC1, 0x09, 0x23, 0x33,  //
    0x52, 0xF0, 0x15, 0x62, 0x72, 0xD1, 0x0A, 0x16, 0x24, 0x34, 0xE1, 0x25, 0xF1, 0x17, 0x18,  //
    0x19, 0x1A, 0x26, 0x27, 0x28, 0x29, 0x2A, 0x35, 0x36, 0x37, 0x38, 0x39, 0x3A, 0x43, 0x44,  //
    0x45, 0x46, 0x47, 0x48, 0x49, 0x4A, 0x53, 0x54, 0x55, 0x56, 0x57, 0x58, 0x59, 0x5A, 0x63,  //
    0x64, 0x65, 0x66, 0x67, 0x68, 0x69, 0x6A, 0x73, 0x74, 0x75, 0x76, 0x77, 0x78, 0x79, 0x7A,  //
    0x82, 0x83, 0x84, 0x85, 0x86, 0x87, 0x88, 0x89, 0x8A, 0x92, 0x93, 0x94, 0x95, 0x96, 0x97,  //
    0x98, 0x99, 0x9A, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7, 0xA8, 0xA9, 0xAA, 0xB2, 0xB3, 0xB4,  //
    0xB5, 0xB6, 0xB7, 0xB8, 0xB9, 0xBA, 0xC2, 0xC3, 0xC4, 0xC5, 0xC6, 0xC7, 0xC8, 0xC9, 0xCA,  //
    0xD2, 0xD3, 0xD4, 0xD5, 0xD6, 0xD7, 0xD8, 0xD9, 0xDA, 0xE2, 0xE3, 0xE4, 0xE5, 0xE6, 0xE7,  //
    0xE8, 0xE9, 0xEA, 0xF2, 0xF3, 0xF4, 0xF5, 0xF6, 0xF7, 0xF8, 0xF9, 0xFA,                    //
};

// A Huffman table for encoding: code and length by symbol (T.81 C.2, canonical codes).
struct EncodeTable {
  uint16_t code[256] = {};
  uint8_t size[256] = {};
};

EncodeTable MakeEncodeTable(const uint8_t* bits, const uint8_t* values) {
  EncodeTable table;
  uint32_t code = 0;
  int k = 0;
  for (int length = 1; length <= 16; ++length) {
    for (int i = 0; i < bits[length - 1]; ++i, ++k) {
      table.code[values[k]] = static_cast<uint16_t>(code++);
      table.size[values[k]] = static_cast<uint8_t>(length);
    }
    code <<= 1;
  }
  return table;
}

// Natural index of the i-th coefficient in zig-zag order (T.81 Figure A.6).
void MakeZigzag(int* order) {
  int i = 0;
  for (int sum = 0; sum < 15; ++sum) {
    for (int k = 0; k <= sum; ++k) {
      const int row = sum % 2 == 0 ? sum - k : k;  // even diagonals run upwards
      const int column = sum - row;
      if (row < 8 && column < 8) {
        order[i++] = 8 * row + column;
      }
    }
  }
}

// The usual quality scaling of the Annex K tables: 75 halves them.
uint8_t ScaledQuant(uint8_t value) {
  const int scaled = (value * 50 + 50) / 100;
  return static_cast<uint8_t>(scaled < 1 ? 1 : (scaled > 255 ? 255 : scaled));
}

// T.81 A.3.3 FDCT of level-shifted samples, straight from the definition.
void ForwardDct(const double* samples, double* coefficients) {
  const double pi = 3.14159265358979323846;
  for (int v = 0; v < 8; ++v) {
    for (int u = 0; u < 8; ++u) {
      double sum = 0.0;
      for (int y = 0; y < 8; ++y) {
        for (int x = 0; x < 8; ++x) {
          sum += samples[8 * y + x] * std::cos((2 * x + 1) * u * pi / 16) *
                 std::cos((2 * y + 1) * v * pi / 16);
        }
      }
      const double cu = u == 0 ? 1.0 / std::sqrt(2.0) : 1.0;
      const double cv = v == 0 ? 1.0 / std::sqrt(2.0) : 1.0;
      coefficients[8 * v + u] = cu * cv * sum / 4.0;
    }
  }
}

// Bits needed for the magnitude of `value` (T.81 F.1.2.1 SSSS).
uint32_t Category(int value) {
  uint32_t magnitude = static_cast<uint32_t>(value < 0 ? -value : value);
  uint32_t size = 0;
  while (magnitude != 0) {
    ++size;
    magnitude >>= 1;
  }
  return size;
}

// The additional bits of a value of `size` bits: negative values as value - 1, low bits.
uint32_t AdditionalBits(int value, uint32_t size) {
  const int bits = value < 0 ? value + (1 << size) - 1 : value;
  return static_cast<uint32_t>(bits);
}

struct Encoder {
  int zigzag[64];
  uint8_t quant[2][64];  // natural order
  EncodeTable dc[2];
  EncodeTable ac[2];

  // T.81 F.1.2: one block of level-shifted samples, predictor updated.
  void EncodeBlock(const double* samples, int table, int& predictor, BitWriter& out) const {
    double coefficients[64];
    ForwardDct(samples, coefficients);
    int quantised[64];
    for (int i = 0; i < 64; ++i) {
      quantised[i] = static_cast<int>(std::lround(coefficients[i] / quant[table][i]));
    }
    const int diff = quantised[0] - predictor;
    predictor = quantised[0];
    const uint32_t dc_size = Category(diff);
    out.Put(dc[table].code[dc_size], dc[table].size[dc_size]);
    out.Put(AdditionalBits(diff, dc_size), dc_size);
    int run = 0;
    for (int k = 1; k < 64; ++k) {
      const int value = quantised[zigzag[k]];
      if (value == 0) {
        ++run;
        continue;
      }
      for (; run > 15; run -= 16) {
        out.Put(ac[table].code[0xF0], ac[table].size[0xF0]);
      }
      const uint32_t size = Category(value);
      const uint32_t symbol = (static_cast<uint32_t>(run) << 4) | size;
      out.Put(ac[table].code[symbol], ac[table].size[symbol]);
      out.Put(AdditionalBits(value, size), size);
      run = 0;
    }
    if (run > 0) {
      out.Put(ac[table].code[0x00], ac[table].size[0x00]);
    }
  }
};

void Put16Big(Bytes& out, uint32_t value) {
  out.push_back(static_cast<uint8_t>(value >> 8));
  out.push_back(static_cast<uint8_t>(value));
}

void Put16Little(Bytes& out, uint32_t value) {
  out.push_back(static_cast<uint8_t>(value));
  out.push_back(static_cast<uint8_t>(value >> 8));
}

void Put32Little(Bytes& out, uint32_t value) {
  Put16Little(out, value & 0xFFFF);
  Put16Little(out, value >> 16);
}

void PutText(Bytes& out, const std::string& text) {
  out.insert(out.end(), text.begin(), text.end());
  out.push_back(0);
}

// One directory entry; the value field is `value` (inline) or an offset into the TIFF.
void PutEntry(Bytes& out, uint16_t tag, uint16_t type, uint32_t count, uint32_t value) {
  Put16Little(out, tag);
  Put16Little(out, type);
  Put32Little(out, count);
  if (type == 3 && count == 1) {
    Put16Little(out, value);
    Put16Little(out, 0);
  } else {
    Put32Little(out, value);
  }
}

// An Intel TIFF: IFD0 at 8 with its values behind it, then the Exif directory and its value.
Bytes MakeExifPayload() {
  const std::string make = "corvi";
  const std::string model = "sample";
  const std::string date = kDateTime;
  const uint32_t ifd0_entries = 6;
  uint32_t offset = 8 + 2 + 12 * ifd0_entries + 4;
  const uint32_t make_offset = offset;
  offset += static_cast<uint32_t>(make.size() + 1);
  const uint32_t model_offset = offset;
  offset += static_cast<uint32_t>(model.size() + 1);
  offset += offset & 1;  // values start on word boundaries
  const uint32_t resolution_offset = offset;
  offset += 8;
  const uint32_t date_offset = offset;
  offset += 20;
  const uint32_t exif_ifd_offset = offset;
  const uint32_t original_offset = exif_ifd_offset + 2 + 12 + 4;

  Bytes tiff{'I', 'I'};
  Put16Little(tiff, 42);
  Put32Little(tiff, 8);
  Put16Little(tiff, ifd0_entries);
  PutEntry(tiff, 0x010F, 2, static_cast<uint32_t>(make.size() + 1), make_offset);
  PutEntry(tiff, 0x0110, 2, static_cast<uint32_t>(model.size() + 1), model_offset);
  PutEntry(tiff, 0x0112, 3, 1, 1);
  PutEntry(tiff, 0x011A, 5, 1, resolution_offset);
  PutEntry(tiff, 0x0132, 2, 20, date_offset);
  PutEntry(tiff, 0x8769, 4, 1, exif_ifd_offset);
  Put32Little(tiff, 0);  // no IFD1
  PutText(tiff, make);
  PutText(tiff, model);
  if (tiff.size() % 2 != 0) {
    tiff.push_back(0);
  }
  Put32Little(tiff, 72);
  Put32Little(tiff, 1);
  PutText(tiff, date);
  Put16Little(tiff, 1);
  PutEntry(tiff, 0x9003, 2, 20, original_offset);
  Put32Little(tiff, 0);
  PutText(tiff, date);

  tiff.insert(tiff.begin(), {'E', 'x', 'i', 'f', 0, 0});
  return tiff;
}

Bytes QuantPayload(const Encoder& encoder) {
  Bytes payload;
  for (int table = 0; table < 2; ++table) {
    payload.push_back(static_cast<uint8_t>(table));
    for (int i = 0; i < 64; ++i) {
      payload.push_back(encoder.quant[table][encoder.zigzag[i]]);
    }
  }
  return payload;
}

// The RGB value of one pixel: a diagonal colour gradient with a disc, a box and a line on it.
void SamplePixel(int x, int y, uint8_t* rgb) {
  int r = 40 + x * 3;
  int g = 30 + y * 4;
  int b = 200 - x - y;
  const int dx = x - 20;
  const int dy = y - 22;
  if (dx * dx + dy * dy <= 12 * 12) {  // orange disc
    r = 240;
    g = 140;
    b = 20;
  }
  if (x >= 38 && x < 58 && y >= 6 && y < 20) {  // dark blue box
    r = 20;
    g = 30;
    b = 120;
  }
  if (x >= 34 && x - 34 == (y - 26) * 2 && y >= 26 && y < 40) {  // white line
    r = 250;
    g = 250;
    b = 250;
  }
  rgb[0] = static_cast<uint8_t>(r);
  rgb[1] = static_cast<uint8_t>(g);
  rgb[2] = static_cast<uint8_t>(b);
}

}  // namespace

Bytes SampleJpegPixels() {
  Bytes pixels(static_cast<size_t>(kWidth) * kHeight * 3);
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      SamplePixel(x, y, &pixels[(static_cast<size_t>(y) * kWidth + x) * 3]);
    }
  }
  return pixels;
}

Bytes MakeSampleJpeg() {
  Encoder encoder;
  MakeZigzag(encoder.zigzag);
  for (int i = 0; i < 64; ++i) {
    encoder.quant[0][i] = ScaledQuant(kLuminanceQuant[i]);
    encoder.quant[1][i] = ScaledQuant(kChrominanceQuant[i]);
  }
  encoder.dc[0] = MakeEncodeTable(kDcLuminanceBits, kDcValues);
  encoder.dc[1] = MakeEncodeTable(kDcChrominanceBits, kDcValues);
  encoder.ac[0] = MakeEncodeTable(kAcLuminanceBits, kAcLuminanceValues);
  encoder.ac[1] = MakeEncodeTable(kAcChrominanceBits, kAcChrominanceValues);

  // JFIF YCbCr (T.871), level-shifted by 128.
  const Bytes rgb = SampleJpegPixels();
  std::vector<double> luma(static_cast<size_t>(kWidth) * kHeight);
  std::vector<double> cb(luma.size());
  std::vector<double> cr(luma.size());
  for (size_t i = 0; i < luma.size(); ++i) {
    const double r = rgb[3 * i];
    const double g = rgb[3 * i + 1];
    const double b = rgb[3 * i + 2];
    luma[i] = 0.299 * r + 0.587 * g + 0.114 * b - 128.0;
    cb[i] = -0.168736 * r - 0.331264 * g + 0.5 * b;
    cr[i] = 0.5 * r - 0.418688 * g - 0.081312 * b;
  }

  // MCUs of 16 by 16: four luma blocks, then one Cb and one Cr block averaged over 2 by 2.
  Bytes entropy;
  BitWriter writer;
  int predictors[3] = {0, 0, 0};
  const int mcus_across = kWidth / 16;
  const int mcu_count = mcus_across * (kHeight / 16);
  for (int mcu = 0; mcu < mcu_count; ++mcu) {
    if (mcu > 0 && mcu % kRestartInterval == 0) {
      const Bytes interval = writer.Finish();
      entropy.insert(entropy.end(), interval.begin(), interval.end());
      entropy.push_back(0xFF);
      entropy.push_back(static_cast<uint8_t>(0xD0 + (mcu / kRestartInterval - 1) % 8));
      writer = BitWriter();
      predictors[0] = predictors[1] = predictors[2] = 0;
    }
    const int left = (mcu % mcus_across) * 16;
    const int top = (mcu / mcus_across) * 16;
    double block[64];
    for (int b = 0; b < 4; ++b) {
      for (int i = 0; i < 64; ++i) {
        const int x = left + 8 * (b % 2) + i % 8;
        const int y = top + 8 * (b / 2) + i / 8;
        block[i] = luma[static_cast<size_t>(y) * kWidth + x];
      }
      encoder.EncodeBlock(block, 0, predictors[0], writer);
    }
    const std::vector<double>* chroma[2] = {&cb, &cr};
    for (int c = 0; c < 2; ++c) {
      for (int i = 0; i < 64; ++i) {
        const int x = left + 2 * (i % 8);
        const int y = top + 2 * (i / 8);
        const std::vector<double>& plane = *chroma[c];
        const size_t at = static_cast<size_t>(y) * kWidth + x;
        block[i] = (plane[at] + plane[at + 1] + plane[at + kWidth] + plane[at + kWidth + 1]) / 4.0;
      }
      encoder.EncodeBlock(block, 1, predictors[1 + c], writer);
    }
  }
  const Bytes tail = writer.Finish();
  entropy.insert(entropy.end(), tail.begin(), tail.end());

  Bytes jfif{'J', 'F', 'I', 'F', 0, 1, 1, 1};  // version 1.01, dots per inch
  Put16Big(jfif, 72);
  Put16Big(jfif, 72);
  jfif.push_back(0);  // no thumbnail
  jfif.push_back(0);
  const std::string comment = "corvi sample";

  auto counts = [](const uint8_t* bits) { return std::vector<uint8_t>(bits, bits + 16); };
  return JpegBuilder()
      .Soi()
      .Segment(0xE0, jfif)
      .Segment(0xE1, MakeExifPayload())
      .Segment(0xFE, Bytes(comment.begin(), comment.end()))
      .Segment(0xDB, QuantPayload(encoder))
      .Sof(0xC0, 8, kWidth, kHeight, {{1, 0x22, 0}, {2, 0x11, 1}, {3, 0x11, 1}})
      .Dht(0, 0, counts(kDcLuminanceBits), Bytes(kDcValues, kDcValues + 12))
      .Dht(1, 0, counts(kAcLuminanceBits), Bytes(kAcLuminanceValues, kAcLuminanceValues + 162))
      .Dht(0, 1, counts(kDcChrominanceBits), Bytes(kDcValues, kDcValues + 12))
      .Dht(1, 1, counts(kAcChrominanceBits),
           Bytes(kAcChrominanceValues, kAcChrominanceValues + 162))
      .Dri(kRestartInterval)
      .Sos({{1, 0x00}, {2, 0x11}, {3, 0x11}})
      .Entropy(entropy)
      .Eoi()
      .bytes();
}

}  // namespace corvi::test
