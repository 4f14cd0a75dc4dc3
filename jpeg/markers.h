// The segment class tree: one class per kind of JPEG segment that the reader understands.
#pragma once

#include <cstdint>

#include "jpeg/jpeg_reader.h"
#include "jpeg/segment_fields.h"

namespace corvi {

class TIFFDirectory;

// The fields each class holds are read by its Parse once its claims have succeeded; Dump, Apply,
// Write and every other reader take them from there.

class SOFMarker : public JPEGReader::Marker {
 public:
  using Marker::Marker;
  void Parse(ByteCoverage& coverage) override;
  void Apply(DecodeState& state, RawLayer& layer, bool header_only) override;
  void Dump(const uint8_t* base, int32_t indent, OutStream& stream) override;

  FrameFields frame;
};

class DHTMarker : public JPEGReader::Marker {
 public:
  using Marker::Marker;
  void Parse(ByteCoverage& coverage) override;
  void Apply(DecodeState& state, RawLayer& layer, bool header_only) override;
  // The same table classes and ids in the same order, with the tables built for the new data.
  void Write(MergeState& state, const RawLayer& layer, const PropertyList& overrides,
             const Background& background, ByteBuffer& out) override;
  void Dump(const uint8_t* base, int32_t indent, OutStream& stream) override;

  TableFields tables;
};

class SOSMarker : public JPEGReader::Marker {
 public:
  using Marker::Marker;
  void Parse(ByteCoverage& coverage) override;
  void Apply(DecodeState& state, RawLayer& layer, bool header_only) override;
  void Dump(const uint8_t* base, int32_t indent, OutStream& stream) override;

  ScanFields scan;
};

class DQTMarker : public JPEGReader::Marker {
 public:
  using Marker::Marker;
  void Parse(ByteCoverage& coverage) override;
  void Apply(DecodeState& state, RawLayer& layer, bool header_only) override;
  void Dump(const uint8_t* base, int32_t indent, OutStream& stream) override;

  TableFields tables;
};

class DRIMarker : public JPEGReader::Marker {
 public:
  using Marker::Marker;
  void Parse(ByteCoverage& coverage) override;
  void Apply(DecodeState& state, RawLayer& layer, bool header_only) override;
  // A restart interval is not re-emitted: the rewritten stream has no restart markers.
  void Write(MergeState& state, const RawLayer& layer, const PropertyList& overrides,
             const Background& background, ByteBuffer& out) override;
  void Dump(const uint8_t* base, int32_t indent, OutStream& stream) override;

  uint16_t interval = 0;  // Ri
};

class APP0Marker : public JPEGReader::Marker {
 public:
  using Marker::Marker;
  void Parse(ByteCoverage& coverage) override;
  void Apply(DecodeState& state, RawLayer& layer, bool header_only) override;
  void Dump(const uint8_t* base, int32_t indent, OutStream& stream) override;

  bool jfif_read = false;  // a parsed segment holds JFIF; one whose parse failed does not
  JfifFields jfif;
};

// Exif, XMP or other APP1 content.
class APP1Marker : public JPEGReader::Marker {
 public:
  using Marker::Marker;
  ~APP1Marker() override;
  void Parse(ByteCoverage& coverage) override;
  void Apply(DecodeState& state, RawLayer& layer, bool header_only) override;
  // A copy of the payload with the overrides laid over the Exif values and the thumbnail made
  // anew from the layer.
  void Write(MergeState& state, const RawLayer& layer, const PropertyList& overrides,
             const Background& background, ByteBuffer& out) override;
  void Dump(const uint8_t* base, int32_t indent, OutStream& stream) override;

  TIFFDirectory* directory = nullptr;  // owned; the Exif entries, null unless Exif
  MarkerList* thumbnail = nullptr;     // owned; the embedded thumbnail's segments
  wchar_t* xmp = nullptr;              // owned; the decoded XMP packet, null unless XMP
  int64_t payload_offset = 0;          // of the payload from the start of the mapped data
};

// APP2, APP12 and APP13 claim their whole payload and read only its signature.
class APP2Marker : public JPEGReader::Marker {
 public:
  using Marker::Marker;
  void Parse(ByteCoverage& coverage) override;
  void Dump(const uint8_t* base, int32_t indent, OutStream& stream) override;

  AppKind kind = AppKind::kOther;
};

class APP12Marker : public JPEGReader::Marker {
 public:
  using Marker::Marker;
  void Parse(ByteCoverage& coverage) override;
  void Dump(const uint8_t* base, int32_t indent, OutStream& stream) override;

  AppKind kind = AppKind::kOther;
};

class APP13Marker : public JPEGReader::Marker {
 public:
  using Marker::Marker;
  void Parse(ByteCoverage& coverage) override;
  void Dump(const uint8_t* base, int32_t indent, OutStream& stream) override;

  AppKind kind = AppKind::kOther;
};

class APP14Marker : public JPEGReader::Marker {
 public:
  using Marker::Marker;
  void Parse(ByteCoverage& coverage) override;
  void Dump(const uint8_t* base, int32_t indent, OutStream& stream) override;

  bool adobe_read = false;  // the Adobe signature and header; a foreign APP14 has none
  AdobeFields adobe;
};

class COMMarker : public JPEGReader::Marker {
 public:
  using Marker::Marker;
  void Parse(ByteCoverage& coverage) override;  // claims the whole payload
  void Dump(const uint8_t* base, int32_t indent, OutStream& stream) override;
};

}  // namespace corvi
