#pragma once

#include <array>

#include "osg/action.h"
#include "osg/attribute.h"
#include "osg/geo_property.h"
#include "osg/node.h"
#include "osg/primitive_iterators.h"
#include "osg/primitive_type.h"

namespace osg {

class Material;

/// Triangles, lines and points: primitives of `Types` and `Lengths` over per-vertex properties.
///
/// Which entries a vertex uses stands at `IndexLayout`.
///
/// A geometry knows the properties that bound it, and nodes know theirs: setting types, lengths,
/// indices or positions, and the end of an edit of one of these properties, marks the volumes of
/// all nodes with this core as stale. Other properties and the material are only held. One thread
/// may set properties while another computes volumes; what stands in the properties, and the index
/// mapping, must not change meanwhile.
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
  TriangleIterator beginTriangles() const { return begin_walk<TriangleIterator>(); }
  TriangleIterator endTriangles() const { return {}; }
  LineIterator beginLines() const { return begin_walk<LineIterator>(); }
  LineIterator endLines() const { return {}; }
  PrimitiveIterator beginPrimitives() const { return begin_walk<PrimitiveIterator>(); }
  PrimitiveIterator endPrimitives() const { return {}; }

  /// A plain geometry with copies of all properties; a property in several fields is copied once.
  /// Material and attachments are shared; those that are internal, caches, stay behind.
  FCPtr<Geometry> clone() const;

  /// The layer's own ray test, for an `IntersectAction` at a node with this core: reports the
  /// nearest triangle that the action's line meets, by its number in the walk of `beginTriangles`.
  /// Both faces count, edges and corners too; of equally near triangles the first. Skips the node's
  /// subgraph if its stored volume is valid and missed. Other actions, null too: Continue.
  Action::ResultE intersect(Action* action) const;

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
  struct BoundingProperties {
    GeoPTypesPtr types;
    GeoPLengthsPtr lengths;
    GeoIndicesPtr indices;
    GeoPositionsPtr positions;
  };

  template <class Iterator>
  Iterator begin_walk() const {
    return Iterator(types_.get(), lengths_.get(), IndexLayout(*this));
  }
  template <class Handle>
  void set_bounding_property(Handle& field, const Handle& property, detail::BoundsLink& place);
  static void link(GeoProperty* property, detail::BoundsLink& place);
  void invalidate_bounds_locked();
  void compute_bounds() const;
  /// What bounds the geometry now, held, so that another thread may exchange it meanwhile.
  BoundingProperties watch_bounding_properties() const;

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

  // Places in the lists of the four bounding properties; link mutex.
  detail::BoundsLink types_link_{*this};
  detail::BoundsLink lengths_link_{*this};
  detail::BoundsLink indices_link_{*this};
  detail::BoundsLink positions_link_{*this};

  mutable std::atomic<BoundsState> bounds_state_{BoundsState::Stale};
  mutable std::atomic<UInt64> bounds_mapping_{0};  // what bounds_ took from the index mapping
  mutable DynamicVolume bounds_;
};
using GeometryPtr = FCPtr<Geometry>;
using GeometryBase = Geometry;

}  // namespace osg
