// Cuts: the surface stays, each piece lies on one side, and what fails leaves the element whole.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "geoset/random_sets.h"
#include "support/failing_memory.h"

namespace morlu::tests {
namespace {

using vector3d = ::osg::Vec3d;
using triangle_corners = std::array<::osg::Pnt3f, 3>;

triangle_corners tri(const ::osg::Pnt3f& a, const ::osg::Pnt3f& b, const ::osg::Pnt3f& c) {
  return {a, b, c};
}

vector3d area_vector(const triangle_corners& c) {
  return tests::area_vector(c[0], c[1], c[2]);
}

osg::prepared_element element_of(osg_geoset& set, std::size_t i) {
  osg::prepared_element out;
  set.PrepareTriangle(out, static_cast<unsigned>(i));
  return out;
}

triangle_corners corners_of(osg_geoset& set, std::size_t i) {
  const auto element = element_of(set, i);
  return {element.position[0], element.position[1], element.position[2]};
}

void set_corners(osg_geoset& set, unsigned element, const triangle_corners& c) {
  for (unsigned k = 0; k < 3; ++k) set.geometry->getPositions()->setValue(c[k], 3 * element + k);
  set.updateObjectBounds(element, element);
}

/// A set of the given triangles with random attributes.
struct set_of : osg_geoset {
  explicit set_of(const std::vector<triangle_corners>& given) {
    std::mt19937 random(5);
    fill(*this, given.size(), random);
    setup();
    for (unsigned i = 0; i < given.size(); ++i) set_corners(*this, i, given[i]);
    calcBoundingBox();
  }
};

struct outcome {
  unsigned added = 99;
  std::size_t first = 99;
  std::string said;
};

template <class Set>
outcome split(Set& set, std::size_t element, double plane, unsigned axis) {
  outcome result;
  testing::internal::CaptureStdout();
  set.SplitElement(element, plane, axis, result.added, result.first);
  result.said = testing::internal::GetCapturedStdout();
  return result;
}

/// The pieces of `parent` in a set tile it, turn as it does and show what it showed.
void expect_pieces_of(const osg::prepared_element& parent, osg_geoset& set,
                      const std::vector<std::size_t>& pieces) {
  const triangle_corners whole{parent.position[0], parent.position[1], parent.position[2]};
  const vector3d area = area_vector(whole);
  const double size = area.length();
  double sum = 0;
  for (const std::size_t i : pieces) {
    const auto piece = element_of(set, i);
    const triangle_corners c{piece.position[0], piece.position[1], piece.position[2]};
    const vector3d part = area_vector(c);
    EXPECT_GT(part.dot(area), -1e-6 * size * size) << "turned round";
    sum += part.length();
    for (unsigned k = 0; k < 3; ++k) {
      vector3d shares;  // of the parent's corners, exact
      for (unsigned j = 0; j < 3; ++j) {
        triangle_corners with = whole;
        with[j] = c[k];
        shares[j] = area_vector(with).dot(area) / area.dot(area);
        EXPECT_GT(shares[j], -1e-5) << "outside the parent";
      }
      for (unsigned axis = 0; axis < 3; ++axis) {
        const auto expected = [&](const auto* of) {
          return shares[0] * of[0][axis] + shares[1] * of[1][axis] + shares[2] * of[2][axis];
        };
        EXPECT_NEAR(piece.position[k][axis], expected(parent.position), 1e-5);
        EXPECT_NEAR(piece.color[k][axis], expected(parent.color), 1e-4);
        EXPECT_EQ(set.min_bounds[axis][i], std::min({c[0][axis], c[1][axis], c[2][axis]}));
      }
      for (unsigned axis = 0; axis < 2; ++axis)
        EXPECT_NEAR(piece.tex_coord2[k][axis],
                    shares[0] * parent.tex_coord2[0][axis] +
                        shares[1] * parent.tex_coord2[1][axis] +
                        shares[2] * parent.tex_coord2[2][axis],
                    1e-4);
      EXPECT_EQ(piece.normal[k], parent.normal[k]);
      EXPECT_EQ(piece.id[k], parent.id[k]);
    }
  }
  EXPECT_NEAR(sum, size, 1e-5 * size);
}

std::vector<std::size_t> pieces_after(std::size_t element, const outcome& cut) {
  std::vector<std::size_t> pieces{element};
  for (unsigned i = 0; i < cut.added; ++i) pieces.push_back(cut.first + i);
  return pieces;
}

TEST(Cut, PiecesTileTheElementOnEitherSideOfThePlane) {
  const unsigned seed = 17;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> share(0.1, 0.9);
  unsigned cuts[3] = {0, 0, 0};
  for (int round = 0; round < 2000; ++round) {
    SCOPED_TRACE(round);
    osg_geoset set;
    fill(set, 2, random);
    set.setup();
    const unsigned axis = random() % 3;
    const auto parent = element_of(set, 1);
    if (area_vector(corners_of(set, 1)).length() < 0.05) continue;
    const double plane = round % 3 == 0 ? double{parent.position[random() % 3][axis]}
                                        : set.low(1, static_cast<int>(axis)) +
                                              share(random) * (set.high(1, static_cast<int>(axis)) -
                                                               set.low(1, static_cast<int>(axis)));
    const outcome cut = split(set, 1, plane, axis);
    ASSERT_LE(cut.added, 2u);
    ++cuts[cut.added];
    ASSERT_EQ(cut.first, 2u);
    ASSERT_EQ(set.num_objects, 2 + cut.added);
    ASSERT_EQ(set.geometry->getLengths()->getValue(0), 6 + 3 * cut.added);
    if (cut.added == 0) {
      ASSERT_FALSE(cut.said.empty());
      continue;
    }
    expect_pieces_of(parent, set, pieces_after(1, cut));
    for (const std::size_t i : pieces_after(1, cut)) {
      const auto at = static_cast<float>(plane);
      ASSERT_TRUE(set.low(i, static_cast<int>(axis)) >= at ||
                  set.high(i, static_cast<int>(axis)) <= at);
    }
  }
  EXPECT_GT(std::min({cuts[0], cuts[1], cuts[2]}), 50u) << "each way is met";
}

/// Corners alone below the plane x = 0, one after the other, and the plane through each corner.
///      2
///    /   \        The element keeps the piece of the stated place.
///   0-----1
TEST(Cut, TheElementKeepsTheStatedPiece) {
  const ::osg::Pnt3f left(-1, 0, 0), on(0, 2, 0), right(1, 1, 0), h(0, 0.5f, 0);
  const ::osg::Pnt3f low(-1, 0, 0), high1(1, 0, 0), high2(1, 2, 0);
  const ::osg::Pnt3f s(0, 0, 0), t(0, 1, 0);
  struct {
    triangle_corners whole;
    std::vector<triangle_corners> pieces;  // the element's own first
  } const cases[] = {
      {tri(low, high1, high2), {tri(low, s, t), tri(s, high1, t), tri(high1, high2, t)}},
      {tri(high2, low, high1), {tri(t, low, s), tri(high2, t, s), tri(high2, s, high1)}},
      {tri(high1, high2, low), {tri(high1, t, s), tri(s, t, low), tri(high1, high2, t)}},
      {tri(on, left, right), {tri(on, left, h), tri(on, h, right)}},
      {tri(right, on, left), {tri(right, on, h), tri(on, left, h)}},
      {tri(left, right, on), {tri(left, h, on), tri(h, right, on)}},
  };
  for (const auto& each : cases) {
    set_of set({each.whole});
    const outcome cut = split(set, 0, 0, 0);
    ASSERT_EQ(cut.added + 1, each.pieces.size());
    for (std::size_t i = 0; i < each.pieces.size(); ++i)
      EXPECT_EQ(corners_of(set, i), each.pieces[i]) << i;
  }
}

/// The plane x = 0 between three corners. Where it is cut is told by the memory of cut points.
TEST(Cut, PlanesSnapToMuchNearerCorners) {
  struct {
    float x[3], plane;
    unsigned added;
  } const cases[] = {
      {{-1, 1e-9f, 1}, 1e-9f, 1},
      {{-1, 1e-3f, 1}, 0, 2},
      {{1, -100000, -100000}, 0, 0},    // so far and no farther
      {{1e-7f, -2e-7f, 3}, -2e-7f, 0},  // of two such corners the last one counts
  };
  for (const auto& [x, plane, added] : cases) {
    set_of set({tri({x[0], 0, 0}, {x[1], 1, 0}, {x[2], 0, 1})});
    EXPECT_EQ(split(set, 0, 0, 0).added, added);
    EXPECT_EQ(set.split_plane, plane);
  }
}

TEST(Cut, PointsLieWellInsideTheirEdges) {
  const double a[3] = {0, 5, 1}, b[3] = {1, 7, -1};
  std::array<double, 3> out;
  const auto check = [&](auto& set, const std::string& name) {
    const auto at = [&](double plane) { return set.calcSplitPoint(a, b, plane, 0, out.data()); };
    EXPECT_TRUE(at(std::nextafter(1e-5, 1)) && at(std::nextafter(0.99999, 0)));
    testing::internal::CaptureStdout();
    EXPECT_FALSE(at(1e-5) || at(0.99999) || at(-1.0 / 3));
    const std::string error = name + "::calcSplitPoint: Factor Error( ";
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              error + "1e-05 ).\n" + error + "0.99999 ).\n" + error + "-0.333333333333333 ).\n");
    EXPECT_TRUE(at(0.5));
    EXPECT_EQ(out, (std::array<double, 3>{0.5, 6, 0}));
    EXPECT_TRUE(set.calcSplitPoint(a, b, 0.5, 2, out.data())) << "the same plane on another axis";
    EXPECT_EQ(out, (std::array<double, 3>{0.25, 5.5, 0.5}));
  };
  osg_geoset triangles;
  osg_line_geoset lines;
  check(triangles, "Morlu::osg::osg_geoset");
  check(lines, "Morlu::osg::osg_line_geoset");
  triangles.clear();
  EXPECT_TRUE(triangles.split_cache.empty() && triangles.split_axis == -1);
  EXPECT_EQ(triangles.split_plane, 0);
}

TEST(Cut, WhatCanNotBeCutStaysWhole) {
  const std::string factor = "Morlu::osg::osg_geoset::calcSplitPoint: Factor Error( ";
  const std::string weird = "MORLU_OSG_GEOSET: Weird Error. More than one point is on the plane.\n";
  const std::string one_side = "Error in SplitElement! All Points can't be on one side\n";
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float much = 99999.5f;
  struct {
    triangle_corners whole;
    double plane;
    std::string said;
  } const cases[] = {
      {tri({-1, 0, 0}, {much, 1, 0}, {much, 2, 0}), 0, factor},
      {tri({0, 0, 0}, {0, 1, 0}, {1, 2, 0}), 0, weird},
      {tri({0, 0, 0}, {0, 1, 0}, {0, 2, 1}), 0, weird},
      {tri({1, 0, 0}, {2, 1, 0}, {3, 2, 0}), 0, one_side},
      {tri({0, 0, 0}, {1, 1, 0}, {2, 2, 1}), 0, factor},
      {tri({0, 0, 0}, {1, 1, 0}, {2, 2, 1}), nan, one_side},
      {tri({0, nan, 0}, {0, 0, 0}, {2, 2, 0}), 1,
       "Morlu::osg::osg_geoset::calcSplitPoint: Math-Error occured. Splitpoint is NaN.\n"},
      {tri({0, 0, 0}, {5e-7f, 0, 0}, {5e-7f, 5e-7f, 0}), 2e-7, ""},  // rogue pieces
  };
  for (const auto& each : cases) {
    set_of set({each.whole});
    const auto before = content(set);
    const outcome cut = split(set, 0, each.plane, 0);
    EXPECT_EQ(cut.added, 0u);
    EXPECT_EQ(cut.first, 1u);
    EXPECT_EQ(cut.said.substr(0, each.said.size()), each.said);
    EXPECT_EQ(cut.said.empty(), each.said.empty());
    EXPECT_EQ(set.num_objects, 1u);
    EXPECT_TRUE(std::ranges::equal(content(set), before, [](float a, float b) {
      return a == b || (std::isnan(a) && std::isnan(b));
    }));
  }
  set_of set({tri({-1, 0, 0}, {1, 0, 0}, {0, 1, 0})});
  EXPECT_EQ(split(set, 1, 0, 0).added, 0u) << "beyond the last element";
  EXPECT_EQ(split(set, 0, 0, 3).added, 0u) << "beyond the last axis";
  set.not_enlargeable = true;
  EXPECT_EQ(split(set, 0, 0, 0).added, 0u);
}

// 3---1
// | / |   Both triangles cut the edge 0-1, from opposite ends, and meet in the very same point.
// 0---2
TEST(Cut, NeighboursShareTheirCutPoints) {
  std::mt19937 random(23);
  std::uniform_real_distribution<float> anywhere(0.3f, 1.0f);
  int differ = 0;
  for (int round = 0; round < 200; ++round) {
    const auto point = [&](float side) {
      return ::osg::Pnt3f(side * anywhere(random), anywhere(random), anywhere(random));
    };
    const ::osg::Pnt3f p0 = point(-1), p1 = point(1), p2 = point(1), p3 = point(-1);
    set_of set({tri(p0, p2, p1), tri(p0, p1, p3)});
    ASSERT_EQ(split(set, 0, 0.01, 0).added, 2u);
    ASSERT_EQ(split(set, 1, 0.01, 0).added, 2u);
    std::vector<::osg::Pnt3f> on_plane;
    for (std::size_t i = 0; i < set.num_objects; ++i)
      for (const auto& p : corners_of(set, i))
        if (p[0] == 0.01f) on_plane.push_back(p);
    std::sort(on_plane.begin(), on_plane.end());
    on_plane.erase(std::unique(on_plane.begin(), on_plane.end()), on_plane.end());
    ASSERT_EQ(on_plane.size(), 3u) << "one for each of three edges";

    // In doubles, where the two ways to compute it differ.
    const double a[3] = {p0[0], p0[1], p0[2]}, b[3] = {p1[0], p1[1], p1[2]};
    std::array<double, 3> there, back;
    EXPECT_TRUE(set.calcSplitPoint(a, b, 0.02, 0, there.data()));
    EXPECT_TRUE(set.calcSplitPoint(b, a, 0.02, 0, back.data()));
    ASSERT_EQ(there, back);
    EXPECT_EQ(set.split_cache.size(), 1u) << "another plane forgets the former points";
    EXPECT_FALSE(set.calcSplitPoint(a, b, 0.02, 3, back.data()));

    // A corner with points of its own is not looked for among those of the other.
    const double c[3] = {p2[0], p2[1], p2[2]};
    EXPECT_TRUE(set.calcSplitPoint(b, a, 0.03, 0, back.data()));
    EXPECT_TRUE(set.calcSplitPoint(a, c, 0.03, 0, there.data()));
    EXPECT_TRUE(set.calcSplitPoint(a, b, 0.03, 0, there.data()));
    std::array<double, 3> alone;
    EXPECT_TRUE(osg_geoset().calcSplitPoint(a, b, 0.03, 0, alone.data()));
    ASSERT_EQ(there, alone);
    const double f = (a[0] - 0.03) / (a[0] - b[0]);
    ASSERT_EQ(alone,
              (std::array{0.03, a[1] + (f * b[1] - f * a[1]), a[2] + (f * b[2] - f * a[2])}));
    differ += there != back;
  }
  EXPECT_GT(differ, 20);
}

TEST(Cut, HalvesAreMadeAcrossWhatIsLongest) {
  const auto halved = [](const ::osg::Pnt3f& far, const ::osg::Pnt3f& top, bool force = false,
                         unsigned line = 0) {
    set_of set({tri({0, 0, 0}, far, top)});
    const auto parent = element_of(set, 0);
    outcome cut;
    testing::internal::CaptureStdout();
    set.splitElementInTwoParts(0, cut.added, cut.first, line, force);
    cut.said = testing::internal::GetCapturedStdout();
    if (area_vector(corners_of(set, 0)).length() > 0 && cut.added > 0)
      expect_pieces_of(parent, set, pieces_after(0, cut));
    return cut;
  };
  // Elongated: at the middle of the box, which makes three of a corner in the first half.
  EXPECT_EQ(halved({16, 0, 0}, {4, 1, 0}).added, 2u);
  EXPECT_EQ(halved({15, 0, 0}, {4, 1, 0}).added, 1u);
  EXPECT_EQ(halved({15, 0, 0}, {4, 1, 0}, true).added, 2u);
  EXPECT_EQ(halved({16, 0, 0}, {4, 0, 0}).added, 0u) << "a line is not, and its halves are rogue";
  const outcome wrong = halved({3, 0, 0}, {0, 4, 0}, false, 4);
  EXPECT_EQ(wrong.said, "Error in Geoset::splitElementInTwoParts(). Linevalue: 4\n");
  EXPECT_EQ(wrong.added, 0u);
}

TEST(Cut, TheLastOfEquallyLongEdgesAndAxesIsHalved) {
  unsigned added = 99;
  std::size_t first = 99;
  struct {
    ::osg::Pnt3f p1, p2;
    unsigned line, edge;
  } const cases[] = {{{3, 0, 0}, {0, 4, 0}, 1, 1},       {{3, 0, 0}, {0, 4, 0}, 2, 2},
                     {{3, 0, 0}, {0, 4, 0}, 3, 3},       {{3, 0, 0}, {0, 4, 0}, 0, 2},
                     {{6, 0, 0}, {3, 4, 0}, 0, 1},       {{5, 0, 0}, {2, 4, 0}, 0, 2},
                     {{3, 4, 0}, {5, 0, 0}, 0, 3},       {{4, 0, 0}, {2, 5, 0}, 0, 3},
                     {{0.1f, 0, 0}, {-9.9f, 3, 0}, 2, 2}};  // its own way to round
  for (const auto& [p1, p2, line, edge] : cases) {
    const ::osg::Pnt3f p0;
    set_of set({tri(p0, p1, p2)});
    set.splitElementInTwoParts(0, added, first, line, false);
    ASSERT_EQ(set.num_objects, 2u);
    const ::osg::Pnt3f m = edge == 1   ? p0 + (p1 - p0) * 0.5f
                           : edge == 2 ? p1 + (p2 - p1) * 0.5f
                                       : p2 + (p0 - p2) * 0.5f;
    EXPECT_EQ(corners_of(set, 0), edge == 1 ? tri(p0, m, p2) : tri(p0, p1, m));
    EXPECT_EQ(corners_of(set, 1), edge == 1   ? tri(m, p1, p2)
                                  : edge == 2 ? tri(p0, m, p2)
                                              : tri(p1, p2, m));
  }
  const float low = 0.1f, high = 4.2f;
  set_of box({tri({low, low, 0}, {high, low, 0}, {2, high, 0})});
  box.splitElementInTwoParts(0, added, first, 0, true);
  EXPECT_EQ(box.split_axis, 1);
  EXPECT_EQ(box.split_plane, double{low} + double{high - low} * 0.5);
}

TEST(Cut, WithoutMemoryTheElementStaysWholeAndNothingIsLeftBehind) {
  for (int nth = 0;; ++nth) {
    SCOPED_TRACE(nth);
    const triangle_corners whole = tri({-1, 0, 0}, {1, 0, 0}, {1, 2, 0});
    set_of set(std::vector<triangle_corners>(4, whole));
    for (int i = 0; i < 2; ++i) ASSERT_TRUE(set.AddObject(whole[0], whole[1], whole[2], 0));
    ASSERT_EQ(set.object_capacity, 8u) << "the first piece fits, the second makes the set grow";
    const auto before = content(set);
    unsigned added = 99;
    std::size_t first = 99;
    const auto done =
        test::with_failing_memory(nth, [&] { set.SplitElement(2, 0, 0, added, first); });
    EXPECT_FALSE(done.thrown);
    EXPECT_EQ(set.num_objects, 6 + added);
    EXPECT_EQ(set.geometry->getLengths()->getValue(0), 3 * set.num_objects);
    if (added == 0) {
      EXPECT_FALSE(done.err.empty());
      EXPECT_EQ(content(set), before);
      EXPECT_EQ(split(set, 2, 0, 0).added, set.not_enlargeable ? 0u : 2u);
    }
    if (!done.met) {
      EXPECT_EQ(added, 2u);
      EXPECT_GT(nth, 8);
      break;
    }
  }
}

TEST(Cut, LinesAreCutInTwo) {
  std::mt19937 random(31);
  osg_line_geoset set;
  fill(set, 1, random);
  set.geometry->getPositions()->setValue({-1, 0, 0}, 0);
  set.geometry->getPositions()->setValue({3, 4, 8}, 1);
  set.setup();
  osg::prepared_element whole, line;
  set.setLine(whole, 0);
  const outcome cut = split(set, 0, 0, 0);
  ASSERT_EQ(cut.added, 1u);
  ASSERT_EQ(cut.first, 1u);
  set.setLine(line, 0);
  EXPECT_EQ(line.position[0], ::osg::Pnt3f(0, 1, 2));
  EXPECT_EQ(line.position[1], ::osg::Pnt3f(3, 4, 8));
  set.setLine(line, 1);
  EXPECT_EQ(line.position[0], ::osg::Pnt3f(-1, 0, 0));
  EXPECT_EQ(line.position[1], ::osg::Pnt3f(0, 1, 2));
  EXPECT_EQ(line.normal[1], whole.normal[1]);
  EXPECT_EQ(line.id[1], whole.id[1]);
  for (unsigned i = 0; i < 3; ++i)
    EXPECT_NEAR(line.color[1][i], 0.75 * whole.color[0][i] + 0.25 * whole.color[1][i], 1e-6);
  EXPECT_EQ(split(set, 0, 1e-6, 0).said.substr(0, 59),
            "Morlu::osg::osg_line_geoset::calcSplitPoint: Factor Error( ");
  EXPECT_EQ(set.num_objects, 2u);
}

}  // namespace
}  // namespace morlu::tests
