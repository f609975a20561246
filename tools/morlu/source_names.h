#pragma once

#include <optional>
#include <string>
#include <vector>

#include <osg/base_types.h>
#include <osg/geometry.h>
#include <osg/node.h>

namespace morlu::program {

/// Names of the sources of an optimised scene, from the id map that was written with it.
///
/// An id map lists the sources that are still in the scene, in the order of their ids, but not the
/// ids: those are what the scene's geometries hold.
class SourceNames {
 public:
  /// Reads an id map. Throws `Failure` with file and reason if there is no such file or it is none.
  explicit SourceNames(const std::string& file);

  /// Takes the ids from the geometries below `root`. Throws `Failure` if the map can't be that of
  /// the scene, which `scene` names in the message: it names more sources or fewer. Null: no ids.
  void match(const ::osg::NodePtr& root, const std::string& scene);

  /// The source of that id; none for -1 and for an id that isn't in the scene. O(log sources).
  std::optional<std::string> name_of(::osg::Int32 id) const;

 private:
  std::string file_;
  std::vector<std::string> names_;
  std::vector<::osg::Int32> ids_;  // of each name, ascending
};

/// The id at that corner of the geometry at `node`, of the triangle `number` among its usable ones,
/// which is nearest to a point in the world; -1 if there is none. O(triangles).
::osg::Int32 id_near(const ::osg::NodePtr& node, ::osg::Int32 number, const ::osg::Pnt3f& point);

}  // namespace morlu::program
