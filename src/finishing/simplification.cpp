// From a node to fewer triangles: out into a set, single index, collapses, and through a second
// set, which leaves out what they have flattened.
#include <osg/geometry_tools.h>
#include <osg/scene_file_handler.h>

#include <array>
#include <string>

#include "finishing/carried_attributes.h"
#include "finishing/edge_collapse.h"
#include "finishing/index_building.h"
#include "geoset/source.h"
#include "morlu/finishing.h"
#include "primitives/crease_angle.h"
#include "primitives/say.h"

namespace morlu::osg {

namespace {

using ::osg::GeometryPtr;
using ::osg::NodePtr;

/// Puts the attributes of a geometry back in the end: extraction takes away what is empty or
/// unused.
class attribute_keeper {
 public:
  explicit attribute_keeper(const GeometryPtr& geometry) : geometry_(geometry) {
    if (!geometry_) return;
    for (::osg::UInt32 i = 0; i < ::osg::kAttributeCount; ++i)
      attributes_[i] = ::osg::GeoPropertyPtr(geometry_->getAttribute(::osg::attributeAt(i)));
  }
  ~attribute_keeper() {
    if (!geometry_) return;
    for (::osg::UInt32 i = 0; i < ::osg::kAttributeCount; ++i)
      if (geometry_->getAttribute(::osg::attributeAt(i)) != attributes_[i].get())
        geometry_->setAttribute(::osg::attributeAt(i), attributes_[i]);
  }
  attribute_keeper(const attribute_keeper&) = delete;
  attribute_keeper& operator=(const attribute_keeper&) = delete;

 private:
  const GeometryPtr geometry_;
  std::array<::osg::GeoPropertyPtr, ::osg::kAttributeCount> attributes_;
};

struct triangles_of_node {
  GeometryPtr geometry;  // null if there are none
  std::uint64_t count;
  int unusable;
};

triangles_of_node take_out(const NodePtr& node) {
  const attribute_keeper source(plain_geometry(node));
  osg_geoset set;
  const int unusable = extract(node, set, false, true, false, true, true);
  if (set.num_objects == 0) return {::osg::NullFC, 0, unusable};
  return {set.geometry, set.num_objects, unusable};
}

void collapse_edges(::osg::GeoPositions3f& positions, ::osg::GeoIndicesUI32& indices,
                    std::uint64_t edges_wanted) {
  edge_collapse triangles(positions.values(), indices.values());
  say("MyRefMap Entries: " + std::to_string(triangles.vertices()));
  for (; triangles.edges() > edges_wanted; triangles.collapse_next())
    if (triangles.edges() % 10000 == 0)
      say("Simplify: " + std::to_string(triangles.edges()) + "\n");
  triangles.write_corners();
  say("simpified\n");
}

/// Corners of the same values become one vertex, whose edges then collapse. False if there is no
/// index for it.
bool collapse_triangles(const GeometryPtr& geometry, unsigned target) {
  build_single_index(*geometry, carried_attributes<osg_geoset>());
  const auto positions = ::osg::GeoPositions3f::dcast(geometry->getPositions());
  const auto indices = ::osg::GeoIndicesUI32::dcast(geometry->getIndices());
  say("CreateSingleIndex: " + std::to_string(positions->size()) + "\n");
  if (!indices) {
    say("Sorry no index....\n");
    return false;
  }
  collapse_edges(*positions, *indices, std::uint64_t{target} * 3);
  ::osg::endEditCP(positions);
  ::osg::endEditCP(indices);
  return true;
}

/// Under the name that its ids go by.
NodePtr node_like(const NodePtr& source, const GeometryPtr& geometry) {
  const NodePtr node = ::osg::Node::create();
  node->setCore(geometry);
  if (const char* name = name_of_source(source, plain_geometry(source))) ::osg::setName(node, name);
  return node;
}

/// A copy on disk that nobody waits for.
void leave_file(const NodePtr& node) {
  try {
    ::osg::SceneFileHandler::the().write(node, "simple.osb", false);
  } catch (...) {
    return;  // the result is there all the same
  }
}

}  // namespace

GeometryPtr simplifyGeometry(NodePtr node, unsigned int targetTriangles) {
  if (targetTriangles == 0 || !node) return ::osg::NullFC;
  const GeometryPtr work = take_out(node).geometry;
  if (!work || !collapse_triangles(work, targetTriangles)) return ::osg::NullFC;

  const NodePtr collapsed = node_like(node, work);
  const auto [result, count, unusable] = take_out(collapsed);
  say("Tris: " + std::to_string(count) + "\nNoTris: " + std::to_string(unusable) + "\nextracted\n");
  if (!result) return ::osg::NullFC;
  ::osg::createSharedIndex(result);
  ::osg::calcVertexNormals(result, crease_angle);
  say("createsingle done\n");
  leave_file(collapsed);
  say("The Return..");
  return result;
}

}  // namespace morlu::osg
