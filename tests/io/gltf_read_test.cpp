// What the glTF reader makes of documents that the tests put together.
#include <gtest/gtest.h>

#include <fstream>

#include "osg/cores.h"
#include "support/gltf_builder.h"
#include "support/scene_counts.h"
#include "support/temp_folder.h"

namespace {

using nlohmann::json;
using support::GltfBuilder;
using support::read_gltf;

// A 2 x 1 PNG: red, then green with half its alpha.
const std::vector<std::uint8_t> tiny_png = {
    0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a, 0x00, 0x00, 0x00, 0x0d, 0x49, 0x48, 0x44,
    0x52, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x01, 0x08, 0x06, 0x00, 0x00, 0x00, 0xf4,
    0x22, 0x7f, 0x8a, 0x00, 0x00, 0x00, 0x0f, 0x49, 0x44, 0x41, 0x54, 0x78, 0xda, 0x63, 0xf8,
    0xcf, 0xc0, 0xf0, 0x1f, 0x08, 0x1b, 0x00, 0x10, 0x79, 0x03, 0x7e, 0xc4, 0x18, 0x72, 0x90,
    0x00, 0x00, 0x00, 0x00, 0x49, 0x45, 0x4e, 0x44, 0xae, 0x42, 0x60, 0x82};

osg::NodePtr root_of(const GltfBuilder& builder) {
  const auto read = read_gltf(builder.text());
  EXPECT_TRUE(read) << read.error;
  return read ? read.root : osg::Node::create();
}

osg::GeometryPtr first_geometry(const osg::NodePtr& node) {
  if (const auto geometry = osg::Geometry::dcast(node->getCore())) return geometry;
  for (const osg::NodePtr& child : node->getChildren())
    if (const auto geometry = first_geometry(child)) return geometry;
  return osg::NullFC;
}

osg::GeometryPtr geometry_of(const GltfBuilder& builder) {
  const osg::GeometryPtr geometry = first_geometry(root_of(builder));
  EXPECT_TRUE(geometry);
  return geometry ? geometry : osg::Geometry::create();
}

std::string name_of(const osg::NodePtr& node) {
  const char* name = osg::getName(node);
  return name ? name : "(none)";
}

TEST(GltfRead, AllModesAndIndexWidths) {
  for (int mode = 0; mode <= 6; ++mode) {
    for (int bytes : {0, 1, 2, 4}) {
      GltfBuilder builder;
      json& primitive = builder.primitive(
          {{"POSITION", builder.vec3({0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0, 0, 2, 0, 1, 2, 0})}});
      primitive["mode"] = mode;
      if (bytes == 1) primitive["indices"] = builder.scalars<std::uint8_t>({5, 4, 3, 2, 1, 0});
      if (bytes == 2) primitive["indices"] = builder.scalars<std::uint16_t>({5, 4, 3, 2, 1, 0});
      if (bytes == 4) primitive["indices"] = builder.scalars<std::uint32_t>({5, 4, 3, 2, 1, 0});
      const auto counts = support::count_scene(root_of(builder));
      EXPECT_EQ(counts.points, mode == 0 ? 6u : 0u);
      EXPECT_EQ(counts.lines, mode == 1 ? 3u : mode == 2 ? 6u : mode == 3 ? 5u : 0u);
      EXPECT_EQ(counts.triangles, mode == 4 ? 2u : mode >= 5 ? 4u : 0u);
      const auto geometry = geometry_of(builder);
      ASSERT_EQ(bytes != 0, !geometry->getIndices().isNull());
      if (bytes == 0) continue;
      EXPECT_EQ(geometry->getIndices()->getDimension(), 1u);
      EXPECT_EQ(geometry->getIndices()->getStride(), bytes == 4 ? 4u : 2u);
      EXPECT_EQ(geometry->getIndices()->getValue(0), 5u);
      EXPECT_TRUE(geometry->getIndexMapping().empty());
    }
  }
}

TEST(GltfRead, QuantisedStridedAndSparseAttributes) {
  GltfBuilder builder;
  builder.json["extensionsRequired"] = {"KHR_mesh_quantization"};
  // Positions as normalised shorts with two bytes of padding, normals as normalised bytes.
  const int positions = builder.accessor<std::int16_t>(
      {32767, 0, -32767, 99, -32768, 16384, 0, 99, 0, 0, 0, 99}, "VEC3", 4, true);
  builder.json["bufferViews"][0]["byteStride"] = 8;
  const int normals =
      builder.accessor<std::int8_t>({127, 0, 0, 9, 0, -127, 0, 9, 0, 0, -128, 9}, "VEC3", 4, true);
  builder.json["bufferViews"][1]["byteStride"] = 4;
  const int coords = builder.accessor<std::uint16_t>({0, 65535, 13107, 0, 1, 2}, "VEC2", 2, true);
  // Zeros but for the last entry.
  const int sparse_indices = builder.view<std::uint8_t>({2});
  const int sparse_values = builder.view<float>({0.25f, 0.5f});
  const int sparse = builder.add(
      "accessors", {{"componentType", 5126},
                    {"count", 3},
                    {"type", "VEC2"},
                    {"sparse",
                     {{"count", 1},
                      {"indices", {{"bufferView", sparse_indices}, {"componentType", 5121}}},
                      {"values", {{"bufferView", sparse_values}}}}}});
  builder.primitive({{"POSITION", positions},
                     {"NORMAL", normals},
                     {"TEXCOORD_0", coords},
                     {"TEXCOORD_7", sparse}});
  const auto geometry = geometry_of(builder);
  EXPECT_EQ(geometry->getPositions()->getValue(0), osg::Pnt3f(1, 0, -1));
  EXPECT_EQ(geometry->getPositions()->getValue(1), osg::Pnt3f(-1, 16384 / 32767.0f, 0));
  EXPECT_EQ(geometry->getNormals()->getValue(1), osg::Vec3f(0, -1, 0));
  EXPECT_EQ(geometry->getNormals()->getValue(2), osg::Vec3f(0, 0, -1));
  EXPECT_EQ(geometry->getTexCoords()->getValue(1), osg::Vec2f(13107 / 65535.0f, 0));
  EXPECT_EQ(geometry->getTexCoords7()->getValue(1), osg::Vec2f(0, 0));
  EXPECT_EQ(geometry->getTexCoords7()->getValue(2), osg::Vec2f(0.25f, 0.5f));
}

TEST(GltfRead, ColoursOfEveryKind) {
  GltfBuilder builder;
  const int positions = builder.vec3({0, 0, 0, 1, 0, 0, 0, 1, 0});
  const auto color_property = [&](int colors) {
    GltfBuilder with = builder;
    with.primitive({{"POSITION", positions}, {"COLOR_0", colors}});
    return geometry_of(with)->getColors();
  };
  const int bytes4 =
      builder.accessor<std::uint8_t>({255, 0, 51, 102, 0, 0, 0, 0, 1, 2, 3, 4}, "VEC4", 4, true);
  const int shorts3 =
      builder.accessor<std::uint16_t>({65535, 0, 13107, 0, 0, 0, 0, 0, 0}, "VEC3", 3, true);
  const int floats4 =
      builder.accessor<float>({1, 0, 0.2f, 0.4f, 0, 0, 0, 0, 0, 0, 0, 0}, "VEC4", 4);
  const int floats3 = builder.vec3({1, 0, 0.2f, 0, 0, 0, 0, 0, 0});
  for (const int accessor : {bytes4, shorts3, floats4, floats3}) {
    const auto colors = color_property(accessor);
    EXPECT_EQ(colors->getValue(0), osg::Color3f(1, 0, 0.2f));
    EXPECT_EQ(colors->getDimension(), accessor == bytes4 || accessor == floats4 ? 4u : 3u);
  }
  const auto bytes = osg::GeoColors4ub::dcast(color_property(bytes4));
  ASSERT_TRUE(bytes);
  EXPECT_TRUE(bytes->values()[2] == osg::Color4ub(1, 2, 3, 4));
}

/*  scene "plant"                      as nodes of the layer
      rig (moved)                        rig        Transform
        mesh of two primitives             rig, rig_2  Geometry
        unnamed child, mesh "bolt"         bolt       Geometry
      unnamed, mesh "bolt"               bolt       Geometry, the same core
      empty                              empty      Group                      */
TEST(GltfRead, NodeTreeNamesAndSharing) {
  GltfBuilder builder;
  const int positions = builder.vec3({0, 0, 0, 1, 0, 0, 0, 1, 0});
  const json primitive = {{"attributes", {{"POSITION", positions}}}};
  builder.add("meshes", {{"primitives", {primitive, primitive}}, {"name", "two"}});
  builder.add("meshes", {{"primitives", {primitive}}, {"name", "bolt"}, {"extras", {{"size", 8}}}});
  builder.add("nodes", {{"name", "rig"},
                        {"mesh", 0},
                        {"children", {1}},
                        {"translation", {1, 2, 3}},
                        {"scale", {2, 1, 1}},
                        {"rotation", {0, 0, std::sqrt(0.5), std::sqrt(0.5)}}});
  builder.add("nodes", {{"mesh", 1}});
  builder.add("nodes", {{"mesh", 1}});
  builder.add("nodes", {{"name", "empty"}, {"extras", {{"osg:travMask", 0}, {"tag", "7"}}}});
  builder.add("scenes", {{"name", "other"}});
  builder.add("scenes", {{"name", "plant"}, {"nodes", {0, 2, 3}}});
  builder.json["scene"] = 1;
  const auto root = root_of(builder);
  EXPECT_EQ(name_of(root), "plant");
  ASSERT_EQ(root->getNChildren(), 3u);
  const auto rig = root->getChild(0);
  ASSERT_EQ(rig->getNChildren(), 3u);
  EXPECT_EQ(name_of(rig), "rig");
  EXPECT_EQ(name_of(rig->getChild(0)), "rig");
  EXPECT_EQ(name_of(rig->getChild(1)), "rig_2");
  EXPECT_EQ(name_of(rig->getChild(2)), "bolt");
  EXPECT_EQ(name_of(root->getChild(1)), "bolt");
  EXPECT_EQ(rig->getChild(2)->getCore(), root->getChild(1)->getCore());
  EXPECT_STREQ(osg::getName(rig->getChild(0)->getCore()), "two");
  // Scaled along x, turned a quarter about z, moved: x goes to 2y.
  ASSERT_TRUE(osg::Transform::dcast(rig->getCore()));
  const osg::Pnt3f image = osg::Transform::dcast(rig->getCore())->getMatrix() * osg::Pnt3f(1, 0, 0);
  EXPECT_NEAR(image[0], 1, 1e-6);
  EXPECT_NEAR(image[1], 4, 1e-6);
  EXPECT_NEAR(image[2], 3, 1e-6);
  const auto empty = root->getChild(2);
  EXPECT_EQ(empty->getCore()->getType(), osg::Group::getClassType());
  EXPECT_EQ(empty->getTravMask(), 0u);
  const auto extras = [](const osg::AttachmentContainerPtr& container) {
    return osg::StringAttributeMap::dcast(
        container->findAttachment(osg::StringAttributeMap::getClassType()));
  };
  std::string value;
  ASSERT_TRUE(extras(empty)->getAttribute("tag", value));
  EXPECT_EQ(value, "\"7\"") << "a string that looks like a number stands in quotes";
  EXPECT_EQ(extras(empty)->getKeys().size(), 1u);
  ASSERT_TRUE(extras(root->getChild(1)->getCore())->getAttribute("size", value));
  EXPECT_EQ(value, "8");
}

/// A textured triangle; `texture` is its base colour texture's JSON, but for the index.
GltfBuilder textured(json texture, json image) {
  GltfBuilder builder;
  builder.triangle()["attributes"]["TEXCOORD_0"] = builder.vec2({0, 0, 1, 0, 0, 1});
  builder.add("images", std::move(image));
  builder.add("samplers", {{"magFilter", 9728}, {"wrapS", 33071}});
  builder.add("textures", {{"source", 0}, {"sampler", 0}});
  texture["index"] = 0;
  builder.add("materials",
              {{"name", "paint"},
               {"alphaMode", "BLEND"},
               {"emissiveFactor", {0, 0.5, 0}},
               {"pbrMetallicRoughness",
                {{"baseColorTexture", texture}, {"baseColorFactor", {1, 0.5, 0.25, 0.75}}}}});
  builder.json["meshes"][0]["primitives"][0]["material"] = 0;
  return builder;
}

osg::ChunkMaterialPtr material_of(const GltfBuilder& builder) {
  return osg::ChunkMaterial::dcast(geometry_of(builder)->getMaterial());
}

TEST(GltfRead, MaterialsAsChunksAndAsTheyCame) {
  const auto builder = textured(
      {{"texCoord", 0}}, {{"uri", "data:image/png;base64," + GltfBuilder::base64(tiny_png)}});
  const auto material = material_of(builder);
  ASSERT_TRUE(material);
  EXPECT_STREQ(osg::getName(material), "paint");
  const auto colors = material->findFirstChunk<osg::MaterialChunk>();
  EXPECT_EQ(colors->getDiffuse(), osg::Color4f(1, 0.5f, 0.25f, 0.75f));
  EXPECT_EQ(colors->getEmission(), osg::Color4f(0, 0.5f, 0, 1));
  const auto texture = material->findFirstChunk<osg::TextureChunk>();
  ASSERT_TRUE(texture);
  EXPECT_EQ(texture->getMagFilter(), osg::gl::kNearest);
  EXPECT_EQ(texture->getMinFilter(), osg::gl::kLinearMipmapLinear);
  EXPECT_EQ(texture->getWrapS(), osg::gl::kClampToEdge);
  EXPECT_EQ(texture->getWrapT(), osg::gl::kRepeat);
  const auto image = texture->getImage();
  ASSERT_EQ(image->getPixelFormat(), osg::gl::kRGBA);
  EXPECT_EQ(std::vector<int>(image->getData(), image->getData() + 8),
            (std::vector<int>{255, 0, 0, 255, 0, 255, 0, 128}));
  EXPECT_EQ(image->getEncoded(), tiny_png);
  const auto blend = material->findFirstChunk<osg::BlendChunk>();
  ASSERT_TRUE(blend);
  EXPECT_EQ(blend->getSrcFactor(), osg::gl::kSrcAlpha);
  const auto pbr = material->findFirstChunk<osg::PBRChunk>();
  EXPECT_EQ(pbr->getImages(), std::vector{image});
  EXPECT_EQ(pbr->getDefinition(),
            R"({"alphaMode":"BLEND","emissiveFactor":[0.0,0.5,0.0],"pbrMetallicRoughness":)"
            R"({"baseColorFactor":[1.0,0.5,0.25,0.75],"baseColorTexture":{"texture":{"sampler":)"
            R"({"magFilter":9728,"wrapS":33071,"wrapT":10497},"source":0}}}})");
}

TEST(GltfRead, ImagesInFilesWithEncodedNames) {
  const support::TempFolder folder;
  std::ofstream(folder / "a b%.png", std::ios::binary)
      .write(reinterpret_cast<const char*>(tiny_png.data()), tiny_png.size());
  auto builder = textured({}, {{"uri", "a%20b%25.png"}});
  builder.add("images", {{"uri", "a%20b%25.png"}});
  builder.add("images", {{"uri", "missing.png"}});
  builder.add("textures", {{"source", 1}});
  builder.add("textures", {{"source", 2}});
  builder.json["materials"][0]["occlusionTexture"] = {{"index", 1}};
  builder.json["materials"][0]["normalTexture"] = {{"index", 2}};
  const auto read = read_gltf(builder.text(), folder.string());
  ASSERT_TRUE(read) << read.error;
  const auto counts = support::count_scene(read.root);
  ASSERT_EQ(counts.images.size(), 1u) << "two entries for one file are one image";
  EXPECT_EQ((*counts.images.begin())->getName(), "a b%.png");
  ASSERT_EQ(read.warnings.size(), 1u);
  EXPECT_NE(read.warnings[0].find("images[2]: 'missing.png'"), std::string::npos);
}

// Half the size, turned by a quarter, moved: the part of an image that the standard's own example
// takes, its lower left quarter, v pointing down.
TEST(GltfRead, TextureTransformIsBakedWhereAllUsesAgree) {
  const json transform = {
      {"KHR_texture_transform",
       {{"offset", {0, 1}}, {"rotation", 1.5707963267948966}, {"scale", {0.5, 0.5}}}}};
  const json image = {{"uri", "data:image/png;base64," + GltfBuilder::base64(tiny_png)}};
  auto builder = textured({{"extensions", transform}}, image);
  const auto coords = geometry_of(builder)->getTexCoords();
  const osg::Vec2f expected[] = {{0, 1}, {0, 0.5f}, {0.5f, 1}};
  for (osg::UInt32 i = 0; i < 3; ++i)
    for (osg::UInt32 k = 0; k < 2; ++k) EXPECT_NEAR(coords->getValue(i)[k], expected[i][k], 1e-6);
  const auto definition = [](const GltfBuilder& of) {
    return material_of(of)->findFirstChunk<osg::PBRChunk>()->getDefinition();
  };
  EXPECT_EQ(definition(builder).find("KHR_texture_transform"), std::string::npos);

  builder.json["materials"][0]["emissiveTexture"] = {{"index", 0}};
  const auto read = read_gltf(builder.text());
  ASSERT_EQ(read.warnings.size(), 1u);
  EXPECT_NE(read.warnings[0].find("texture transforms"), std::string::npos);
  EXPECT_EQ(geometry_of(builder)->getTexCoords()->getValue(1), osg::Vec2f(1, 0));
  EXPECT_NE(definition(builder).find("KHR_texture_transform"), std::string::npos);
}

TEST(GltfRead, TellsWhatItLeavesOutInOneLineAKind) {
  GltfBuilder builder;
  const int positions = builder.vec3({0, 0, 0, 1, 0, 0, 0, 1, 0});
  for (int i = 0; i < 2; ++i)
    builder.primitive({{"POSITION", positions},
                       {"TANGENT", 99},
                       {"_TEMPERATURE", 99}})["targets"] = {{{"POSITION", positions}}};
  builder.primitive({{"NORMAL", positions}});
  builder.add("animations", json::object());
  builder.add("skins", json::object());
  builder.add("cameras", json::object());
  builder.json["extensionsUsed"] = {"KHR_lights_punctual", "EXT_weather"};
  builder.json["extensions"] = {{"KHR_lights_punctual", {{"lights", {json::object()}}}}};
  auto warnings = read_gltf(builder.text()).warnings;
  std::sort(warnings.begin(), warnings.end());
  EXPECT_EQ(
      warnings,
      (std::vector<std::string>{
          "TANGENT is left out (2 primitives)", "_TEMPERATURE is left out (2 primitives)",
          "animations are left out (1 animation)", "cameras are left out (1 camera)",
          "lights are left out (1 light)", "morph targets are left out (2 primitives)",
          "primitives without positions are left out (1 primitive)", "skins are left out (1 skin)",
          "the extension EXT_weather is not supported and left out"}));
}

}  // namespace
