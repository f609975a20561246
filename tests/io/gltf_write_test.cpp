// Scenes of an application, written as glTF and read again.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "osg/cores.h"
#include "support/gltf_builder.h"
#include "support/scene_counts.h"
#include "support/scene_parts.h"
#include "support/temp_folder.h"

namespace {

using namespace osg;
using support::count_scene;

class GltfWrite : public testing::TestWithParam<const char*> {
 protected:
  std::string path(const std::string& name = "scene") const {
    return (folder_ / (name + GetParam())).string();
  }
  SceneReadResult written_and_read(const NodePtr& root) {
    const auto written = io::writeGltf(root, path());
    EXPECT_TRUE(written) << written.error;
    warnings_ = written.warnings;
    const auto read = io::readGltf(path());
    EXPECT_TRUE(read) << read.error;
    return read;
  }

  const support::TempFolder folder_;
  std::vector<std::string> warnings_;
};

INSTANTIATE_TEST_SUITE_P(Forms, GltfWrite, testing::Values(".glb", ".gltf"),
                         [](const auto& form) { return std::string(form.param + 1); });

std::string bytes_of(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

NodePtr group_of(const std::vector<NodePtr>& children) {
  return node_with(Group::create(), children);
}

/// Points on a curve in space, no three of them in line.
GeometryPtr geometry_with(const PrimitiveList& primitives, UInt32 positions) {
  std::vector<Pnt3f> points;
  for (UInt32 i = 0; i < positions; ++i) points.push_back({i, i * i, i % 3});
  return primitives_over(points, primitives);
}

using Corners = std::vector<std::array<Pnt3f, 3>>;

Corners triangles_of(const NodePtr& root) {
  Corners triangles;
  for_each_geometry(root, [&](const NodePtr&, const GeometryPtr& geometry) {
    for (auto at = geometry->beginTriangles(); !at.isAtEnd(); ++at)
      triangles.push_back({at.getPosition(0), at.getPosition(1), at.getPosition(2)});
  });
  return triangles;
}

TEST_P(GltfWrite, EveryKindOfPrimitiveInOneGeometry) {
  const PrimitiveList all = {
      {kTriangles, 7}, {kTriangles, 3}, {kQuads, 9},       {kPolygon, 5}, {kTriangleStrip, 5},
      {kTriangles, 3}, {kQuadStrip, 7}, {kTriangleFan, 4}, {kPoints, 2},  {kLines, 5},
      {kLineStrip, 3}, {kLineLoop, 4},  {kPoints, 1},      {99, 3},       {kTriangles, 2}};
  for (const bool many_strips : {false, true}) {
    auto primitives = all;
    if (many_strips)
      for (int i = 0; i < 20; ++i) primitives.push_back({kTriangleStrip, 4});
    UInt32 vertices = 0;
    for (const auto& [type, length] : primitives) vertices += length;
    for (const bool indexed : {false, true}) {
      const auto geometry = geometry_with(primitives, vertices);
      if (indexed) {
        const auto indices = GeoIndicesUI16::create();
        for (UInt32 i = 0; i < vertices; ++i) indices->push_back(vertices - 1 - i);
        geometry->setIndices(indices);
      }
      const NodePtr root = group_of({node_with(geometry)});
      const auto read = written_and_read(root);
      const auto before = count_scene(root);
      const auto after = count_scene(read.root);
      EXPECT_EQ(after.lines, before.lines);
      EXPECT_EQ(after.points, before.points);
      EXPECT_EQ(triangles_of(read.root), triangles_of(root)) << "same triangles, same order";
      EXPECT_EQ(after.geometry_nodes, many_strips ? 3u : 8u);
    }
  }
}

TEST_P(GltfWrite, IndexLayoutsAndShortData) {
  // Two columns: colours change from triangle to triangle, and the last index means the last entry.
  const auto geometry = geometry_with({{kTriangles, 6}}, 4);
  geometry->setColors(property_of<GeoColors3ub>({{1, 0, 0}, {0, 0.2f, 1}}));
  geometry->setIndices(property_of<GeoIndicesUI32>({0, 0, 1, 0, 2, 0, 0, 1, 2, 1, 900, 900}));
  geometry->getIndexMapping().push_back(Geometry::MapPosition);
  geometry->getIndexMapping().push_back(Geometry::MapColor);
  // No indices, fewer normals than positions.
  const auto plain = geometry_with({{kTriangles, 3}}, 3);
  plain->setNormals(property_of<GeoNormals3f>({{0, 0, 1}, {0, 1, 0}}));
  const NodePtr root = group_of({node_with(geometry), node_with(plain)});
  const auto read = written_and_read(root);
  EXPECT_EQ(triangles_of(read.root), triangles_of(root));
  const auto first = Geometry::dcast(read.root->getChild(0)->getCore());
  auto at = first->beginTriangles();
  EXPECT_EQ(at.getColor(2), Color3f(1, 0, 0));
  EXPECT_EQ((++at).getColor(2), Color3f(0, 0.2f, 1));
  EXPECT_EQ(first->getColors()->getStride(), 3u) << "three bytes, as it was";
  const auto second = Geometry::dcast(read.root->getChild(1)->getCore());
  EXPECT_EQ(second->getNormals()->getValue(2), Vec3f(0, 1, 0));
  EXPECT_EQ(geometry->getIndexMapping().size(), 2u) << "the scene itself stays as it is";
}

TEST_P(GltfWrite, SharedThingsAreWrittenOnce) {
  const auto a = geometry_with({{kTriangles, 99'999}}, 100'000);
  const auto b = Geometry::create();
  b->setTypes(a->getTypes());
  b->setLengths(a->getLengths());
  b->setPositions(a->getPositions());
  b->setTexCoords(GeoTexCoords2f::create());  // empty: as if it were not there
  const NodePtr root = group_of({node_with(a), node_with(a), node_with(b)});
  const auto read = written_and_read(root);
  EXPECT_EQ(count_scene(read.root).cores.size(), 2u);
  std::uintmax_t bytes = 0;
  for (const auto& file : std::filesystem::directory_iterator(folder_)) bytes += file.file_size();
  EXPECT_LT(bytes, 1'202'000u) << "one set of positions, without the entry that nobody uses";
}

TEST_P(GltfWrite, NamesExtrasAndMasksOfAnyKind) {
  const std::vector<std::pair<std::string, std::string>> attributes = {
      {"text", "x"},
      {"number", "12"},
      {"decimal", "1.50"},
      {"null", "null"},
      {"quoted", "\"12\""},
      {"twice", "\"\\\"12\\\"\""},
      {"word in quotes", "\"word\""},
      {"array", "[1,{\"b\":[]},null]"},
      {"spaced", "[1, 2]"},
      {"big", "12345678901234567890"},
      {"", "empty key"},
      {"line", "a\nb"}};
  const auto map = StringAttributeMap::create();
  for (const auto& [key, value] : attributes) map->setAttribute(key, value);
  const NodePtr node =
      named("n\xC3\xA4me \"/\\\x01", node_with(geometry_with({{kTriangles, 3}}, 3)));
  node->addAttachment(map);
  node->setTravMask(6);
  const auto read = written_and_read(group_of({node}));
  const NodePtr back = read.root->getChild(0);
  EXPECT_STREQ(osg::getName(back), osg::getName(node));
  EXPECT_EQ(back->getTravMask(), 6u);
  const auto again =
      StringAttributeMap::dcast(back->findAttachment(StringAttributeMap::getClassType()));
  ASSERT_TRUE(again);
  EXPECT_EQ(again->getAttributes().size(), attributes.size());
  for (const auto& [key, value] : attributes) {
    std::string found;
    EXPECT_TRUE(again->getAttribute(key, found)) << key;
    EXPECT_EQ(found, value) << key;
  }
}

ImagePtr checker(UInt32 format) {
  const ImagePtr image = Image::create();
  std::vector<UInt8> pixels(16 * Image::channelsOf(format));
  for (std::size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<UInt8>(i * 7);
  image->set(format, 4, 4, 1, 1, 1, 0.0f, pixels.data());
  return image;
}

ChunkMaterialPtr first_material(const NodePtr& root) {
  return ChunkMaterial::dcast(Geometry::dcast(root->getChild(0)->getCore())->getMaterial());
}

TEST_P(GltfWrite, MaterialsOfAnApplication) {
  const auto colors = diffuse(Color4f(0.25f, 0.5f, 2.0f, 0.5f));
  colors->setSpecular(Color4f(0.5f, 0, 1, 1));
  colors->setShininess(20);
  colors->setEmission(Color4f(0, 1, 0, 1));
  const auto texture = texture_of(checker(gl::kBGRA));
  texture->setWrapS(gl::kMirroredRepeat);
  texture->setTexCoordSet(1);
  const auto material = of_chunks({colors, texture});
  osg::setName(material, "lacquer");
  const auto geometry = geometry_with({{kTriangles, 3}}, 3);
  geometry->setMaterial(material);
  auto read = written_and_read(group_of({node_with(geometry)}));
  const auto back = first_material(read.root);
  EXPECT_STREQ(osg::getName(back), "lacquer");
  const auto back_colors = back->findFirstChunk<MaterialChunk>();
  EXPECT_EQ(back_colors->getDiffuse(), Color4f(0.25f, 0.5f, 1.0f, 0.5f)) << "glTF ends at 1";
  EXPECT_EQ(back_colors->getSpecular(), Color4f(0.5f, 0, 1, 1));
  EXPECT_NEAR(back_colors->getShininess(), 20, 1e-3);
  EXPECT_EQ(back_colors->getEmission(), Color4f(0, 1, 0, 1));
  EXPECT_TRUE(back->findFirstChunk<BlendChunk>());
  const auto back_texture = back->findFirstChunk<TextureChunk>();
  ASSERT_TRUE(back_texture);
  EXPECT_EQ(back_texture->getTexCoordSet(), 1u);
  EXPECT_EQ(back_texture->getWrapS(), gl::kMirroredRepeat);
  const ImagePtr expected = checker(gl::kBGRA);
  expected->reformat(gl::kRGBA);
  EXPECT_EQ(back_texture->getImage()->getContentHash(), expected->getContentHash());

  // What was changed after reading is applied; the rest stays as it came.
  const std::string before = back->findFirstChunk<PBRChunk>()->getDefinition();
  back_colors->setDiffuse(Color4f(1, 0, 0, 0.5f));
  back_colors->setSpecular(Color4f(0.04f, 0.04f, 0.04f, 1));  // as usual
  back_texture->getImage()->getData()[0] = 99;
  read = written_and_read(read.root);
  const auto changed = first_material(read.root);
  EXPECT_EQ(changed->findFirstChunk<MaterialChunk>()->getDiffuse(), Color4f(1, 0, 0, 0.5f));
  EXPECT_EQ(changed->findFirstChunk<TextureChunk>()->getImage()->getData()[0], 99);
  auto expected_definition = nlohmann::json::parse(before);
  expected_definition["pbrMetallicRoughness"]["baseColorFactor"] = {1.0, 0.0, 0.0, 0.5};
  expected_definition.erase("extensions");
  EXPECT_EQ(changed->findFirstChunk<PBRChunk>()->getDefinition(), expected_definition.dump());
}

TEST_P(GltfWrite, CoresThatGltfHasNoWordFor) {
  const NodePtr below =
      named("blue", below_material(of_chunks({diffuse({0, 0, 1, 1})}),
                                   {node_with(geometry_with({{kTriangles, 3}}, 3)),
                                    node_with(geometry_with({}, 3)), node_with(NullFC)}));
  const NodePtr lod = named("lod", node_with(DistanceLOD::create(), {below}));
  const NodePtr root = named("switch", node_with(Switch::create(), {lod}));
  const auto read = written_and_read(root);
  EXPECT_EQ(warnings_.size(), 4u);
  NodePtr at = read.root;
  for (const char* name : {"switch", "lod", "blue"}) {
    ASSERT_GE(at->getNChildren(), 1u);
    at = at->getChild(0);
    EXPECT_STREQ(osg::getName(at), name);
  }
  EXPECT_EQ(at->getNChildren(), 3u);
  EXPECT_EQ(first_material(at)->findFirstChunk<MaterialChunk>()->getDiffuse(), Color4f(0, 0, 1, 1));
}

TEST_P(GltfWrite, NumbersThatJsonDoesNotKnow) {
  const Real32 nan = std::numeric_limits<Real32>::quiet_NaN();
  const Real32 infinity = std::numeric_limits<Real32>::infinity();
  const auto geometry = geometry_with({{kTriangles, 3}}, 3);
  geometry->getPositions()->setValue(Pnt3f(nan, infinity, 0), 1);
  const auto moved = transform(Matrix::translation(nan, 0, 0));
  const auto read = written_and_read(group_of({node_with(moved, {node_with(geometry)})}));
  EXPECT_EQ(warnings_.size(), 2u);
  EXPECT_EQ(count_scene(read.root).triangles, 1u);
}

TEST_P(GltfWrite, SameSceneSameBytes) {
  const auto bytes = [&](const std::string& name) {
    std::string all;
    const auto geometry = geometry_with({{kTriangleStrip, 9}, {kQuads, 4}}, 13);
    geometry->setMaterial(simple_textured(checker(gl::kLuminance)));
    EXPECT_TRUE(io::writeGltf(group_of({node_with(geometry), node_with(geometry)}), path(name)));
    return bytes_of(path(name));
  };
  const std::string first = bytes("same");
  EXPECT_FALSE(first.empty());
  EXPECT_EQ(first, bytes("same"));
}

TEST_P(GltfWrite, WhatCantBeWritten) {
  EXPECT_EQ(io::writeGltf(NullFC, path()).error, path() + ": there is no scene to write");
  const auto nowhere = io::writeGltf(group_of({}), "/no/such/folder/a" + std::string(GetParam()));
  EXPECT_FALSE(nowhere);
  EXPECT_NE(nowhere.error.find("can't be opened for writing"), std::string::npos);
  EXPECT_EQ(nowhere.error.find("/no/such"), nowhere.error.rfind("/no/such")) << nowhere.error;
  if (std::filesystem::exists("/dev/full")) {
    std::filesystem::create_symlink("/dev/full", path("full"));
    const auto geometry = geometry_with({{kTriangles, 30'000}}, 30'000);
    const auto full = io::writeGltf(group_of({node_with(geometry)}), path("full"));
    EXPECT_FALSE(full);
    EXPECT_NE(full.error.find("can't be written"), std::string::npos) << full.error;
  }
  // What was there stays until the new is whole.
  ASSERT_TRUE(io::writeGltf(group_of({}), path("kept")));
  const auto before = bytes_of(path("kept"));
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
  const rlimit small{1000, limit.rlim_max};
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &small);
  const auto cut =
      io::writeGltf(group_of({node_with(geometry_with({{kTriangles, 300}}, 300))}), path("kept"));
  setrlimit(RLIMIT_FSIZE, &limit);
  std::signal(SIGXFSZ, handler);
  EXPECT_NE(cut.error.find("can't be written"), std::string::npos) << cut.error;
  EXPECT_EQ(bytes_of(path("kept")), before);
  for (const auto& file : std::filesystem::directory_iterator(folder_))
    EXPECT_EQ(file.path().string().find("unfinished"), std::string::npos) << file.path();
  NodePtr deep = node_with(Group::create());
  for (int i = 0; i < 1100; ++i) deep = group_of({deep});
  EXPECT_NE(io::writeGltf(deep, path("deep")).error.find("deeper than"), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(path("deep")));
  const auto empty = written_and_read(group_of({}));
  EXPECT_EQ(empty.root->getNChildren(), 0u);
}

}  // namespace
