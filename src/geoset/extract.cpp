// From a node of the scene graph into a set: one way for triangles, lines and points.
//
// The source is read in blocks of elements. Their running vertices are found once; then each
// attribute is gathered for all of them, so that what is asked of a property is asked once a block.

#include "geoset/extract.h"

#include <limits>

#include "geoset/corner_block.h"
#include "geoset/setup.h"
#include "geoset/source.h"
#include "optimiser/id_map_handler.h"

namespace morlu::osg {

namespace {

using ::osg::Attribute;

/// What to make room for: what is promised or, if that is more, what the walk will deliver; of
/// both, no more than there are data for.
template <class Set>
std::uint64_t expected_elements(const ::osg::Geometry& source) {
  std::uint64_t promised = 0, delivered = 0;
  for (auto it = source.beginPrimitives(); !it.isAtEnd(); ++it) {
    promised += source_of<Set>::promised(it.getType(), it.getLength());
    delivered += source_of<Set>::delivered(it.getType(), it.getLength());
  }
  return std::max(promised, delivered);
}

struct extract_options {
  bool to_world, use_material_group, want_ids, run_setup;
  bool drop_unused_tex_coords = false;
};

/// A property of the set, and where its values come from.
struct target {
  const attribute_row* row;
  ::osg::GeoPropertyPtr property;  // null: the set doesn't carry the attribute
  bool fresh = false;              // not on the set's geometry yet
  bool from_source = false;
  attribute_value value;  // of all vertices, if they are not from the source
};

void store(const target& to, std::uint64_t begin, const float* values, std::size_t count) {
  ::osg::GeoProperty& property = *to.property;
  const unsigned components = to.row->components;
  if (property.getComponentType() == ::osg::ComponentType::Float32 &&
      property.getDimension() == components) {
    std::memcpy(property.editData() + begin * property.getStride(), values,
                count * property.getStride());
    return;
  }
  for (std::size_t i = 0; i < count; ++i, values += components) {
    attribute_value value{};
    std::copy_n(values, components, value.begin());
    to.row->write(property, static_cast<std::uint32_t>(begin + i), value);
  }
}

void fill(const target& to, std::uint64_t begin, std::uint64_t end) {
  constexpr std::size_t at_once = 256;
  std::array<float, at_once * 3> values;
  for (std::size_t i = 0; i < at_once; ++i)
    std::copy_n(to.value.begin(), to.row->components, &values[i * to.row->components]);
  for (; begin < end; begin += at_once)
    store(to, begin, values.data(), std::min<std::uint64_t>(at_once, end - begin));
}

// --- One fill ------------------------------------------------------------------------------------

template <class Set>
class extraction {
 public:
  extraction(const ::osg::NodePtr& node, const ::osg::GeometryPtr& source, Set& set,
             const extract_options& options)
      : node_(node), source_(source), set_(set), options_(options), base_(set.vertex_count) {}

  void run() {
    drop_unused_tex_coords();
    make_room();
    prepare_primitive();
    prepare_targets();
    take_material();
    choose_id();
    walk();
    attach();
    count_vertices();
  }

  std::uint64_t refused() const { return refused_; }

 private:
  static constexpr unsigned corners = corners_of<Set>;

  void drop_unused_tex_coords() {
    without_tex_coords_ = options_.drop_unused_tex_coords && drops_tex_coords(node_, source_);
  }

  bool source_has(Attribute attribute) const {
    const bool dropped = without_tex_coords_ && attribute >= Attribute::TexCoords &&
                         attribute <= Attribute::TexCoords3;
    return !dropped && !is_empty(source_->getAttribute(attribute));
  }

  /// What the set remembers as its capacity says little of properties that have been set up.
  void make_room() {
    const std::uint64_t needed = base_ + expected_elements<Set>(*source_) * corners;
    bool fits = needed <= set_.vertex_capacity;
    for (const attribute_row& row : rows_of<Set>)
      if (const auto* property = row.of(set_)) fits = fits && property->size() >= needed;
    if (!fits) set_vertex_capacity(set_, std::max(needed, set_.vertex_capacity));
  }

  void prepare_primitive() {
    types_ = set_.geometry->getTypes();
    lengths_ = set_.geometry->getLengths();
    if (!types_) types_ = ::osg::GeoPTypesUI8::create();
    if (!lengths_) lengths_ = ::osg::GeoPLengthsUI32::create();
    ::osg::beginEditCP(types_);
    if (types_->empty()) types_->push_back(element_of<Set>::primitive);
    ::osg::endEditCP(types_);
  }

  /// Vertices of earlier sources get the default of what only this one brings.
  void prepare_targets() {
    for (std::size_t i = 0; i < targets_.size(); ++i) {
      const attribute_row& row = rows_of<Set>[i];
      target& to = targets_[i];
      to = {&row, ::osg::GeoPropertyPtr(row.of(set_)), false, source_has(row.attribute),
            row.fallback};
      const bool wanted =
          to.from_source || (row.attribute == Attribute::TexCoords7 && options_.want_ids);
      if (to.property || !wanted) continue;
      to.property = row.create();
      to.property->resize(set_.vertex_capacity);
      to.fresh = true;
      fill(to, 0, base_);
    }
  }

  void take_material() {
    ::osg::Geometry& geometry = *set_.geometry;
    geometry.setMaterial(
        material_after(geometry.getMaterial(), node_, source_, options_.use_material_group));
  }

  /// Without a name there are no ids, not even those that the source brings.
  void choose_id() {
    target& ids = targets_.back();
    if (!ids.property) return;
    if (getIdMapHandler().merged) {
      ids.value = {0};
    } else if (const char* name = name_of_source(node_, source_)) {
      ids.value = {stored_id(register_name(node_, name, options_.to_world,
                                           source_of<Set>::named_material(node_, set_)))};
    } else {
      std::cout << "Node has no name and will not get an IDmap." << std::endl;
      ids.from_source = false;
      if (ids.fresh) ids.property = ::osg::NullFC;
    }
  }

  /// Elements that the properties have room for behind those of earlier sources.
  std::uint64_t room() const {
    std::uint64_t entries = std::numeric_limits<std::uint32_t>::max();
    for (const target& to : targets_)
      if (to.property) entries = std::min<std::uint64_t>(entries, to.property->size());
    return entries > base_ ? (entries - base_) / corners : 0;
  }

  void walk() {
    const auto place = options_.to_world ? placement(node_->getToWorld()) : placement();
    corner_block<Set> block(*source_, place);
    for (const target& to : targets_) ::osg::beginEditCP(to.property);
    bool full = false;
    for (std::uint64_t left = room(); !full && block.next(); left -= block.elements()) {
      full = block.elements() > left;
      if (full) block.keep(left);
      for (const target& to : targets_)
        if (to.property && to.from_source)
          store(to, base_ + written_, block.values(*to.row), block.corners());
      written_ += block.corners();
    }
    refused_ = block.refused();
    if (full) std::cerr << source_of<Set>::prefix << "No room for all vertices." << std::endl;
    for (const target& to : targets_)
      if (to.property && !to.from_source) fill(to, base_, base_ + written_);
  }

  void attach() {
    ::osg::Geometry& geometry = *set_.geometry;
    if (!geometry.getTypes()) geometry.setTypes(types_);
    if (!geometry.getLengths()) geometry.setLengths(lengths_);
    for (const target& to : targets_) {
      if (to.fresh && to.property) geometry.setAttribute(to.row->attribute, to.property);
      ::osg::endEditCP(to.property);
    }
  }

  void count_vertices() {
    add_stored_vertices(set_, static_cast<std::int64_t>(written_));
    set_.vertex_count += written_;
    if constexpr (element_of<Set>::makes_normals)
      if (set_.geometry->getNormals() && !source_has(Attribute::Normals))
        late_normals::end(set_) = set_.vertex_count;
  }

  const ::osg::NodePtr& node_;
  const ::osg::GeometryPtr& source_;
  Set& set_;
  const extract_options options_;
  const std::uint64_t base_;  // the first vertex to write
  bool without_tex_coords_ = false;
  ::osg::GeoPTypesPtr types_;
  ::osg::GeoPLengthsPtr lengths_;
  std::array<target, rows_of<Set>.size()> targets_;
  std::uint64_t written_ = 0;  // vertices
  std::uint64_t refused_ = 0;  // elements
};

/// Null, with a line, if the node has no geometry.
template <class Set>
::osg::GeometryPtr source_geometry(const ::osg::NodePtr& node) {
  const auto refuse = [](const char* why) {
    std::cout << source_of<Set>::prefix << why << std::endl;
    return ::osg::GeometryPtr();
  };
  if (!node) return refuse("No Node");
  const ::osg::NodeCorePtr& core = node->getCore();
  if (!core) return refuse("No Core");
  if (core->getType() != ::osg::Geometry::getClassType()) return refuse("No GeometryCore");
  const auto source = ::osg::Geometry::dcast(core);
  if (!source) std::cout << "No Geo." << std::endl;
  return source;
}

template <class Set>
int extract_elements(const ::osg::NodePtr& node, Set& set, const extract_options& options) {
  const ::osg::GeometryPtr source = source_geometry<Set>(node);
  if (!checkGeometry(source)) return 0;
  if (!set.geometry) {
    std::cout << "Morlu_osg_geoset_tools::Extract: No Geometry in geoset!" << std::endl;
    return 0;
  }
  if (promised_elements<Set>(source) == 0) return 0;
  extraction<Set> task(node, source, set, options);
  guarded(
      source_of<Set>::failures, [&] { task.run(); }, [] {});
  if (options.run_setup) set.setup();
  return clamped(task.refused());
}

}  // namespace

int extract(const ::osg::NodePtr& node, osg_geoset& set, bool toWorld, bool useMaterialGroup,
            bool wantIds, bool runSetup, bool dropUnusedTexCoords) {
  return extract_elements(node, set,
                          {toWorld, useMaterialGroup, wantIds, runSetup, dropUnusedTexCoords});
}
int extractLines(const ::osg::NodePtr& node, osg_line_geoset& set, bool toWorld,
                 bool useMaterialGroup, bool wantIds, bool runSetup) {
  return extract_elements(node, set, {toWorld, useMaterialGroup, wantIds, runSetup});
}
int extractPoints(const ::osg::NodePtr& node, osg_point_geoset& set, bool toWorld,
                  bool useMaterialGroup, bool wantIds, bool runSetup) {
  return extract_elements(node, set, {toWorld, useMaterialGroup, wantIds, runSetup});
}

}  // namespace morlu::osg
