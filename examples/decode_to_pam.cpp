// Decodes a JPEG file to a 16-bit RGB_ALPHA PAM file: decode_to_pam IN.jpg OUT.pam
#include <corvi/corvi.h>

#include <cstdio>
#include <cstring>
#include <string>

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: decode_to_pam IN.jpg OUT.pam\n");
    return 2;
  }
  try {
    const std::wstring name = corvi::DecodeUtf8(argv[1], std::strlen(argv[1]));
    corvi::JPEGReader reader(name.c_str());  // maps the file
    reader.Scan();                           // cuts it into segments
    corvi::DecodeState state;                // one thread, default limits
    corvi::RawLayer layer;
    corvi::DecodeImage(*reader.markers, state, layer, false);

    std::FILE* out = std::fopen(argv[2], "wb");
    if (out == nullptr) {
      std::perror(argv[2]);
      return 1;
    }
    std::fprintf(out,
                 "P7\nWIDTH %u\nHEIGHT %u\nDEPTH 4\nMAXVAL 65535\nTUPLTYPE RGB_ALPHA\nENDHDR\n",
                 layer.width, layer.height);
    const size_t samples = size_t{layer.width} * layer.height * 4;
    for (size_t i = 0; i < samples; ++i) {  // PAM samples are big-endian
      const unsigned char bytes[2] = {static_cast<unsigned char>(layer.pixels[i] >> 8),
                                      static_cast<unsigned char>(layer.pixels[i])};
      std::fwrite(bytes, 1, 2, out);
    }
    return std::fclose(out) == 0 ? 0 : 1;
  } catch (const corvi::RawLayerException& e) {
    std::fprintf(stderr, "%s: %s\n", argv[1], corvi::EncodeUtf8(e.message).c_str());
    return 1;
  }
}
