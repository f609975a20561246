#include "picture/drawn_scene.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <unordered_map>

#include <osg/cores.h>

#include "boxes.h"

namespace morlu::program {
namespace {

using ::osg::GeometryPtr;
using ::osg::MaterialPtr;
using ::osg::Matrix4d;
using ::osg::NodePtr;
using ::osg::Pnt3d;

/// The box of the corners' images, wider by what rounding to floats may do to a surface in it.
Box world_box(const Box& box, const Matrix4d& world_from_object) {
  const auto corners = corners_of(box);
  const Pnt3d first = world_from_object * corners[0];
  Box world{first, first};
  for (const Pnt3d& corner : corners) widen(world, world_from_object * corner);
  const double margin = 1e-6 * diagonal_of(world);
  const ::osg::Vec3d wider(margin, margin, margin);
  return {world.min - wider, world.max + wider};
}

bool is_finite(const Box& box) {
  return std::isfinite(diagonal_of(box)) && std::isfinite(box.min.subZero().length());
}

/// As rays are carried through a transform.
std::optional<Matrix4d> undone(const Matrix4d& matrix) {
  const double determinant = std::fabs(matrix.determinant());
  if (!(determinant >= 1e-30) || std::isinf(determinant)) return std::nullopt;
  return matrix.inverse();
}

class Collector {
 public:
  // A stack of our own: scenes from files may be deeper than a thread's stack.
  DrawnScene run(const NodePtr& root) {
    if (root) pending_.push_back({root.get(), Matrix4d(), {}});
    while (!pending_.empty()) {
      const Place place = pending_.back();
      pending_.pop_back();
      visit(place);
    }
    scene_.tree = BoxTree(scene_.boxes);
    return std::move(scene_);
  }

 private:
  struct Place {
    const ::osg::Node* node;
    Matrix4d world_from_parent;
    MaterialPtr group_material;
  };

  void visit(const Place& place) {
    if (place.node->getTravMask() == 0) return;
    Place inner = place;
    std::size_t first = 0, end = place.node->getNChildren();
    if (const auto& core = place.node->getCore()) {
      if (const auto* local = core->getLocalMatrix()) inner.world_from_parent *= in_double(*local);
      if (const auto geometry = ::osg::Geometry::dcast(core)) {
        draw(geometry, inner);
      } else if (const auto group = ::osg::MaterialGroup::dcast(core)) {
        if (!inner.group_material) inner.group_material = group->getMaterial();
      } else if (const auto choice = ::osg::Switch::dcast(core)) {
        const auto chosen = static_cast<std::size_t>(choice->getChoice());  // none: beyond the end
        first = std::min(chosen, end);
        end = std::min(first + 1, end);
      } else if (::osg::DistanceLOD::dcast(core)) {
        end = std::min<std::size_t>(end, 1);
      }
    }
    const auto children = place.node->getChildren().subspan(first, end - first);
    for (auto child = children.rbegin(); child != children.rend(); ++child) {
      inner.node = child->get();
      pending_.push_back(inner);
    }
  }

  void draw(const GeometryPtr& geometry, const Place& place) {
    count_undrawn(*geometry);
    const std::uint32_t core = number_of_core(geometry);
    if (!scene_.cores[core].fronts) return;
    const Matrix4d& world = place.world_from_parent;
    const auto object_from_world = undone(world);
    const Box box = world_box(scene_.cores[core].box, world);
    if (!object_from_world || !is_finite(box)) {
      ++scene_.unplaced;
      return;
    }
    const auto& own = geometry->getMaterial();
    const std::uint32_t look = number_of_look(own ? own : place.group_material);
    const double run_up = scene_.cores[core].run_up() * diagonal_of(box);
    scene_.placements.push_back({core, look, world, *object_from_world, run_up});
    scene_.boxes.push_back(box);
  }

  void count_undrawn(const ::osg::Geometry& geometry) {
    for (auto it = geometry.beginPrimitives(); !it.isAtEnd(); ++it) {
      scene_.lines += ::osg::lineCount(it.getType(), it.getLength());
      if (it.getType() == ::osg::kPoints) scene_.points += it.getLength();
    }
  }

  std::uint32_t number_of_core(const GeometryPtr& geometry) {
    const auto next = static_cast<std::uint32_t>(scene_.cores.size());
    const auto [place, is_new] = core_numbers_.try_emplace(geometry.get(), next);
    if (is_new) scene_.cores.push_back(make_drawn_core(geometry));
    return place->second;
  }
  std::uint32_t number_of_look(const MaterialPtr& material) {
    const auto next = static_cast<std::uint32_t>(scene_.looks.size());
    const auto [place, is_new] = look_numbers_.try_emplace(material, next);
    if (is_new) scene_.looks.push_back(surfaces_.read(material));
    return place->second;
  }

  std::vector<Place> pending_;
  std::unordered_map<const ::osg::Geometry*, std::uint32_t> core_numbers_;
  std::unordered_map<MaterialPtr, std::uint32_t> look_numbers_;
  SurfaceReader surfaces_;
  DrawnScene scene_;
};

}  // namespace

DrawnScene collect_drawn(const NodePtr& root) {
  return Collector().run(root);
}

// The rounding grows with the coordinates; what is as small as this doesn't show.
double DrawnScene::thinnest_gap() const {
  if (boxes.empty()) return 0.0;
  const Box all = box_around(boxes);
  return 2e-6 * diagonal_of(all) + 4e-7 * largest_coordinate(all);
}

}  // namespace morlu::program
