// Edge collapses beside their plain steps, and whole geometry made simpler.

#include <gtest/gtest.h>
#include <osg/geometry_tools.h>
#include <osg/io/model_files.h>
#include <osg/material.h>
#include <osg/scene_file_handler.h>

#include <cstring>
#include <filesystem>
#include <random>

#include "finishing/carried_attributes.h"
#include "finishing/edge_collapse.h"
#include "finishing/plain_index.h"
#include "morlu/finishing.h"
#include "support/failing_memory.h"
#include "support/model_truth.h"
#include "support/random_geometry.h"
#include "support/said.h"
#include "support/scene_parts.h"
#include "support/scene_text.h"
#include "support/temp_folder.h"

namespace morlu::tests {
namespace {

namespace fs = std::filesystem;
using ::osg::Attribute;
using ::osg::GeometryPtr;
using ::osg::NodePtr;
using ::osg::Pnt3f;
using test::said;

// --- Collapses -----------------------------------------------------------------------------------

/// The collapse of edges step by step: one array of edges, of which each step looks at all.
struct plain_collapse {
  struct simplify_edge {
    std::uint32_t from, to;
    double cost;
    std::uint32_t number;  // its place in the beginning
  };
  std::vector<Pnt3f> positions;
  std::vector<std::uint32_t> indices;
  std::map<std::uint32_t, std::uint64_t> ref_map{};
  std::vector<simplify_edge> edges{};
  std::size_t next = 0;

  void start() {
    for (const std::uint32_t vertex : indices) ++ref_map[vertex];
    for (std::uint32_t i = 0; i < indices.size(); i += 3)
      for (std::uint32_t k = 0; k < 3; ++k)
        edges.push_back({indices[i + k], indices[i + (k + 1) % 3], 0, i + k});
    for (simplify_edge& edge : edges) edge.cost = cost_of(edge);
  }

  double cost_of(const simplify_edge& edge) {
    const ::osg::Vec3f way = positions[edge.from] - positions[edge.to];
    const double x = way[0], y = way[1], z = way[2];
    return std::sqrt(x * x + y * y + z * z) + static_cast<double>(ref_map[edge.from]) +
           static_cast<double>(ref_map[edge.to]);
  }

  std::uint32_t step() {
    next = std::min(next, edges.size() - 1);
    const auto [a, b, cost, number] = edges[next];
    edges.erase(edges.begin() + static_cast<std::ptrdiff_t>(next));
    for (::osg::UInt32 k = 0; k < 3; ++k)
      positions[a][k] = positions[a][k] + (positions[b][k] - positions[a][k]) * 0.5f;
    for (std::uint32_t& index : indices)
      if (index == b) index = a;
    const std::uint64_t room = std::numeric_limits<std::uint64_t>::max() - ref_map[a];
    ref_map[a] += std::min(ref_map[b] - 1, room);
    double best = std::numeric_limits<double>::max();
    for (std::size_t i = 0; i < edges.size(); ++i) {
      simplify_edge& edge = edges[i];
      if (edge.from == a || edge.from == b || edge.to == a || edge.to == b)
        edge.cost = cost_of(edge);
      if (edge.cost < best) {
        best = edge.cost;
        next = i;
      }
    }
    return number;
  }
};

struct soup {
  std::vector<Pnt3f> positions;
  std::vector<std::uint32_t> corners;
};

/// Sheets, whose edges are equally long, soups with vertices twice in a triangle, wheels, and an
/// edge that all share, whose counts soon are beyond all bounds; of any scale, with places that
/// vertices share, and with coordinates that are no numbers, or too far apart for one.
soup some_soup(std::mt19937& random) {
  const auto below = [&](std::uint32_t limit) {
    return static_cast<std::uint32_t>(random() % limit);
  };
  const std::uint32_t side = 2 + below(9), row = side + 1, vertices = row * row;
  const std::uint32_t kind = below(4), flaw = below(6);
  const float scale = std::ldexp(1.0f, static_cast<int>(below(4)) * 20 - 40);
  soup made;
  for (std::uint32_t v = 0; v < vertices; ++v) {
    Pnt3f p(v % row, v / row, 0);
    if (kind > 0) p = {below(4), below(4), below(3)};
    if (flaw == 0) p = p + ::osg::Vec3f(below(999), below(999), below(999)) * 1e-3f;
    for (::osg::UInt32 k = 0; k < 3; ++k) p[k] *= scale;
    constexpr float odd[] = {NAN, INFINITY, -INFINITY, 3e38f, -3e38f};
    if (flaw == 1 && below(4) == 0) p[below(3)] = odd[below(5)];
    if (flaw == 2) p[below(3)] = odd[below(5)];
    made.positions.push_back(p);
  }
  for (std::uint32_t i = 0; i < 2 * side * side; ++i) {
    const std::uint32_t at = i / 2 / side * row + i / 2 % side;
    std::array corner{at, at + 1 + i % 2 * row, at + row + 1 - i % 2};
    if (kind == 1) corner = {below(vertices), below(vertices), below(vertices)};
    if (kind == 2) corner = {0, 1 + i % (vertices - 1), 1 + (i + 1) % (vertices - 1)};
    if (kind == 3) corner = {below(2), below(2), 2 + below(2)};
    made.corners.insert(made.corners.end(), corner.begin(), corner.end());
  }
  return made;
}

/// To the bit, but for the bits of what is no number: they depend on the compiler.
bool same_place(const Pnt3f& a, const Pnt3f& b) {
  const auto bits_of = [](float x) {
    return std::isnan(x) ? ~0u : std::bit_cast<std::uint32_t>(x);
  };
  return std::equal(a.getValues(), a.getValues() + 3, b.getValues(),
                    [&](float x, float y) { return bits_of(x) == bits_of(y); });
}

TEST(EdgeCollapse, GoesThePlainWay) {
  for (unsigned seed = 0; seed < 400; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    soup fast = some_soup(random);
    plain_collapse plain{fast.positions, fast.corners};
    plain.start();
    osg::edge_collapse triangles(fast.positions, fast.corners);
    ASSERT_EQ(triangles.vertices(), plain.ref_map.size());
    for (std::size_t left = random() % plain.edges.size(); plain.edges.size() > left;) {
      ASSERT_EQ(triangles.collapse_next(), plain.step()) << plain.edges.size() << " edges are left";
      ASSERT_EQ(triangles.edges(), plain.edges.size());
      ASSERT_TRUE(std::ranges::equal(fast.positions, plain.positions, same_place));
    }
    triangles.write_corners();
    ASSERT_EQ(fast.corners, plain.indices);
  }
}

// --- Geometry ------------------------------------------------------------------------------------

/// Works in an empty folder.
class Simplification : public testing::Test {
 protected:
  Simplification() { fs::current_path(folder_); }
  ~Simplification() override { fs::current_path(before_); }

  /// With what is said on standard output.
  GeometryPtr simplify(const NodePtr& node, unsigned target) {
    said now;
    GeometryPtr result = osg::simplifyGeometry(node, target);
    now.end();
    EXPECT_EQ(now.err, "");
    out_ = now.out;
    return result;
  }

  const fs::path before_ = fs::current_path();
  const support::TempFolder folder_;
  std::string out_;
};

/// A closed tube that meets itself, of 2 * n * m triangles, with one normal at each place: flat
/// ones would take the triangles apart.
GeometryPtr torus(unsigned n, unsigned m, float size = 1) {
  std::vector<Pnt3f> corners;
  const auto at = [&](unsigned i, unsigned k) {
    const double u = 2 * M_PI * (i % n) / n, v = 2 * M_PI * (k % m) / m, r = 3 + std::cos(v);
    return Pnt3f(size * r * std::cos(u), size * r * std::sin(u), size * std::sin(v));
  };
  for (unsigned i = 0; i < n; ++i)
    for (unsigned k = 0; k < m; ++k)
      for (const auto& [a, b] : {std::pair{0, 0}, {1, 0}, {1, 1}, {0, 0}, {1, 1}, {0, 1}})
        corners.push_back(at(i + static_cast<unsigned>(a), k + static_cast<unsigned>(b)));
  const GeometryPtr made = triangles(corners);
  ::osg::calcVertexNormals(made, 3.2f);
  return made;
}

GeometryPtr model(const std::string& name) {
  ::osg::io::registerModelFormats();
  NodePtr node = ::osg::SceneFileHandler::the().read(support::models_folder() / name).root;
  while (node && node->getNChildren() > 0) node = node->getChild(0);
  return ::osg::Geometry::dcast(node->getCore());
}

/// Corner by corner the values of what simplified geometry carries, but for normals.
using corner_table = std::vector<std::vector<bits>>;

corner_table shown_by(const ::osg::Geometry& geometry) {
  corner_table table;
  for (const auto attribute : osg::carried_attributes<osg::osg_geoset>())
    if (attribute != Attribute::Normals) table.push_back(corner_values(geometry, attribute));
  return table;
}

/// What a set has of the node, by plain index, plain steps, and without what they have flattened.
corner_table plainly_simplified(const NodePtr& node, unsigned target) {
  osg::osg_geoset set;
  osg::extract(node, set, false, true, false, true, true);
  if (set.num_objects == 0) return {{}};
  plain_index index = plain_single_index(*set.geometry, osg::carried_attributes<osg::osg_geoset>());
  plain_collapse plain{{}, index.indices};
  for (const bits& p : index.values.at(Attribute::Positions))
    plain.positions.push_back(
        {std::bit_cast<float>(p[0]), std::bit_cast<float>(p[1]), std::bit_cast<float>(p[2])});
  plain.start();
  while (plain.edges.size() > std::size_t{target} * 3) plain.step();
  for (std::size_t v = 0; v < plain.positions.size(); ++v)
    for (::osg::UInt32 k = 0; k < 3; ++k)
      index.values[Attribute::Positions][v][k] =
          std::bit_cast<std::uint32_t>(plain.positions[v][k]);

  corner_table table;
  for (const auto attribute : osg::carried_attributes<osg::osg_geoset>()) {
    if (attribute == Attribute::Normals) continue;
    auto& column = table.emplace_back();
    for (std::size_t i = 0; index.values.contains(attribute) && i < plain.indices.size(); ++i) {
      const std::uint32_t* v = &plain.indices[i / 3 * 3];
      if (!osg::is_rogue(plain.positions[v[0]], plain.positions[v[1]], plain.positions[v[2]]))
        column.push_back(index.values[attribute][plain.indices[i]]);
    }
  }
  return table;
}

TEST_F(Simplification, IsThatOfThePlainSteps) {
  for (unsigned seed = 0; seed < 300; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    GeometryPtr geometry = test::random_geometry(random, static_cast<test::layout>(seed % 3));
    if (seed % 10 == 0)
      geometry = torus(5 + seed % 7, 8, std::ldexp(1e-3f, static_cast<int>(seed % 40)));
    if (seed == 1 && !support::model_truth().is_null()) geometry = model("suzanne/Suzanne.gltf");
    const NodePtr node = node_with(geometry);
    if (seed % 2 == 0) ::osg::setName(node, "part");
    const std::string before = support::scene_text(node);
    const unsigned target = (seed == 1 ? 3500 : 1) + static_cast<unsigned>(random() % 40);
    const GeometryPtr result = simplify(node, target);
    EXPECT_EQ(support::scene_text(node), before);
    const corner_table expected = plainly_simplified(node, target);
    ASSERT_EQ(result.isNull(), expected[0].empty());
    if (!result) continue;
    EXPECT_TRUE(out_.find("Tris: " + std::to_string(expected[0].size() / 3) + "\nNo") <
                out_.size());
    EXPECT_EQ(shown_by(*result), expected);
    EXPECT_EQ(result->getIndexMapping().size() * expected[0].size(), result->getIndices()->size());
    EXPECT_EQ(osg::count_triangles(result), expected[0].size() / 3);
  }
}

/// Every way along an edge has a way back: corners go together, so that none is left alone.
TEST_F(Simplification, LeavesClosedSurfacesClosed) {
  for (const unsigned target : {3000u, 1600u, 700u, 160u, 20u}) {
    SCOPED_TRACE(target);
    const GeometryPtr result = simplify(node_with(torus(40, 40)), target);
    ASSERT_GT(osg::count_triangles(result), 0);
    std::map<std::pair<bits, bits>, int> ways;
    const auto at = corner_values(*result, Attribute::Positions);
    for (std::size_t i = 0; i < at.size(); ++i) {
      const std::size_t next = i % 3 == 2 ? i - 2 : i + 1;
      ++ways[{at[i], at[next]}];
      --ways[{at[next], at[i]}];
    }
    for (const auto& [way, count] : ways) ASSERT_EQ(count, 0);
  }
}

TEST_F(Simplification, SaysHowFarItIsAndLeavesAFile) {
  const std::vector<Pnt3f> square{{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 0, 0}, {1, 1, 0}, {0, 1, 0}};
  // 3 times the last target is 2 in 32 bits
  for (const unsigned target : {2u, 3u, 1431655766u}) {
    const NodePtr node = named("square", node_with(triangles(square)));
    ASSERT_TRUE(simplify(node, target));
    EXPECT_EQ(out_,
              "CreateSingleIndex: 4\nMyRefMap Entries: 4simpified\nTris: 2\nNoTris: 0\nextracted\n"
              "createsingle done\nThe Return..");
    const auto left = ::osg::SceneFileHandler::the().read("simple.osb");
    ASSERT_TRUE(left) << left.error;
    EXPECT_STREQ(::osg::getName(left.root), "square");
    EXPECT_EQ(osg::count_triangles(::osg::Geometry::dcast(left.root->getCore())), 2);
    fs::remove("simple.osb");
  }
  fs::create_directory("simple.osb");  // there can be no such file
  EXPECT_EQ(osg::count_triangles(simplify(node_with(triangles(square)), 2)), 2);
  // the square of that many would take minutes
  EXPECT_GT(osg::count_triangles(simplify(node_with(torus(250, 200)), 10000)), 5000);
  EXPECT_TRUE(
      out_.starts_with("CreateSingleIndex: 50000\nMyRefMap Entries: 50000Simplify: 300000\n"
                       "Simplify: 290000\n"));
  EXPECT_TRUE(out_.find("Simplify: 40000\nsimpified\nTris: ") < out_.size());
}

TEST_F(Simplification, HasNoResultWhereThereIsNothing) {
  const Pnt3f corners[] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 0}, {0, 1, 0}, {1, 0, 0}};
  const auto with_nan = triangles(corners);
  for (::osg::UInt32 i = 0; i < 6; i += 3) with_nan->getPositions()->setValue({NAN, 0, 0}, i);
  const NodePtr both_sides = node_with(triangles(corners)), bare = ::osg::Node::create();
  for (const auto& [node, target, text] :
       {std::tuple{NodePtr(), 5u, ""},
        {both_sides, 0u, ""},
        {bare, 5u, "Morlu_osg_geoset_tools::Extract: No Core\n"},
        {node_with(::osg::Group::create()), 5u,
         "Morlu_osg_geoset_tools::Extract: No GeometryCore\n"},
        {node_with(::osg::Geometry::create()), 5u, ""},
        {node_with(with_nan), 5u, ""},
        {both_sides, 1u,  // both are flat in the end
         "CreateSingleIndex: 6\nMyRefMap Entries: 6simpified\nTris: 0\nNoTris: 2\nextracted\n"}}) {
    EXPECT_TRUE(simplify(node, target).isNull());
    EXPECT_EQ(out_, text);
  }
  EXPECT_FALSE(fs::exists("simple.osb"));
}

TEST_F(Simplification, LeavesTheNodeAsItWasWithoutMemory) {
  const NodePtr node = node_with(torus(4, 4));
  ::osg::Geometry::dcast(node->getCore())->setColors(::osg::GeoColors3f::create());
  const std::string before = support::scene_text(node);
  const auto expected = shown_by(*simplify(node, 20));
  bool met = true;
  for (int nth = 0; met; nth += 1 + nth / 20) {
    said hidden;
    GeometryPtr result;
    try {
      const test::failing_memory failing(nth);
      result = osg::simplifyGeometry(node, 20);
      met = failing.met();
    } catch (const std::bad_alloc&) {
      met = true;
    }
    hidden.end();
    ASSERT_EQ(support::scene_text(node), before) << nth;
    ASSERT_TRUE(result ? shown_by(*result) == expected : met) << nth;
  }
}

}  // namespace
}  // namespace morlu::tests
