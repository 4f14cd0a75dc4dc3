// libjpeg-turbo as a peer for the tests. No C++ object with a destructor lives between a setjmp and
// its longjmp.
#include "tests/support/libjpeg_reference.h"

#ifdef CORVI_HAVE_LIBJPEG
#include <csetjmp>
#include <cstdio>
#include <cstdlib>

// jpeglib.h needs size_t and FILE declared before it.
#include <jerror.h>
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
void CheckWithLibjpeg(const Bytes&, LibjpegCheck& out) {
  out.failed = true;
}
bool LibjpegCheck::DamageWarned() const {
  return false;
}
bool LibjpegCheck::DataFailure() const {
  return false;
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

namespace {

// Collects every warning's code and text; an error ends the read through the jump.
struct CheckErrors {
  jpeg_error_mgr base;
  std::jmp_buf jump;
  LibjpegCheck* out;
};

std::string MessageOf(j_common_ptr info) {
  char text[JMSG_LENGTH_MAX];
  info->err->format_message(info, text);
  return text;
}

}  // namespace

void CheckWithLibjpeg(const Bytes& file, LibjpegCheck& out) {
  jpeg_decompress_struct info;
  CheckErrors errors;
  errors.out = &out;
  jpeg_std_error(&errors.base);
  errors.base.error_exit = [](j_common_ptr common) {
    auto* e = reinterpret_cast<CheckErrors*>(common->err);
    e->out->failed = true;
    e->out->error_code = common->err->msg_code;
    e->out->error = MessageOf(common);
    std::longjmp(e->jump, 1);
  };
  errors.base.emit_message = [](j_common_ptr common, int level) {
    if (level < 0) {
      auto* e = reinterpret_cast<CheckErrors*>(common->err);
      e->out->warning_codes.push_back(common->err->msg_code);
      e->out->warnings.push_back(MessageOf(common));
      ++common->err->num_warnings;
    }
  };
  info.err = &errors.base;
  if (setjmp(errors.jump) != 0) {
    jpeg_destroy_decompress(&info);
    return;
  }
  jpeg_create_decompress(&info);
  jpeg_mem_src(&info, file.data(), static_cast<unsigned long>(file.size()));
  jpeg_read_header(&info, TRUE);
  info.scale_num = 1;
  info.scale_denom = 8;
  jpeg_start_decompress(&info);
  // The row lives in libjpeg's own pool, which jpeg_destroy_decompress frees on either way out.
  JSAMPARRAY rows = (*info.mem->alloc_sarray)(reinterpret_cast<j_common_ptr>(&info), JPOOL_IMAGE,
                                              info.output_width * info.output_components, 1);
  while (info.output_scanline < info.output_height) {
    jpeg_read_scanlines(&info, rows, 1);
  }
  jpeg_finish_decompress(&info);
  jpeg_destroy_decompress(&info);
}

bool LibjpegCheck::DamageWarned() const {
  for (int code : warning_codes) {
    switch (code) {
      case JWRN_HIT_MARKER:
      case JWRN_HUFF_BAD_CODE:
      case JWRN_EXTRANEOUS_DATA:
      case JWRN_MUST_RESYNC:
      case JWRN_JPEG_EOF:
      case JWRN_BOGUS_PROGRESSION:
        return true;
      default:
        break;
    }
  }
  return false;
}

bool LibjpegCheck::DataFailure() const {
  if (!failed) {
    return false;
  }
  switch (error_code) {
    // What libjpeg-turbo 2.1 lacks, not what is wrong with the file.
    case JERR_BAD_PRECISION:
    case JERR_SOF_UNSUPPORTED:
    case JERR_EMPTY_IMAGE:
    case JERR_IMAGE_TOO_BIG:
    case JERR_CONVERSION_NOTIMPL:
    case JERR_FRACT_SAMPLE_NOTIMPL:
    case JERR_NOT_COMPILED:
    case JERR_COMPONENT_COUNT:
    case JERR_WIDTH_OVERFLOW:
      return false;
    default:
      return true;
  }
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
