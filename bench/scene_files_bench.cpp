// Scene files. The native format is measured on one large mesh, beside the plain transfer of as
// many bytes and beside assimp's import of the same triangles as binary PLY, and on a graph of many
// small parts. Files lie in the system's temporary folder, so the page cache serves the reads.

#ifdef MORLU_BENCH_ASSIMP
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <assimp/Importer.hpp>
#endif

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>

#include "bench/figure.h"
#include "bench/temporary_file.h"
#include "osg/cores.h"
#include "osg/geometry.h"
#include "osg/osb.h"

namespace {

using morlu::bench::contender;
using morlu::bench::contest;
using morlu::bench::temporary_file;
using Bytes = std::vector<std::byte>;

void write_plain(const std::string& path, const Bytes& bytes) {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (!file) return;
  std::fwrite(bytes.data(), 1, bytes.size(), file);
  std::fclose(file);
}

Bytes read_plain(const std::string& path) {
  Bytes bytes(std::filesystem::file_size(path));
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (!file || std::fread(bytes.data(), 1, bytes.size(), file) != bytes.size()) bytes.clear();
  if (file) std::fclose(file);
  return bytes;
}

// --- Scenes --------------------------------------------------------------------------------------

constexpr osg::UInt32 columns = 1000;
constexpr osg::UInt32 rows = 500;
constexpr osg::UInt32 grid_triangles = 2 * columns * rows;
[[maybe_unused]] constexpr osg::UInt32 grid_vertices = (columns + 1) * (rows + 1);

/// A million triangles with normals and texture coordinates.
osg::NodePtr make_grid() {
  const auto positions = osg::GeoPositions3f::create();
  const auto normals = osg::GeoNormals3f::create();
  const auto coords = osg::GeoTexCoords2f::create();
  const auto indices = osg::GeoIndicesUI32::create();
  for (osg::UInt32 y = 0; y <= rows; ++y)
    for (osg::UInt32 x = 0; x <= columns; ++x) {
      positions->push_back(osg::Pnt3f(x, y, (x * 7 + y * 13) % 32));
      normals->push_back(osg::Vec3f(0, 0, 1));
      coords->push_back(osg::Vec2f(x, y));
    }
  for (osg::UInt32 y = 0; y < rows; ++y)
    for (osg::UInt32 x = 0; x < columns; ++x) {
      const osg::UInt32 a = y * (columns + 1) + x, b = a + columns + 1;
      for (const osg::UInt32 i : {a, a + 1, b, b, a + 1, b + 1}) indices->push_back(i);
    }
  const auto types = osg::GeoPTypesUI8::create();
  types->push_back(osg::kTriangles);
  const auto lengths = osg::GeoPLengthsUI32::create();
  lengths->push_back(3 * grid_triangles);
  const auto geometry = osg::Geometry::create();
  geometry->setTypes(types);
  geometry->setLengths(lengths);
  geometry->setIndices(indices);
  geometry->setPositions(positions);
  geometry->setNormals(normals);
  geometry->setTexCoords(coords);
  auto node = osg::Node::create();
  node->setCore(geometry);
  return node;
}

/// A hundred thousand named parts with transforms, that share a hundred geometries.
osg::NodePtr make_parts() {
  std::vector<osg::GeometryPtr> cores;
  for (int i = 0; i < 100; ++i) {
    cores.push_back(osg::Geometry::create());
    cores.back()->setPositions(osg::GeoPositions3f::create());
  }
  auto root = osg::Node::create();
  for (int i = 0; i < 100000; ++i) {
    const auto transform = osg::Transform::create();
    transform->setMatrix(osg::Matrix::translation(static_cast<float>(i), 0, 0));
    const auto place = osg::Node::create(), part = osg::Node::create();
    place->setCore(transform);
    part->setCore(cores[static_cast<std::size_t>(i) % cores.size()]);
    osg::setName(part, "part " + std::to_string(i));
    place->addChild(part);
    root->addChild(place);
  }
  return root;
}

// --- Contenders ----------------------------------------------------------------------------------

Bytes bytes_of(const osg::NodePtr& root) {
  Bytes bytes;
  osg::writeOsb(root, bytes);
  return bytes;
}

contender osb_writer(const osg::NodePtr& root, const Bytes& bytes) {
  const auto file = std::make_shared<temporary_file>("written.osb");
  return {.run = [=] { osg::SceneFileHandler::the().writeScene(root, file->path()); },
          .fault = [=] { return read_plain(file->path()) == bytes ? "" : "the file is wrong"; }};
}

contender osb_reader(const Bytes& bytes) {
  const auto file = std::make_shared<temporary_file>("read.osb");
  write_plain(file->path(), bytes);
  const auto read = std::make_shared<osg::NodePtr>();
  return {.prepare = [=] { *read = osg::NullFC; },
          .run = [=] { *read = osg::SceneFileHandler::the().read(file->path()).root; },
          .fault = [=] { return bytes_of(*read) == bytes ? "" : "the scene is wrong"; }};
}

contender plain_writer(const Bytes& bytes) {
  const auto file = std::make_shared<temporary_file>("plain_written");
  return {.name = "plain bytes",
          .run = [=] { write_plain(file->path(), bytes); },
          .fault = [=] { return read_plain(file->path()) == bytes ? "" : "the file is wrong"; }};
}

contender plain_reader(const Bytes& bytes) {
  const auto file = std::make_shared<temporary_file>("plain_read");
  write_plain(file->path(), bytes);
  const auto read = std::make_shared<Bytes>();
  return {.name = "plain bytes",
          .prepare = [=] { *read = Bytes(); },
          .run = [=] { *read = read_plain(file->path()); },
          .fault = [=] { return *read == bytes ? "" : "the bytes are wrong"; }};
}

contest open_writing(const osg::NodePtr& root) {
  const Bytes bytes = bytes_of(root);
  return {osb_writer(root, bytes), plain_writer(bytes), static_cast<double>(bytes.size()) * 1e-6};
}

contest open_reading(const osg::NodePtr& root) {
  const Bytes bytes = bytes_of(root);
  return {osb_reader(bytes), plain_reader(bytes), static_cast<double>(bytes.size()) * 1e-6};
}

// --- Peers ---------------------------------------------------------------------------------------

#ifdef MORLU_BENCH_ASSIMP
/// The grid as binary PLY: positions, normals, coordinates, and three indices a face.
void write_grid_as_ply(const std::string& path) {
  const auto grid = osg::Geometry::dcast(make_grid()->getCore());
  std::ofstream out(path, std::ios::binary);
  out << "ply\nformat binary_little_endian 1.0\nelement vertex " << grid_vertices
      << "\nproperty float x\nproperty float y\nproperty float z\nproperty float nx\nproperty "
         "float ny\nproperty float nz\nproperty float s\nproperty float t\nelement face "
      << grid_triangles << "\nproperty list uchar int vertex_indices\nend_header\n";
  const auto put = [&](const auto& value) {
    out.write(reinterpret_cast<const char*>(&value), sizeof value);
  };
  for (osg::UInt32 i = 0; i < grid_vertices; ++i) {
    put(grid->getPositions()->getValue(i));
    put(grid->getNormals()->getValue(i));
    put(grid->getTexCoords()->getValue(i));
  }
  for (osg::UInt32 i = 0; i < grid->getIndices()->size(); ++i) {
    if (i % 3 == 0) put(osg::UInt8{3});
    put(grid->getIndices()->getValue(i));
  }
}

contender assimp_reader() {
  const auto file = std::make_shared<temporary_file>("grid.ply");
  write_grid_as_ply(file->path());
  const auto importer = std::make_shared<Assimp::Importer>();
  return {.name = "assimp, PLY",
          .prepare = [=] { importer->FreeScene(); },
          .run = [=] { importer->ReadFile(file->path(), 0); },
          .fault =
              [=] {
                const aiScene* scene = importer->GetScene();
                const bool right = scene && scene->mNumMeshes == 1 &&
                                   scene->mMeshes[0]->mNumFaces == grid_triangles &&
                                   scene->mMeshes[0]->HasNormals();
                return right ? "" : "the scene is wrong";
              }};
}

contest open_import() {
  return {osb_reader(bytes_of(make_grid())), assimp_reader(), grid_triangles * 1e-6};
}
#else
contest open_import() {
  return {osb_reader(bytes_of(make_grid())), std::nullopt, grid_triangles * 1e-6};
}
#endif

const morlu::bench::registration figures({
    {"osb", "grid 1M triangles", "write", "MB/s", [] { return open_writing(make_grid()); }},
    {"osb", "grid 1M triangles", "read", "MB/s", [] { return open_reading(make_grid()); }},
    {"osb", "grid 1M triangles", "import", "Mtriangle/s", open_import},
    {"osb", "200k nodes", "write", "MB/s", [] { return open_writing(make_parts()); }},
    {"osb", "200k nodes", "read", "MB/s", [] { return open_reading(make_parts()); }},
});

}  // namespace
