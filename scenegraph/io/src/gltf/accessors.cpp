#include "gltf/accessors.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace osg::io {
namespace {

constexpr std::size_t kDecodedBytesPerByte = 64;
constexpr std::size_t kDecodedBytesAlways = std::size_t{16} << 20;

UInt32 bytes_of_component(int type) {
  switch (type) {
    case TINYGLTF_COMPONENT_TYPE_BYTE:
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE:
      return 1;
    case TINYGLTF_COMPONENT_TYPE_SHORT:
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT:
      return 2;
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT:
    case TINYGLTF_COMPONENT_TYPE_FLOAT:
      return 4;
    default:
      return 0;
  }
}

UInt32 components_of_type(int type) {
  switch (type) {
    case TINYGLTF_TYPE_SCALAR:
      return 1;
    case TINYGLTF_TYPE_VEC2:
      return 2;
    case TINYGLTF_TYPE_VEC3:
      return 3;
    case TINYGLTF_TYPE_VEC4:
      return 4;
    default:
      return 0;  // matrices are for skins only
  }
}

/// Bytes from an element's first to the next's; 0 in the file means that they touch.
bool fits(std::size_t bytes, std::size_t offset, std::size_t stride, std::size_t element,
          std::size_t count) {
  if (count == 0) return true;
  if (offset > bytes || element > bytes - offset) return false;
  return count - 1 <= (bytes - offset - element) / stride;
}

template <class T>
T load(const std::byte* from) {
  T value;
  std::memcpy(&value, from, sizeof(T));
  return value;
}

template <class T>
Real32 as_float(T value, bool normalized) {
  const auto number = static_cast<Real32>(value);
  if constexpr (std::is_floating_point_v<T>) {
    return number;
  } else {
    if (!normalized) return number;
    return std::max(number / static_cast<Real32>(std::numeric_limits<T>::max()), -1.0f);
  }
}

/// Calls `run(T{})` for the type that the file's number stands for.
template <class Run>
void with_component_type(int type, Run&& run) {
  switch (type) {
    case TINYGLTF_COMPONENT_TYPE_BYTE:
      return run(Int8{});
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE:
      return run(UInt8{});
    case TINYGLTF_COMPONENT_TYPE_SHORT:
      return run(Int16{});
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT:
      return run(UInt16{});
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT:
      return run(UInt32{});
    default:
      return run(Real32{});
  }
}

struct FloatOf {
  bool normalized;
  template <class T>
  Real32 operator()(T value) const {
    return as_float(value, normalized);
  }
};

/// Copies `count` elements, `convert`ing each component; `place(i)` is where element i goes.
template <class T, class Out, class Convert, class Place>
void convert_elements(const std::byte* from, std::size_t stride, UInt32 count, UInt32 components,
                      Convert convert, Place place) {
  for (UInt32 i = 0; i < count; ++i, from += stride) {
    Out* to = place(i);
    for (UInt32 k = 0; k < components; ++k) to[k] = convert(load<T>(from + k * sizeof(T)));
  }
}

/// Decodes an accessor to rows of `width` values, which are zeros at first.
template <class Out, class Convert>
void decode(const AccessorView& view, UInt32 width, Out* out, Convert convert) {
  const UInt32 shared = std::min(width, view.components);
  with_component_type(view.component_type, [&](auto type) {
    using T = decltype(type);
    if (view.data && std::is_same_v<T, Out> && shared == width &&
        view.stride == width * sizeof(T)) {
      std::memcpy(out, view.data, std::size_t{view.count} * view.stride);
    } else if (view.data) {
      convert_elements<T, Out>(view.data, view.stride, view.count, shared, convert,
                               [&](UInt32 i) { return out + std::size_t{i} * width; });
    }
    if (!view.sparse) return;
    const AccessorView::Sparse& sparse = *view.sparse;
    with_component_type(sparse.index_type, [&](auto index_type) {
      using Index = decltype(index_type);
      const auto target = [&](UInt32 i) {
        const auto index =
            static_cast<std::size_t>(load<Index>(sparse.indices + i * sizeof(Index)));
        if (index >= view.count)
          throw ReadError{view.place, "sparse index " + std::to_string(index) +
                                          " reaches past the " + std::to_string(view.count) +
                                          " elements"};
        return out + index * width;
      };
      convert_elements<T, Out>(sparse.values, view.element_bytes(), sparse.count, shared, convert,
                               target);
    });
  });
}

template <class Property>
GltfAccessors::Indices read_indices_as(const AccessorView& view) {
  using Element = typename Property::Element;
  const auto property = Property::create();
  property->resize(view.count);
  const auto values = property->values();
  if (view.count > 0)
    decode(view, 1, values.data(), [](auto value) { return static_cast<Element>(value); });
  Element largest = 0;
  for (const Element value : values) largest = std::max(largest, value);
  return {property, largest};
}

}  // namespace

UInt32 AccessorView::component_bytes() const {
  return bytes_of_component(component_type);
}

AccessorView GltfAccessors::admit(int index) {
  const std::string place = place_of("accessors", static_cast<std::size_t>(index));
  const auto& accessors = document_.model.accessors;
  if (index < 0 || static_cast<std::size_t>(index) >= accessors.size())
    throw ReadError{place, "there is no such accessor"};
  AccessorView view = checked_view(accessors[static_cast<std::size_t>(index)], place);
  decoded_bytes_ +=
      std::size_t{view.count} * std::max(4u, view.component_bytes()) * view.components;
  if (decoded_bytes_ > kDecodedBytesAlways + kDecodedBytesPerByte * buffers_.total_bytes())
    throw ReadError{place, "more data is asked for than a file of this size can mean"};
  return view;
}

AccessorView GltfAccessors::checked_view(const tinygltf::Accessor& accessor,
                                         const std::string& place) {
  AccessorView view;
  view.place = place;
  view.component_type = accessor.componentType;
  view.components = components_of_type(accessor.type);
  view.normalized = accessor.normalized;
  if (view.component_bytes() == 0)
    throw ReadError{
        place, "component type " + std::to_string(accessor.componentType) + " is none of glTF's"};
  if (view.components == 0) throw ReadError{place, "matrices can't be vertex data"};
  if (accessor.count > std::numeric_limits<Int32>::max())
    throw ReadError{place, std::to_string(accessor.count) + " elements are too many"};
  view.count = static_cast<UInt32>(accessor.count);
  view.stride = view.element_bytes();
  if (accessor.bufferView >= 0) take_buffer_view(view, accessor);
  if (accessor.sparse.isSparse) take_sparse(view, accessor);
  return view;
}

void GltfAccessors::take_buffer_view(AccessorView& view, const tinygltf::Accessor& accessor) {
  const ByteSpan bytes = buffers_.view(accessor.bufferView);
  const auto& source = document_.model.bufferViews[static_cast<std::size_t>(accessor.bufferView)];
  if (source.byteStride > 0) view.stride = source.byteStride;
  if (view.stride < view.element_bytes())
    throw ReadError{view.place, "the stride " + std::to_string(view.stride) +
                                    " is below an element's " +
                                    std::to_string(view.element_bytes()) + " bytes"};
  if (!fits(bytes.size(), accessor.byteOffset, view.stride, view.element_bytes(), view.count))
    throw ReadError{view.place, "its " + std::to_string(view.count) + " elements reach past the " +
                                    std::to_string(bytes.size()) + " bytes of bufferViews[" +
                                    std::to_string(accessor.bufferView) + "]"};
  if (view.count > 0) view.data = bytes.data() + accessor.byteOffset;
}

void GltfAccessors::take_sparse(AccessorView& view, const tinygltf::Accessor& accessor) {
  const auto& sparse = accessor.sparse;
  const int type = sparse.indices.componentType;
  if (type != TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE &&
      type != TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT &&
      type != TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT)
    throw ReadError{view.place + ".sparse.indices",
                    "component type " + std::to_string(type) + " is no unsigned integer"};
  const auto count = static_cast<std::size_t>(std::max(sparse.count, 0));
  const ByteSpan indices = buffers_.view(sparse.indices.bufferView);
  const ByteSpan values = buffers_.view(sparse.values.bufferView);
  const auto index_offset = static_cast<std::size_t>(std::max(sparse.indices.byteOffset, 0));
  const auto value_offset = static_cast<std::size_t>(std::max(sparse.values.byteOffset, 0));
  const UInt32 index_bytes = bytes_of_component(type);
  if (!fits(indices.size(), index_offset, index_bytes, index_bytes, count))
    throw ReadError{view.place + ".sparse.indices", "reaches past its buffer view"};
  if (!fits(values.size(), value_offset, view.element_bytes(), view.element_bytes(), count))
    throw ReadError{view.place + ".sparse.values", "reaches past its buffer view"};
  if (count == 0) return;
  view.sparse = {static_cast<UInt32>(count), indices.data() + index_offset, type,
                 values.data() + value_offset};
}

void GltfAccessors::read_floats(const AccessorView& view, UInt32 components, Real32* out) {
  if (view.count > 0) decode(view, components, out, FloatOf{view.normalized});
}

void GltfAccessors::read_bytes(const AccessorView& view, UInt32 components, UInt8* out) {
  if (view.count == 0) return;
  decode(view, components, out, [](auto value) { return static_cast<UInt8>(value); });
}

GltfAccessors::Indices GltfAccessors::read_indices(int index) {
  const AccessorView view = admit(index);
  if (view.components != 1) throw ReadError{view.place, "indices must be scalars"};
  switch (view.component_type) {
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE:
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT:
      return read_indices_as<GeoIndicesUI16>(view);
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT:
      return read_indices_as<GeoIndicesUI32>(view);
    default:
      throw ReadError{view.place, "indices must be unsigned integers, not component type " +
                                      std::to_string(view.component_type)};
  }
}

}  // namespace osg::io
