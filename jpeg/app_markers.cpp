// Parse, Dump and Apply of the application and comment segments: JFIF (APP0), ICC profile (APP2),
// Ducky (APP12), Photoshop (APP13), Adobe (APP14) and COM.
//
// Only JFIF and Adobe are looked at behind their signatures. The others claim their whole payload
// and their dump says which content the signature announced. Offsets are computed as int64 from
// the coverage's base, so no pointer outside the data is formed.
#include <cstring>

#include "base/byte_coverage.h"
#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "jpeg/markers.h"
#include "platform/format.h"

namespace corvi {
namespace {

constexpr uint8_t kJfifSignature[5] = {'J', 'F', 'I', 'F', 0};
constexpr uint8_t kAdobeSignature[5] = {'A', 'd', 'o', 'b', 'e'};

constexpr int32_t kJfifHeaderBytes = 14;   // signature, version, units, densities, thumbnail size
constexpr int32_t kAdobeHeaderBytes = 12;  // signature to colour transform

// The shared Parse of the segments that claim their whole payload (a negative length is refused
// by the coverage with "Invalid header length or corrupt data"); then their signature is read,
// in its full width.
AppKind ClaimAll(const JPEGReader::Marker& marker, ByteCoverage& coverage) {
  if (marker.length != 0) {
    coverage.IdentifyAt(coverage.OffsetOf(marker.payload), marker.length);
  }
  return ReadAppKind(marker.code, marker.payload, marker.length);
}

// The signature line of APP2, APP12 and APP13: printed when the signature matched; the content
// behind it is not read.
void DumpSignatureSegment(const JPEGReader::Marker& marker, const wchar_t* head, bool signature,
                          const wchar_t* line, const uint8_t* base, int32_t indent,
                          OutStream& stream) {
  PrintHead(marker, head, base, indent, stream);
  if (signature) {
    PrintIndent(indent + 1, stream);
    Print(stream, line);
  }
}

uint32_t JfifThumbnailBytes(const JfifFields& jfif) {
  return 3 * uint32_t{jfif.thumbnail_width} * uint32_t{jfif.thumbnail_height};
}

}  // namespace

// JFIF 1.02: "JFIF\0", version, units, Xdensity, Ydensity, Xthumbnail, Ythumbnail, then the
// thumbnail's RGB bytes. Every other APP0 content (JFXX included) ends the scan. The 14 header
// bytes are claimed whatever `length` says; bytes behind the thumbnail stay unclaimed.
void APP0Marker::Parse(ByteCoverage& coverage) {
  if (length < 5) {
    throw RawLayerException(L"Unknown APP0 signature");
  }
  const int64_t origin = coverage.OffsetOf(payload);
  // The stored length may promise more than the data holds. A signature that is not all inside
  // the data is never read: the claim of the header fails instead, as behind any other segment
  // that runs off the end.
  if (!coverage.InData(origin, 5)) {
    coverage.IdentifyAt(origin, kJfifHeaderBytes);
  }
  if (std::memcmp(payload, kJfifSignature, 5) != 0) {
    throw RawLayerException(L"Unknown APP0 signature");
  }
  coverage.IdentifyAt(origin, kJfifHeaderBytes);
  jfif_read = ReadJfifFields(payload, kJfifHeaderBytes, jfif);
  const uint32_t thumbnail_bytes = JfifThumbnailBytes(jfif);
  if (thumbnail_bytes != 0) {
    coverage.IdentifyAt(origin + kJfifHeaderBytes, static_cast<int32_t>(thumbnail_bytes));
  }
}

// Units 1 (dots per inch) and 2 (dots per centimetre) become the TIFF resolution properties. The
// unit is stored as JFIF codes it, not translated to TIFF's 2 and 3.
void APP0Marker::Apply(DecodeState& /*state*/, RawLayer& layer, bool /*header_only*/) {
  if (!jfif_read || (jfif.units != 1 && jfif.units != 2)) {
    return;
  }
  layer.properties.SetShort(0x128, jfif.units);            // Resolution Unit
  layer.properties.SetRational(0x11A, jfif.x_density, 1);  // X Resolution
  layer.properties.SetRational(0x11B, jfif.y_density, 1);  // Y Resolution
}

void APP0Marker::Dump(const uint8_t* base, int32_t indent, OutStream& stream) {
  PrintHead(*this, L"Marker APP0 (bytes %d - %d)\n", base, indent, stream);
  if (!jfif_read) {
    return;
  }
  PrintIndent(indent + 1, stream);
  Print(stream, L"JFIF version 0x%04x\n", static_cast<uint32_t>(jfif.major << 8 | jfif.minor));
  const uint8_t units = jfif.units;
  const uint16_t x_density = jfif.x_density;
  const uint16_t y_density = jfif.y_density;
  PrintIndent(indent + 1, stream);
  if (units == 0) {
    Print(stream, L"Aspect ratio %u:%u\n", x_density, y_density);
  } else if (units == 1) {
    Print(stream, L"X resolution: %u DPI\n", x_density);
    PrintIndent(indent + 1, stream);
    Print(stream, L"Y resolution: %u DPI\n", y_density);
  } else if (units == 2) {
    Print(stream, L"X resolution: %u DPCM\n", x_density);
    PrintIndent(indent + 1, stream);
    Print(stream, L"Y resolution: %u DPCM\n", y_density);
  } else {
    Print(stream, L"Bogus aspect ratio code %u %u x %u\n", units, x_density, y_density);
  }
  const uint32_t thumbnail_bytes = JfifThumbnailBytes(jfif);
  PrintIndent(indent + 1, stream);
  Print(stream, L"Thumbnail size %u x %u (%u bytes)\n", jfif.thumbnail_width, jfif.thumbnail_height,
        thumbnail_bytes);
  if (thumbnail_bytes + kJfifHeaderBytes != static_cast<uint32_t>(length)) {
    PrintIndent(indent + 1, stream);
    Print(stream, L"  (I actually have %d bytes of thumbnail!)\n", length - kJfifHeaderBytes);
  }
}

void APP2Marker::Parse(ByteCoverage& coverage) {
  kind = ClaimAll(*this, coverage);
}

void APP2Marker::Dump(const uint8_t* base, int32_t indent, OutStream& stream) {
  DumpSignatureSegment(*this, L"Marker APP2 (bytes %d - %d)\n", kind == AppKind::kIcc,
                       L"\"ICC_PROFILE\" signature\n", base, indent, stream);
}

void APP12Marker::Parse(ByteCoverage& coverage) {
  kind = ClaimAll(*this, coverage);
}

void APP12Marker::Dump(const uint8_t* base, int32_t indent, OutStream& stream) {
  DumpSignatureSegment(*this, L"Marker APP12 (bytes %d - %d)\n", kind == AppKind::kDucky,
                       L"\"Ducky\" signature\n", base, indent, stream);
}

void APP13Marker::Parse(ByteCoverage& coverage) {
  kind = ClaimAll(*this, coverage);
}

void APP13Marker::Dump(const uint8_t* base, int32_t indent, OutStream& stream) {
  DumpSignatureSegment(*this, L"Marker APP13 (bytes %d - %d)\n", kind == AppKind::kPhotoshop,
                       L"Photoshop 3.0 content\n", base, indent, stream);
}

// Adobe: "Adobe", one byte not read, version, flags0, flags1, colour transform. A foreign APP14 is
// no failure: nothing of it is claimed. The 12 header bytes are claimed whatever `length` says.
void APP14Marker::Parse(ByteCoverage& coverage) {
  const int64_t origin = coverage.OffsetOf(payload);
  // A signature that is not all inside the data is never read; the segment then claims nothing,
  // and the scan fails on the end of the data.
  if (length < 5 || !coverage.InData(origin, 5) || std::memcmp(payload, kAdobeSignature, 5) != 0) {
    return;
  }
  coverage.IdentifyAt(origin, kAdobeHeaderBytes);
  adobe_read = ReadAdobeFields(payload, kAdobeHeaderBytes, adobe);
}

void APP14Marker::Dump(const uint8_t* base, int32_t indent, OutStream& stream) {
  PrintHead(*this, L"Marker APP14 (bytes %d - %d)\n", base, indent, stream);
  if (!adobe_read) {
    return;
  }
  PrintIndent(indent + 1, stream);
  Print(stream, L"\"Adobe\" signature\n");
  const uint8_t transform = adobe.transform;
  const wchar_t* transform_name = transform == 1 ? L"YCbCr" : transform == 2 ? L"YCCK" : L"Unknown";
  PrintIndent(indent + 1, stream);
  Print(stream, L"version=%u, flags0=%x, flags1=%x, color transform=%s\n", adobe.version,
        adobe.flags0, adobe.flags1, transform_name);
}

void COMMarker::Parse(ByteCoverage& coverage) {
  ClaimAll(*this, coverage);
}

// The comment on the head line, between double quotes, with line ends, tabs and the bytes outside
// printable ASCII escaped; a double quote and a backslash are printed as they are.
void COMMarker::Dump(const uint8_t* base, int32_t indent, OutStream& stream) {
  PrintHead(*this, L"Marker COM (bytes %d - %d): \"", base, indent, stream);
  for (int32_t i = 0; i < length; ++i) {
    const uint8_t byte = payload[i];
    if (byte == 10) {
      Print(stream, L"\\n");
    } else if (byte == 13) {
      Print(stream, L"\\r");
    } else if (byte == 9) {
      Print(stream, L"\\t");
    } else if (byte >= 32 && byte <= 126) {
      Print(stream, L"%c", static_cast<wchar_t>(byte));
    } else {
      Print(stream, L"\\%03o", byte);
    }
  }
  Print(stream, L"\"\n");
}

}  // namespace corvi
