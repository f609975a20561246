#pragma once

#include <limits>

#include "osg/export.h"
#include "osg/line.h"
#include "osg/matrix.h"

namespace osg {

/// A closed axis-aligned box, with a mark that says whether it is up to date.
///
/// *Empty* is a property of the box: it holds no point. *Valid* is a mark that whoever keeps a box
/// as a cache sets and clears: false means stale or never computed. The two are apart: the box of
/// nothing is valid and empty. No operation on the box looks at the mark or changes it, but for
/// setBounds and setEmpty, which set it. A fresh volume is empty and valid.
class OSG_API Volume {
 public:
  virtual ~Volume();

  bool isValid() const { return valid_; }
  void setValid(bool valid = true) { valid_ = valid; }

  /// True if the box holds no point.
  bool isEmpty() const { return min_[0] > max_[0] || min_[1] > max_[1] || min_[2] > max_[2]; }
  /// Makes the box empty and valid.
  void setEmpty();

  /// Makes it the smallest box around the two corners, in whatever order they come, and valid.
  void setBounds(const Pnt3f& a, const Pnt3f& b);

  /// The two extreme corners; both (0, 0, 0) for an empty box.
  void getBounds(Pnt3f& min, Pnt3f& max) const {
    min = getMin();
    max = getMax();
  }
  Pnt3f getMin() const { return isEmpty() ? Pnt3f() : min_; }
  Pnt3f getMax() const { return isEmpty() ? Pnt3f() : max_; }

  /// (min + max) * 0.5, without overflow; (0, 0, 0) for an empty box.
  Pnt3f getCenter() const;

  /// Product of the three extents: 0 for an empty or flat box and for no other (a product too
  /// small for a float gives the smallest float above 0).
  Real32 getScalarVolume() const;

  /// Widens the box so that it holds `p`. A NaN component never widens: its axis stays.
  void extendBy(const Pnt3f& p) {
    for (UInt32 i = 0; i < 3; ++i) {
      if (p[i] < min_[i]) min_[i] = p[i];
      if (p[i] > max_[i]) max_[i] = p[i];
    }
  }
  /// Widens the box so that it holds `other`'s; the same as extending by all its points.
  void extendBy(const Volume& other) {
    for (UInt32 i = 0; i < 3; ++i) {
      if (other.min_[i] < min_[i]) min_[i] = other.min_[i];
      if (other.max_[i] > max_[i]) max_[i] = other.max_[i];
    }
  }

  /// Replaces the box by the one around its eight corners' images under `m` (affine part).
  /// Bounds that aren't floats are rounded outwards. Where infinite bounds leave a side without
  /// a value it opens to infinity; an affine part that holds a NaN empties the box, as no corner
  /// has an image. Empty stays empty.
  void transform(const Matrix& m);

  /// True if `p` lies in the closed box.
  bool intersect(const Pnt3f& p) const {
    return min_[0] <= p[0] && p[0] <= max_[0] && min_[1] <= p[1] && p[1] <= max_[1] &&
           min_[2] <= p[2] && p[2] <= max_[2];
  }

  /// True if the closed boxes share a point; touching counts. An empty box meets nothing.
  bool intersect(const Volume& other) const;

  /// True if the ray meets the closed box. Conservative: rounding never turns a hit into a miss,
  /// so whatever lies in the box may be skipped on false. Boxes without thickness are hit like
  /// others; a box wholly behind the position is a miss. An empty box is a miss, and so is a
  /// line with a component that isn't finite.
  virtual bool intersect(const Line& line) const;

  /// The same test. On a hit `enter` and `exit` are the distances at which the ray goes into and
  /// out of the box, at most the largest float; `enter` is 0 if the position lies inside. On a
  /// miss both keep their values.
  virtual bool intersect(const Line& line, Real32& enter, Real32& exit) const;

 protected:
  Volume() = default;
  Volume(const Volume&) = default;
  Volume& operator=(const Volume&) = default;

 private:
  // Inverted infinities hold no point, and any number that comes by replaces them.
  static constexpr Real32 infinity_ = std::numeric_limits<Real32>::infinity();
  Pnt3f min_{infinity_, infinity_, infinity_};
  Pnt3f max_{-infinity_, -infinity_, -infinity_};
  bool valid_ = true;
};

/// The volume that nodes store and hand out.
class OSG_API DynamicVolume final : public Volume {
 public:
  /// Empty and valid.
  DynamicVolume() = default;
  /// As setBounds.
  DynamicVolume(const Pnt3f& a, const Pnt3f& b) { setBounds(a, b); }
};

}  // namespace osg
