// Feature ids through glTF files and back.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <set>

#include "osg/cores.h"
#include "osg/io/feature_ids.h"
#include "support/gltf_builder.h"
#include "support/scene_parts.h"
#include "support/temp_folder.h"

namespace {

using namespace osg;
using nlohmann::json;
using Values = std::vector<Real32>;

GeoTexCoords2fPtr coords_of(const Values& values) {
  const auto coords = GeoTexCoords2f::create();
  for (const Real32 value : values) coords->push_back(Vec2f(value, 0));
  return coords;
}

/// Points with those ids in set `set`, marked.
GeometryPtr points_with(const Values& ids, UInt32 set) {
  std::vector<Pnt3f> positions;
  for (std::size_t i = 0; i < ids.size(); ++i) positions.push_back({i, 0, 1});
  const auto geometry = one_primitive(kPoints, positions);
  geometry->setTexCoordsSet(set, coords_of(ids));
  io::setFeatureIdSet(geometry, static_cast<Int32>(set));
  return geometry;
}

Values first_components(const GeoTexCoordsPtr& coords) {
  Values values;
  for (UInt32 i = 0; coords && i < coords->size(); ++i) {
    values.push_back(coords->getValue(i)[0]);
    EXPECT_EQ(coords->getValue(i)[1], 0);
  }
  return values;
}

class GltfFeatureIds : public testing::TestWithParam<const char*> {
 protected:
  NodePtr written_and_read(const NodePtr& root) {
    const std::string file = (folder_ / "scene").string() + GetParam();
    const auto written = io::writeGltf(root, file);
    EXPECT_TRUE(written) << written.error;
    EXPECT_TRUE(written.warnings.empty());
    std::ifstream in(file, std::ios::binary);
    bytes_.assign(std::istreambuf_iterator<char>(in), {});
    const bool binary = bytes_.starts_with("glTF");
    if (binary) {
      std::size_t length = 0;
      for (std::size_t i = 4; i-- > 0;)
        length = length << 8 | static_cast<unsigned char>(bytes_[12 + i]);
      document_ = json::parse(bytes_.substr(20, length));
    } else {
      document_ = json::parse(bytes_);
    }
    const auto read = io::readGltf(file);
    EXPECT_TRUE(read) << read.error;
    EXPECT_TRUE(read.warnings.empty()) << read.warnings.front();
    return read.root;
  }
  const json& primitive(std::size_t mesh = 0) const {
    return document_["meshes"][mesh]["primitives"][0];
  }

  const support::TempFolder folder_;
  std::string bytes_;
  json document_;
};

INSTANTIATE_TEST_SUITE_P(Forms, GltfFeatureIds, testing::Values(".glb", ".gltf"),
                         [](const auto& form) { return std::string(form.param + 1); });

// What the extension asks of a primitive's list, an accessor and the file, for ids of all ranges.
TEST_P(GltfFeatureIds, IdsOfAnyRangeSurvive) {
  const Real32 inf = std::numeric_limits<Real32>::infinity();
  const struct {
    Values ids, back;
    int count;
    bool has_none;
  } cases[] = {
      {{0}, {0}, 1, false},
      {{5, 5, 5, 2}, {5, 5, 5, 2}, 2, false},
      {{0, 255, 256}, {0, 255, 256}, 3, false},
      {{65535, 65536, 16777215}, {65535, 65536, 16777215}, 3, false},
      {{-1, 7, -1}, {-1, 7, -1}, 1, true},
      {{-1, -1}, {-1, -1}, 1, true},
      {{3, 16777216, inf, -inf, std::nanf(""), -0.5f, 2.75f}, {3, -1, -1, -1, -1, -1, 2}, 2, true},
  };
  for (const auto& each : cases) {
    for (const UInt32 set : {0u, 2u, 7u}) {
      SCOPED_TRACE(testing::PrintToString(each.ids) + " in set " + std::to_string(set));
      const NodePtr root =
          written_and_read(node_with(Group::create(), {node_with(points_with(each.ids, set))}));
      EXPECT_EQ(document_["extensionsUsed"], json({"EXT_mesh_features"}));
      json expected = {{"featureCount", each.count}, {"attribute", 0}};
      if (each.has_none) expected["nullFeatureId"] = 16777216;
      EXPECT_EQ(primitive()["extensions"],
                (json{{"EXT_mesh_features", {{"featureIds", {expected}}}}}));
      std::set<std::string> names;
      for (const auto& [name, accessor] : primitive()["attributes"].items()) names.insert(name);
      EXPECT_EQ(names, (std::set<std::string>{"POSITION", "_FEATURE_ID_0"}));
      const json& accessor =
          document_["accessors"][primitive()["attributes"]["_FEATURE_ID_0"].get<std::size_t>()];
      EXPECT_EQ(accessor["type"], "SCALAR");
      EXPECT_EQ(accessor["componentType"], 5126);
      EXPECT_FALSE(accessor.value("normalized", false));
      EXPECT_EQ(accessor["count"], each.ids.size());

      const auto core = Geometry::dcast(root->getChild(0)->getCore());
      EXPECT_EQ(first_components(core->getTexCoords7()), each.back);
      EXPECT_EQ(io::getFeatureIdSet(*core), 7);
      const std::string first = bytes_;
      written_and_read(root);
      EXPECT_EQ(bytes_, first) << "a second way there and back changes nothing";
    }
  }
}

// Real texture coordinates and everything else stand beside them as if no ids were there.
TEST_P(GltfFeatureIds, OtherAttributesStay) {
  const auto with_ids = points_with({4, 4, 9}, 1);
  with_ids->setTexCoords(coords_of({0.25f, 0.5f, 0.75f}));
  with_ids->setTexCoordsSet(7, coords_of({1.5f, 2.5f, 3.5f}));
  const auto without = points_with({1, 2}, 0);
  io::setFeatureIdSet(without, -1);
  const auto missing = points_with({1, 2}, 0);
  io::setFeatureIdSet(missing, 3);  // nothing is there
  const NodePtr root =
      node_with(Group::create(), {node_with(with_ids), node_with(without), node_with(missing)});
  const NodePtr back = written_and_read(root);
  EXPECT_TRUE(primitive(0)["attributes"].contains("TEXCOORD_0"));
  EXPECT_FALSE(primitive(0)["attributes"].contains("TEXCOORD_1"));
  const auto core = Geometry::dcast(back->getChild(0)->getCore());
  EXPECT_EQ(first_components(core->getTexCoords()), (Values{0.25f, 0.5f, 0.75f}));
  EXPECT_EQ(first_components(core->getTexCoordsSet(7)), (Values{1.5f, 2.5f, 3.5f}));
  EXPECT_EQ(first_components(core->getTexCoordsSet(6)), (Values{4, 4, 9}));
  EXPECT_EQ(io::getFeatureIdSet(*core), 6);
  for (const std::size_t mesh : {1u, 2u}) {
    EXPECT_FALSE(primitive(mesh).contains("extensions"));
    const auto plain = Geometry::dcast(back->getChild(static_cast<UInt32>(mesh))->getCore());
    EXPECT_EQ(first_components(plain->getTexCoords()), (Values{1, 2}));
    EXPECT_EQ(io::getFeatureIdSet(*plain), -1);
  }
}

// Two index columns: ids change from triangle to triangle at the same positions.
TEST_P(GltfFeatureIds, EachCornerFindsItsOwn) {
  const auto core = points_with({8, 6}, 0);
  core->getPositions()->push_back(Pnt3f(0, 1, 1));
  core->getLengths()->setValue(6, 0);
  core->getTypes()->setValue(kTriangles, 0);
  core->setIndices(property_of<GeoIndicesUI32>({0, 0, 1, 0, 2, 0, 0, 1, 2, 1, 1, 1}));
  core->getIndexMapping().push_back(Geometry::MapPosition);
  core->getIndexMapping().push_back(Geometry::MapTexCoords);
  const NodePtr back = written_and_read(node_with(Group::create(), {node_with(core)}));
  const auto read = Geometry::dcast(back->getChild(0)->getCore());
  Values ids;
  for (auto at = read->beginTriangles(); !at.isAtEnd(); ++at)
    for (UInt32 corner = 0; corner < 3; ++corner) ids.push_back(at.getTexCoords7(corner)[0]);
  EXPECT_EQ(ids, (Values{8, 8, 8, 6, 6, 6}));
}

// --- Files of others -----------------------------------------------------------------------------

struct Read {
  GeometryPtr core;
  std::string warnings;
};

Read read_triangle(const support::GltfBuilder& builder) {
  const std::string text = builder.text();
  const auto result = io::readGltfMemory(std::as_bytes(std::span(text)), "", "ids.gltf");
  EXPECT_TRUE(result) << result.error;
  std::string warnings;
  for (const std::string& line : result.warnings) warnings += line + "\n";
  return {result ? Geometry::dcast(result.root->getChild(0)->getCore()) : NullFC, warnings};
}

TEST(GltfForeignFeatureIds, OfEveryNumberType) {
  const auto read_with = [](auto zero, bool normalized) {
    using Number = decltype(zero);
    support::GltfBuilder builder;
    const Number top =
        std::is_same_v<Number, float> ? Number(70000) : std::numeric_limits<Number>::max();
    json& triangle = builder.triangle();
    const int ids = builder.accessor<Number>({Number(1), top, Number(2)}, "SCALAR", 1, normalized);
    triangle["attributes"]["_FEATURE_ID_0"] = ids;
    triangle["extensions"]["EXT_mesh_features"]["featureIds"] = {
        {{"featureCount", 2}, {"attribute", 0}, {"nullFeatureId", top}}};
    builder.json["extensionsUsed"] = {"EXT_mesh_features"};
    builder.json["extensionsRequired"] = {"EXT_mesh_features"};
    const Read read = read_triangle(builder);
    EXPECT_EQ(read.warnings, "");
    EXPECT_EQ(first_components(read.core->getTexCoords7()), (Values{1, -1, 2}));
  };
  read_with(UInt8{}, false);
  read_with(UInt8{}, true);
  read_with(UInt16{}, false);
  read_with(Real32{}, false);
}

TEST(GltfForeignFeatureIds, WhatCannotBeKeptIsTold) {
  const auto told = [](const json& extension, UInt32 components, UInt32 sets) {
    support::GltfBuilder builder;
    json attributes = {{"POSITION", builder.vec3({0, 0, 0, 1, 0, 0, 0, 1, 0})}};
    attributes["_FEATURE_ID_0"] = builder.accessor(Values(std::size_t{3} * components, 1.0f),
                                                   components == 1 ? "SCALAR" : "VEC2", components);
    for (UInt32 set = 0; set < sets; ++set)
      attributes["TEXCOORD_" + std::to_string(set)] = builder.vec2({1, 0, 2, 0, 3, 0});
    json& triangle = builder.primitive(attributes);
    if (!extension.is_null()) triangle["extensions"]["EXT_mesh_features"] = extension;
    const Read read = read_triangle(builder);
    for (UInt32 set = 0; set < sets; ++set)
      EXPECT_EQ(first_components(read.core->getTexCoordsSet(set)), (Values{1, 2, 3}));
    EXPECT_EQ(io::getFeatureIdSet(*read.core), components == 1 && sets < 8 ? 7 : -1);
    return read.warnings;
  };
  EXPECT_EQ(told(nullptr, 1, 7), "") << "the attribute alone";
  EXPECT_NE(told(nullptr, 1, 8).find("_FEATURE_ID_0 is left out"), std::string::npos);
  EXPECT_NE(told(nullptr, 2, 0).find("_FEATURE_ID_0 is left out"), std::string::npos);
  const json texture = json::parse(R"({"featureIds":[{"featureCount":3},{"attribute":0}]})");
  EXPECT_NE(told(texture, 1, 0).find("first attribute"), std::string::npos);
  for (const char* odd : {"[]", "1", "{}", R"({"featureIds":{}})", R"({"featureIds":[1,null]})",
                          R"({"featureIds":[{"attribute":"0","nullFeatureId":[]}]})",
                          R"({"featureIds":[{"attribute":0,"nullFeatureId":"1"}]})"})
    told(json::parse(odd), 1, 0);
}

}  // namespace
