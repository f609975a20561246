#include "scene_stats.h"

#include <unordered_map>
#include <unordered_set>
#include <utility>

#include <osg/cores.h>
#include <osg/geometry.h>
#include <osg/material.h>

#include "core_stats.h"
#include "world_bounds.h"

namespace morlu::program {
namespace {

using ::osg::Matrix4d;

/// A geometry core and the places where it is drawn.
struct DrawnCore {
  const ::osg::Geometry* geometry;
  std::vector<Matrix4d> world_from_object;
};

/// What a walk over the nodes finds, cores and materials in the order in which it meets them.
struct Inventory {
  std::uint64_t nodes = 0;
  std::uint64_t geometry_nodes = 0;
  std::vector<DrawnCore> cores;
  std::vector<::osg::MaterialPtr> materials;
};

class Walk {
 public:
  // A stack of our own: scenes from files may be deeper than a thread's stack.
  Inventory run(const ::osg::NodePtr& root) {
    if (root) pending_.push_back({root.get(), Matrix4d()});
    while (!pending_.empty()) {
      const Place place = pending_.back();
      pending_.pop_back();
      visit(place);
    }
    return std::move(found_);
  }

 private:
  struct Place {
    const ::osg::Node* node;
    Matrix4d world_from_parent;
  };

  void visit(const Place& place) {
    ++found_.nodes;
    const ::osg::NodeCorePtr& core = place.node->getCore();
    Matrix4d world = place.world_from_parent;
    if (core) {
      if (const auto* local = core->getLocalMatrix()) world *= in_double(*local);
      if (const auto geometry = ::osg::Geometry::dcast(core)) {
        draw(*geometry, world);
      } else if (const auto group = ::osg::MaterialGroup::dcast(core)) {
        use(group->getMaterial());
      }
    }
    const auto children = place.node->getChildren();
    for (auto child = children.rbegin(); child != children.rend(); ++child) {
      pending_.push_back({child->get(), world});
    }
  }

  void draw(const ::osg::Geometry& geometry, const Matrix4d& world) {
    ++found_.geometry_nodes;
    const auto [place, is_new] = place_of_core_.try_emplace(&geometry, found_.cores.size());
    if (is_new) {
      found_.cores.push_back({&geometry, {}});
      use(geometry.getMaterial());
    }
    found_.cores[place->second].world_from_object.push_back(world);
  }

  void use(const ::osg::MaterialPtr& material) {
    if (material && used_.insert(material).second) found_.materials.push_back(material);
  }

  std::vector<Place> pending_;
  std::unordered_map<const ::osg::Geometry*, std::size_t> place_of_core_;
  std::unordered_set<::osg::MaterialPtr> used_;
  Inventory found_;
};

/// Finds the images in materials, through whatever chunks and materials these hold.
class ImageSearch {
 public:
  void search(const ::osg::ValueContainerPtr& container) {
    if (!container || !searched_.insert(container).second) return;
    ::osg::readFields(*container, [this](const char*, const auto& value) { look_at(value); });
  }
  /// In the order in which they were found.
  const std::vector<::osg::ImagePtr>& images() const { return images_; }

 private:
  template <class Value>
  void look_at(const Value&) {}
  void look_at(const ::osg::ImagePtr& image) {
    if (image && known_.insert(image).second) images_.push_back(image);
  }
  template <class Handle>
  void look_at(const std::vector<::osg::FCPtr<Handle>>& handles) {
    for (const auto& handle : handles) {
      if constexpr (std::is_same_v<Handle, ::osg::Image>)
        look_at(handle);
      else
        search(handle);
    }
  }

  std::unordered_set<::osg::ValueContainerPtr> searched_;
  std::unordered_set<::osg::ImagePtr> known_;
  std::vector<::osg::ImagePtr> images_;
};

std::vector<::osg::ImagePtr> images_in(const Inventory& inventory) {
  ImageSearch search;
  for (const auto& material : inventory.materials) search.search(material);
  return search.images();
}

void add_core(const DrawnCore& core, SceneStats& stats, WorldBounds& bounds) {
  const CoreStats once = count_core(*core.geometry);
  const std::uint64_t times = core.world_from_object.size();
  stats.triangles += times * once.triangles;
  stats.lines += times * once.lines;
  stats.points += times * once.points;
  stats.unusable_triangles += times * once.unusable_triangles;
  stats.vertices += once.vertices;
  stats.index_entries += once.index_entries;
  stats.core_triangles += once.triangles;
  stats.cache_misses += once.cache_misses;
  bounds.extend(once.positions, core.world_from_object);
}

}  // namespace

std::optional<double> SceneStats::acmr() const {
  if (core_triangles == 0) return std::nullopt;
  return static_cast<double>(cache_misses) / static_cast<double>(core_triangles);
}

SceneStats count_scene(const ::osg::NodePtr& root) {
  const Inventory inventory = Walk().run(root);
  SceneStats stats;
  stats.nodes = inventory.nodes;
  stats.geometry_nodes = inventory.geometry_nodes;
  stats.cores = inventory.cores.size();
  stats.materials = inventory.materials.size();

  WorldBounds bounds;
  for (const DrawnCore& core : inventory.cores) add_core(core, stats, bounds);
  stats.bounds = bounds.box();
  if (const auto count = bounds.dropped_positions()) {
    stats.warnings.push_back(std::to_string(count) + " positions are not finite in world space");
  }
  if (stats.geometry_nodes == 0) stats.warnings.push_back("no geometry");

  stats.images = images_in(inventory).size();
  return stats;
}

std::vector<::osg::ImagePtr> find_images(const ::osg::NodePtr& root) {
  return images_in(Walk().run(root));
}

}  // namespace morlu::program
