#include "osg/geometry.h"

#include <map>

#include "mutexes.h"

namespace osg {

namespace {

/// All that positions need of an index mapping: the number of columns and their own among them.
UInt64 position_key(const IndexLayout& layout) {
  return UInt64{layout.getColumnCount()} << 32 | layout.getColumn(Attribute::Positions);
}

/// Widens `bounds` by the positions of running vertices `first` to `end`.
void extend_by_vertices(DynamicVolume& bounds, const IndexLayout& layout, UInt32 first,
                        UInt32 end) {
  const GeoProperty& positions = *layout.getProperty(Attribute::Positions);
  if (layout.isIndexed() || positions.getComponentType() != ComponentType::Float32 ||
      positions.getDimension() != 3) {
    for (UInt32 vertex = first; vertex < end; ++vertex)
      bounds.extendBy(layout.getValue<Pnt3f>(Attribute::Positions, vertex));
    return;
  }
  const auto* points = reinterpret_cast<const Pnt3f*>(positions.getData());
  for (UInt32 vertex = first; vertex < end; ++vertex) bounds.extendBy(points[vertex]);
}

}  // namespace

Geometry::Geometry(const Geometry& other)
    : ContainerClass(other),
      types_(other.types_),
      lengths_(other.lengths_),
      indices_(other.indices_),
      positions_(other.positions_),
      normals_(other.normals_),
      colors_(other.colors_),
      secondary_colors_(other.secondary_colors_),
      tex_coords_(other.tex_coords_),
      material_(other.material_),
      index_mapping_(other.index_mapping_) {
  const std::lock_guard lock(detail::link_mutex());
  link(types_.get(), types_link_);
  link(lengths_.get(), lengths_link_);
  link(indices_.get(), indices_link_);
  link(positions_.get(), positions_link_);
}

Geometry::~Geometry() {
  if (!types_ && !lengths_ && !indices_ && !positions_) return;
  const std::lock_guard lock(detail::link_mutex());
  for (detail::BoundsLink* link : {&types_link_, &lengths_link_, &indices_link_, &positions_link_})
    GeoProperty::unlink(*link);
}

// --- Properties ----------------------------------------------------------------------------------

template <class Handle>
void Geometry::set_bounding_property(Handle& field, const Handle& property,
                                     detail::BoundsLink& place) {
  Handle held = property;  // takes the old one along, to drop it when no lock is held any more
  const std::lock_guard lock(detail::link_mutex());
  GeoProperty::unlink(place);
  std::swap(field, held);
  link(field.get(), place);
  invalidate_bounds_locked();
}

void Geometry::link(GeoProperty* property, detail::BoundsLink& place) {
  if (property) property->link(place);
}

void Geometry::setTypes(const GeoPTypesPtr& types) {
  set_bounding_property(types_, types, types_link_);
}

void Geometry::setLengths(const GeoPLengthsPtr& lengths) {
  set_bounding_property(lengths_, lengths, lengths_link_);
}

void Geometry::setIndices(const GeoIndicesPtr& indices) {
  set_bounding_property(indices_, indices, indices_link_);
}

void Geometry::setPositions(const GeoPositionsPtr& positions) {
  set_bounding_property(positions_, positions, positions_link_);
}

GeoProperty* Geometry::getAttribute(Attribute attribute) const {
  switch (attribute) {
    case Attribute::Positions:
      return positions_.get();
    case Attribute::Normals:
      return normals_.get();
    case Attribute::Colors:
      return colors_.get();
    case Attribute::SecondaryColors:
      return secondary_colors_.get();
    default:
      return tex_coords_[indexOf(attribute) - indexOf(Attribute::TexCoords)].get();
  }
}

bool Geometry::setAttribute(Attribute attribute, const GeoPropertyPtr& property) {
  const auto put = [&]<class Family>(auto setter, FCPtr<Family> cast) {
    if (property && !cast) return false;
    setter(cast);
    return true;
  };
  switch (attribute) {
    case Attribute::Positions:
      return put([this](const auto& p) { setPositions(p); }, GeoPositions::dcast(property));
    case Attribute::Normals:
      return put([this](const auto& p) { setNormals(p); }, GeoNormals::dcast(property));
    case Attribute::Colors:
      return put([this](const auto& p) { setColors(p); }, GeoColors::dcast(property));
    case Attribute::SecondaryColors:
      return put([this](const auto& p) { setSecondaryColors(p); }, GeoColors::dcast(property));
    default:
      const UInt32 set = indexOf(attribute) - indexOf(Attribute::TexCoords);
      return put([&](const auto& p) { setTexCoordsSet(set, p); }, GeoTexCoords::dcast(property));
  }
}

FCPtr<Geometry> Geometry::clone() const {
  std::map<UInt64, GeoPropertyPtr> copies;  // by serial: what is shared stays shared
  const auto copy = [&]<class Family>(const FCPtr<Family>& property) {
    if (!property) return FCPtr<Family>();
    GeoPropertyPtr& made = copies[property.getSerial()];
    if (!made) made = GeoProperty::dcast(property->shallowCopy());
    return Family::dcast(made);
  };
  const FCPtr<Geometry> twin = create();
  twin->setTypes(copy(types_));
  twin->setLengths(copy(lengths_));
  twin->setIndices(copy(indices_));
  twin->setPositions(copy(positions_));
  twin->setNormals(copy(normals_));
  twin->setColors(copy(colors_));
  twin->setSecondaryColors(copy(secondary_colors_));
  for (UInt32 set = 0; set < kTexCoordSets; ++set)
    twin->setTexCoordsSet(set, copy(tex_coords_[set]));
  twin->setMaterial(material_);
  twin->index_mapping_ = index_mapping_;
  for (const Entry& entry : getAttachments())
    if (!entry.attachment->isInternal()) twin->addAttachment(entry.attachment, entry.binding);
  return twin;
}

// --- Bounds --------------------------------------------------------------------------------------

void Geometry::changed(FieldMask, ChangeOrigin) {
  if (bounds_state_.load(std::memory_order_acquire) == BoundsState::Stale) return;
  const IndexLayout now(positions_.get(), indices_.get(), index_mapping_.getValues());
  if (position_key(now) == bounds_mapping_.load(std::memory_order_relaxed)) return;
  const std::lock_guard lock(detail::link_mutex());
  invalidate_bounds_locked();
}

/// Nodes whose volume isn't stale have taken the bounds since these last became stale; so stale
/// bounds have only stale nodes, or ones that will read the bounds yet.
void Geometry::invalidate_bounds_locked() {
  if (bounds_state_.exchange(BoundsState::Stale, std::memory_order_acq_rel) != BoundsState::Stale)
    invalidate_nodes_locked();
}

void Geometry::extendVolume(DynamicVolume& volume) const {
  if (bounds_state_.load(std::memory_order_acquire) != BoundsState::Valid) compute_bounds();
  volume.extendBy(bounds_);
}

/// The mark is set before anything is read, as in `Node`: an edit meanwhile takes it away, and the
/// bounds stay stale.
void Geometry::compute_bounds() const {
  bounds_state_.exchange(BoundsState::Computing, std::memory_order_acq_rel);
  const BoundingProperties bounding = watch_bounding_properties();
  const IndexLayout layout(bounding.positions.get(), bounding.indices.get(),
                           index_mapping_.getValues());
  bounds_mapping_.store(position_key(layout), std::memory_order_relaxed);
  bounds_ = DynamicVolume();
  PrimitiveIterator primitive(bounding.types.get(), bounding.lengths.get(), layout);
  for (; !primitive.isAtEnd(); ++primitive) {
    const UInt32 used = usedVertexCount(primitive.getType(), primitive.getLength());
    const UInt32 first = primitive.getFirstVertex();
    extend_by_vertices(bounds_, layout, first, first + used);
  }
  auto expected = BoundsState::Computing;
  bounds_state_.compare_exchange_strong(expected, BoundsState::Valid, std::memory_order_acq_rel);
}

Geometry::BoundingProperties Geometry::watch_bounding_properties() const {
  const std::lock_guard lock(detail::link_mutex());
  for (const GeoProperty* property : std::initializer_list<const GeoProperty*>{
           types_.get(), lengths_.get(), indices_.get(), positions_.get()})
    if (property) property->watched_.store(true, std::memory_order_release);
  return {types_, lengths_, indices_, positions_};
}

}  // namespace osg
