#pragma once

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstddef>
#include <list>

#include <osg/geometry.h>
#include <osg/matrix.h>
#include <osg/node.h>
#include <osg/vector.h>

#include "morlu/export.h"

/// Plain values that the geometry code holds instead of the scene graph's, and small utilities.
namespace morlu::math {

/// N values of T in a row, nothing else. Starts out undefined unless it is given values.
template <class T, std::size_t N>
struct MORLU_API vector {
  T values[N];

  constexpr T& operator[](std::size_t i) { return values[i]; }
  constexpr const T& operator[](std::size_t i) const { return values[i]; }
};

/// sqrt(0 + x*x + y*y + z*z), formed in T and summed in that order.
template <class T, std::size_t N>
T length(const vector<T, N>& v) {
  T sum = 0;
  for (std::size_t i = 0; i < N; ++i) sum = sum + v[i] * v[i];
  return std::sqrt(sum);
}

/// Sixteen values of T in a row, in the storage order of `osg::TransformationMatrix`: by columns.
template <class T>
struct MORLU_API transformation_matrix {
  T values[16];

  constexpr T& operator[](std::size_t i) { return values[i]; }
  constexpr const T& operator[](std::size_t i) const { return values[i]; }
};

static_assert(sizeof(vector<float, 3>) == 3 * sizeof(float));
static_assert(sizeof(transformation_matrix<float>) == 16 * sizeof(float));

}  // namespace morlu::math

namespace morlu {

/// A box along the axes.
struct bounding_box {
  math::vector<float, 3> min;
  math::vector<float, 3> max;
  math::vector<float, 3> size;  // max - min

  void update_size() {
    for (int axis = 0; axis < 3; ++axis) size[axis] = max[axis] - min[axis];
  }

  /// Holds nothing; `widen` by a point replaces it.
  static bounding_box empty() {
    return {{FLT_MAX, FLT_MAX, FLT_MAX}, {-FLT_MAX, -FLT_MAX, -FLT_MAX}, {0, 0, 0}};
  }
  void widen(const math::vector<float, 3>& p) {
    for (int axis = 0; axis < 3; ++axis) {
      if (p[axis] < min[axis]) min[axis] = p[axis];
      if (p[axis] > max[axis]) max[axis] = p[axis];
    }
  }
};

}  // namespace morlu

namespace morlu::osg {

// Copies between the two kinds of value, component by component in storage order.

inline void set(::osg::Point<float, 3>& out, const math::vector<float, 3>& in) {
  std::copy_n(in.values, 3, out.getValues());
}
inline void set(::osg::Vector<float, 3>& out, const math::vector<float, 3>& in) {
  std::copy_n(in.values, 3, out.getValues());
}
inline void set(math::vector<float, 3>& out, const ::osg::Point<float, 3>& in) {
  std::copy_n(in.getValues(), 3, out.values);
}
inline void set(math::vector<float, 3>& out, const ::osg::Vector<float, 3>& in) {
  std::copy_n(in.getValues(), 3, out.values);
}
inline void set(math::transformation_matrix<float>& out,
                const ::osg::TransformationMatrix<float>& in) {
  std::copy_n(in.getValues(), 16, out.values);
}

/// True for a triangle that no geometry code may use: two corners coincide (all three component
/// differences at most 1e-6, the bound included), all corners share the exact coordinates of two
/// axes, or a coordinate is beyond +-1e12, infinite or NaN. A flat triangle in an axis plane and a
/// sliver with three distinct corners are usable: there is no test of area.
MORLU_API bool is_rogue(const ::osg::Point<float, 3>& p0, const ::osg::Point<float, 3>& p1,
                        const ::osg::Point<float, 3>& p2);

/// Triangles of `geo` that are not rogue, 2^31 - 1 for more; 0 for a null handle. O(triangles).
MORLU_API int count_triangles(const ::osg::GeometryPtr& geo);

/// Appends every node at or below `node` whose core is exactly of type Geometry, not of a derived
/// type: depth first, a node before its children, children in order. What `out` holds already
/// stays. A null node and nodes without core add nothing themselves.
MORLU_API void collect_geo_nodes(::osg::NodePtr node, std::list<::osg::NodePtr>& out);

}  // namespace morlu::osg

namespace morlu {

/// Milliseconds of a clock that never goes back; no fixed origin, wraps after 2^32.
MORLU_API unsigned int get_ms();

/// Creates the directory `path`, without its parents, if nothing stands there; a file of that name
/// counts as present. Null counts as the empty path. A failure leaves as
/// `boost::filesystem::filesystem_error`.
MORLU_API void createDir(char* path);

}  // namespace morlu
