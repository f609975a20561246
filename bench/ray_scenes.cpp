#include "bench/ray_scenes.h"

#include <osg/geometry.h>
#include <osg/io/model_files.h>
#include <osg/scene_file_handler.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <filesystem>
#include <limits>
#include <map>
#include <stdexcept>
#include <unordered_map>

#include "morlu/primitives.h"
#include "sample/sample_assembly.h"

namespace morlu::bench {

namespace {

/// Numbers positions, the same number for the same bits.
class welder {
 public:
  explicit welder(std::vector<vector3>& points) : points_(points) {}

  std::uint32_t number_of(const vector3& p) {
    const key bits = std::bit_cast<key>(p);
    const auto [at, is_new] =
        numbers_.try_emplace(bits, static_cast<std::uint32_t>(points_.size()));
    if (is_new) points_.push_back(p);
    return at->second;
  }

 private:
  using key = std::array<std::uint32_t, 3>;
  struct hash {
    std::size_t operator()(const key& k) const {
      std::uint64_t mixed = 0;
      for (const std::uint32_t word : k) mixed = (mixed ^ word) * 0x9e3779b97f4a7c15u;
      return mixed ^ mixed >> 32;
    }
  };
  std::vector<vector3>& points_;
  std::unordered_map<key, std::uint32_t, hash> numbers_;
};

mesh read_model(const std::string& path) {
  ::osg::io::registerModelFormats();
  const auto read = ::osg::SceneFileHandler::the().read(path);
  if (!read.root) throw std::runtime_error("cannot read '" + path + "'");
  return flatten(read.root);
}

void add_model(std::vector<named_mesh>& to, const std::string& name, const std::string& file) {
  const std::filesystem::path folder = MORLU_MODELS_DIR;
  if (folder.empty() || !std::filesystem::exists(folder / file)) return;
  to.push_back({name, [path = (folder / file).string()] { return read_model(path); }});
}

}  // namespace

// --- Meshes

std::array<vector3, 2> mesh::bounds() const {
  std::array<vector3, 2> box{points.at(0), points.at(0)};
  for (const vector3& p : points)
    for (std::size_t axis = 0; axis < 3; ++axis) {
      box[0][axis] = std::min(box[0][axis], p[axis]);
      box[1][axis] = std::max(box[1][axis], p[axis]);
    }
  return box;
}

float mesh::diagonal() const {
  const auto box = bounds();
  return math::distance(box[1], box[0]);
}

mesh make_icosphere(int level) {
  const float g = (1 + std::sqrt(5.0f)) / 2;
  mesh made;
  made.points = {{-1, g, 0},  {1, g, 0},  {-1, -g, 0}, {1, -g, 0}, {0, -1, g},  {0, 1, g},
                 {0, -1, -g}, {0, 1, -g}, {g, 0, -1},  {g, 0, 1},  {-g, 0, -1}, {-g, 0, 1}};
  made.faces = {{0, 11, 5},  {0, 5, 1},  {0, 1, 7},  {0, 7, 10}, {0, 10, 11}, {1, 5, 9}, {5, 11, 4},
                {11, 10, 2}, {10, 7, 6}, {7, 1, 8},  {3, 9, 4},  {3, 4, 2},   {3, 2, 6}, {3, 6, 8},
                {3, 8, 9},   {4, 9, 5},  {2, 4, 11}, {6, 2, 10}, {8, 6, 7},   {9, 8, 1}};
  for (vector3& p : made.points) p = math::unit(p);
  for (; level > 0; --level) {
    std::unordered_map<std::uint64_t, std::uint32_t> middles;
    const auto middle = [&](std::uint32_t a, std::uint32_t b) {
      const std::uint64_t edge = std::uint64_t{std::min(a, b)} << 32 | std::max(a, b);
      const auto [at, is_new] =
          middles.try_emplace(edge, static_cast<std::uint32_t>(made.points.size()));
      if (is_new) made.points.push_back(math::unit(made.points[a] + made.points[b]));
      return at->second;
    };
    std::vector<std::array<std::uint32_t, 3>> finer;
    finer.reserve(4 * made.faces.size());
    for (const auto& [a, b, c] : made.faces) {
      const std::uint32_t ab = middle(a, b), bc = middle(b, c), ca = middle(c, a);
      finer.insert(finer.end(), {{a, ab, ca}, {b, bc, ab}, {c, ca, bc}, {ab, bc, ca}});
    }
    made.faces = std::move(finer);
  }
  return made;
}

mesh make_terrain(std::uint32_t side) {
  mesh made;
  for (std::uint32_t y = 0; y <= side; ++y)
    for (std::uint32_t x = 0; x <= side; ++x) {
      const double u = 20.0 * x / side, v = 20.0 * y / side;
      double height = 0, scale = 1, tall = 0.8;
      for (int octave = 0; octave < 5; ++octave, scale *= 2.1, tall *= 0.45)  // hills on hills
        height += tall * std::sin(u * scale + v * 0.3) * std::cos(v * scale * 1.1 - u * 0.2);
      made.points.push_back(
          {static_cast<float>(u), static_cast<float>(v), static_cast<float>(height)});
    }
  for (std::uint32_t y = 0; y < side; ++y)
    for (std::uint32_t x = 0; x < side; ++x) {
      const std::uint32_t a = y * (side + 1) + x, b = a + side + 1;
      made.faces.push_back({a, a + 1, b + 1});
      made.faces.push_back({a, b + 1, b});
    }
  return made;
}

mesh flatten(const ::osg::NodePtr& root) {
  mesh made;
  welder points(made.points);
  std::list<::osg::NodePtr> nodes;
  osg::collect_geo_nodes(root, nodes);
  for (const ::osg::NodePtr& node : nodes) {
    const auto geometry = ::osg::Geometry::dcast(node->getCore());
    const ::osg::Matrix world = node->getToWorld();
    const bool mirrored = world.determinant() < 0;
    for (auto it = geometry->beginTriangles(); !it.isAtEnd(); ++it) {
      std::array<std::uint32_t, 3> face{};
      for (std::uint32_t k = 0; k < 3; ++k) {
        vector3 p;
        osg::set(p, world.transformPoint(it.getPosition(k)));
        face[mirrored ? 2 - k : k] = points.number_of(p);
      }
      made.faces.push_back(face);
    }
  }
  return made;
}

::osg::NodePtr make_node(const mesh& from) {
  const auto positions = ::osg::GeoPositions3f::create();
  for (const vector3& p : from.points) positions->push_back({p[0], p[1], p[2]});
  const auto indices = ::osg::GeoIndicesUI32::create();
  for (const auto& face : from.faces)
    for (const std::uint32_t point : face) indices->push_back(point);
  const auto types = ::osg::GeoPTypesUI8::create();
  types->push_back(::osg::kTriangles);
  const auto lengths = ::osg::GeoPLengthsUI32::create();
  lengths->push_back(indices->size());
  const auto geometry = ::osg::Geometry::create();
  geometry->setTypes(types);
  geometry->setLengths(lengths);
  geometry->setIndices(indices);
  geometry->setPositions(positions);
  auto node = ::osg::Node::create();
  node->setCore(geometry);
  return node;
}

const std::vector<named_mesh>& ray_meshes() {
  static const std::vector<named_mesh> meshes = [] {
    std::vector<named_mesh> all = {
        {"icosphere 20k", [] { return make_icosphere(5); }},
        {"icosphere 80k", [] { return make_icosphere(6); }},
        {"icosphere 330k", [] { return make_icosphere(7); }},
        {"icosphere 1.3M", [] { return make_icosphere(8); }},
        {"terrain 500k", [] { return make_terrain(500); }},
        {"assembly 10k parts",
         [] { return flatten(sample::make_sample_assembly({.parts = 10'000})); }},
    };
    add_model(all, "koala 100k", "koala/koala.obj");
    add_model(all, "metal spheres 1M", "metal_spheres/MetalRoughSpheresNoTextures.glb");
    return all;
  }();
  return meshes;
}

std::shared_ptr<const mesh> find_mesh(const std::string& name) {
  static std::string last_name;
  static std::shared_ptr<const mesh> last;
  if (last && last_name == name) return last;
  last.reset();
  const auto named = std::find_if(ray_meshes().begin(), ray_meshes().end(),
                                  [&](const named_mesh& each) { return each.name == name; });
  mesh made = named->make();
  made.points.reserve(made.points.size() + 1);  // peers read 16 bytes of the last point too
  last = std::make_shared<const mesh>(std::move(made));
  last_name = name;
  return last;
}

// --- Rays

std::vector<ray_query> camera_rays(const mesh& from) {
  constexpr int width = 700;
  const auto box = from.bounds();
  const vector3 centre = (box[0] + box[1]) * 0.5f;
  const vector3 eye = centre + vector3{0.7f, -0.6f, 0.35f} * from.diagonal();
  const vector3 forward = math::unit(centre - eye);
  const vector3 right = math::unit(math::cross(forward, {0, 0, 1}));
  const vector3 up = math::cross(right, forward);
  std::vector<ray_query> rays;
  for (int y = 0; y < width; ++y)
    for (int x = 0; x < width; ++x) {
      const float u = (static_cast<float>(x) + 0.5f) / width - 0.5f;
      const float v = (static_cast<float>(y) + 0.5f) / width - 0.5f;
      rays.push_back({eye, math::unit(forward + right * u + up * v)});
    }
  return rays;
}

std::vector<ray_query> occlusion_rays(const mesh& from) {
  constexpr std::size_t most_vertices = 8192;
  std::vector<vector3> normals(from.points.size(), vector3{0, 0, 0});
  for (const auto& [a, b, c] : from.faces) {
    const vector3 n = math::cross(from.points[b] - from.points[a], from.points[c] - from.points[a]);
    for (const std::uint32_t point : {a, b, c}) normals[point] = normals[point] + n;
  }
  const float lift = 1e-4f * from.diagonal() / 2;
  const std::size_t stride = 1 + (from.points.size() - 1) / most_vertices;
  std::vector<ray_query> rays;
  for (std::size_t at = 0; at < from.points.size(); ++at) {
    if (at / 64 % stride != 0) continue;
    const vector3 normal = math::unit(normals[at]);
    for (int k = 0; k < 64; ++k) {
      const auto on_grid = [](int step) { return static_cast<float>(step) * 2 / 3 - 1; };
      const vector3 d{on_grid(k >> 4), on_grid(k >> 2 & 3), on_grid(k & 3)};
      const vector3 direction = normal + d;
      if (!(math::length(direction) > 1e-3f)) continue;  // no direction at all
      rays.push_back({from.points[at] + d * lift, math::unit(direction)});
    }
  }
  return rays;
}

double nearest_front(const mesh& in, const ray_query& ray) {
  using vector3d = std::array<double, 3>;
  const auto minus = [](const vector3& a, const vector3& b) {
    return vector3d{double{a[0]} - b[0], double{a[1]} - b[1], double{a[2]} - b[2]};
  };
  const auto cross = [](const vector3d& a, const vector3d& b) {
    return vector3d{a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2],
                    a[0] * b[1] - a[1] * b[0]};
  };
  const auto dot = [](const vector3d& a, const vector3d& b) {
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
  };
  const vector3d back = minus({0, 0, 0}, ray.direction);
  double nearest = std::numeric_limits<double>::infinity();
  for (std::size_t face = 0; face < in.faces.size(); ++face) {
    const vector3 corner = in.corner(face, 0);
    const vector3d ab = minus(in.corner(face, 1), corner), ac = minus(in.corner(face, 2), corner);
    const vector3d ap = minus(ray.origin, corner), n = cross(ab, ac), e = cross(back, ap);
    const double d = dot(n, back), t = dot(n, ap), v = dot(ac, e), w = -dot(ab, e);
    if (d > 0 && t >= 0 && v >= 0 && w >= 0 && v + w <= d) nearest = std::min(nearest, t / d);
  }
  return nearest;
}

}  // namespace morlu::bench
