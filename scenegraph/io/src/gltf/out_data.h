#pragma once

#include <map>
#include <tuple>
#include <vector>

#include "gltf/out_geometry.h"
#include "json_text.h"

namespace osg::io {

/// Buffer views and accessors to write, and the bytes behind them. What several geometries share
/// is written once.
class OutData {
 public:
  explicit OutData(Warnings& warnings) : warnings_(warnings) {}

  /// Tells that the geometry will be written, so that of a shared property as much is written as
  /// its largest user needs.
  void announce(const PreparedGeometry& geometry);
  /// Writes `"attributes":{...}`, `"indices":n` and `"extensions":{...}` of a primitive, as far as
  /// it has them.
  void write_primitive(const PreparedGeometry& geometry, const OutPrimitive& primitive,
                       JsonText& json);
  /// Any bytes, such as an image's; the number of their buffer view.
  std::size_t add_bytes(const void* bytes, std::size_t size);

  void write_views(JsonText& json) const;
  void write_accessors(JsonText& json) const;
  bool has_views() const { return !views_.empty(); }
  bool has_accessors() const { return !accessors_.empty(); }
  const std::vector<std::byte>& bytes() const { return bytes_; }

 private:
  struct View {
    std::size_t offset;
    std::size_t length;
    UInt32 stride;  // 0: not told
    UInt32 target;  // 0: none
  };
  struct Accessor {
    std::size_t view;
    std::size_t offset;
    UInt32 component_type;
    UInt32 components;
    UInt32 count;
    bool normalized;
    std::vector<Real32> low;  // of positions
    std::vector<Real32> high;
  };
  struct FeatureIds {
    std::size_t accessor;
    std::size_t count;  // of different ids
    bool has_none;      // there are vertices without an id
  };
  using PropertyKey = std::pair<UInt64, UInt32>;  // serial, entries

  std::size_t begin_view(UInt32 stride, UInt32 target);
  void end_view() { views_.back().length = bytes_.size() - views_.back().offset; }
  void append(const void* bytes, std::size_t size);
  std::size_t attribute_accessor(const PreparedGeometry& geometry, Attribute attribute);
  const FeatureIds& feature_ids(const PreparedGeometry& geometry);
  static void write_feature_ids(const FeatureIds& ids, JsonText& json);
  FeatureIds add_feature_ids(const GeoProperty& property, UInt32 entries);
  std::size_t property_view(const GeoProperty& property, UInt32 entries);
  void append_entries(const GeoProperty& property, UInt32 entries);
  void set_bounds(Accessor& accessor, const GeoProperty& positions);
  bool needs_indices(const PreparedGeometry& geometry, const OutPrimitive& primitive) const;
  std::size_t index_accessor(const PreparedGeometry& geometry, const OutPrimitive& primitive);
  std::size_t add_indices(const PreparedGeometry& geometry, const OutPrimitive& primitive);
  template <class Index>
  void append_indices(const PreparedGeometry& geometry, const OutPrimitive& primitive);

  Warnings& warnings_;
  std::vector<std::byte> bytes_;
  std::vector<View> views_;
  std::vector<Accessor> accessors_;
  std::map<UInt64, UInt32> needed_;  // by property: entries to write
  std::map<PropertyKey, std::size_t> property_views_;
  std::map<PropertyKey, std::size_t> attribute_accessors_;
  std::map<PropertyKey, FeatureIds> feature_ids_;
  std::map<UInt64, std::size_t> index_views_;
  std::map<std::tuple<UInt64, UInt32, UInt32>, std::size_t> index_accessors_;
};

}  // namespace osg::io
