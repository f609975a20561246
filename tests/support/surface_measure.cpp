#include "support/surface_measure.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace morlu::test {

namespace {

double area_of(const std::array<::osg::Pnt3f, 3>& p) {
  double u[3], v[3];
  for (unsigned axis = 0; axis < 3; ++axis) {
    u[axis] = double{p[1][axis]} - p[0][axis];
    v[axis] = double{p[2][axis]} - p[0][axis];
  }
  return std::hypot(u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2],
                    u[0] * v[1] - u[1] * v[0]) /
         2;
}

template <class Key>
void expect_same_areas(const std::map<Key, double>& before, const std::map<Key, double>& after,
                       double tolerance, const char* what) {
  ASSERT_EQ(before.size(), after.size()) << what;
  for (auto b = before.begin(), a = after.begin(); b != before.end(); ++b, ++a) {
    EXPECT_TRUE(b->first == a->first) << what;
    EXPECT_NEAR(b->second, a->second, tolerance * b->second) << "area of " << what;
  }
}

}  // namespace

void surface_measure::add(const ::osg::GeometryPtr& geometry, const ::osg::MaterialPtr& material,
                          const ::osg::Matrix& world, const filter& is_left_out) {
  for (auto it = geometry->beginTriangles(); !it.isAtEnd(); ++it) {
    std::array<::osg::Pnt3f, 3> p;
    for (unsigned k = 0; k < 3; ++k) p[k] = world * it.getPosition(k);
    if (is_left_out(p[0], p[1], p[2])) {
      ++left_out;
      continue;
    }
    ++triangles;
    area_of_material[material] += area_of(p);
    if (it.getTexCoordsIndex7(0) >= 0) {
      const float id = it.getTexCoords7(0)[0];
      area_of_id[id] += area_of(p);
      mixed_ids += id != it.getTexCoords7(1)[0] || id != it.getTexCoords7(2)[0];
    }
    for (const ::osg::Pnt3f& corner : p)
      for (unsigned axis = 0; axis < 3; ++axis) {
        low[axis] = std::min<double>(low[axis], corner[axis]);
        high[axis] = std::max<double>(high[axis], corner[axis]);
      }
  }
}

void expect_same_measure(const surface_measure& before, const surface_measure& after,
                         double tolerance) {
  expect_same_areas(before.area_of_material, after.area_of_material, tolerance, "material");
  expect_same_areas(before.area_of_id, after.area_of_id, tolerance, "id");
  EXPECT_EQ(before.mixed_ids, after.mixed_ids);
  for (unsigned axis = 0; axis < 3; ++axis) {
    const double slack =
        tolerance * std::max(std::abs(before.low[axis]), std::abs(before.high[axis]));
    EXPECT_NEAR(before.low[axis], after.low[axis], slack);
    EXPECT_NEAR(before.high[axis], after.high[axis], slack);
  }
}

}  // namespace morlu::test
