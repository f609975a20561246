// Rays through a graph: which nodes a walk enters, in whose space, and which hit it keeps.

#include "osg/intersect_action.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <limits>
#include <optional>
#include <random>

#include "osg/cores.h"
#include "osg/geometry.h"
#include "support/run_threads.h"
#include "support/scene_parts.h"

namespace {

using osg::Action;
using osg::IntersectAction;
using osg::Line;
using osg::Matrix;
using osg::NodePtr;
using osg::Pnt3f;
using osg::Vec3d;
using osg::Vec3f;

/// The square from -1 to 1 at height z, as triangles 0 and 1 on either side of its diagonal.
osg::GeometryPtr make_square(float z, const osg::GeometryPtr& geometry = osg::Geometry::create()) {
  return one_primitive(osg::kTriangles,
                       {{-1, -1, z}, {1, -1, z}, {1, 1, z}, {-1, -1, z}, {1, 1, z}, {-1, 1, z}},
                       geometry);
}

NodePtr triangle_soup(const std::vector<Pnt3f>& points) {
  return node_with(one_primitive(osg::kTriangles, points));
}

const Line from_above(Pnt3f(0.5f, 0.25f, 10), Vec3f(0, 0, -1));

/// What `from_above` hits at `root`: the distance, or -1.
float distance_from_above(const NodePtr& root) {
  IntersectAction action(from_above);
  action.apply(root);
  return action.didHit() ? action.getHitT() : -1;
}

/// Puts a function in the place of the one for a core class while it lives.
class Registered {
 public:
  Registered(const osg::FieldContainerType& type, Action::Functor functor) : type_(type) {
    IntersectAction::registerEnterDefault(type, std::move(functor));
  }
  ~Registered() {
    const bool is_geometry = type_ == osg::Geometry::getClassType();
    IntersectAction::registerEnterDefault(
        type_, is_geometry ? osg::makeMethodFunctor(&osg::Geometry::intersect) : Action::Functor());
  }

 private:
  const osg::FieldContainerType& type_;
};

class TestShape : public osg::ContainerClass<"TestShape", TestShape, osg::Geometry> {};
class TestSwitch : public osg::ContainerClass<"TestSwitch", TestSwitch, osg::Switch> {};

// --- Hits of a geometry --------------------------------------------------------------------------

TEST(IntersectAction, ReportsTheNearestTriangle) {
  const auto square = node_with(make_square(0));
  const auto low = node_with(make_square(-3));
  IntersectAction action(from_above);
  action.apply(node_with(osg::Group::create(), {low, square}));
  ASSERT_TRUE(action.didHit());
  EXPECT_EQ(action.getHitT(), 10);
  EXPECT_EQ(action.getHitPoint(), Pnt3f(0.5f, 0.25f, 0));
  EXPECT_EQ(action.getHitNormal(), Vec3f(0, 0, 1));
  EXPECT_EQ(action.getHitTriangle(), 0);
  EXPECT_EQ(action.getHitObject(), square);

  // From below: the other face counts as well.
  action.setLine(Line(Pnt3f(-0.5f, 0.25f, -1), Vec3f(0, 0, 1)));
  action.apply(square);
  ASSERT_TRUE(action.didHit());
  EXPECT_EQ(action.getHitT(), 1);
  EXPECT_EQ(action.getHitTriangle(), 1);

  // A new walk forgets: nothing behind the position is hit, and nothing by a line in the plane.
  for (const Line& miss :
       {Line(Pnt3f(0, 0, 1), Vec3f(0, 0, 1)), Line(Pnt3f(-2, 0, 0), Vec3f(1, 0, 0)),
        Line(Pnt3f(0, 0, 1), Vec3f(0, 0, 0)), Line(Pnt3f(1.001f, 0, 1), Vec3f(0, 0, -1)),
        Line(Pnt3f(NAN, 0, 1), Vec3f(0, 0, -1))}) {
    action.setLine(miss);
    action.apply(square);
    EXPECT_FALSE(action.didHit());
    EXPECT_TRUE(action.getHitObject() == osg::NullFC);
    EXPECT_EQ(action.getHitTriangle(), -1);
  }
  action.setLine(from_above);
  action.apply(square);
  action.apply(osg::NullFC);
  EXPECT_FALSE(action.didHit());
}

// A fan around the middle of a square, with slanted edges:
//
//   3-----2      Rays at a corner, at any point of an inner edge, or of the rim, hit.
//   | \ / |
//   |  4  |      No ray may slip between two triangles, whatever is rounded.
//   | / \ |
//   0-----1
TEST(IntersectAction, EdgesAndCornersAreTight) {
  const std::vector<Pnt3f> rim = {{-1, -1, 0.3f}, {1, -1, 0.1f}, {1, 1, -0.7f}, {-1, 1, 0.2f}};
  const Pnt3f middle(0.1f, 0.07f, 0.9f);
  std::vector<Pnt3f> points;
  for (std::size_t i = 0; i < 4; ++i) {
    points.insert(points.end(), {rim[i], rim[(i + 1) % 4], middle});
  }
  const auto node = triangle_soup(points);
  const osg::UInt32 seed = 20240611;
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> share(0.01f, 1), place(-1, 1);
  for (int i = 0; i < 20000; ++i) {
    const Pnt3f& corner = rim[static_cast<std::size_t>(i) % 4];
    const Pnt3f target = corner + (middle - corner) * (i % 7 == 0 ? 0.999f : share(random));
    // High enough to see all four from their front: inner edges are inside the outline then.
    const Pnt3f eye(place(random), place(random), 6);
    IntersectAction action(Line(eye, target - eye));
    action.apply(node);
    ASSERT_TRUE(action.didHit()) << "seed " << seed << ", ray " << i;
  }
  // Exact arithmetic: a rim's point and the corners count.
  const auto square = node_with(make_square(0));
  for (const Pnt3f& target :
       {Pnt3f(1, 1, 0), Pnt3f(-1, 1, 0), Pnt3f(0, -1, 0), Pnt3f(0.25f, 0.25f, 0)}) {
    IntersectAction action(Line(target + Vec3f(0, 0, 2), Vec3f(0, 0, -1)));
    action.apply(square);
    EXPECT_TRUE(action.didHit()) << target;
  }
}

TEST(IntersectAction, VolumeIsTestedOnlyWhileValid) {
  const auto square = make_square(0);
  const auto child = node_with(make_square(-1));
  const auto node = node_with(square, {child});
  child->setTravMask(~0u);
  EXPECT_EQ(distance_from_above(node), 10);
  EXPECT_FALSE(node->getVolume().isValid());  // a ray updates nothing

  // A valid volume that is missed passes the subgraph by.
  node->updateVolume();
  IntersectAction action(Line(Pnt3f(5, 5, 10), Vec3f(0, 0, -1)));
  int walked = 0;
  const Registered counting(osg::Group::getClassType(), [&](osg::CNodePtr&, Action*) {
    ++walked;
    return Action::Continue;
  });
  child->setCore(osg::Group::create());
  action.apply(node);  // stale again: the child is entered
  EXPECT_EQ(walked, 1);
  node->updateVolume();
  action.apply(node);
  EXPECT_EQ(walked, 1);
}

TEST(IntersectAction, DegenerateGeometryIsMissed) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(distance_from_above(node_with(osg::Geometry::create())), -1);
  EXPECT_EQ(distance_from_above(triangle_soup({{nan, 0, 0}, {1, nan, 0}, {0, 1, 0}})), -1);
  EXPECT_EQ(
      distance_from_above(triangle_soup({{0.5f, 0.25f, 0}, {0.5f, 0.25f, 0}, {0.5f, 0.25f, 0}})),
      -1);
  EXPECT_EQ(distance_from_above(triangle_soup({{0, 0, 0}, {1, 0.5f, 0}, {2, 1, 0}})), -1);
  // A null action and one of another kind are told to go on.
  struct OtherAction : Action {
  } other;
  EXPECT_EQ(make_square(0)->intersect(nullptr), Action::Continue);
  EXPECT_EQ(make_square(0)->intersect(&other), Action::Continue);
}

// --- Spaces --------------------------------------------------------------------------------------

struct WorldTriangle {
  Vec3d a, b, c;
  NodePtr node;
  osg::Int32 number;
};

Vec3d in_world(const osg::Matrix4d& to_world, const Pnt3f& p) {
  return to_world.transformPoint(osg::Pnt3d(p[0], p[1], p[2])).subZero();
}

void collect_triangles(const NodePtr& node, osg::Matrix4d to_world,
                       std::vector<WorldTriangle>& triangles) {
  if (const auto placed = osg::Transform::dcast(node->getCore())) {
    osg::Matrix4d wide;
    std::copy_n(placed->getMatrix().getValues(), 16, wide.getValues());
    to_world *= wide;
  }
  if (const auto geometry = osg::Geometry::dcast(node->getCore())) {
    for (auto it = geometry->beginTriangles(); it != geometry->endTriangles(); ++it) {
      triangles.push_back(
          {in_world(to_world, it.getPosition(0)), in_world(to_world, it.getPosition(1)),
           in_world(to_world, it.getPosition(2)), node, static_cast<osg::Int32>(it.getIndex())});
    }
  }
  for (const NodePtr& child : node->getChildren()) collect_triangles(child, to_world, triangles);
}

/// Distance by Cramer's rule in double; nothing too near to an edge to be sure of, which sets
/// `unsure`.
std::optional<double> exact_distance(const WorldTriangle& one, const Line& line, bool& unsure) {
  const Pnt3f& from = line.getPosition();
  const Vec3f& along = line.getDirection();
  const Vec3d origin(from[0], from[1], from[2]), direction(along[0], along[1], along[2]);
  const Vec3d ab = one.b - one.a, ac = one.c - one.a, ao = origin - one.a;
  const double determinant = -direction.dot(ab.cross(ac));
  const double t = ao.dot(ab.cross(ac)) / determinant;
  const double u = -direction.dot(ao.cross(ac)) / determinant;
  const double v = -direction.dot(ab.cross(ao)) / determinant;
  constexpr double margin = 1e-4;
  const double inside = std::min({u, v, 1 - u - v});
  if (std::abs(inside) < margin && t > -margin) unsure = true;
  if (!(inside >= 0) || t < 0) return std::nullopt;
  return t;
}

Matrix random_matrix(std::mt19937& random) {
  std::uniform_real_distribution<float> any(-1, 1), size(0.2f, 3);
  const Matrix mirror = random() % 3 == 0 ? Matrix::scale(-1, 1, 1) : Matrix();
  return Matrix::translation(3 * any(random), 3 * any(random), 3 * any(random)) *
         Matrix::rotation(Vec3f(any(random), any(random), any(random)), 3 * any(random)) *
         Matrix::scale(size(random), size(random), size(random)) * mirror;
}

NodePtr random_graph(std::mt19937& random, int depth) {
  std::uniform_real_distribution<float> any(-2, 2);
  std::vector<Pnt3f> points;
  points.reserve(3 * 8);
  for (int i = 0; i < 3 * 8; ++i) points.emplace_back(any(random), any(random), any(random));
  auto node = node_with(
      random() % 4 == 0 ? osg::NodeCorePtr(osg::NullFC) : transform(random_matrix(random)),
      {triangle_soup(points)});
  for (int i = 0; depth > 0 && i < 3; ++i) node->addChild(random_graph(random, depth - 1));
  return node;
}

/// Rotated, stretched and mirrored subgraphs against a search through all triangles in world space.
TEST(IntersectAction, AgreesWithSearchInWorldSpace) {
  const osg::UInt32 seed = 7;
  std::mt19937 random(seed);
  const NodePtr root = random_graph(random, 3);
  std::vector<WorldTriangle> triangles;
  collect_triangles(root, {}, triangles);
  std::uniform_real_distribution<float> any(-1, 1);
  int hits = 0, compared = 0;
  for (int ray = 0; ray < 400; ++ray) {
    if (ray == 200) root->updateVolume();  // stale volumes before, valid ones from here on
    const Line line(Pnt3f(20 * any(random), 20 * any(random), 20 * any(random)),
                    Vec3f(any(random), any(random), any(random)));
    bool unsure = false;
    const WorldTriangle* nearest = nullptr;
    double t = std::numeric_limits<double>::infinity();
    for (const WorldTriangle& one : triangles) {
      const auto distance = exact_distance(one, line, unsure);
      if (!distance || *distance >= t) continue;
      t = *distance;
      nearest = &one;
    }
    if (unsure) continue;
    ++compared;
    IntersectAction action(line);
    action.apply(root);
    ASSERT_EQ(action.didHit(), nearest != nullptr) << "seed " << seed << ", ray " << ray;
    if (!nearest) continue;
    ++hits;
    EXPECT_EQ(action.getHitObject(), nearest->node);
    EXPECT_EQ(action.getHitTriangle(), nearest->number);
    EXPECT_NEAR(action.getHitT(), t, 1e-4 * (1 + t));
    const Vec3f off = action.getHitPoint() - line.getPoint(action.getHitT());
    EXPECT_LT(off.length(), 1e-4 * (1 + t));
    Vec3d normal = (nearest->b - nearest->a).cross(nearest->c - nearest->a);
    normal.normalize();
    const Vec3f& found = action.getHitNormal();
    EXPECT_NEAR(std::abs(normal.dot(Vec3d(found[0], found[1], found[2]))), 1, 1e-4);
  }
  EXPECT_GT(compared, 200);
  EXPECT_GT(hits, 60);
}

TEST(IntersectAction, LineIsInObjectSpaceAndComesBack) {
  std::vector<Line> lines;
  const Registered watching(osg::Geometry::getClassType(), [&](osg::CNodePtr&, Action* action) {
    lines.push_back(dynamic_cast<IntersectAction*>(action)->getLine());
    return Action::Continue;
  });
  const auto inner =
      node_with(transform(Matrix::scale(4, 4, 2)), {node_with(osg::Geometry::create())});
  const auto outer = node_with(transform(Matrix::translation(0.5f, 0.25f, 4)),
                               {inner, node_with(osg::Geometry::create())});
  IntersectAction action(from_above);
  action.apply(node_with(osg::NullFC, {outer, node_with(osg::Geometry::create())}));
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0].getPosition(), Pnt3f(0, 0, 3));
  EXPECT_EQ(lines[1].getPosition(), Pnt3f(0, 0, 6));
  EXPECT_EQ(lines[2].getPosition(), from_above.getPosition());
  for (const Line& line : lines) EXPECT_EQ(line.getDirection(), Vec3f(0, 0, -1));
  EXPECT_EQ(action.getLine().getPosition(), from_above.getPosition());
  EXPECT_TRUE(action.getActNode() == osg::NullFC);
}

TEST(IntersectAction, TransformsThatCannotBeUndoneAreNotEntered) {
  const float inf = std::numeric_limits<float>::infinity();
  const Matrix projects({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 1, 0, 0, 0, 0});
  for (const Matrix& matrix :
       {Matrix::scale(0), Matrix::scale(1, 1, 0), Matrix::scale(1e-20f), Matrix::scale(NAN),
        Matrix::scale(inf), Matrix::translation(NAN, 0, 0), Matrix::translation(inf, 0, 0),
        projects}) {
    const auto hidden = node_with(transform(matrix), {node_with(make_square(5))});
    const auto open = node_with(make_square(0));
    EXPECT_EQ(distance_from_above(node_with(osg::Group::create(), {hidden, open})), 10);
  }
}

// --- Which nodes are entered ---------------------------------------------------------------------

TEST(IntersectAction, EntersWhatIsDrawn) {
  const auto near = node_with(make_square(5)), middle = node_with(make_square(2)),
             far = node_with(make_square(0));
  const auto root = node_with(osg::NullFC, {near, middle, far});
  EXPECT_EQ(distance_from_above(root), 5);
  near->setTravMask(0);
  EXPECT_EQ(distance_from_above(root), 8);
  near->setTravMask(1);
  root->setTravMask(0);
  EXPECT_EQ(distance_from_above(root), -1);
  root->setTravMask(~0u);

  for (const osg::SwitchPtr& choice :
       {osg::Switch::create(), osg::SwitchPtr(TestSwitch::create())}) {
    root->setCore(choice);
    const std::pair<osg::Int32, float> cases[] = {{-1, -1}, {0, 5},  {1, 8},
                                                  {2, 10},  {3, -1}, {-2147483647, -1}};
    for (const auto& [chosen, distance] : cases) {
      choice->setChoice(chosen);
      EXPECT_EQ(distance_from_above(root), distance) << chosen;
    }
  }
  root->setCore(osg::DistanceLOD::create());
  EXPECT_EQ(distance_from_above(root), 5);
  near->setTravMask(0);
  EXPECT_EQ(distance_from_above(root), -1);  // the finest is hidden, not replaced
  EXPECT_EQ(distance_from_above(node_with(osg::DistanceLOD::create())), -1);
}

TEST(IntersectAction, DepthIsNoLimit) {
  std::vector<NodePtr> chain = {node_with(make_square(0))};
  for (int i = 0; i < 100000; ++i) {
    chain.push_back(
        node_with(transform(Matrix::translation(0, 0, i % 2 ? 1.0f : -1.0f)), {chain.back()}));
  }
  EXPECT_EQ(distance_from_above(chain.back()), 10);
  while (chain.size() > 1) {  // link by link, as a chain dies by recursion
    chain.back()->subChild(chain[chain.size() - 2]);
    chain.pop_back();
  }
}

// --- Functions -----------------------------------------------------------------------------------

Action::ResultE hit_at_one(osg::CNodePtr& core, Action* action) {
  auto* ray = dynamic_cast<IntersectAction*>(action);
  EXPECT_EQ(ray->getActNode()->getCore(), core);
  Vec3f up(0, 0, 1);
  ray->setHit(1, ray->getActNode(), 77, up);
  return Action::Continue;
}

TEST(IntersectAction, DerivedTypesTakeTheFunctionOfTheNearestAncestor) {
  const auto shape = node_with(make_square(0, TestShape::create()));
  EXPECT_EQ(distance_from_above(shape), 10);
  {
    const Registered for_geometry(osg::Geometry::getClassType(), osg::makeFunctor(hit_at_one));
    EXPECT_EQ(distance_from_above(shape), 1);
    const Registered for_shape(TestShape::getClassType(),
                               osg::makeMethodFunctor(&osg::Geometry::intersect));
    EXPECT_EQ(distance_from_above(shape), 10);
    EXPECT_EQ(distance_from_above(node_with(make_square(0))), 1);
    const Registered for_groups(osg::Group::getClassType(), osg::makeFunctor(hit_at_one));
    EXPECT_EQ(distance_from_above(node_with(osg::MaterialGroup::create())), 1);
  }
  EXPECT_EQ(distance_from_above(shape), 10);
  // A method of a class that the core isn't of.
  const Registered for_groups(osg::Group::getClassType(),
                              osg::makeMethodFunctor(&osg::Geometry::intersect));
  EXPECT_EQ(distance_from_above(node_with(osg::Group::create(), {shape})), 10);
}

TEST(IntersectAction, LastRegistrationCountsFromTheNextNodeOn) {
  const auto first = node_with(make_square(0)), second = node_with(make_square(0));
  int calls = 0;
  // Replaces itself while it runs.
  const Registered once(osg::Geometry::getClassType(), [&](osg::CNodePtr&, Action*) {
    ++calls;
    IntersectAction::registerEnterDefault(osg::Geometry::getClassType(),
                                          osg::makeFunctor(hit_at_one));
    return Action::Continue;
  });
  IntersectAction action(from_above);  // made before
  action.apply(node_with(osg::Group::create(), {first, second}));
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(action.getHitObject(), second);
  EXPECT_EQ(action.getHitTriangle(), 77);
}

TEST(IntersectAction, WalksDepthFirstAndSkips) {
  std::string visited;
  bool skip = false;
  const Registered noting(osg::NodeCore::getClassType(), [&](osg::CNodePtr& core, Action*) {
    visited += osg::getName(core);
    return skip && osg::getName(core) == std::string("b") ? Action::Skip : Action::Continue;
  });
  const auto named = [](const char* name, const std::vector<NodePtr>& children = {}) {
    const auto core = osg::Group::create();
    osg::setName(core, name);
    return node_with(core, children);
  };
  const auto root = named("a", {named("b", {named("c"), named("d")}), named("e")});
  distance_from_above(root);
  EXPECT_EQ(visited, "abcde");
  visited.clear();
  skip = true;
  distance_from_above(root);
  EXPECT_EQ(visited, "abe");
}

TEST(IntersectAction, KeepsTheNearestReportedHit) {
  const float inf = std::numeric_limits<float>::infinity();
  const std::vector<float> reported = {-1, NAN, inf, 3, 5, 2, 2, -inf};
  const Registered reporting(osg::Group::getClassType(), [&](osg::CNodePtr&, Action* action) {
    auto* ray = dynamic_cast<IntersectAction*>(action);
    Vec3f normal(0, 1, 0);
    for (std::size_t i = 0; i < reported.size(); ++i)
      ray->setHit(reported[i], ray->getActNode(), static_cast<osg::Int32>(i), normal);
    ray->setHit(0, osg::NullFC, 99, normal);
    return Action::Continue;
  });
  IntersectAction action(from_above);
  action.apply(node_with(osg::Group::create()));
  EXPECT_EQ(action.getHitT(), 2);
  EXPECT_EQ(action.getHitTriangle(), 5);  // of two equally near the first
  EXPECT_EQ(action.getHitNormal(), Vec3f(0, 1, 0));
}

TEST(IntersectAction, AttachmentsMayComeDuringTheWalk) {
  const Registered attaching(osg::Geometry::getClassType(),
                             [](osg::CNodePtr& core, Action* action) {
                               if (!core->findAttachment(osg::StringAttributeMap::getClassType()))
                                 core->addAttachment(osg::StringAttributeMap::create());
                               osg::setName(core, std::string(100, 'x'));
                               return osg::Geometry::dcast(core)->intersect(action);
                             });
  const auto shared = make_square(0);
  const auto root = node_with(osg::Group::create(), {node_with(shared), node_with(shared)});
  EXPECT_EQ(distance_from_above(root), 10);
  EXPECT_EQ(distance_from_above(root), 10);
  EXPECT_EQ(shared->getAttachments().size(), 2u);
}

// Rays of several threads on one graph, while functions come and go.
TEST(IntersectAction, ThreadsShareAGraph) {
  const auto root = node_with(osg::Group::create());
  for (int i = 0; i < 20; ++i)
    root->addChild(node_with(transform(Matrix::translation(0, 0, static_cast<float>(-i))),
                             {node_with(make_square(0))}));
  root->updateVolume();
  std::atomic<int> wrong{0};
  support::run_threads(4, [&](int thread) {
    IntersectAction action(from_above);
    for (int i = 0; i < 300; ++i) {
      if (thread == 0) {
        const Registered changing(osg::Geometry::getClassType(), osg::makeFunctor(hit_at_one));
        continue;
      }
      action.apply(root);
      if (action.getHitT() != 10 && action.getHitT() != 1) ++wrong;
    }
  });
  EXPECT_EQ(wrong, 0);
}

}  // namespace
