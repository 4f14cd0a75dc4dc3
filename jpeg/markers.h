// The segment class tree: one class per kind of JPEG segment that the reader understands.
#pragma once

#include <cstdint>

#include "jpeg/jpeg_reader.h"

namespace corvi {

class TIFFDirectory;

class SOFMarker : public JPEGReader::Marker {
 public:
  using Marker::Marker;
  void Parse(ByteCoverage& coverage) override;
  void Apply(DecodeState& state, RawLayer& layer, bool header_only) override;
  void Dump(const uint8_t* base, int32_t indent, OutStream& stream) override;
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
};

class SOSMarker : public JPEGReader::Marker {
 public:
  using Marker::Marker;
  void Parse(ByteCoverage& coverage) override;
  void Apply(DecodeState& state, RawLayer& layer, bool header_only) override;
  void Dump(const uint8_t* base, int32_t indent, OutStream& stream) override;
};

class DQTMarker : public JPEGReader::Marker {
 public:
  using Marker::Marker;
  void Parse(ByteCoverage& coverage) override;
  void Apply(DecodeState& state, RawLayer& layer, bool header_only) override;
  void Dump(const uint8_t* base, int32_t indent, OutStream& stream) override;
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
};

class APP0Marker : public JPEGReader::Marker {
 public:
  using Marker::Marker;
  void Parse(ByteCoverage& coverage) override;
  void Apply(DecodeState& state, RawLayer& layer, bool header_only) override;
  void Dump(const uint8_t* base, int32_t indent, OutStream& stream) override;
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

class APP2Marker : public JPEGReader::Marker {
 public:
  using Marker::Marker;
  void Parse(ByteCoverage& coverage) override;  // claims the whole payload
  void Dump(const uint8_t* base, int32_t indent, OutStream& stream) override;
};

class APP12Marker : public JPEGReader::Marker {
 public:
  using Marker::Marker;
  void Parse(ByteCoverage& coverage) override;  // claims the whole payload
  void Dump(const uint8_t* base, int32_t indent, OutStream& stream) override;
};

class APP13Marker : public JPEGReader::Marker {
 public:
  using Marker::Marker;
  void Parse(ByteCoverage& coverage) override;  // claims the whole payload
  void Dump(const uint8_t* base, int32_t indent, OutStream& stream) override;
};

class APP14Marker : public JPEGReader::Marker {
 public:
  using Marker::Marker;
  void Parse(ByteCoverage& coverage) override;
  void Dump(const uint8_t* base, int32_t indent, OutStream& stream) override;
};

class COMMarker : public JPEGReader::Marker {
 public:
  using Marker::Marker;
  void Parse(ByteCoverage& coverage) override;  // claims the whole payload
  void Dump(const uint8_t* base, int32_t indent, OutStream& stream) override;
};

}  // namespace corvi
