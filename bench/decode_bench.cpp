// Decoding speed of corvi against libjpeg-turbo on the same files, in megapixels per second.
//
// Usage: decode_bench FILE.jpg ...
// Each file is mapped and scanned once; then corvi's DecodeImage and libjpeg (float IDCT, RGB
// output, plain upsampling, the closest match to corvi's arithmetic) each decode the mapped bytes
// as often as fits into about 1.5 seconds, one after the other in the same run.
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "bench/bench_util.h"
#include "decode/decode_state.h"
#include "jpeg/jpeg_reader.h"
#include "platform/file_search.h"

#ifdef CORVI_HAVE_LIBJPEG
#include <csetjmp>
// jpeglib.h needs FILE and size_t declared first.
#include <jpeglib.h>
#endif

namespace {

using corvi::bench::Clock;
using corvi::bench::Narrow;
using corvi::bench::Seconds;
constexpr double kTargetSeconds = 1.5;

// One decode into a fresh state and layer. With `keep_pixels` the whole RGBA layer is returned,
// as a library caller gets it, on one thread; without, each MCU row goes through a reused buffer
// with a second thread, as the tool decodes. Returns the error text, or empty.
std::string CorviDecode(const corvi::MarkerList& markers, uint32_t& width, uint32_t& height,
                        bool keep_pixels = true) {
  try {
    corvi::DecodeState state;
    state.keep_pixels = keep_pixels;
    state.threads = !keep_pixels;  // the tool's decode uses a second thread
    corvi::RawLayer layer;
    corvi::DecodeImage(markers, state, layer, false);
    if (keep_pixels && layer.pixels == nullptr) {
      return "no pixels decoded";
    }
    width = layer.width;
    height = layer.height;
    return std::string();
  } catch (const corvi::RawLayerException& e) {
    return Narrow(e.message);
  }
}

#ifdef CORVI_HAVE_LIBJPEG
struct ErrorManager {
  jpeg_error_mgr manager;
  std::jmp_buf jump;
};

void OnError(j_common_ptr info) {
  std::longjmp(reinterpret_cast<ErrorManager*>(info->err)->jump, 1);
}
void OnMessage(j_common_ptr, int) {}

// One decode from memory into `buffer` (RGB, 3 bytes per pixel). Nothing with a destructor lives
// in this frame, so the longjmp of the error handler skips no cleanup. Returns false on an error.
bool LibjpegDecode(const uint8_t* data, uint32_t length, std::vector<uint8_t>& buffer,
                   uint32_t& width, uint32_t& height, long& warnings) {
  jpeg_decompress_struct info;
  ErrorManager errors;
  info.err = jpeg_std_error(&errors.manager);
  errors.manager.error_exit = OnError;
  errors.manager.emit_message = OnMessage;
  if (setjmp(errors.jump) != 0) {
    jpeg_destroy_decompress(&info);
    return false;
  }
  jpeg_create_decompress(&info);
  jpeg_mem_src(&info, data, length);
  jpeg_read_header(&info, TRUE);
  info.dct_method = JDCT_FLOAT;
  info.out_color_space = JCS_RGB;
  info.do_fancy_upsampling = FALSE;
  jpeg_start_decompress(&info);
  width = info.output_width;
  height = info.output_height;
  const size_t stride = size_t{width} * 3;
  if (buffer.size() < stride * height) {
    buffer.resize(stride * height);
  }
  JSAMPROW rows[16];
  while (info.output_scanline < info.output_height) {
    const JDIMENSION first = info.output_scanline;
    JDIMENSION count = 0;
    for (; count < 16 && first + count < info.output_height; ++count) {
      rows[count] = buffer.data() + size_t{first + count} * stride;
    }
    jpeg_read_scanlines(&info, rows, count);
  }
  jpeg_finish_decompress(&info);
  warnings = errors.manager.num_warnings;
  jpeg_destroy_decompress(&info);
  return true;
}
#endif

struct Timing {
  int runs = 0;
  double seconds = 0.0;
  double megapixels_per_second = 0.0;
};

// Times `decode` once, then as many times as fit into the target time.
template <typename Decode>
Timing Measure(double megapixels, Decode decode) {
  Clock::time_point start = Clock::now();
  decode();
  const double once = Seconds(start);
  Timing timing;
  timing.runs = once <= 0.0 ? 1000 : static_cast<int>(kTargetSeconds / once) + 1;
  start = Clock::now();
  for (int i = 0; i < timing.runs; ++i) {
    decode();
  }
  timing.seconds = Seconds(start);
  timing.megapixels_per_second = megapixels * timing.runs / timing.seconds;
  return timing;
}

void BenchFile(const char* path) {
  std::printf("%s\n", path);
  const std::wstring name = corvi::DecodeArgument(path);
  try {
    corvi::JPEGReader reader(name.c_str());
    reader.Scan();
    uint32_t width = 0;
    uint32_t height = 0;
    const std::string error = CorviDecode(*reader.markers, width, height);
    if (!error.empty()) {
      std::printf("  corvi failed: %s\n", error.c_str());
      return;
    }
    const double megapixels = static_cast<double>(width) * height / 1e6;
    std::printf("  %u x %u, %.2f megapixels, %u bytes\n", width, height, megapixels, reader.length);
    const Timing corvi_timing =
        Measure(megapixels, [&] { CorviDecode(*reader.markers, width, height); });
    std::printf("  corvi    %8.2f MP/s  (%d runs in %.2f s)  into a full layer\n",
                corvi_timing.megapixels_per_second, corvi_timing.runs, corvi_timing.seconds);
    const Timing streaming_timing =
        Measure(megapixels, [&] { CorviDecode(*reader.markers, width, height, false); });
    std::printf("  corvi    %8.2f MP/s  (%d runs in %.2f s)  row by row, as the tool decodes\n",
                streaming_timing.megapixels_per_second, streaming_timing.runs,
                streaming_timing.seconds);
#ifdef CORVI_HAVE_LIBJPEG
    std::vector<uint8_t> buffer;
    uint32_t lib_width = 0;
    uint32_t lib_height = 0;
    long warnings = 0;
    if (!LibjpegDecode(reader.view, reader.length, buffer, lib_width, lib_height, warnings)) {
      std::printf("  libjpeg failed\n");
      return;
    }
    if (lib_width != width || lib_height != height || warnings != 0) {
      std::printf("  libjpeg: %u x %u, %ld warnings\n", lib_width, lib_height, warnings);
    }
    const Timing lib_timing = Measure(megapixels, [&] {
      LibjpegDecode(reader.view, reader.length, buffer, lib_width, lib_height, warnings);
    });
    std::printf("  libjpeg  %8.2f MP/s  (%d runs in %.2f s)\n", lib_timing.megapixels_per_second,
                lib_timing.runs, lib_timing.seconds);
    std::printf("  ratio corvi (row by row)/libjpeg %.3f\n",
                streaming_timing.megapixels_per_second / lib_timing.megapixels_per_second);
    std::printf("  ratio corvi (full layer)/libjpeg %.3f\n",
                corvi_timing.megapixels_per_second / lib_timing.megapixels_per_second);
#else
    std::printf("  libjpeg not available in this build\n");
#endif
  } catch (const corvi::RawLayerException& e) {
    std::printf("  failed: %s\n", Narrow(e.message).c_str());
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: decode_bench FILE.jpg ...\n");
    return 1;
  }
  for (int i = 1; i < argc; ++i) {
    BenchFile(argv[i]);
  }
  return 0;
}
