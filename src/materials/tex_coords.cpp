// Texture coordinates near 0 to 1.
//
// Shifting and rounding one element touches no other, and what a cut adds stands behind all others.
// So a block of elements is brought near zero in one go, and then those that are still too far out
// are cut one by one, which gives what a walk over single elements would give.

#include "materials/tex_coords.h"

#include <algorithm>
#include <array>

#include "materials/tex_coord_steps.h"
#include "morlu/materials.h"

namespace morlu::osg {

namespace {

using namespace tex_coord_steps;

/// Texture coordinates of consecutive elements, apart from where the set keeps them.
class coord_block {
 public:
  static constexpr std::uint32_t most_elements = 512;

  void load(const ::osg::GeoTexCoords& from, std::uint32_t element, std::uint32_t count) {
    begin_ = 3 * element;
    corners_ = 3 * count;
    for (std::uint32_t i = 0; i < corners_; ++i) coords_[i] = from.getValue(begin_ + i);
  }
  void store(const ::osg::GeoTexCoordsPtr& to) const {
    ::osg::beginEditCP(to);
    for (std::uint32_t i = 0; i < corners_; ++i) to->setValue(coords_[i], begin_ + i);
    ::osg::endEditCP(to);
  }

  void bring_near_zero(float cut) {
    for (std::uint32_t i = 0; i < corners_; ++i)
      coords_[i] = {rounded(coords_[i][0]), rounded(coords_[i][1])};
    for (std::uint32_t i = 0; i < corners_; i += 3) {
      make_positive(coords_[i], coords_[i + 1], coords_[i + 2]);
      move_near_zero(coords_[i], coords_[i + 1], coords_[i + 2]);
    }
    for (std::uint32_t i = 0; i < corners_; ++i) cut_corner(coords_[i], cut);
  }

  /// Whether cutting the element may bring it within the bound.
  bool asks_for_cut(std::uint32_t element, float bound) const {
    bool asks = false;
    for (unsigned axis = 0; axis < 2; ++axis) {
      const auto [low, high] = range(element, axis);
      asks = asks || (high > bound && !(bound == 1 && low >= 1 && high <= bound + 1));
    }
    return asks && is_finite(element);
  }
  bool any_beyond(float bound) const {
    unsigned beyond = 0;
    for (std::uint32_t i = 0; i < corners_; ++i)
      beyond |= unsigned{coords_[i][0] > bound} | unsigned{coords_[i][1] > bound};
    return beyond != 0;
  }

 private:
  struct low_and_high {
    float low, high;
  };
  low_and_high range(std::uint32_t element, unsigned axis) const {
    const tex_coord* corner = &coords_[3 * element];
    return {smallest(corner[0][axis], corner[0], corner[1], corner[2], axis),
            largest(corner[0][axis], corner[0], corner[1], corner[2], axis)};
  }
  bool is_finite(std::uint32_t element) const {
    const auto whole = [](const tex_coord& c) {
      return std::isfinite(c[0]) && std::isfinite(c[1]);
    };
    return std::all_of(&coords_[3 * element], &coords_[3 * element] + 3, whole);
  }

  std::uint32_t begin_ = 0, corners_ = 0;
  std::array<tex_coord, 3 * most_elements> coords_;
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
  const std::uint64_t most_added_;
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
  for (tex_coord* corner : {&a, &b, &c}) *corner = {rounded((*corner)[0]), rounded((*corner)[1])};
}

void getTCPositiv(tex_coord& a, tex_coord& b, tex_coord& c) {
  make_positive(a, b, c);
}

void getTCNearToZero(tex_coord& a, tex_coord& b, tex_coord& c) {
  move_near_zero(a, b, c);
}

void cutTC(tex_coord& a, tex_coord& b, tex_coord& c, int limit) {
  for (tex_coord* corner : {&a, &b, &c}) cut_corner(*corner, static_cast<float>(limit));
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
