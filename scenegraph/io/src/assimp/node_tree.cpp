#include "assimp/node_tree.h"

#include <assimp/scene.h>
#include <cmath>

#include "assimp/attributes.h"
#include "assimp/node_names.h"
#include "json_text.h"
#include "names.h"
#include "osg/cores.h"

namespace osg::io {
namespace {

// Deeper trees than any tool makes would exhaust the stack of whoever walks them.
constexpr int kMaxDepth = 1024;

void give_name(const NodePtr& node, const std::string& name) {
  if (!name.empty()) osg::setName(node, name);
}

/// By columns, as a matrix here is.
Matrix matrix_of(const aiMatrix4x4& from) {
  Matrix matrix;
  for (UInt32 column = 0; column < 4; ++column)
    for (UInt32 row = 0; row < 4; ++row) matrix[4 * column + row] = from[row][column];
  return matrix;
}

class TreeBuilder {
 public:
  explicit TreeBuilder(ModelMeshes& meshes) : meshes_(meshes) {}

  NodePtr build(const aiNode& source, int depth) {
    const std::string name = node_name(source.mName.C_Str());
    if (depth > kMaxDepth)
      throw ReadError{"node '" + name + "'",
                      "lies deeper than " + std::to_string(kMaxDepth) + " levels"};
    const NodePtr node = Node::create();
    const Matrix matrix = matrix_of(source.mTransformation);
    const bool identity = matrix == Matrix::identity();
    const auto geometries = geometries_of(source, name);
    if (identity && source.mNumChildren == 0 && geometries.size() == 1) {
      node->setCore(geometries[0].core);
      give_name(node, geometries[0].name);
    } else {
      node->setCore(identity ? NodeCorePtr(Group::create()) : NodeCorePtr(transform_of(matrix)));
      give_name(node, name);
      add_content(node, source, geometries, depth);
    }
    attach_metadata(node, source.mMetaData, name);
    return node;
  }

  /// What lies below the root, which has no transform, below `node`.
  void build_below_root(const NodePtr& node, const aiNode& source, const std::string& name) {
    add_content(node, source, geometries_of(source, name), 0);
  }

 private:
  struct NamedCore {
    GeometryPtr core;
    std::string name;
  };

  /// The node's geometries, named after it, else after their meshes.
  std::vector<NamedCore> geometries_of(const aiNode& source, const std::string& name) {
    std::vector<NamedCore> geometries;
    for (UInt32 i = 0; i < source.mNumMeshes; ++i) {
      const UInt32 mesh = source.mMeshes[i];
      const GeometryPtr& core = meshes_.core(mesh, "node '" + name + "'");
      if (!core) continue;
      const std::string geometry_name =
          name.empty() ? meshes_.name(mesh) : numbered_name(name, geometries.size() + 1);
      geometries.push_back({core, geometry_name});
    }
    return geometries;
  }

  void add_content(const NodePtr& node, const aiNode& source,
                   const std::vector<NamedCore>& geometries, int depth) {
    for (const NamedCore& geometry : geometries) {
      const NodePtr child = Node::create();
      child->setCore(geometry.core);
      give_name(child, geometry.name);
      node->addChild(child);
    }
    for (UInt32 i = 0; i < source.mNumChildren; ++i)
      node->addChild(build(*source.mChildren[i], depth + 1));
  }

  static TransformPtr transform_of(const Matrix& matrix) {
    const auto core = Transform::create();
    core->setMatrix(matrix);
    return core;
  }

  ModelMeshes& meshes_;
};

/// What an importer put into the root's transform to come to its own axes and units is told in
/// attributes; coordinates stay the file's.
void attach_axes(const NodePtr& root, const Matrix& matrix) {
  const double unit = std::sqrt(double(matrix[0]) * matrix[0] + double(matrix[1]) * matrix[1] +
                                double(matrix[2]) * matrix[2]);
  const char* up = matrix[1] > 0.5 * unit ? "X" : matrix[9] > 0.5 * unit ? "Z" : "Y";
  auto map = StringAttributeMap::dcast(root->findAttachment(StringAttributeMap::getClassType()));
  if (!map) root->addAttachment(map = StringAttributeMap::create());
  auto attributes = map->getAttributes();
  attributes.emplace_back("unitScale", JsonText().number(static_cast<Real32>(unit)).text());
  attributes.emplace_back("upAxis", up);
  map->setAttributes(std::move(attributes));
}

}  // namespace

NodePtr build_node_tree(const aiScene& scene, const std::string& file, const AssimpFormat& format,
                        ModelMeshes& meshes) {
  const aiNode& source = *scene.mRootNode;
  const NodePtr root = Node::create();
  root->setCore(Group::create());
  attach_metadata(root, scene.mMetaData, "");
  TreeBuilder builder(meshes);
  const Matrix matrix = matrix_of(source.mTransformation);
  if (matrix != Matrix::identity() && !format.turns_root) {
    root->addChild(builder.build(source, 1));
    return root;
  }
  if (format.turns_root) attach_axes(root, matrix);
  const std::string name = root_name(source.mName.C_Str(), file);
  give_name(root, name);
  builder.build_below_root(root, source, name);
  return root;
}

}  // namespace osg::io
