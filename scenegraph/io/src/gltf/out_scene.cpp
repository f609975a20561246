#include "gltf/out_scene.h"

#include <cmath>

#include "gltf/scene.h"
#include "names.h"
#include "osg/cores.h"
#include "osg/geometry.h"

namespace osg::io {
namespace {

constexpr int kMaxDepth = 1000;  // the reader takes 1024, and may add levels for meshes

std::string name_of(const AttachmentContainer& container) {
  const char* name = osg::getName(container);
  return name ? name : "";
}

bool is_plain_group(const NodeCorePtr& core) {
  return !core || core->getType() == Group::getClassType();
}

bool is_all_ones(const osg::Node& node) {
  return node.getTravMask() == ~UInt32{0};
}

/// The node's extras with its traversal mask, where that says something.
std::string extras_with_mask(const osg::Node& node) {
  std::string extras = extras_of(node);
  if (is_all_ones(node)) return extras;
  const std::string mask =
      std::string("{\"") + kTravMaskKey + "\":" + std::to_string(node.getTravMask());
  if (extras.empty()) return mask + "}";
  return extras[0] == '{' ? mask + "," + extras.substr(1) : mask + ",\"\":" + extras + "}";
}

class SceneCollector {
 public:
  SceneCollector(OutMaterials& materials, Warnings& warnings)
      : materials_(materials), warnings_(warnings) {}

  OutScene run(const NodePtr& root) {
    if (is_plain_group(root->getCore()) && is_all_ones(*root)) {
      scene_.name = name_of(*root);
      scene_.extras = extras_of(*root);
      for (const NodePtr& child : root->getChildren())
        scene_.roots.push_back(add_node(child, NullFC, 1));
    } else {
      scene_.roots.push_back(add_node(root, NullFC, 1));
    }
    return std::move(scene_);
  }

 private:
  /// `above`: the material of the topmost MaterialGroup on the way, or null.
  std::size_t add_node(const NodePtr& node, MaterialPtr above, int depth) {
    if (depth > kMaxDepth)
      throw WriteError{"", "the graph is deeper than " + std::to_string(kMaxDepth) + " levels"};
    const std::size_t index = scene_.nodes.size();
    OutScene::Node out;
    out.name = name_of(*node);
    out.extras = extras_with_mask(*node);
    out.matrix = matrix_of(node->getCore());
    std::size_t first_child = 0;
    if (const auto geometry = Geometry::dcast(node->getCore()))
      out.mesh = mesh_of({geometry}, above);
    else
      first_child = fold_children(*node, above, out);
    if (const auto group = MaterialGroup::dcast(node->getCore()))
      if (!above) above = group->getMaterial();
    warn_of_core(node->getCore());
    scene_.nodes.push_back(std::move(out));
    std::vector<std::size_t> children;
    for (const NodePtr& child : node->getChildren().subspan(first_child))
      children.push_back(add_node(child, above, depth + 1));
    scene_.nodes[index].children = std::move(children);
    return index;
  }

  void warn_of_core(const NodeCorePtr& core) {
    if (!core || core->getLocalMatrix() || is_plain_group(core) || Geometry::dcast(core)) return;
    warnings_.count(std::string(core->getType().getCName()) +
                        " cores are written as groups with all their children",
                    "node");
  }

  const Matrix* matrix_of(const NodeCorePtr& core) {
    const Matrix* matrix = core ? core->getLocalMatrix() : nullptr;
    if (!matrix || *matrix == Matrix::identity()) return nullptr;
    for (UInt32 i = 0; i < 16; ++i) {
      if (std::isfinite((*matrix)[i])) continue;
      warnings_.count("transforms that are no finite numbers are left out", "node");
      return nullptr;
    }
    return matrix;
  }

  /// How many of the first children become the mesh of their parent: those that the reader would
  /// make out of it again.
  std::size_t fold_children(const osg::Node& node, const MaterialPtr& above, OutScene::Node& out) {
    const NodeCorePtr& core = node.getCore();
    if (!core || !(is_plain_group(core) || core->getLocalMatrix())) return 0;
    std::vector<GeometryPtr> cores;
    for (const NodePtr& child : node.getChildren()) {
      const auto geometry = foldable_geometry(*child);
      if (!geometry) break;
      const GeometryPtr& first = cores.empty() ? geometry : cores[0];
      const std::string& base = out.name.empty() ? name_of(*first) : out.name;
      const bool same_mesh =
          name_of(*geometry) == name_of(*first) && extras_of(*geometry) == extras_of(*first);
      if (!same_mesh || name_of(*child) != numbered_name(base, cores.size() + 1)) break;
      cores.push_back(geometry);
    }
    // A node of one geometry only would be read as that geometry itself.
    const bool would_vanish = cores.size() == 1 && node.getNChildren() == 1 && !out.matrix;
    if (cores.empty() || would_vanish) return 0;
    out.mesh = mesh_of(cores, above);
    return cores.size();
  }

  GeometryPtr foldable_geometry(const osg::Node& node) {
    const auto geometry = Geometry::dcast(node.getCore());
    const bool leaf =
        geometry && node.getNChildren() == 0 && is_all_ones(node) && extras_of(node).empty();
    if (!leaf || scene_.geometries[prepared(geometry)].primitives.size() != 1) return NullFC;
    return geometry;
  }

  /// The number of a mesh of these cores; -1 if there is nothing in them.
  int mesh_of(const std::vector<GeometryPtr>& cores, const MaterialPtr& above) {
    OutScene::Mesh mesh;
    std::vector<std::pair<std::size_t, int>> key;
    for (const GeometryPtr& core : cores) {
      const std::size_t geometry = prepared(core);
      const int material = materials_.index_of(core->getMaterial() ? core->getMaterial() : above);
      key.emplace_back(geometry, material);
      for (std::size_t part = 0; part < scene_.geometries[geometry].primitives.size(); ++part)
        mesh.primitives.push_back({geometry, part, material});
    }
    if (mesh.primitives.empty()) {
      warnings_.count("geometries without primitives are written as plain nodes", "node");
      return -1;
    }
    const auto [found, fresh] =
        mesh_index_.try_emplace(key, static_cast<int>(scene_.meshes.size()));
    if (!fresh) return found->second;
    mesh.name = name_of(*cores[0]);
    mesh.extras = extras_of(*cores[0]);
    scene_.meshes.push_back(std::move(mesh));
    return found->second;
  }

  std::size_t prepared(const GeometryPtr& core) {
    const auto [found, fresh] = geometry_index_.try_emplace(core, scene_.geometries.size());
    if (fresh) scene_.geometries.push_back(prepare_geometry(core));
    return found->second;
  }

  OutMaterials& materials_;
  Warnings& warnings_;
  OutScene scene_;
  std::map<GeometryPtr, std::size_t> geometry_index_;
  std::map<std::vector<std::pair<std::size_t, int>>, int> mesh_index_;
};

}  // namespace

OutScene collect_scene(const NodePtr& root, OutMaterials& materials, Warnings& warnings) {
  return SceneCollector(materials, warnings).run(root);
}

}  // namespace osg::io
