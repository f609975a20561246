#include "gltf/scene.h"

#include <charconv>

#include "attribute_json.h"
#include "names.h"
#include "osg/cores.h"

namespace osg::io {
namespace {

// Deeper trees than any tool makes would exhaust the stack of whoever walks them.
constexpr int kMaxDepth = 1024;

class SceneBuilder {
 public:
  SceneBuilder(const GltfDocument& document, GltfMeshes& meshes, Warnings& warnings)
      : model_(document.model), meshes_(meshes), warnings_(warnings) {}

  NodePtr run() {
    find_parents();
    const NodePtr root = Node::create();
    root->setCore(Group::create());
    for (const int index : scene_roots(root)) root->addChild(build(index, 1));
    warnings_.count("nodes outside of the scene are left out", "node",
                    model_.nodes.size() - built_);
    return root;
  }

 private:
  /// Every node has one parent at most, so that what hangs below the scene's roots is a tree.
  void find_parents() {
    parents_.assign(model_.nodes.size(), -1);
    for (std::size_t i = 0; i < model_.nodes.size(); ++i) {
      const std::string place = place_of("nodes", i);
      for (const int child : model_.nodes[i].children) {
        int& parent = parents_[checked(child, place)];
        if (parent >= 0)
          throw ReadError{place, "its child " + std::to_string(child) + " is also one of node " +
                                     std::to_string(parent)};
        parent = static_cast<int>(i);
      }
    }
  }

  std::size_t checked(int node, const std::string& place) const {
    if (node < 0 || static_cast<std::size_t>(node) >= model_.nodes.size())
      throw ReadError{place, "there is no node " + std::to_string(node)};
    return static_cast<std::size_t>(node);
  }

  /// The roots of the scene to read, whose name and extras go to `root`.
  std::vector<int> scene_roots(const NodePtr& root) {
    if (model_.scenes.empty()) return nodes_without_parent();
    const int index = model_.defaultScene < 0 ? 0 : model_.defaultScene;
    if (static_cast<std::size_t>(index) >= model_.scenes.size())
      throw ReadError{"scene", "there is no scene " + std::to_string(index)};
    warnings_.count("scenes but the default one are left out", "scene", model_.scenes.size() - 1);
    const tinygltf::Scene& scene = model_.scenes[static_cast<std::size_t>(index)];
    if (!scene.name.empty()) osg::setName(root, scene.name);
    attach_extras(root, scene.extras_json_string);
    const std::string place = place_of("scenes", static_cast<std::size_t>(index));
    for (const int node : scene.nodes) {
      int& parent = parents_[checked(node, place)];
      if (parent != -1)
        throw ReadError{place, "node " + std::to_string(node) +
                                   (parent == kSceneRoot ? " stands in it twice"
                                                         : " is no root, it has a parent")};
      parent = kSceneRoot;
    }
    return scene.nodes;
  }

  std::vector<int> nodes_without_parent() const {
    std::vector<int> roots;
    for (std::size_t i = 0; i < parents_.size(); ++i)
      if (parents_[i] < 0) roots.push_back(static_cast<int>(i));
    return roots;
  }

  NodePtr build(int index, int depth) {
    const auto& source = model_.nodes[static_cast<std::size_t>(index)];
    const std::string place = place_of("nodes", static_cast<std::size_t>(index));
    if (depth > kMaxDepth)
      throw ReadError{place, "lies deeper than " + std::to_string(kMaxDepth) + " levels"};
    ++built_;
    static const std::vector<GeometryPtr> none;
    const auto& cores = source.mesh < 0 ? none : meshes_.cores(source.mesh, place);
    std::string geometry_name = source.name;
    if (source.mesh >= 0 && source.name.empty()) geometry_name = meshes_.name(source.mesh);
    const NodePtr node = Node::create();
    const NodeCorePtr transform = transform_core(source, place);
    if (!transform && source.children.empty() && cores.size() == 1) {
      node->setCore(cores[0]);
      name(node, geometry_name);
    } else {
      node->setCore(transform ? transform : NodeCorePtr(Group::create()));
      name(node, source.name);
      for (std::size_t i = 0; i < cores.size(); ++i)
        add_geometry(node, cores[i], numbered_name(geometry_name, i + 1));
    }
    take_extras(node, source);
    for (const int child : source.children) node->addChild(build(child, depth + 1));
    return node;
  }

  static void name(const NodePtr& node, const std::string& name) {
    if (!name.empty()) osg::setName(node, name);
  }

  static void add_geometry(const NodePtr& parent, const GeometryPtr& core,
                           const std::string& geometry_name) {
    const NodePtr node = Node::create();
    node->setCore(core);
    name(node, geometry_name);
    parent->addChild(node);
  }

  static void take_extras(const NodePtr& node, const tinygltf::Node& source) {
    std::string extras = source.extras_json_string;
    if (extras.find(kTravMaskKey) != extras.npos) extras = take_mask(node, extras);
    attach_extras(node, extras);
  }

  /// Sets the mask that the extras hold; what is left of them.
  static std::string take_mask(const NodePtr& node, const std::string& extras) {
    nlohmann::json json = nlohmann::json::parse(extras, nullptr, false);
    const auto mask = json.is_object() ? json.find(kTravMaskKey) : json.end();
    if (mask == json.end() || !mask->is_number_unsigned() || mask->get<UInt64>() > 0xffffffffu)
      return extras;
    node->setTravMask(mask->get<UInt32>());
    json.erase(mask);
    return json.dump();
  }

  /// Null for the identity.
  static NodeCorePtr transform_core(const tinygltf::Node& source, const std::string& place) {
    const Matrix matrix = local_matrix(source, place);
    if (matrix == Matrix::identity()) return NullFC;
    const auto core = Transform::create();
    core->setMatrix(matrix);
    return core;
  }

  static Matrix local_matrix(const tinygltf::Node& source, const std::string& place) {
    const auto sized = [&](const std::vector<double>& values, std::size_t size, const char* what) {
      if (!values.empty() && values.size() != size)
        throw ReadError{place, std::string(what) + " has " + std::to_string(values.size()) +
                                   " numbers in place of " + std::to_string(size)};
      return !values.empty();
    };
    Matrix matrix;
    if (sized(source.matrix, 16, "matrix")) {
      for (UInt32 i = 0; i < 16; ++i) matrix[i] = as_real32(source.matrix[i]);
      return matrix;
    }
    if (sized(source.rotation, 4, "rotation")) set_rotation(matrix, source.rotation);
    if (sized(source.scale, 3, "scale"))
      for (UInt32 i = 0; i < 12; ++i) matrix[i] *= as_real32(source.scale[i / 4]);
    if (sized(source.translation, 3, "translation"))
      for (UInt32 i = 0; i < 3; ++i) matrix[12 + i] = as_real32(source.translation[i]);
    return matrix;
  }

  /// Too large for a float is infinite.
  static Real32 as_real32(double value) {
    constexpr double largest = std::numeric_limits<Real32>::max();
    if (value > largest) return std::numeric_limits<Real32>::infinity();
    if (value < -largest) return -std::numeric_limits<Real32>::infinity();
    return static_cast<Real32>(value);
  }

  /// The rotation of the quaternion x, y, z, w, which need not be of unit length.
  static void set_rotation(Matrix& matrix, const std::vector<double>& q) {
    const double x = q[0], y = q[1], z = q[2], w = q[3];
    const double squared = x * x + y * y + z * z + w * w;
    if (!(squared > 0.0)) return;
    const double s = 2.0 / squared;
    const double columns[9] = {
        1 - s * (y * y + z * z), s * (x * y + z * w),     s * (x * z - y * w),
        s * (x * y - z * w),     1 - s * (x * x + z * z), s * (y * z + x * w),
        s * (x * z + y * w),     s * (y * z - x * w),     1 - s * (x * x + y * y)};
    for (UInt32 column = 0; column < 3; ++column)
      for (UInt32 row = 0; row < 3; ++row)
        matrix[4 * column + row] = as_real32(columns[3 * column + row]);
  }

  static constexpr int kSceneRoot = -2;

  const tinygltf::Model& model_;
  GltfMeshes& meshes_;
  Warnings& warnings_;
  std::vector<int> parents_;  // by node: its parent, -1 for none
  std::size_t built_ = 0;
};

}  // namespace

NodePtr build_scene(const GltfDocument& document, GltfMeshes& meshes, Warnings& warnings) {
  return SceneBuilder(document, meshes, warnings).run();
}

}  // namespace osg::io
