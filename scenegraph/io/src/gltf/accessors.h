#pragma once

#include <optional>
#include <string>

#include "gltf/buffers.h"
#include "osg/geo_property.h"

namespace osg::io {

/// Elements of an accessor as they stand in the file; checked, so that all of them can be read.
struct AccessorView {
  std::string place;                // for messages
  const std::byte* data = nullptr;  // null: all zeros
  std::size_t stride = 0;
  UInt32 count = 0;
  UInt32 components = 0;
  int component_type = 0;
  bool normalized = false;
  struct Sparse {
    UInt32 count;
    const std::byte* indices;
    int index_type;
    const std::byte* values;  // tightly packed
  };
  std::optional<Sparse> sparse;

  UInt32 component_bytes() const;
  UInt32 element_bytes() const { return components * component_bytes(); }
};

/// Reads accessors. What is decoded in all is bounded by a multiple of the document's bytes, so
/// that a small file whose accessors overlap can't fill the memory.
class GltfAccessors {
 public:
  /// Keeps references to both.
  GltfAccessors(const GltfDocument& document, GltfBuffers& buffers)
      : document_(document), buffers_(buffers) {}

  /// The elements, to be decoded now: counts them. Throws `ReadError`.
  AccessorView admit(int index);
  /// `count * components` floats in a row; integers are converted, normalised ones to 0..1 or
  /// -1..1. Components that the accessor lacks are zero.
  static void read_floats(const AccessorView& view, UInt32 components, Real32* out);
  /// The same for unsigned bytes, taken as they are.
  static void read_bytes(const AccessorView& view, UInt32 components, UInt8* out);

  struct Indices {
    GeoIndicesPtr property;  // 16 bits for files' 8 and 16, else 32
    UInt32 largest = 0;
  };
  Indices read_indices(int index);

 private:
  const GltfDocument& document_;
  GltfBuffers& buffers_;
  std::size_t decoded_bytes_ = 0;

  AccessorView checked_view(const tinygltf::Accessor& accessor, const std::string& place);
  void take_buffer_view(AccessorView& view, const tinygltf::Accessor& accessor);
  void take_sparse(AccessorView& view, const tinygltf::Accessor& accessor);
};

}  // namespace osg::io
