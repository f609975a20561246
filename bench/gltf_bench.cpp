// Writing and reading .glb beside assimp's import of the same file: one large mesh, where the bytes
// count, and a scene of many nodes, where the structure does.

#include <filesystem>
#include <memory>

#include "bench/figure.h"
#include "osg/cores.h"
#include "osg/geometry.h"
#include "osg/io/model_files.h"

#ifdef MORLU_BENCH_ASSIMP
#include <assimp/scene.h>

#include <assimp/Importer.hpp>
#endif

namespace {

using morlu::bench::contender;
using morlu::bench::contest;

/// A square of side * side quads, each two triangles, with normals and texture coordinates.
osg::GeometryPtr make_square(osg::UInt32 side) {
  const auto geometry = osg::Geometry::create();
  const auto positions = osg::GeoPositions3f::create();
  const auto normals = osg::GeoNormals3f::create();
  const auto coords = osg::GeoTexCoords2f::create();
  const auto indices = osg::GeoIndicesUI32::create();
  for (osg::UInt32 y = 0; y <= side; ++y) {
    for (osg::UInt32 x = 0; x <= side; ++x) {
      positions->push_back(osg::Pnt3f(x, y, (x * y) % 17));
      normals->push_back(osg::Vec3f(0, 0, 1));
      coords->push_back(osg::Vec2f(x / 8.0f, y / 8.0f));
      if (x == side || y == side) continue;
      const osg::UInt32 at = y * (side + 1) + x;
      for (const osg::UInt32 i : {at, at + 1, at + side + 2, at, at + side + 2, at + side + 1})
        indices->push_back(i);
    }
  }
  const auto types = osg::GeoPTypesUI8::create();
  types->push_back(osg::kTriangles);
  const auto lengths = osg::GeoPLengthsUI32::create();
  lengths->push_back(indices->size());
  geometry->setTypes(types);
  geometry->setLengths(lengths);
  geometry->setPositions(positions);
  geometry->setNormals(normals);
  geometry->setTexCoords(coords);
  geometry->setIndices(indices);
  return geometry;
}

osg::NodePtr make_node(const osg::NodeCorePtr& core, const std::string& name) {
  const auto node = osg::Node::create();
  node->setCore(core);
  osg::setName(node, name);
  return node;
}

osg::NodePtr one_mesh() {
  const auto root = make_node(osg::Group::create(), "root");
  root->addChild(make_node(make_square(707), "square"));
  return root;
}

/// 50,000 placed parts of 64 shapes: 100,001 nodes.
osg::NodePtr many_nodes() {
  const auto root = make_node(osg::Group::create(), "root");
  std::vector<osg::GeometryPtr> shapes;
  for (osg::UInt32 i = 0; i < 64; ++i) shapes.push_back(make_square(i % 8 + 1));
  for (osg::UInt32 i = 0; i < 50'000; ++i) {
    const auto place = osg::Transform::create();
    osg::Matrix matrix = osg::Matrix::scale(1.5f);
    matrix.setTranslation(osg::Vec3f(i % 100, i / 100, 0));
    place->setMatrix(matrix);
    const std::string name = "part " + std::to_string(i);
    const auto node = make_node(place, name);
    node->addChild(make_node(shapes[i % 64], name));
    root->addChild(node);
  }
  return root;
}

std::size_t triangles_below(const osg::NodePtr& node) {
  std::size_t count = 0;
  if (const auto geometry = osg::Geometry::dcast(node->getCore()))
    count += osg::triangleCount(osg::kTriangles, geometry->getIndices()->size());
  for (const osg::NodePtr& child : node->getChildren()) count += triangles_below(child);
  return count;
}

/// What a scene's two figures share; the file lives as long as it.
struct trial {
  osg::NodePtr root;
  std::string file;
  std::size_t triangles;
  osg::SceneReadResult read = {};
  osg::SceneWriteResult written = {};

  trial(const osg::NodePtr& scene, const char* name)
      : root(scene),
        file((std::filesystem::temp_directory_path() / name).string()),
        triangles(triangles_below(scene)) {
    written = osg::io::writeGltf(root, file);
  }
  ~trial() { std::filesystem::remove(file); }
};

contender our_reading(const std::shared_ptr<trial>& of) {
  return {.prepare = [=] { of->read = {}; },
          .run = [=] { of->read = osg::io::readGltf(of->file); },
          .fault =
              [=] {
                if (!of->read) return of->read.error;
                return std::string(
                    triangles_below(of->read.root) == of->triangles ? "" : "triangles are missing");
              }};
}

contender our_writing(const std::shared_ptr<trial>& of) {
  return {.run = [=] { of->written = osg::io::writeGltf(of->root, of->file); },
          .fault =
              [=] {
                if (!of->written) return of->written.error;
                const auto again = osg::io::readGltf(of->file);
                return std::string(again && triangles_below(again.root) == of->triangles
                                       ? ""
                                       : "what was written is not what was there");
              }};
}

#ifdef MORLU_BENCH_ASSIMP
std::size_t triangles_below(const aiScene& scene, const aiNode& node) {
  std::size_t count = 0;
  for (unsigned i = 0; i < node.mNumMeshes; ++i) count += scene.mMeshes[node.mMeshes[i]]->mNumFaces;
  for (unsigned i = 0; i < node.mNumChildren; ++i)
    count += triangles_below(scene, *node.mChildren[i]);
  return count;
}

std::optional<contender> peer_reading(const std::shared_ptr<trial>& of) {
  const auto importer = std::make_shared<Assimp::Importer>();
  return contender{
      .name = "assimp",
      .prepare = [=] { importer->FreeScene(); },
      .run = [=] { importer->ReadFile(of->file, 0); },
      .fault =
          [=] {
            const aiScene* scene = importer->GetScene();
            if (!scene) return std::string(importer->GetErrorString());
            return std::string(triangles_below(*scene, *scene->mRootNode) == of->triangles
                                   ? ""
                                   : "triangles are missing");
          }};
}
#else
std::optional<contender> peer_reading(const std::shared_ptr<trial>&) {
  return std::nullopt;
}
#endif

contest reading(const osg::NodePtr& scene, const char* name) {
  const auto shared = std::make_shared<trial>(scene, name);
  return {.ours = our_reading(shared), .peer = peer_reading(shared)};
}
contest writing(const osg::NodePtr& scene, const char* name) {
  return {.ours = our_writing(std::make_shared<trial>(scene, name))};
}

const morlu::bench::registration figures({
    {"glb", "1M triangles", "read", "ms", [] { return reading(one_mesh(), "read_1m.glb"); }},
    {"glb", "1M triangles", "write", "ms", [] { return writing(one_mesh(), "write_1m.glb"); }},
    {"glb", "100k nodes", "read", "ms", [] { return reading(many_nodes(), "read_100k.glb"); }},
    {"glb", "100k nodes", "write", "ms", [] { return writing(many_nodes(), "write_100k.glb"); }},
});

}  // namespace
