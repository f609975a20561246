// Refits volumes to a finished tree, children before their parents.

#include "ray/pair_volumes.h"

#include <cfloat>
#include <cmath>
#include <vector>

#include "ray/bih_tree.h"

namespace morlu {

namespace {

/// Up to so many triangles a node's slab is measured on all their corners; above, on the volumes of
/// the node's children, which holds just as well but may be a little thicker. It keeps the refit
/// linear in time.
constexpr std::uint32_t most_measured = 64;

constexpr float unit_of_rounding = 0x1p-24f;

/// What a parent wants to know of a node.
struct volume {
  math::vector3 min, max;
  math::vector3 area_normal;  // sum over the triangles, twice their area long
  math::vector3 normal;
  float low, high;             // of the slab, along the normal from the origin
  std::uint32_t first, count;  // run of the tree's indices
};

volume volume_of_nothing() {
  const bounding_box box = bounding_box::empty();
  return {box.min, box.max, {0, 0, 0}, {0, 0, 0}, 0, 0, 0, 0};
}

bool is_empty(const volume& v) {
  return v.count == 0;
}

math::vector3 unit_or_zero(const math::vector3& v) {
  const float size = math::length(v);
  if (!(size > 0 && size <= FLT_MAX)) return {0, 0, 0};
  return {v[0] / size, v[1] / size, v[2] / size};
}

class refit {
 public:
  refit(const bih_tree<float>& tree, const osg::triangle_set& set)
      : tree_(tree), set_(set), count_(tree.stats.nodes + 1), volumes_(count_) {}

  /// The records, in the order of the inner nodes.
  std::unique_ptr<pair_volumes::record[]> run() {
    number_inner_nodes();
    auto records = std::make_unique_for_overwrite<pair_volumes::record[]>(inner_count_);
    for (std::size_t i = count_; i-- > 0;) {
      const bih_node& node = tree_.nodes[i];
      if (node.is_leaf()) {
        measure_leaf(i);
        continue;
      }
      const std::size_t children[2] = {i + 1, static_cast<std::size_t>(node.right_child)};
      pair_volumes::record& to = records[static_cast<std::size_t>(numbers_[i])];
      for (int side = 0; side < 2; ++side) {
        write(to, side, volumes_[children[side]]);
        to.child[side] = numbers_[children[side]];
      }
      join(i, volumes_[children[0]], volumes_[children[1]]);
    }
    return records;
  }

  math::vector3 bound() const {
    math::vector3 reach{};
    for (int axis = 0; axis < 3; ++axis) {
      const float low = std::fabs(volumes_[0].min[axis]), high = std::fabs(volumes_[0].max[axis]);
      reach[axis] = low > high ? low : high;
    }
    return reach;
  }

 private:
  void number_inner_nodes() {
    numbers_.resize(count_);
    for (std::size_t i = 0; i < count_; ++i)
      numbers_[i] = tree_.nodes[i].is_leaf() ? ~static_cast<std::int32_t>(i) : inner_count_++;
  }

  const triangle& triangle_at(std::uint32_t place) const {
    return set_.triangles[tree_.indices[place]];
  }

  void measure_leaf(std::size_t i) {
    const bih_node& leaf = tree_.nodes[i];
    volume& v = volumes_[i] = volume_of_nothing();
    v.first = static_cast<std::uint32_t>(leaf.leaf_start);
    v.count = static_cast<std::uint32_t>(leaf.leaf_count);
    bounding_box box = bounding_box::empty();
    for (std::uint32_t place = v.first; place < v.first + v.count; ++place) {
      const triangle& t = triangle_at(place);
      for (const math::vector3& corner : t.corners) box.widen(corner);
      v.area_normal = v.area_normal + math::cross(t[1] - t[0], t[2] - t[0]);
    }
    v.min = box.min;
    v.max = box.max;
    v.normal = unit_or_zero(v.area_normal);
    measure_slab(v);
  }

  void join(std::size_t i, const volume& left, const volume& right) {
    volume& v = volumes_[i];
    for (int axis = 0; axis < 3; ++axis) {
      v.min[axis] = right.min[axis] < left.min[axis] ? right.min[axis] : left.min[axis];
      v.max[axis] = right.max[axis] > left.max[axis] ? right.max[axis] : left.max[axis];
    }
    v.area_normal = left.area_normal + right.area_normal;
    v.normal = unit_or_zero(v.area_normal);
    v.first = left.first;  // an empty side's run stands at the right place, too
    v.count = left.count + right.count;
    if (v.count <= most_measured)
      measure_slab(v);
    else
      join_slabs(v, left, right);
  }

  void measure_slab(volume& v) const {
    v.low = FLT_MAX;
    v.high = -FLT_MAX;
    for (std::uint32_t place = v.first; place < v.first + v.count; ++place) {
      for (const math::vector3& corner : triangle_at(place).corners) {
        const float along = math::dot(v.normal, corner);
        v.low = along < v.low ? along : v.low;
        v.high = along > v.high ? along : v.high;
      }
    }
  }

  /// The normal is n = s n' + r, n' being a child's: along n the child reaches as far as s times
  /// its slab and, along r, its box. As bounds of bounds add up their roundings, each level makes
  /// up for its own.
  void join_slabs(volume& v, const volume& left, const volume& right) const {
    v.low = FLT_MAX;
    v.high = -FLT_MAX;
    for (const volume* child : {&left, &right}) {
      if (is_empty(*child)) continue;
      const float s = math::dot(v.normal, child->normal);
      const math::vector3 r = v.normal - child->normal * s;
      float low = s * (s < 0 ? child->high : child->low);
      float high = s * (s < 0 ? child->low : child->high);
      float size = std::fabs(low) + std::fabs(high);
      for (int axis = 0; axis < 3; ++axis) {
        low += r[axis] * (r[axis] < 0 ? child->max : child->min)[axis];
        high += r[axis] * (r[axis] < 0 ? child->min : child->max)[axis];
        size += std::fabs(child->min[axis]) + std::fabs(child->max[axis]);
      }
      low -= 8 * unit_of_rounding * size;
      high += 8 * unit_of_rounding * size;
      v.low = low < v.low ? low : v.low;
      v.high = high > v.high ? high : v.high;
    }
  }

  static void write(pair_volumes::record& to, int side, const volume& v) {
    math::vector3 centre{};
    for (int axis = 0; axis < 3; ++axis) {
      if (!is_empty(v)) centre[axis] = v.min[axis] * 0.5f + v.max[axis] * 0.5f;
      to.centre[axis][side] = centre[axis];
      to.half[axis][side] = is_empty(v) ? -FLT_MAX : v.max[axis] * 0.5f - v.min[axis] * 0.5f;
      to.normal[axis][side] = v.normal[axis];
    }
    const bool has_slab = !is_empty(v) && math::dot(v.normal, v.normal) > 0;
    to.middle[side] = has_slab ? v.low * 0.5f + v.high * 0.5f - math::dot(v.normal, centre) : 0;
    to.reach[side] = has_slab ? v.high * 0.5f - v.low * 0.5f : 0;
  }

  const bih_tree<float>& tree_;
  const osg::triangle_set& set_;
  std::size_t count_;
  std::vector<volume> volumes_;        // a node each
  std::vector<std::int32_t> numbers_;  // of a node's record, or ~ its own of a leaf
  std::int32_t inner_count_ = 0;
};

}  // namespace

pair_volumes::pair_volumes(const bih_tree<float>& tree, const osg::triangle_set& set) {
  refit pass(tree, set);
  records_ = pass.run();
  bound_ = pass.bound();
}

const pair_volumes& volumes_of(const bih_tree<float>& tree, const osg::triangle_set& set) {
  return tree.volumes.get([&] { return new pair_volumes(tree, set); });
}

}  // namespace morlu
