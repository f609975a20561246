#pragma once

#include <array>

#include "osg/geo_property.h"
#include "osg/node.h"
#include "osg/primitive_iterators.h"

namespace osg {

class Material;

/// Kinds of primitive, with the values that graphics interfaces use for them.
enum PrimitiveType : UInt32 {
  kPoints = 0,
  kLines = 1,
  kLineLoop = 2,
  kLineStrip = 3,
  kTriangles = 4,
  kTriangleStrip = 5,
  kTriangleFan = 6,
  kQuads = 7,
  kQuadStrip = 8,
  kPolygon = 9,
};

/// The per-vertex properties, in the order of their mapping flags.
enum class Attribute : UInt8 {
  Positions,
  Normals,
  Colors,
  SecondaryColors,
  TexCoords,
  TexCoords1,
  TexCoords2,
  TexCoords3,
  TexCoords4,
  TexCoords5,
  TexCoords6,
  TexCoords7,
};
inline constexpr UInt32 kAttributeCount = 12;
inline constexpr UInt32 kTexCoordSets = 8;

constexpr Attribute attributeAt(UInt32 index) {
  return static_cast<Attribute>(index);
}
constexpr UInt32 indexOf(Attribute attribute) {
  return static_cast<UInt32>(attribute);
}
constexpr Attribute texCoordsAttribute(UInt32 set) {
  return attributeAt(indexOf(Attribute::TexCoords) + set);
}
/// The attribute's bit in an entry of the index mapping.
constexpr UInt16 mappingFlag(Attribute attribute) {
  return static_cast<UInt16>(1u << indexOf(attribute));
}

/// Triangles, lines and points: primitives of `Types` and `Lengths` over per-vertex properties.
///
/// Index layouts: without `Indices`, running vertex v uses entry v of every property. With
/// `Indices` and an empty mapping it uses entry `Indices[v]`. With a mapping of n entries it uses
/// `Indices[v * n + k]`, k being the first mapping entry with the attribute's flag; an attribute in
/// no entry uses the position's index. Indices past a property's end mean its last entry.
class OSG_API Geometry : public ContainerClass<"Geometry", Geometry, NodeCore> {
 public:
  static constexpr UInt16 MapPosition = mappingFlag(Attribute::Positions);
  static constexpr UInt16 MapNormal = mappingFlag(Attribute::Normals);
  static constexpr UInt16 MapColor = mappingFlag(Attribute::Colors);
  static constexpr UInt16 MapSecondaryColor = mappingFlag(Attribute::SecondaryColors);
  static constexpr UInt16 MapTexCoords = mappingFlag(Attribute::TexCoords);
  static constexpr UInt16 MapTexCoords1 = mappingFlag(Attribute::TexCoords1);
  static constexpr UInt16 MapTexCoords2 = mappingFlag(Attribute::TexCoords2);
  static constexpr UInt16 MapTexCoords3 = mappingFlag(Attribute::TexCoords3);
  static constexpr UInt16 MapTexCoords4 = mappingFlag(Attribute::TexCoords4);
  static constexpr UInt16 MapTexCoords5 = mappingFlag(Attribute::TexCoords5);
  static constexpr UInt16 MapTexCoords6 = mappingFlag(Attribute::TexCoords6);
  static constexpr UInt16 MapTexCoords7 = mappingFlag(Attribute::TexCoords7);

  const GeoPTypesPtr& getTypes() const { return types_; }
  const GeoPLengthsPtr& getLengths() const { return lengths_; }
  const GeoIndicesPtr& getIndices() const { return indices_; }
  const GeoPositionsPtr& getPositions() const { return positions_; }
  const GeoNormalsPtr& getNormals() const { return normals_; }
  const GeoColorsPtr& getColors() const { return colors_; }
  const GeoColorsPtr& getSecondaryColors() const { return secondary_colors_; }
  const GeoTexCoordsPtr& getTexCoords() const { return tex_coords_[0]; }
  const GeoTexCoordsPtr& getTexCoords1() const { return tex_coords_[1]; }
  const GeoTexCoordsPtr& getTexCoords2() const { return tex_coords_[2]; }
  const GeoTexCoordsPtr& getTexCoords3() const { return tex_coords_[3]; }
  const GeoTexCoordsPtr& getTexCoords4() const { return tex_coords_[4]; }
  const GeoTexCoordsPtr& getTexCoords5() const { return tex_coords_[5]; }
  const GeoTexCoordsPtr& getTexCoords6() const { return tex_coords_[6]; }
  const GeoTexCoordsPtr& getTexCoords7() const { return tex_coords_[7]; }
  /// `set` < kTexCoordSets.
  const GeoTexCoordsPtr& getTexCoordsSet(UInt32 set) const { return tex_coords_[set]; }
  const FCPtr<Material>& getMaterial() const { return material_; }

  // The first four bound the geometry: to set one marks volumes as stale. `NullFC` takes a property
  // away.
  void setTypes(const GeoPTypesPtr& types);
  void setLengths(const GeoPLengthsPtr& lengths);
  void setIndices(const GeoIndicesPtr& indices);
  void setPositions(const GeoPositionsPtr& positions);
  void setNormals(const GeoNormalsPtr& normals) { normals_ = normals; }
  void setColors(const GeoColorsPtr& colors) { colors_ = colors; }
  void setSecondaryColors(const GeoColorsPtr& colors) { secondary_colors_ = colors; }
  void setTexCoords(const GeoTexCoordsPtr& coords) { tex_coords_[0] = coords; }
  void setTexCoords1(const GeoTexCoordsPtr& coords) { tex_coords_[1] = coords; }
  void setTexCoords2(const GeoTexCoordsPtr& coords) { tex_coords_[2] = coords; }
  void setTexCoords3(const GeoTexCoordsPtr& coords) { tex_coords_[3] = coords; }
  void setTexCoords4(const GeoTexCoordsPtr& coords) { tex_coords_[4] = coords; }
  void setTexCoords5(const GeoTexCoordsPtr& coords) { tex_coords_[5] = coords; }
  void setTexCoords6(const GeoTexCoordsPtr& coords) { tex_coords_[6] = coords; }
  void setTexCoords7(const GeoTexCoordsPtr& coords) { tex_coords_[7] = coords; }
  void setTexCoordsSet(UInt32 set, const GeoTexCoordsPtr& coords) { tex_coords_[set] = coords; }
  void setMaterial(const FCPtr<Material>& material) { material_ = material; }

  /// The attribute's property, null if absent.
  GeoProperty* getAttribute(Attribute attribute) const;
  /// Puts `property`, null or of the attribute's family, in the attribute's field; another family
  /// changes nothing and gives false.
  bool setAttribute(Attribute attribute, const GeoPropertyPtr& property);

  /// One entry an index column, each an OR of `Map` flags. Bracket edits of it with `beginEditCP`
  /// and `endEditCP` on the geometry.
  MField<UInt16>& getIndexMapping() { return index_mapping_; }
  const MField<UInt16>& getIndexMapping() const { return index_mapping_; }

  /// Every triangle of the primitives, in order. See `TriangleIterator`.
  TriangleIterator beginTriangles() const;
  TriangleIterator endTriangles() const;
  LineIterator beginLines() const;
  LineIterator endLines() const;
  PrimitiveIterator beginPrimitives() const;
  PrimitiveIterator endPrimitives() const;

  /// A geometry with copies of all properties; the material is shared, the name goes along, other
  /// attachments stay behind.
  FCPtr<Geometry> clone() const;

  /// Marks the volumes as stale if the index mapping is not the one they were computed with.
  void changed(FieldMask mask, ChangeOrigin origin) override;

 protected:
  friend ContainerClass<"Geometry", Geometry, NodeCore>;
  Geometry() = default;
  /// Shares the properties and the material.
  Geometry(const Geometry& other);
  ~Geometry() override;

  /// Bounds of the positions that primitives refer to; unused entries don't count, NaN never
  /// widens.
  void extendVolume(DynamicVolume& volume) const override;

 private:
  friend class GeoProperty;
  enum class BoundsState : UInt8 { Stale, Computing, Valid };

  template <class Ptr>
  void set_bounding_property(Ptr& field, const Ptr& property);
  void link_to(GeoProperty* property);
  void unlink_from(GeoProperty* property);
  void invalidate_bounds_locked();
  void compute_bounds() const;

  GeoPTypesPtr types_;
  GeoPLengthsPtr lengths_;
  GeoIndicesPtr indices_;
  GeoPositionsPtr positions_;
  GeoNormalsPtr normals_;
  GeoColorsPtr colors_;
  GeoColorsPtr secondary_colors_;
  std::array<GeoTexCoordsPtr, kTexCoordSets> tex_coords_;
  FCPtr<Material> material_;
  MField<UInt16> index_mapping_;

  mutable std::atomic<BoundsState> bounds_state_{BoundsState::Stale};
  mutable DynamicVolume bounds_;
  mutable std::vector<UInt16> bounds_mapping_;  // index mapping that bounds_ was computed with
};
using GeometryPtr = FCPtr<Geometry>;
using GeometryBase = Geometry;

}  // namespace osg
