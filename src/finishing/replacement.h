#pragma once

#include <osg/geometry.h>
#include <osg/node.h>

#include <map>
#include <string_view>
#include <utility>

/// How what was built of a geometry comes into the scene, so that nothing else is lost: children,
/// names, masks, attachments, and that nodes share their cores.
///
/// Where memory runs out, `std::bad_alloc` leaves and the scene is as it was.
namespace morlu::osg {

/// Gives the new node, which is about to stand for the old one, its name (its geometry's, if it has
/// none), mask and attachments, and the geometries below the attachments of the old core. Caches
/// stay behind.
void carry_over(const ::osg::NodePtr& from, const ::osg::NodePtr& to);

/// The node itself takes core and children of `result`, behind its own.
void become(const ::osg::NodePtr& node, const ::osg::NodePtr& result);

/// Puts `result` in the node's place, or makes the node itself become it where it has no parent or
/// children of its own. Returns what stands there now.
::osg::NodePtr put_in_place(const ::osg::NodePtr& node, const ::osg::NodePtr& result);

/// One line on standard error: the operation leaves the node as it is, and why.
void say_stays(const ::osg::NodePtr& node, std::string_view operation, std::string_view reason);

/// Results by core: nodes that share a core get results that share theirs.
class shared_results {
 public:
  /// What `make()` gives, without parent; it is asked once for all nodes that show a core alike,
  /// and `way` is the same. May be null.
  template <class Make>
  ::osg::NodePtr of(const ::osg::NodePtr& node, int way, const Make& make) {
    const auto core = ::osg::Geometry::dcast(node->getCore());
    auto found = results_.find(core);
    if (found == results_.end()) {
      if (core->getNumParents() < 2) return make();
      found = results_.emplace(core, by_look()).first;
    }
    const std::pair look(way, shows_image(node));
    auto result = found->second.find(look);
    if (result == found->second.end()) result = found->second.emplace(look, make()).first;
    return copy_of(result->second);
  }

 private:
  using by_look = std::map<std::pair<int, bool>, ::osg::NodePtr>;

  static bool shows_image(const ::osg::NodePtr& node);
  static ::osg::NodePtr copy_of(const ::osg::NodePtr& node);

  std::map<::osg::GeometryPtr, by_look> results_;
};

}  // namespace morlu::osg
