// Re-encoding speed of corvi's rewriter against libjpeg-turbo on the same pixels, in megapixels
// per second.
//
// Usage: merge_bench [FILE.jpg] [REPEATS]
// The template (default ../shared/corpus/oppo-r7-13mp-420.jpg, 13 MP 4:2:0) is mapped, scanned
// and decoded once by corvi. Then Merge rewrites it from the decoded layer into a file of a
// temporary directory (no overrides, white background), and libjpeg-turbo compresses the same
// pixels, brought to 8-bit RGB beforehand, into memory with the closest settings: float DCT,
// optimised Huffman tables, the template's quantisation tables and sampling factors. Each is timed
// REPEATS times (default 5) and the best run counts. Peak memory is printed at the end.
#include <sys/resource.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "base/byte_coverage.h"
#include "base/property.h"
#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "bench/bench_util.h"
#include "decode/decode_state.h"
#include "jpeg/jpeg_reader.h"
#include "merge/merge.h"
#include "platform/file_search.h"
#include "platform/file_write.h"

#ifdef CORVI_HAVE_LIBJPEG
#include <csetjmp>
// jpeglib.h needs FILE and size_t declared first.
#include <jpeglib.h>
#endif

namespace {

using corvi::bench::Clock;
using corvi::bench::Narrow;
using corvi::bench::Seconds;
const char* const kDefaultFile = "../shared/corpus/oppo-r7-13mp-420.jpg";
constexpr int kDefaultRepeats = 5;

// Best of `repeats` runs of `work`, in seconds.
template <typename Work>
double BestOf(int repeats, Work work) {
  double best = 0.0;
  for (int i = 0; i < repeats; ++i) {
    const Clock::time_point start = Clock::now();
    work();
    const double seconds = Seconds(start);
    if (i == 0 || seconds < best) {
      best = seconds;
    }
  }
  return best;
}

// Length of the entropy-coded data of a JPEG stream in memory, or -1 when it does not scan.
int64_t CompressedLength(const uint8_t* data, size_t size) {
  if (size < 4 || size > INT32_MAX) {
    return -1;
  }
  try {
    const auto length = static_cast<int32_t>(size);
    corvi::ByteCoverage coverage(data, length);
    corvi::MarkerList markers;
    markers.Scan(coverage, data, length - 2);
    return markers.compressed_length;
  } catch (const corvi::RawLayerException&) {
    return -1;
  }
}

// A private directory for the output and the rewriter's "tempthumb.jpg"; removed on destruction.
class ScratchDirectory {
 public:
  ScratchDirectory() : path(corvi::PlatformMakeTempDirectory(nullptr)) {
    if (path.empty()) {
      throw corvi::RawLayerException(L"Cannot make a temporary directory");
    }
  }
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;
  ~ScratchDirectory() {
    corvi::PlatformDeleteFile(output.c_str());
    corvi::PlatformDeleteFile((path + L"/tempthumb.jpg").c_str());
    corvi::PlatformRemoveDirectory(path.c_str());
  }

  const std::wstring path;
  const std::wstring output = path + L"/merged.jpg";
};

#ifdef CORVI_HAVE_LIBJPEG
// What libjpeg is given of the template: its quantisation tables in natural order and, per
// component of the frame, the sampling factors and table selector.
struct EncoderSetup {
  bool has_table[4] = {};
  unsigned int tables[4][64] = {};
  int component_count = 0;
  int h[4] = {};
  int v[4] = {};
  int quant_index[4] = {};
};

// Reads the DQT and SOF segments of the template; false when something is missing or unusable.
bool ReadSetup(const corvi::MarkerList& markers, EncoderSetup& setup) {
  bool has_frame = false;
  for (uint32_t i = 0; i < markers.count; ++i) {
    const corvi::JPEGReader::Marker& marker = *markers.items[i];
    if (marker.length <= 0) {
      continue;
    }
    const uint8_t* p = marker.payload;
    const uint8_t* end = p + marker.length;
    if (marker.code == 0xDB) {  // DQT
      while (p < end) {
        const int precision = *p >> 4;  // Pq
        const int index = *p & 15;      // Tq
        const int64_t entry = precision == 0 ? 65 : 129;
        if (index > 3 || end - p < entry) {
          return false;
        }
        for (int k = 0; k < 64; ++k) {
          setup.tables[index][corvi::zigzag[k]] =
              precision == 0 ? p[1 + k] : corvi::ReadBig16(p + 1 + 2 * k);
        }
        setup.has_table[index] = true;
        p += entry;
      }
    } else if (!has_frame && marker.code >= 0xC0 && marker.code <= 0xC2) {
      if (marker.length < 6) {
        return false;
      }
      const int count = p[5];  // Nf
      if ((count != 1 && count != 3) || marker.length < 6 + 3 * count) {
        return false;
      }
      setup.component_count = count;
      for (int c = 0; c < count; ++c) {
        const uint8_t* entry = p + 6 + 3 * c;
        setup.h[c] = entry[1] >> 4;
        setup.v[c] = entry[1] & 15;
        setup.quant_index[c] = entry[2] & 3;
      }
      has_frame = true;
    }
  }
  if (!has_frame) {
    return false;
  }
  for (int c = 0; c < setup.component_count; ++c) {
    if (!setup.has_table[setup.quant_index[c]]) {
      return false;
    }
  }
  return true;
}

struct ErrorManager {
  jpeg_error_mgr manager;
  std::jmp_buf jump;
};

void OnError(j_common_ptr info) {
  std::longjmp(reinterpret_cast<ErrorManager*>(info->err)->jump, 1);
}
void OnMessage(j_common_ptr, int) {}

// One compression of `rgb` (3 bytes per pixel) into memory; `output` and `output_size` receive
// libjpeg's buffer, which the caller frees. Nothing with a destructor lives in this frame, so the
// longjmp of the error handler skips no cleanup. Returns false on an error.
bool LibjpegEncode(const uint8_t* rgb, uint32_t width, uint32_t height, const EncoderSetup& setup,
                   unsigned char*& output, unsigned long& output_size) {
  jpeg_compress_struct info;
  ErrorManager errors;
  info.err = jpeg_std_error(&errors.manager);
  errors.manager.error_exit = OnError;
  errors.manager.emit_message = OnMessage;
  output = nullptr;
  output_size = 0;
  if (setjmp(errors.jump) != 0) {
    jpeg_destroy_compress(&info);
    std::free(output);
    output = nullptr;
    return false;
  }
  jpeg_create_compress(&info);
  jpeg_mem_dest(&info, &output, &output_size);
  info.image_width = width;
  info.image_height = height;
  info.input_components = 3;
  info.in_color_space = JCS_RGB;
  jpeg_set_defaults(&info);
  jpeg_set_colorspace(&info, setup.component_count == 1 ? JCS_GRAYSCALE : JCS_YCbCr);
  info.dct_method = JDCT_FLOAT;
  info.optimize_coding = TRUE;
  for (int t = 0; t < 4; ++t) {
    if (!setup.has_table[t]) {
      continue;
    }
    if (info.quant_tbl_ptrs[t] == nullptr) {
      info.quant_tbl_ptrs[t] = jpeg_alloc_quant_table(reinterpret_cast<j_common_ptr>(&info));
    }
    for (int k = 0; k < 64; ++k) {  // natural order, as libjpeg keeps them
      info.quant_tbl_ptrs[t]->quantval[k] = static_cast<UINT16>(setup.tables[t][k]);
    }
    info.quant_tbl_ptrs[t]->sent_table = FALSE;
  }
  for (int c = 0; c < setup.component_count; ++c) {
    info.comp_info[c].h_samp_factor = setup.h[c];
    info.comp_info[c].v_samp_factor = setup.v[c];
    info.comp_info[c].quant_tbl_no = setup.quant_index[c];
  }
  jpeg_start_compress(&info, TRUE);
  const size_t stride = size_t{width} * 3;
  JSAMPROW rows[16];
  while (info.next_scanline < info.image_height) {
    const JDIMENSION first = info.next_scanline;
    JDIMENSION count = 0;
    for (; count < 16 && first + count < info.image_height; ++count) {
      rows[count] = const_cast<uint8_t*>(rgb) + size_t{first + count} * stride;
    }
    jpeg_write_scanlines(&info, rows, count);
  }
  jpeg_finish_compress(&info);
  jpeg_destroy_compress(&info);
  return true;
}

// The layer as 8-bit RGB, transparent pixels over white as the rewriter is asked to show them.
std::vector<uint8_t> ToRgb8(const corvi::RawLayer& layer) {
  const size_t count = size_t{layer.width} * layer.height;
  std::vector<uint8_t> rgb(count * 3);
  for (size_t i = 0; i < count; ++i) {
    const uint16_t* p = layer.pixels + i * 4;
    const uint32_t alpha = p[3];
    for (int c = 0; c < 3; ++c) {
      const uint64_t blended = uint64_t{p[c]} * alpha + uint64_t{0xFFFF} * (0xFFFF - alpha);
      // 16 bits to 8 with rounding: value × 255 / 65535, and alpha / 65535 likewise.
      rgb[i * 3 + c] = static_cast<uint8_t>((blended * 255 + 32767 * uint64_t{0xFFFF}) /
                                            (uint64_t{0xFFFF} * 0xFFFF));
    }
  }
  return rgb;
}
#endif

long PeakResidentKilobytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;  // kilobytes on Linux
}

int BenchFile(const char* path, int repeats) {
  std::printf("%s\n", path);
  const std::wstring name = corvi::DecodeArgument(path);
  try {
    corvi::JPEGReader reader(name.c_str());
    reader.Scan();
    auto layer = std::make_unique<corvi::RawLayer>();
    {
      auto state = std::make_unique<corvi::DecodeState>();
      corvi::DecodeImage(*reader.markers, *state, *layer, false);
    }
    if (layer->pixels == nullptr || layer->width == 0 || layer->height == 0) {
      std::printf("  corvi decoded no pixels\n");
      return 1;
    }
    const uint32_t width = layer->width;
    const uint32_t height = layer->height;
    const double megapixels = static_cast<double>(width) * height / 1e6;
    std::printf("  %u x %u, %.2f megapixels, template %u bytes, best of %d runs\n", width, height,
                megapixels, reader.length, repeats);

    ScratchDirectory scratch;
    corvi::PropertyList overrides;
    const corvi::Background background;  // white
    uint32_t corvi_size = 0;
    const double corvi_seconds = BestOf(repeats, [&] {
      corvi::OutputFile file(scratch.output.c_str());
      corvi::Merge(file, *layer, *reader.markers, overrides, background, scratch.path.c_str());
      corvi_size = file.size;
    });
    int64_t corvi_entropy = -1;
    {
      corvi::JPEGReader merged(scratch.output.c_str());
      corvi_entropy = CompressedLength(merged.view, merged.length);
    }
    const double corvi_rate = megapixels / corvi_seconds;
    std::printf("  corvi    %8.2f MP/s  (%.3f s)  %u bytes, entropy-coded %lld\n", corvi_rate,
                corvi_seconds, corvi_size, static_cast<long long>(corvi_entropy));
#ifdef CORVI_HAVE_LIBJPEG
    EncoderSetup setup;
    if (!ReadSetup(*reader.markers, setup)) {
      std::printf("  libjpeg: the template's tables or frame cannot be carried over\n");
    } else {
      const std::vector<uint8_t> rgb = ToRgb8(*layer);
      unsigned long lib_size = 0;
      int64_t lib_entropy = -1;
      bool ok = true;
      const double lib_seconds = BestOf(repeats, [&] {
        unsigned char* output = nullptr;
        unsigned long size = 0;
        if (!LibjpegEncode(rgb.data(), width, height, setup, output, size)) {
          ok = false;
          return;
        }
        lib_size = size;
        lib_entropy = CompressedLength(output, size);
        std::free(output);
      });
      if (!ok) {
        std::printf("  libjpeg failed\n");
      } else {
        const double lib_rate = megapixels / lib_seconds;
        std::printf("  libjpeg  %8.2f MP/s  (%.3f s)  %lu bytes, entropy-coded %lld\n", lib_rate,
                    lib_seconds, lib_size, static_cast<long long>(lib_entropy));
        std::printf("  ratio corvi/libjpeg %.3f\n", corvi_rate / lib_rate);
      }
    }
#else
    std::printf("  libjpeg not available in this build\n");
#endif
  } catch (const corvi::RawLayerException& e) {
    std::printf("  failed: %s\n", Narrow(e.message).c_str());
    return 1;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 3) {
    std::fprintf(stderr, "usage: merge_bench [FILE.jpg] [REPEATS]\n");
    return 1;
  }
  const char* path = argc > 1 ? argv[1] : kDefaultFile;
  const int repeats = argc > 2 ? std::atoi(argv[2]) : kDefaultRepeats;
  if (repeats < 1) {
    std::fprintf(stderr, "merge_bench: REPEATS must be 1 or more\n");
    return 1;
  }
  const int status = BenchFile(path, repeats);
  std::printf("peak RSS %.1f MB\n", static_cast<double>(PeakResidentKilobytes()) / 1024.0);
  return status;
}
