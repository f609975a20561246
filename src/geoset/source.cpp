#include "geoset/source.h"

#include <osg/cores.h>

#include <atomic>

#include "geoset/extract.h"
#include "optimiser/id_map_handler.h"

namespace morlu::osg {

using ::osg::Attribute;

::osg::GeometryPtr plain_geometry(const ::osg::NodePtr& node) {
  const auto core = node ? node->getCore() : ::osg::NullFC;
  if (!core || core->getType() != ::osg::Geometry::getClassType()) return ::osg::NullFC;
  return ::osg::Geometry::dcast(core);
}

// --- Writes to sources ---------------------------------------------------------------------------

bool checkGeometry(const ::osg::GeometryPtr& geo) {
  if (!geo || is_empty(geo->getTypes().get()) || is_empty(geo->getLengths().get()) ||
      is_empty(geo->getPositions().get()))
    return false;
  constexpr auto first = indexOf(Attribute::Normals), last = indexOf(Attribute::TexCoords3);
  for (auto i = first; i <= last; ++i) {
    const Attribute attribute = ::osg::attributeAt(i);
    const auto* property = geo->getAttribute(attribute);
    if (property && property->empty()) geo->setAttribute(attribute, ::osg::NullFC);
  }
  return true;
}

bool drops_tex_coords(const ::osg::NodePtr& node, const ::osg::GeometryPtr& source) {
  constexpr std::array sets{Attribute::TexCoords, Attribute::TexCoords1, Attribute::TexCoords2,
                            Attribute::TexCoords3};
  const auto has = [&](Attribute attribute) { return source->getAttribute(attribute); };
  if (std::none_of(sets.begin(), sets.end(), has) || hasMaterialImage(node)) return false;
  // Another node may show an image on the same geometry: only where all agree is it written to.
  const auto shown = source->getParents();
  if (!source->getMaterial() && std::any_of(shown.begin(), shown.end(), hasMaterialImage))
    return true;
  for (const Attribute attribute : sets)
    if (has(attribute)) source->setAttribute(attribute, ::osg::NullFC);
  return true;
}

bool cleanUpSource(const ::osg::NodePtr& node, bool dropUnusedTexCoords) {
  const auto source = plain_geometry(node);
  if (!checkGeometry(source)) return false;
  if (dropUnusedTexCoords && promised_elements<osg_geoset>(source) > 0)
    drops_tex_coords(node, source);
  return true;
}

// --- Material and ids ----------------------------------------------------------------------------

::osg::MaterialPtr material_after(const ::osg::MaterialPtr& present, const ::osg::NodePtr& node,
                                  const ::osg::GeometryPtr& source, bool use_material_group) {
  if (present) return present;
  if (source->getMaterial() || !use_material_group) return source->getMaterial();
  const auto group = searchMaterialGroup(node);
  return group ? ::osg::MaterialGroup::dcast(group->getCore())->getMaterial() : ::osg::NullFC;
}

const char* name_of_source(const ::osg::NodePtr& node, const ::osg::GeometryPtr& source) {
  for (const char* name : {::osg::getName(node), ::osg::getName(source)})
    if (name && *name) return name;
  return nullptr;
}

std::uint32_t register_name(const ::osg::NodePtr& node, const char* name, bool to_world,
                            const ::osg::MaterialPtr& material) {
  ::osg::DynamicVolume volume;
  if (to_world)
    node->getWorldVolume(volume);
  else
    volume = node->getVolume(true);
  point low, high;
  volume.getBounds(low, high);
  return getIdMapHandler().addName(name, low, high, material);
}

float stored_id(std::uint32_t id) {
  constexpr std::uint32_t exact_ids = std::uint32_t{1} << 24;
  static std::atomic<bool> said{false};
  if (id > exact_ids && !said.exchange(true))
    std::cerr << "Morlu_osg_geoset_tools::Extract: IDmap ids above " << exact_ids
              << " are not exact." << std::endl;
  return static_cast<float>(id);
}

void source_names::add(const ::osg::NodePtr& node) {
  const auto source = plain_geometry(node);
  if (getIdMapHandler().merged || !checkGeometry(source)) return;
  add_to<osg_geoset>(sets_[0], node, source);
  add_to<osg_line_geoset>(sets_[1], node, source);
  add_to<osg_point_geoset>(sets_[2], node, source);
}

/// A set has ids from the first source on that has a name and either brings them or is to get them.
template <class Set>
void source_names::add_to(set_state& set, const ::osg::NodePtr& node,
                          const ::osg::GeometryPtr& source) {
  if (promised_elements<Set>(source) == 0) return;
  set.material = material_after(set.material, node, source, use_material_group_);
  const char* const name = name_of_source(node, source);
  if (!name) return;
  set.has_ids = set.has_ids || want_ids_ || !is_empty(source->getTexCoords7().get());
  if (!set.has_ids) return;
  const bool by_node = element_of<Set>::kind == in_triangles;
  register_name(node, name, to_world_, by_node ? getEffectiveMaterial(node) : set.material);
}

// --- Counts --------------------------------------------------------------------------------------

int countPrimitiveTriangles(const ::osg::GeometryPtr& geo) {
  return clamped(promised_elements<osg_geoset>(geo));
}
int countPrimitiveLines(const ::osg::GeometryPtr& geo) {
  return clamped(promised_elements<osg_line_geoset>(geo));
}
int countPrimitivePoints(const ::osg::GeometryPtr& geo) {
  return clamped(promised_elements<osg_point_geoset>(geo));
}

}  // namespace morlu::osg
