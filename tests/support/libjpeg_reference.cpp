// libjpeg-turbo as a peer for the tests. No C++ object with a destructor lives between a setjmp and
// its longjmp.
#include "tests/support/libjpeg_reference.h"

#ifdef CORVI_HAVE_LIBJPEG
#include <csetjmp>
#include <cstdio>
#include <cstdlib>

// jpeglib.h needs size_t and FILE declared before it.
#include <jpeglib.h>
#endif

namespace corvi::test {

#ifndef CORVI_HAVE_LIBJPEG
bool HaveLibjpeg() {
  return false;
}
void DecodeWithLibjpeg(const Bytes&, Reference& out) {
  out.ok = false;
}
Bytes EncodeWithLibjpeg(const EncodeRequest&) {
  return {};
}
#else
namespace {

struct ErrorManager {
  jpeg_error_mgr base;
  std::jmp_buf jump;
};

jpeg_error_mgr* Watch(ErrorManager& errors) {
  jpeg_std_error(&errors.base);
  errors.base.error_exit = [](j_common_ptr info) {
    std::longjmp(reinterpret_cast<ErrorManager*>(info->err)->jump, 1);
  };
  errors.base.emit_message = [](j_common_ptr, int) {};  // warnings are counted, not printed
  return &errors.base;
}

}  // namespace

bool HaveLibjpeg() {
  return true;
}

void DecodeWithLibjpeg(const Bytes& file, Reference& out) {
  jpeg_decompress_struct info;
  ErrorManager errors;
  info.err = Watch(errors);
  out.ok = false;
  if (setjmp(errors.jump) != 0) {
    jpeg_destroy_decompress(&info);
    return;
  }
  jpeg_create_decompress(&info);
  jpeg_mem_src(&info, file.data(), static_cast<unsigned long>(file.size()));
  jpeg_read_header(&info, TRUE);
  info.dct_method = JDCT_FLOAT;
  info.do_fancy_upsampling = FALSE;
  info.out_color_space = JCS_RGB;
  jpeg_start_decompress(&info);
  out.width = info.output_width;
  out.height = info.output_height;
  out.rgb.resize(size_t{out.width} * out.height * 3);
  while (info.output_scanline < info.output_height) {
    JSAMPROW row = out.rgb.data() + size_t{info.output_scanline} * out.width * 3;
    jpeg_read_scanlines(&info, &row, 1);
  }
  jpeg_finish_decompress(&info);
  out.warnings = errors.base.num_warnings;
  jpeg_destroy_decompress(&info);
  out.ok = true;
}

Bytes EncodeWithLibjpeg(const EncodeRequest& request) {
  jpeg_compress_struct info;
  ErrorManager errors;
  info.err = Watch(errors);
  unsigned char* buffer = nullptr;
  unsigned long size = 0;
  const int components = request.gray ? 1 : 3;
  std::vector<uint8_t> row(size_t{request.width} * components);
  if (setjmp(errors.jump) != 0) {
    jpeg_destroy_compress(&info);
    std::free(buffer);
    return {};
  }
  jpeg_create_compress(&info);
  jpeg_mem_dest(&info, &buffer, &size);
  info.image_width = request.width;
  info.image_height = request.height;
  info.input_components = components;
  info.in_color_space = request.gray ? JCS_GRAYSCALE : JCS_RGB;
  jpeg_set_defaults(&info);
  jpeg_set_quality(&info, 90, TRUE);
  info.comp_info[0].h_samp_factor = request.gray ? 1 : request.h;
  info.comp_info[0].v_samp_factor = request.gray ? 1 : request.v;
  info.restart_interval = request.restart_interval;
  if (request.progressive) {
    jpeg_simple_progression(&info);
  }
  jpeg_start_compress(&info, TRUE);
  for (uint32_t y = 0; y < request.height; ++y) {
    for (uint32_t x = 0; x < request.width * components; ++x) {
      // Smooth gradients with some texture, so that every band has coefficients.
      const uint32_t c = x % components, at = x / components;
      row[x] = static_cast<uint8_t>((at * (3 + c) + y * (5 - c) + ((at * y) % 7) * 9) & 0xFF);
    }
    JSAMPROW rows[1] = {row.data()};
    jpeg_write_scanlines(&info, rows, 1);
  }
  jpeg_finish_compress(&info);
  jpeg_destroy_compress(&info);
  Bytes out(buffer, buffer + size);
  std::free(buffer);
  return out;
}
#endif

}  // namespace corvi::test
