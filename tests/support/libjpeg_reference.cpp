// libjpeg-turbo as a reference decoder for the tests: float DCT, box upsampling, RGB out.
#include "tests/support/libjpeg_reference.h"

#ifdef CORVI_HAVE_LIBJPEG
#include <csetjmp>
#include <cstdio>

// jpeglib.h needs size_t and FILE declared before it.
#include <jpeglib.h>
#endif

namespace corvi::test {

#ifdef CORVI_HAVE_LIBJPEG
namespace {

struct ErrorManager {
  jpeg_error_mgr base;
  std::jmp_buf jump;
};

void OnError(j_common_ptr info) {
  std::longjmp(reinterpret_cast<ErrorManager*>(info->err)->jump, 1);
}

void OnMessage(j_common_ptr, int) {}  // warnings are counted, not printed

}  // namespace

bool HaveLibjpeg() {
  return true;
}

// No C++ object with a destructor lives between setjmp and longjmp.
void DecodeWithLibjpeg(const Bytes& file, Reference& out) {
  jpeg_decompress_struct info;
  ErrorManager errors;
  info.err = jpeg_std_error(&errors.base);
  errors.base.error_exit = OnError;
  errors.base.emit_message = OnMessage;
  if (setjmp(errors.jump) != 0) {
    jpeg_destroy_decompress(&info);
    out.ok = false;
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

#else

bool HaveLibjpeg() {
  return false;
}
void DecodeWithLibjpeg(const Bytes&, Reference& out) {
  out.ok = false;
}

#endif

}  // namespace corvi::test
