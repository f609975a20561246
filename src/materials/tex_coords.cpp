// Texture coordinates near 0 to 1.
//
// Shifting and rounding one element touches no other, and what a cut adds stands behind all others.
// So a block of elements is brought near zero in one go, and then those that are still too far out
// are cut one by one, which gives what a walk over single elements would give.

#include "materials/tex_coords.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "materials/tex_coord_steps.h"
#include "morlu/materials.h"

namespace morlu::osg {

namespace {

using tex_coord = ::osg::Vector<float, 2>;

/// Texture coordinates of consecutive elements: u and v of corner after corner.
class coord_block {
 public:
  static constexpr std::uint32_t most_elements = 512;

  void load(const ::osg::GeoTexCoords& from, std::uint32_t element, std::uint32_t count) {
    begin_ = 3 * element;
    corners_ = 3 * count;
    if (holds_pairs(from))
      std::memcpy(values_.data(), from.getData() + begin_ * pair_bytes, corners_ * pair_bytes);
    else
      for (std::uint32_t i = 0; i < corners_; ++i)
        std::copy_n(from.getValue(begin_ + i).getValues(), 2, &values_[2 * i]);
  }
  void store(const ::osg::GeoTexCoordsPtr& to) const {
    ::osg::beginEditCP(to);
    if (holds_pairs(*to))
      std::memcpy(to->editData() + begin_ * pair_bytes, values_.data(), corners_ * pair_bytes);
    else
      for (std::uint32_t i = 0; i < corners_; ++i)
        to->setValue({values_[2 * i], values_[2 * i + 1]}, begin_ + i);
    ::osg::endEditCP(to);
  }

  void bring_near_zero(float cut) {
    for (std::uint32_t i = 0; i < 2 * corners_; ++i)
      values_[i] = tex_coord_steps::rounded(values_[i]);
    for (std::uint32_t i = 0; i < 2 * corners_; i += 6)
      for (float* axis : {&values_[i], &values_[i + 1]}) {
        tex_coord_steps::make_positive(axis[0], axis[2], axis[4]);
        tex_coord_steps::move_near_zero(axis[0], axis[2], axis[4]);
      }
    if (!any_beyond(cut)) return;
    for (std::uint32_t i = 0; i < 2 * corners_; i += 2)
      tex_coord_steps::cut_corner(values_[i], values_[i + 1], cut);
  }

  bool any_beyond(float bound) const {
    unsigned beyond = 0;
    for (std::uint32_t i = 0; i < 2 * corners_; ++i) beyond |= unsigned{values_[i] > bound};
    return beyond != 0;
  }

  /// Whether cutting the element may bring it within the bound.
  bool asks_for_cut(std::uint32_t element, float bound) const {
    const float* at = &values_[6 * element];
    for (unsigned i = 0; i < 6; ++i)
      if (!std::isfinite(at[i])) return false;
    // what lies in 1 to 2 isn't shifted to 0: halves would be no better
    const auto is_far = [bound](float a, float b, float c) {
      const auto [low, high] = std::minmax({a, b, c});
      return high > bound && !(bound == 1 && low >= 1 && high <= bound + 1);
    };
    return is_far(at[0], at[2], at[4]) || is_far(at[1], at[3], at[5]);
  }

 private:
  static constexpr std::size_t pair_bytes = 2 * sizeof(float);
  static bool holds_pairs(const ::osg::GeoTexCoords& coords) {
    return coords.getComponentType() == ::osg::ComponentType::Float32 && coords.getDimension() == 2;
  }

  std::uint32_t begin_ = 0, corners_ = 0;
  std::array<float, 6 * most_elements> values_;
};

class tex_coord_pass {
 public:
  tex_coord_pass(osg_geoset& set, int bound, int cut)
      : set_(set),
        cuts_(bound > 0),
        bound_(static_cast<float>(bound)),
        cut_(static_cast<float>(cut)),
        most_added_((std::uint64_t{1} << 20) + 64 * set.num_objects) {}

  unsigned run() {
    for (std::uint32_t begin = 0, end = 0; begin < elements(); begin = end) {
      end = std::min(begin + coord_block::most_elements, elements());
      bring_near_zero(block_, begin, end - begin);
      if (!cuts_ || !block_.any_beyond(bound_)) continue;
      for (std::uint32_t i = begin; i < end; ++i)
        if (block_.asks_for_cut(i - begin, bound_)) cut_until_it_fits(i);
    }
    return static_cast<unsigned>(added_);
  }

 private:
  /// The property is as long as what the set could hold; only elements are worth the walk.
  std::uint32_t elements() const {
    const auto* coords = set_.geometry ? set_.geometry->getTexCoords().get() : nullptr;
    if (!coords) return 0;
    return static_cast<std::uint32_t>(
        std::min<std::uint64_t>(set_.num_objects, coords->size() / 3));
  }

  void bring_near_zero(coord_block& block, std::uint32_t element, std::uint32_t count) {
    const ::osg::GeoTexCoordsPtr& coords = set_.geometry->getTexCoords();
    block.load(*coords, element, count);
    block.bring_near_zero(cut_);
    block.store(coords);
  }

  void cut_until_it_fits(std::uint32_t element) {
    do {
      unsigned added = 0;
      std::size_t first = 0;
      if (added_ < most_added_) set_.splitElementInTwoParts(element, added, first, 0, false);
      if (added == 0) return;
      added_ += added;
      bring_near_zero(rest_, element, 1);
    } while (rest_.asks_for_cut(0, bound_));
  }

  osg_geoset& set_;
  const bool cuts_;
  const float bound_, cut_;
  const std::uint64_t most_added_;  // where fits are too small to end otherwise
  std::uint64_t added_ = 0;
  coord_block block_;
  coord_block rest_;  // what a cut has left of an element of the block
};

// --- Nodes ---------------------------------------------------------------------------------------

/// How many triangles a set is to get of the geometry; 0 if it has anything else, or no texture
/// coordinates.
std::uint64_t triangles_to_normalize(const ::osg::Geometry& geometry) {
  if (!geometry.getTexCoords() || geometry.getTexCoords()->empty()) return 0;
  std::uint64_t sum = 0;
  for (auto it = geometry.beginPrimitives(); !it.isAtEnd(); ++it) {
    if (it.getType() < ::osg::kTriangles || it.getType() > ::osg::kPolygon) return 0;
    sum += ::osg::triangleCount(it.getType(), it.getLength());
  }
  return sum;
}

}  // namespace

void roundTCToInteger(tex_coord& a, tex_coord& b, tex_coord& c) {
  for (tex_coord* corner : {&a, &b, &c})
    for (unsigned axis = 0; axis < 2; ++axis)
      (*corner)[axis] = tex_coord_steps::rounded((*corner)[axis]);
}

void getTCPositiv(tex_coord& a, tex_coord& b, tex_coord& c) {
  for (unsigned axis = 0; axis < 2; ++axis)
    tex_coord_steps::make_positive(a[axis], b[axis], c[axis]);
}

void getTCNearToZero(tex_coord& a, tex_coord& b, tex_coord& c) {
  for (unsigned axis = 0; axis < 2; ++axis)
    tex_coord_steps::move_near_zero(a[axis], b[axis], c[axis]);
}

void cutTC(tex_coord& a, tex_coord& b, tex_coord& c, int limit) {
  for (tex_coord* corner : {&a, &b, &c})
    tex_coord_steps::cut_corner((*corner)[0], (*corner)[1], static_cast<float>(limit));
}

unsigned optimizeGeosetTexCoords(osg_geoset& set, int bound, int cut) {
  return tex_coord_pass(set, bound, cut).run();
}

unsigned normalizeNodeTexCoords(::osg::NodePtr node, int bound, int cut) {
  if (!node || !node->getCore() || node->getCore()->getType() != ::osg::Geometry::getClassType())
    return 0;
  const auto source = ::osg::Geometry::dcast(node->getCore());
  const std::uint64_t triangles = triangles_to_normalize(*source);
  if (triangles == 0) return 0;

  osg_geoset set;
  const auto refused =
      static_cast<std::uint64_t>(extract(node, set, false, true, false, true, true));
  const bool is_whole = set.num_objects > 0 && set.num_objects + refused == triangles;
  if (!is_whole || !set.geometry->getTexCoords()) return 0;

  const unsigned added = optimizeGeosetTexCoords(set, bound, cut);
  set.resizeFields(static_cast<unsigned>(set.num_objects));  // a core is as long as what it shows
  if (const char* name = ::osg::getName(source)) ::osg::setName(set.geometry, name);
  node->setCore(set.geometry);
  return added;
}

}  // namespace morlu::osg
