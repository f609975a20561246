#include "optimiser/id_map_output.h"

#include <gtest/gtest.h>

#include <osg/cores.h>
#include <osg/geometry.h>
#include <osg/index_layout.h>
#include <osg/state_chunks.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <limits>
#include <locale>
#include <nlohmann/json.hpp>

#include "support/said.h"
#include "support/scene_parts.h"
#include "support/short_files.h"
#include "support/temp_folder.h"

namespace morlu::osg {
namespace {

using nlohmann::json;
using ::osg::Geometry;
using ::osg::GeometryPtr;
using ::osg::NodePtr;
using ::osg::StringAttributeMap;
using attributes = std::vector<StringAttributeMap::Attribute>;

// --- Scenes --------------------------------------------------------------------------------------

NodePtr node_of(const ::osg::NodeCorePtr& core, const char* name,
                const std::vector<NodePtr>& children = {}) {
  const auto node = node_with(core, children);
  if (name) setName(node, name);
  return node;
}

void attach(const ::osg::AttachmentContainerPtr& container, const attributes& texts) {
  const auto map = StringAttributeMap::create();
  map->setAttributes(texts);
  container->addAttachment(map);
}

::osg::GeoTexCoordsPtr coords_of(const std::vector<float>& firsts) {
  const auto coords = ::osg::GeoTexCoords2f::create();
  for (const float first : firsts) coords->push_back({first, 7.0f});
  return coords;
}

GeometryPtr core_with(const std::vector<float>& ids) {
  const auto core = Geometry::create();
  core->setTexCoords7(coords_of(ids));
  return core;
}

// --- Files ---------------------------------------------------------------------------------------

std::string text_of(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

/// What `writeJson` says and what stands in its file.
std::pair<std::string, std::string> written(const id_map_handler& handler) {
  const support::TempFolder folder;
  test::said said;
  writeJson(handler, folder / "map");
  said.end();
  EXPECT_EQ(said.err, "");
  return {said.out, text_of(folder / "map.json")};
}

std::string strictly_written(const id_map_handler& handler) {
  const support::TempFolder folder;
  EXPECT_TRUE(writeStrictJson(handler, folder / "map"));
  return text_of(folder / "map.strict.json");
}

/// A text of this file, where '~' stands for a tab.
std::string with_tabs(std::string text) {
  std::replace(text.begin(), text.end(), '~', '\t');
  return text;
}

/// A named part in a scene, merged into MG_0.
void fill_wheel(id_map_handler& handler) {
  const NodePtr source =
      node_of(::osg::Group::create(), "scene", {node_of(Geometry::create(), "wheel")});
  recordTree(handler, source, 0);
  const auto material = simple_material({0.1f, 0.2f, 1});
  material->setAmbient({0.2f, 0, 0});
  handler.addName("wheel", {0, -0.5f, 0}, {1, 2, 1234567}, material);
  collectGeometry(
      handler, node_of(::osg::Group::create(), nullptr, {node_of(core_with({0, 0, 0}), "MG_0")}));
}

TEST(IdMapOutput, APartInAScene) {
  id_map_handler handler;
  fill_wheel(handler);
  const auto [message, text] = written(handler);
  EXPECT_EQ(message, "Write IDmap with 1 names.\n");
  EXPECT_EQ(strictly_written(handler), text) << "nothing in it has to be escaped";
  const json map = json::parse(text);
  EXPECT_EQ(map["mapping"], json::parse(R"([{"name": "wheel", "min": "0 -0.5 0",
      "max": "1 2 1.23457e+06", "appearance": "__App_0", "usage": ["MG_0"]}])"));
  EXPECT_EQ(map["appearance"][0]["material"]["diffuseColor"], "0.1 0.2 1");
  EXPECT_EQ(map["appearance"][0]["material"]["ambientIntensity"], "2");
  EXPECT_EQ(map["tree"]["children"][0]["name"], "wheel");
}

// Grouped digits and decimal commas elsewhere in the program stay out of the file, and what the
// stream's state is out of the message.
TEST(IdMapOutput, NumbersAreTheSameInAnyLocaleAndState) {
  struct other_numbers : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    std::string do_grouping() const override { return "\1"; }
  };
  id_map_handler handler;
  fill_wheel(handler);
  for (std::uint32_t id = 0; id < 100; ++id) handler.nextGeometryName();
  const auto expected = written(handler);
  const std::locale before = std::locale::global(std::locale({}, new other_numbers));
  const std::ios_base::fmtflags flags = std::cout.flags();
  std::cout << std::hex << std::showbase << std::setw(40);
  EXPECT_EQ(written(handler), expected);
  std::cout.flags(flags);
  std::cout.width(0);
  std::locale::global(before);
  EXPECT_NE(expected.second.find("\"maxGeoCount\":100,\n"), std::string::npos);
}

// --- All that can stand in a map -----------------------------------------------------------------

::osg::MaterialChunkPtr two_sided() {
  const auto chunk = ::osg::MaterialChunk::create();
  chunk->setDiffuse({0.0005f, 0.5f, 1, 0.25f});
  chunk->setAmbient({9, 0.25f, 9, 1});
  chunk->setShininess(std::numeric_limits<float>::infinity());
  chunk->setBackDiffuse({0.5f, 0, 0, 0});
  chunk->setBackAmbient({0.125f, 0, 0, 1});
  chunk->setBackSpecular({0.1f, 0.2f, 0.3f, 1});
  chunk->setBackEmission({1e-7f, 0, 0, 1});
  chunk->setBackShininess(128);
  return chunk;
}

/// Materials by serial: null, one with back and front, one that chooses it, a back that looks like
/// the front whatever else it has, a choice of none. Ids in another order.
void fill_all(id_map_handler& handler) {
  const auto both = of_chunks({two_sided()});
  const auto choice = ::osg::SwitchMaterial::create(), none = ::osg::SwitchMaterial::create();
  choice->getMaterials() = {::osg::NullFC, both};
  choice->setChoice(1);
  none->setChoice(-1);
  const auto white = ::osg::MaterialChunk::create();
  white->setBackShininess(64);
  const auto front = of_chunks({white, two_sided()});

  handler.addName("a", {0, 0, 0}, {0, 0, 0}, none);
  handler.addName("say \"hi\"\n", {1, 1, 1}, {1, 1, 1}, front);
  handler.addName("c\xff\\", {2, 2, 2}, {2, 2, 2}, choice);
  handler.addName("d", {3, 3, 3}, {3, 3, 3}, both);
  handler.addName("e", {4, 4, 4}, {4, 4, 4}, ::osg::NullFC);
  handler.mapping = {{1, {"MG_2", "MG_10"}}, {2, {"q\""}}, {4, {"MG_2"}}};

  const auto spin = ::osg::Transform::create();
  setName(spin, "spin");
  const auto wheel = Geometry::create();
  attach(wheel, {{"of core", "\\"}});
  const NodePtr hidden = node_of(wheel, "wheel");
  hidden->setTravMask(0);
  const NodePtr rim = node_of(wheel, "");
  attach(rim, {});
  const NodePtr root =
      node_of(::osg::Group::create(), "say \"hi\"",
              {node_of(spin, nullptr, {hidden, rim}), node_of(::osg::NullFC, nullptr),
               node_of(::osg::Switch::create(), "\xff", {node_of(Geometry::create(), "last")})});
  attach(root, {{"unit", "m\tm"}, {"pa\"th", "C:\\\"x\""}});
  recordTree(handler, root, 0);
}

const char* const unread_look = R"("diffuseColor": "0 0 0",
"specularColor": "0 0 0",
"emissiveColor": "0 0 0",
"ambientIntensity": "0",
"shininess": "0",
"transparency": "1"
)";

const char* const two_sided_look = R"("diffuseColor": "0.0005 0.5 1",
"specularColor": "0 0 0",
"emissiveColor": "0 0 0",
"ambientIntensity": "0.5",
"shininess": "inf",
"transparency": "0.75",
"backDiffuseColor": "0.5 0 0",
"backSpecularColor": "0.1 0.2 0.3",
"backEmissiveColor": "1e-07 0 0",
"backAmbientIntensity": "0.25",
"backShininess": "1",
"backTransparency": "1"
)";

const char* const white_look = R"("diffuseColor": "1 1 1",
"specularColor": "0 0 0",
"emissiveColor": "0 0 0",
"ambientIntensity": "0.2",
"shininess": "0.0078125",
"transparency": "0"
)";

std::string appearances_text() {
  const std::pair<const char*, const char*> blocks[] = {{"__App_4", unread_look},
                                                        {"__App_3", two_sided_look},
                                                        {"__App_2", two_sided_look},
                                                        {"__App_0", unread_look},
                                                        {"__App_1", white_look}};
  std::string text;
  for (const auto& [name, look] : blocks)
    text += (text.empty() ? "{\n\"name\": \"" : ",\n{\n\"name\": \"") + std::string(name) +
            "\",\n\"material\": { \n" + look + "}}";
  return text;
}

const std::string all_but_appearances = with_tabs(R"("mapping": [
{
"name": "say "hi"
",
"min": "1 1 1",
"max": "1 1 1",
"appearance": "__App_1",
"usage": ["MG_10","MG_2"]
},
{
"name": "c)"
                                                  "\xff"
                                                  R"(\",
"min": "2 2 2",
"max": "2 2 2",
"appearance": "__App_2",
"usage": ["q""]
},
{
"name": "e",
"min": "4 4 4",
"max": "4 4 4",
"appearance": "__App_4",
"usage": ["MG_2"]
}],
"tree":
{
"name":"say "hi"",
"type":"Group",
"render":"true",
"meta": {
"unit":"m~m",
"pa"th":"C:\\\"x\""},
"children":[
{
~"name":"spin",
~"type":"Transform",
~"render":"true",
~"meta": {},
~"children":[
~{
~~"name":"wheel",
~~"type":"Geometry",
~~"render":"false",
~~"meta": {
~~"of core":"\\"}
~},
~{
~~"name":"none",
~~"type":"Geometry",
~~"render":"true",
~~"meta": {}
~}]
},
{
~"name":"none",
~"type":"none",
~"render":"true",
~"meta": {}
},
{
~"name":")"
                                                  "\xff"
                                                  R"(",
~"type":"Switch",
~"render":"true",
~"meta": {},
~"children":[
~{
~~"name":"last",
~~"type":"Geometry",
~~"render":"true",
~~"meta": {}
~}]
}]
}
}

)");

TEST(IdMapOutput, AllThatCanStandInAMapInBothSpellings) {
  id_map_handler handler;
  fill_all(handler);
  const auto [message, text] = written(handler);
  EXPECT_EQ(message, "Write IDmap with 3 names.\nFalse SwitchMatChoice\n");
  EXPECT_EQ(text, "{\n\"numberOfIDs\":3,\n\"maxGeoCount\":0,\n\"appearance\": [ \n" +
                      appearances_text() + "],\n" + all_but_appearances);
  EXPECT_FALSE(json::accept(text)) << "names stand as they are";

  test::said said;
  const json map = json::parse(strictly_written(handler));
  said.end();
  EXPECT_EQ(map["numberOfIDs"], 3);
  EXPECT_EQ(map["appearance"].size(), 5u);
  EXPECT_EQ(map["appearance"][1]["material"]["shininess"], "inf");
  EXPECT_EQ(map["mapping"][0]["name"], "say \"hi\"\n");
  EXPECT_EQ(map["mapping"][1]["name"], "c\xef\xbf\xbd\\") << "the replacement character";
  EXPECT_EQ(map["mapping"][1]["usage"], json({"q\""}));
  const json& root = map["tree"];
  EXPECT_EQ(root["name"], "say \"hi\"");
  EXPECT_EQ(root["meta"], json({{"unit", "m\tm"}, {"pa\"th", "C:\\\"x\""}}));
  EXPECT_EQ(root["children"][0]["children"][0]["meta"]["of core"], "\\");
  EXPECT_EQ(root["children"].size(), 3u);
}

TEST(IdMapOutput, FilesThatCannotBeWrittenAreToldAndGone) {
  id_map_handler handler;
  fill_wheel(handler);
  const support::TempFolder folder;
  std::filesystem::create_symlink("/dev/full", folder / "full.json");
  std::filesystem::create_symlink("/dev/full", folder / "full.strict.json");
  // Far more than fits the disk: the end has to come by itself.
  for (std::uint32_t level = 0; level < 300000; ++level)
    handler.tree.push_back({level, level < 299999, "deep", "Group", true, {}});
  for (const auto& name :
       {folder / "no such folder" / "x", folder / "full", folder / "cut short"}) {
    test::said said;
    const support::ShortFiles limit(8192);
    writeJson(handler, name);
    EXPECT_FALSE(writeStrictJson(handler, name));
    said.end();
    EXPECT_EQ(said.out, "Write IDmap with 1 names.\nUnable to open " + name.string() +
                            ".json. No IDmap/Json File created.\n");
  }
  EXPECT_TRUE(std::filesystem::is_symlink(folder / "full.json")) << "a device stays";
  EXPECT_FALSE(std::filesystem::exists(folder / "cut short.json") ||
               std::filesystem::exists(folder / "cut short.strict.json"));
}

TEST(IdMapOutput, WithoutIdsThereIsNoFile) {
  const support::TempFolder folder;
  id_map_handler nameless, unused;
  nameless.mapping[0] = {"MG_0"};
  unused.addName("wheel", {0, 0, 0}, {1, 1, 1}, ::osg::NullFC);
  for (const id_map_handler* handler : {&nameless, &unused}) {
    test::said said;
    writeJson(*handler, folder / "map");
    EXPECT_TRUE(writeStrictJson(*handler, folder / "map"));
    said.end();
    EXPECT_EQ(said.out,
              handler == &nameless ? "Write IDmap with 1 names.\n" : "Write IDmap with 0 names.\n");
  }
  EXPECT_TRUE(std::filesystem::is_empty(folder));
}

// --- Collecting ----------------------------------------------------------------------------------

using id_users = std::map<std::uint32_t, std::set<std::string>>;

/// With four names.
void add_names(id_map_handler& handler) {
  for (const char* name : {"a", "b", "c", "d"}) handler.addName(name, {}, {}, ::osg::NullFC);
}

TEST(IdMapOutput, IdsAreCollectedFromNamedGeometry) {
  const float inf = std::numeric_limits<float>::infinity();
  id_map_handler handler;
  add_names(handler);
  const GeometryPtr shared = core_with({3, 1, 3});
  const GeometryPtr unnamed = core_with({2}), below = core_with({2}), bare = core_with({2});
  const NodePtr coreless = node_of(::osg::NullFC, "none", {node_of(bare, "bare")});
  const NodePtr root = node_of(
      ::osg::Group::create(), "root",
      {node_of(core_with({1.9f, -0.5f, -1, 4, 1e30f, inf, -inf, std::nanf("")}), "odd",
               {node_of(below, "below")}),
       node_of(unnamed, nullptr), node_of(unnamed, ""), node_of(shared, nullptr),
       node_of(shared, "first"), node_of(shared, "second"), node_of(Geometry::create(), "without"),
       coreless, node_of(::osg::Switch::create(), "switch", {node_of(core_with({1}), "odd")})});
  collectGeometry(handler, root);
  collectGeometry(handler, ::osg::NullFC);
  EXPECT_EQ(handler.mapping, (id_users{{1, {"odd", "first", "second"}}, {3, {"first", "second"}}}));
  EXPECT_EQ(handler.texcoord_slots, (std::map<std::string, std::string>{
                                        {"odd", "TC0"}, {"first", "TC0"}, {"second", "TC0"}}));
  for (const GeometryPtr& untouched : {unnamed, below, bare})
    EXPECT_TRUE(untouched->getTexCoords7() && !untouched->getTexCoords());
  EXPECT_TRUE(!shared->getTexCoords7() && shared->getTexCoords());
}

// The ids go to the first free set, and each vertex still finds its own, however they are indexed.
TEST(IdMapOutput, IdsMoveToTheFirstFreeSet) {
  constexpr auto position = Geometry::MapPosition, ids = Geometry::MapTexCoords7;
  const struct {
    unsigned taken;  // sets below this one
    std::vector<::osg::UInt16> mapping, moved;
  } cases[] = {
      {0, {position, ids}, {position, Geometry::MapTexCoords}},
      {1,
       {position, Geometry::MapTexCoords, ids},
       {position, Geometry::MapTexCoords, Geometry::MapTexCoords1}},
      {2, {}, {}},
      {3,
       {position, Geometry::MapNormal | ids},
       {position, Geometry::MapNormal | Geometry::MapTexCoords3}},
      {4, {position, ids}, {position, ids}},
      // Flags of what isn't there would lead astray.
      {0,
       {position, Geometry::MapTexCoords | Geometry::MapNormal, ids},
       {position, Geometry::MapNormal, Geometry::MapTexCoords}},
      {0, {position, Geometry::MapTexCoords}, {position, 0}},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(&each - cases);
    const std::size_t columns = std::max<std::size_t>(each.mapping.size(), 1);
    const GeometryPtr core = core_with({0, 1, 2, 3});
    core->setPositions(property_of<::osg::GeoPositions3f>(std::vector<::osg::Pnt3f>(4)));
    const auto indices = ::osg::GeoIndicesUI32::create();
    for (std::size_t vertex = 0; vertex < 4; ++vertex)
      for (std::size_t column = 0; column < columns; ++column)
        indices->push_back(static_cast<::osg::UInt32>((vertex + column) % 4));
    core->setIndices(indices);
    core->getIndexMapping().getValues() = each.mapping;
    for (unsigned set = 0; set < each.taken; ++set) core->setTexCoordsSet(set, coords_of({9}));
    if (each.taken == 0) core->setTexCoords(::osg::GeoTexCoords2f::create());

    const auto ids_of = [&](::osg::Attribute attribute) {
      std::vector<float> values;
      const ::osg::IndexLayout layout(*core);
      for (::osg::UInt32 vertex = 0; vertex < 4; ++vertex)
        values.push_back(layout.getValue<::osg::Vec2f>(attribute, vertex)[0]);
      return values;
    };
    const auto before = ids_of(::osg::Attribute::TexCoords7);
    id_map_handler handler;
    add_names(handler);
    collectGeometry(handler, node_of(core, "MG_0"));
    const unsigned slot = each.taken < 4 ? each.taken : 7;
    EXPECT_EQ(ids_of(::osg::texCoordsAttribute(slot)), before);
    EXPECT_EQ(core->getIndexMapping().getValues(), each.moved);
    EXPECT_EQ(handler.mapping.size(), 4u);
    EXPECT_EQ(core->getTexCoords7().isNull(), slot != 7);
    EXPECT_EQ(handler.id_sets, (std::map<std::uint64_t, std::uint32_t>{{core.getSerial(), slot}}));
    EXPECT_EQ(handler.texcoord_slots["MG_0"], slot == 7 ? "" : "TC" + std::to_string(slot));
  }
}

attributes attached(const NodePtr& root, ::osg::UInt16 binding) {
  const auto map =
      StringAttributeMap::dcast(root->findAttachment(StringAttributeMap::getClassType(), binding));
  return map ? map->getAttributes() : attributes{{"no", "map"}};
}

TEST(IdMapOutput, AttributeMapsOnTheRoot) {
  id_map_handler& handler = getIdMapHandler();
  handler.reset();
  const auto glass = of_chunks({two_sided()});
  handler.addName("wheel", {0, 0, 0}, {1, 2.5f, 3}, glass);
  handler.addName("unused", {0, 0, 0}, {1, 1, 1}, ::osg::NullFC);
  handler.addName("door", {-1, 0, 0}, {1e-7f, 1234567, 0}, glass);
  handler.mapping = {{0, {"MG_2", "MG_10"}}, {2, {"MG_2"}}};
  handler.texcoord_slots = {{"MG_2", "TC0"}, {"MG_10", "TC3"}};
  const NodePtr root = node_of(::osg::Group::create(), nullptr);
  attach(root, {{"own", "stays"}});
  for (int twice = 0; twice < 2; ++twice) attachToRoot(root);
  const attributes expected[] = {
      {{"own", "stays"}},
      {{"MG_10", "TC3"}, {"MG_2", "TC0"}},
      {{"0", "wheel"}, {"1", "unused"}, {"2", "door"}},
      {{"0", "0 0 0"}, {"1", "0 0 0"}, {"2", "-1 0 0"}},
      {{"0", "1 2.5 3"}, {"1", "1 1 1"}, {"2", "1e-07 1.23457e+06 0"}},
      {{"0", "0.0005 0.5 1 0.25"}, {"1", "0 0 0 0"}, {"2", "0.0005 0.5 1 0.25"}},
      {{"wheel", "MG_10,MG_2"}, {"door", "MG_2"}},
      {{"no", "map"}}};
  for (::osg::UInt16 binding = 0; binding < 8; ++binding)
    EXPECT_EQ(attached(root, binding), expected[binding]) << binding;
  attachToRoot(::osg::NullFC);
  handler.reset();
}

// A recursion would end on its stack, a text of the tree would take 35 GB, a search by name hours.
TEST(IdMapOutput, DeepChainsAndManyNames) {
  constexpr std::uint32_t count = 100000;
  id_map_handler& handler = getIdMapHandler();
  handler.reset();
  std::vector<float> ids(count);
  for (std::uint32_t id = 0; id < count; ++id) {
    ids[id] = static_cast<float>(id);
    handler.addName("part " + std::to_string(id), {}, {}, ::osg::NullFC);
  }
  NodePtr deep = node_of(core_with(ids), "MG_0");
  for (std::uint32_t level = 0; level < count; ++level)
    deep = node_of(::osg::Group::create(), nullptr, {deep});
  recordTree(handler, deep, 0);
  ASSERT_EQ(handler.tree.size(), count + 1);
  EXPECT_EQ(handler.tree.back().level, count);
  collectGeometry(handler, deep);
  EXPECT_EQ(handler.mapping.size(), count);
  attachToRoot(deep);
  EXPECT_EQ(attached(deep, 6).size(), count);

  handler.tree.erase(handler.tree.begin(), handler.tree.end() - 1001);
  for (source_node& node : handler.tree) node.level -= count - 1000;
  const json map = json::parse(written(handler).second);
  EXPECT_EQ(map["mapping"].size(), count);
  unsigned depth = 0;
  for (const json* node = &map["tree"]; node->contains("children"); ++depth)
    node = &(*node)["children"][0];
  EXPECT_EQ(depth, 1000u);
  handler.reset();
}

}  // namespace
}  // namespace morlu::osg
