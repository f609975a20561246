#pragma once

#include <algorithm>
#include <limits>

#include "geoset/extract_traits.h"

/// What a fill takes from its source, for the fill itself and for those who see to sources before
/// they are shared between threads.
namespace morlu::osg {

inline bool is_empty(const ::osg::GeoProperty* property) {
  return !property || property->empty();
}

/// The node's geometry; null for null and for all other cores, those derived from Geometry too.
::osg::GeometryPtr plain_geometry(const ::osg::NodePtr& node);

/// Elements that types and lengths promise; 0 for null and without them.
template <class Set>
std::uint64_t promised_elements(const ::osg::GeometryPtr& geo) {
  if (!geo || is_empty(geo->getTypes().get()) || is_empty(geo->getLengths().get())) return 0;
  const ::osg::GeoPTypes& types = *geo->getTypes();
  const ::osg::GeoPLengths& lengths = *geo->getLengths();
  std::uint64_t sum = 0;
  for (std::uint32_t i = 0; i < std::min(types.size(), lengths.size()); ++i)
    sum += source_of<Set>::promised(types.getValue(i), lengths.getValue(i));
  return sum;
}

/// Counts are given as int.
inline int clamped(std::uint64_t count) {
  return static_cast<int>(std::min<std::uint64_t>(count, std::numeric_limits<int>::max()));
}

/// Whether a fill leaves texture coordinates 0 to 3 out, since the node shows no image on them.
/// Takes them away if no other node does either.
bool drops_tex_coords(const ::osg::NodePtr& node, const ::osg::GeometryPtr& source);

/// What a set that has `present` goes on with.
::osg::MaterialPtr material_after(const ::osg::MaterialPtr& present, const ::osg::NodePtr& node,
                                  const ::osg::GeometryPtr& source, bool use_material_group);

/// The node's name, else its geometry's; null if both are empty.
const char* name_of_source(const ::osg::NodePtr& node, const ::osg::GeometryPtr& source);

/// The id of the name; its box is that of the node in the space of the set.
std::uint32_t register_name(const ::osg::NodePtr& node, const char* name, bool to_world,
                            const ::osg::MaterialPtr& material);

}  // namespace morlu::osg
