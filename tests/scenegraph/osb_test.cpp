// The native format: whole scenes come back bit for bit, and no bytes do harm.

#include "osg/osb.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <random>

#include "osg/cores.h"
#include "osg/geometry.h"
#include "osg/material.h"
#include "support/scene_parts.h"
#include "support/scene_text.h"

namespace {

using osg::Node;
using osg::NodePtr;
using Bytes = std::vector<std::byte>;

Bytes written(const NodePtr& root) {
  Bytes bytes;
  const auto result = osg::writeOsb(root, bytes);
  EXPECT_TRUE(result) << result.error;
  return bytes;
}

/// Reads from a block of exactly that size, so that the sanitizers see a byte too many.
osg::SceneReadResult read_bytes(std::span<const std::byte> bytes) {
  const auto block = std::make_unique<std::byte[]>(bytes.size());
  std::copy(bytes.begin(), bytes.end(), block.get());
  return osg::readOsb({block.get(), bytes.size()}, "test.osb");
}

/// Writes, reads, compares everything, writes again, and gives the scene that was read.
NodePtr expect_round_trip(const NodePtr& root) {
  const Bytes bytes = written(root);
  const auto result = read_bytes(bytes);
  EXPECT_TRUE(result) << result.error;
  EXPECT_TRUE(result.warnings.empty());
  if (!result) return osg::NullFC;
  EXPECT_EQ(support::scene_text(result.root), support::scene_text(root));
  EXPECT_EQ(written(result.root), bytes);
  return result.root;
}

// --- A scene with everything ---------------------------------------------------------------------

/// A property whose bytes count up from `first`, so that none is like another.
template <class Property>
osg::FCPtr<Property> filled(osg::UInt32 count, unsigned first) {
  osg::FCPtr<Property> property(Property::create());
  property->resize(count);
  for (std::size_t i = 0; i < property->size() * property->getStride(); ++i)
    property->editData()[i] = static_cast<std::byte>(first + i * 7);
  return property;
}

osg::ImagePtr make_image(osg::UInt32 format, unsigned first) {
  auto image = osg::Image::create();
  image->set(format, 3, 2, 1, 1, 1, 0.25f);
  for (std::size_t i = 0; i < image->getSize(); ++i)
    image->getData()[i] = static_cast<osg::UInt8>(first + i);
  image->setName("picture " + std::to_string(first));
  image->setEncoded({1, 2, 0, 255, static_cast<osg::UInt8>(first)}, "image/png");
  image->setAttachmentField("fileName", "a b.png");
  return image;
}

osg::MaterialPtr make_chunk_material(const osg::ImagePtr& image) {
  const auto colors = diffuse({0.25f, -0.0f, std::numeric_limits<float>::quiet_NaN(), 0.5f});
  colors->setBackEmission({1e-40f, 2, 3, 4});
  colors->setShininess(std::numeric_limits<float>::infinity());
  const auto texture = texture_of(image);
  texture->setWrapT(33071);
  texture->setTexCoordSet(3);
  const auto cube = osg::CubeTextureChunk::create();
  cube->setImage(image);
  const auto blend = osg::BlendChunk::create();
  blend->setSrcFactor(770);
  const auto transform = osg::TransformChunk::create();
  transform->setMatrix(osg::Matrix::translation(1, 2, 3));
  const auto pbr = osg::PBRChunk::create();
  pbr->setDefinition("{\"doubleSided\":true}");
  pbr->setImages({image, osg::NullFC, make_image(osg::gl::kRGB, 77)});
  const auto material = of_chunks({colors, texture, cube, blend, transform, pbr, colors});
  osg::setName(material, "paint");
  osg::setName(colors, "");
  return material;
}

osg::GeometryPtr make_full_geometry(const osg::MaterialPtr& material) {
  auto geometry = osg::Geometry::create();
  geometry->setTypes(filled<osg::GeoPTypesUI8>(2, 4));
  geometry->setLengths(filled<osg::GeoPLengthsUI16>(2, 3));
  geometry->setIndices(filled<osg::GeoIndicesUI16>(9, 1));
  geometry->setPositions(filled<osg::GeoPositions3f>(5, 10));
  geometry->setNormals(filled<osg::GeoNormals3f>(4, 20));
  geometry->setColors(filled<osg::GeoColors4ub>(3, 30));
  geometry->setSecondaryColors(filled<osg::GeoColors3f>(3, 40));
  geometry->setTexCoords(filled<osg::GeoTexCoords2f>(2, 50));
  geometry->setTexCoords1(filled<osg::GeoTexCoords1f>(2, 60));
  geometry->setTexCoords2(filled<osg::GeoTexCoords3f>(2, 70));
  geometry->setTexCoords6(osg::GeoTexCoords2f::create());  // there, but empty
  geometry->setTexCoords7(geometry->getTexCoords());       // one object in two fields
  geometry->getIndexMapping().push_back(osg::Geometry::MapPosition | osg::Geometry::MapNormal);
  geometry->getIndexMapping().push_back(0xffff);
  geometry->setMaterial(material);
  osg::setName(geometry->getPositions(), "points");
  return geometry;
}

osg::NodePtr make_full_scene() {
  const auto image = make_image(osg::gl::kRGBA, 5);
  const auto material = make_chunk_material(image);
  const auto simple = osg::SimpleMaterial::create();
  simple->setSpecular({0.1f, 0.2f, 0.3f});
  const auto textured = simple_textured(image);
  textured->setEnvMode(8448);
  const auto choice = osg::SwitchMaterial::create();
  choice->setMaterials({simple, osg::NullFC, textured, simple});
  choice->setChoice(-7);

  const auto geometry = make_full_geometry(material);
  const auto sharing = osg::Geometry::create();  // properties of another geometry
  sharing->setPositions(geometry->getPositions());
  sharing->setLengths(filled<osg::GeoPLengthsUI32>(1, 9));
  sharing->setIndices(filled<osg::GeoIndicesUI32>(3, 2));
  sharing->setColors(filled<osg::GeoColors3ub>(2, 1));
  sharing->setSecondaryColors(filled<osg::GeoColors4f>(2, 2));
  sharing->setMaterial(choice);

  const auto moved = transform(osg::Matrix::scale(-1, 2, 0.5f) * osg::Matrix::translation(1, 2, 3));
  const auto component = osg::ComponentTransform::create();
  component->setMatrix(osg::Matrix::scale(std::numeric_limits<float>::quiet_NaN()));
  const auto switch_core = osg::Switch::create();
  switch_core->setChoice(1);
  const auto lod = osg::DistanceLOD::create();
  lod->setCenter({1, 2, 3});
  lod->getRange().push_back(10);
  lod->getRange().push_back(1e30f);

  const auto map = osg::StringAttributeMap::create();
  map->setAttribute("part", "4711");
  map->setAttribute("", std::string("zero \0 byte", 11));
  const auto other_map = osg::StringAttributeMap::create();
  const auto hidden = node_with(geometry);
  hidden->setTravMask(0);
  hidden->addAttachment(map, 6);
  auto root = node_with(osg::Group::create(),
                        {node_with(moved, {node_with(geometry), node_with(sharing)}),
                         node_with(component), below_material(material, {hidden}),
                         node_with(switch_core), node_with(lod), node_with(osg::NullFC)});
  root->addAttachment(map);
  osg::setName(root, "the \xc3\xa9 root");
  root->addAttachment(other_map, 65535);
  root->setAttachmentField("unit", "mm");
  root->setAttachmentField("axis", "");
  return root;
}

TEST(Osb, EverythingComesBack) {
  const NodePtr root = make_full_scene();
  const NodePtr read = expect_round_trip(root);
  ASSERT_TRUE(read);
  EXPECT_FALSE(read->getParent());
  EXPECT_STREQ(osg::getName(read), "the \xc3\xa9 root");
  const auto geometry = osg::Geometry::dcast(read->getChild(0)->getChild(0)->getCore());
  ASSERT_TRUE(geometry);
  EXPECT_EQ(geometry->getTexCoords(), geometry->getTexCoords7());
  EXPECT_EQ(read->getChild(2)->getChild(0)->getCore(), geometry);
  EXPECT_EQ(read->getChild(2)->getChild(0)->getTravMask(), 0u);

  // The same scene made again has other addresses and serials, but the same bytes.
  EXPECT_EQ(written(make_full_scene()), written(root));
  // A part of a scene is written as a scene of its own; the scene keeps it.
  expect_round_trip(root->getChild(0));
  EXPECT_EQ(root->getChild(0)->getParent(), root);
  expect_round_trip(Node::create());
}

TEST(Osb, CachesAndForeignClassesStayBehind) {
  class ForeignShape : public osg::ContainerClass<"ForeignShape", ForeignShape, osg::Geometry> {};
  class ForeignCore : public osg::ContainerClass<"ForeignCore", ForeignCore, osg::NodeCore> {};
  class ForeignMap : public osg::ContainerClass<"ForeignMap", ForeignMap, osg::StringAttributeMap> {
  };
  class ForeignMaterial
      : public osg::ValueContainerClass<"ForeignMaterial", ForeignMaterial, osg::Material> {};
  const auto shape = ForeignShape::create();
  shape->setPositions(filled<osg::GeoPositions3f>(2, 1));
  shape->setMaterial(ForeignMaterial::create());
  const auto root = node_with(ForeignCore::create(), {node_with(shape), node_with(shape)});
  osg::setName(root->getCore(), "kept");
  root->addAttachment(ForeignMap::create());
  const auto cache = osg::StringAttributeMap::create();
  cache->setInternal(true);
  root->addAttachment(cache, 3);

  Bytes bytes;
  const auto result = osg::writeOsb(root, bytes);
  ASSERT_TRUE(result) << result.error;
  EXPECT_EQ(result.warnings, (std::vector<std::string>{
                                 "attachments of class 'ForeignMap' are left out",
                                 "objects of class 'ForeignCore' are written as 'Group'",
                                 "objects of class 'ForeignMaterial' are left out",
                                 "objects of class 'ForeignShape' are written as 'Geometry'",
                             }));
  const auto read = read_bytes(bytes);
  ASSERT_TRUE(read) << read.error;
  EXPECT_TRUE(read.root->getCore()->getType() == osg::Group::getClassType());
  EXPECT_STREQ(osg::getName(read.root->getCore()), "kept");
  EXPECT_TRUE(read.root->getAttachments().empty());
  const auto geometry = osg::Geometry::dcast(read.root->getChild(1)->getCore());
  ASSERT_TRUE(geometry && geometry->getType() == osg::Geometry::getClassType());
  EXPECT_EQ(geometry->getPositions()->getSize(), 2u);
  EXPECT_TRUE(geometry->getMaterial().isNull());
}

TEST(Osb, ScenesThatCannotBeReadAreNotWritten) {
  Bytes bytes(1);
  EXPECT_FALSE(osg::writeOsb(osg::NullFC, bytes));
  EXPECT_TRUE(bytes.empty());

  const auto circle = osg::SwitchMaterial::create();
  circle->addMaterial(circle);
  const auto painted = osg::MaterialGroup::create();
  painted->setMaterial(circle);
  EXPECT_NE(osg::writeOsb(node_with(painted), bytes).error.find("refers back to itself"),
            std::string::npos);
  circle->setMaterials({});

  // Materials in materials, met first near the root and then again far below it.
  osg::MaterialPtr stack = osg::SimpleMaterial::create();
  for (osg::UInt32 i = 0; i < osg::kOsbMaxDepth * 3 / 4; ++i) {
    const auto around = osg::SwitchMaterial::create();
    around->addMaterial(stack);
    stack = around;
  }
  painted->setMaterial(stack);
  NodePtr deep = node_with(painted);
  for (osg::UInt32 i = 0; i < osg::kOsbMaxDepth / 2; ++i) deep = node_with(osg::NullFC, {deep});
  const auto above = node_with(osg::NullFC, {node_with(painted)});
  EXPECT_TRUE(osg::writeOsb(above, bytes));
  above->addChild(deep);
  EXPECT_NE(osg::writeOsb(above, bytes).error.find("deeper than"), std::string::npos);

  // A chain of nodes, the last of which has a core: as deep as may be, deeper, and very deep.
  for (const osg::UInt32 depth : {osg::kOsbMaxDepth, osg::kOsbMaxDepth + 1, 100000u}) {
    std::vector<NodePtr> chain = {node_with(osg::Group::create())};
    while (chain.size() + 1 < depth) chain.push_back(node_with(osg::NullFC, {chain.back()}));
    const auto result = osg::writeOsb(chain.back(), bytes);
    if (depth == osg::kOsbMaxDepth) {
      expect_round_trip(chain.back());
    } else {
      EXPECT_NE(result.error.find("deeper than"), std::string::npos) << result.error;
      EXPECT_TRUE(bytes.empty());
    }
    while (chain.size() > 1) {  // link by link, as a chain dies by recursion
      chain.back()->subChild(chain[chain.size() - 2]);
      chain.pop_back();
    }
  }
}

// --- Bytes by hand -------------------------------------------------------------------------------

struct Field {
  const char* name;
  int scalar, components, is_list;
};
const std::vector<Field> node_fields = {
    {"travMask", 3, 1, 0}, {"core", 8, 1, 0}, {"children", 8, 1, 1}};
const std::vector<Field> choice_field = {{"choice", 5, 1, 0}};

/// Puts bytes in a row as the format has them.
class File {
 public:
  explicit File(unsigned version = 1) { raw("\x89OSB\r\n\x1a\n", 8).number(version, 4); }
  File& number(osg::UInt64 value, int bytes) {
    for (int i = 0; i < bytes; ++i, value >>= 8) bytes_.push_back(static_cast<std::byte>(value));
    return *this;
  }
  File& raw(const char* data, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) bytes_.push_back(static_cast<std::byte>(data[i]));
    return *this;
  }
  File& text(const std::string& value) {
    return number(value.size(), 4).raw(value.data(), value.size());
  }
  File& classes(int count) { return number(static_cast<osg::UInt64>(count), 2); }
  File& one_class(const char* name, const std::vector<Field>& fields) {
    text(name).number(fields.size(), 2);
    for (const Field& field : fields)
      text(field.name)
          .number(static_cast<osg::UInt64>(field.scalar), 1)
          .number(static_cast<osg::UInt64>(field.components), 1)
          .number(static_cast<osg::UInt64>(field.is_list), 1);
    return *this;
  }
  File& objects(osg::UInt64 count) { return number(count, 4); }
  /// Of a class, without attachments.
  File& object(int class_number) {
    return number(static_cast<osg::UInt64>(class_number), 2).number(0, 2);
  }
  File& node(osg::UInt64 core, const std::vector<osg::UInt64>& children = {}) {
    number(0xffffffff, 4).number(core, 4).number(children.size(), 8);
    for (const osg::UInt64 child : children) number(child, 4);
    return *this;
  }
  const Bytes& bytes() const { return bytes_; }

 private:
  Bytes bytes_;
};

using Class = std::pair<const char*, std::vector<Field>>;
const Class group_class = {"Group", {}}, node_class = {"Node", node_fields};

/// A file of these classes up to its objects.
File with_classes(const std::vector<Class>& classes, osg::UInt64 object_count) {
  File file;
  file.classes(static_cast<int>(classes.size()));
  for (const auto& [name, fields] : classes) file.one_class(name, fields);
  return file.objects(object_count);
}

/// Classes 0 Group and 1 Node.
File groups_and_nodes(osg::UInt64 object_count) {
  return with_classes({group_class, node_class}, object_count);
}

TEST(Osb, BytesAreTheFormat) {
  const auto root = node_with(osg::Group::create(), {node_with(osg::NullFC)});
  EXPECT_EQ(written(root),
            groups_and_nodes(3).object(0).object(1).node(0).object(1).node(1, {2}).bytes());
}

TEST(Osb, ClassesMayGainAndLoseFields) {
  const Class changed = {
      "Node",
      {{"layers", 7, 2, 1}, {"children", 8, 1, 1}, {"weights", 6, 3, 0}, {"travMask", 3, 1, 0}}};
  File file = with_classes({changed}, 2);
  file.object(0).number(0, 8).number(0, 8).number(0, 12).number(5, 4);
  file.object(0).number(1, 8).text("key").text("a text");
  file.number(1, 8).number(1, 4).number(0, 12).number(6, 4);
  const auto result = read_bytes(file.bytes());
  ASSERT_TRUE(result) << result.error;
  EXPECT_EQ(result.warnings, (std::vector<std::string>{
                                 "field 'layers' of class 'Node' is not known and left out",
                                 "field 'weights' of class 'Node' is not known and left out"}));
  EXPECT_EQ(result.root->getTravMask(), 6u);
  EXPECT_TRUE(result.root->getCore().isNull());
  ASSERT_EQ(result.root->getNChildren(), 1u);
  EXPECT_EQ(result.root->getChild(0)->getTravMask(), 5u);
}

TEST(Osb, DamageIsNamed) {
  const std::vector<Field> values3f = {{"entries", 6, 3, 1}};
  const std::vector<Field> texts = {{"attributes", 7, 2, 1}};
  const std::vector<Field> image = {
      {"pixelFormat", 3, 1, 0}, {"width", 5, 1, 0}, {"pixels", 1, 1, 1}};
  const auto one_class = [](const char* name, const std::vector<Field>& fields) {
    return with_classes({{name, fields}}, 1);
  };
  const auto one_node = [] { return with_classes({node_class}, 1); };
  const auto with_attachments = [&] { return one_node().number(0, 2); };
  const auto one_image = [&](osg::UInt64 width, const char* pixels) {
    const std::size_t count = std::strlen(pixels);
    return one_class("Image", image)
        .object(0)
        .number(osg::gl::kRGB, 4)
        .number(width, 4)
        .number(count, 8)
        .raw(pixels, count);
  };
  const std::pair<File, const char*> cases[] = {
      // The frame
      {File(2), "byte 8: the file has version 2; this program reads up to 1"},
      {File(0), "version 0"},
      {File(), "byte 12: the file ends within a value of 2 bytes"},
      {File().classes(1).text("Nod").number(0, 2).objects(0), "byte 14: class 'Nod' is not known"},
      {File().classes(1).text("Material").number(0, 2).objects(0), "is not known"},
      {File().classes(2).one_class("Group", {}).one_class("Group", {}),
       "class 'Group' stands twice"},
      {File().classes(1).one_class("Node", {{"a", 3, 1, 0}, {"a", 3, 1, 0}}),
       "field 'a' stands twice"},
      {File().classes(1).one_class("Node", {{"a", 9, 1, 0}}), "no such type of field"},
      {File().classes(1).one_class("Node", {{"a", 1, 0, 0}}), "no such type of field"},
      {File().classes(1).one_class("Node", {{"a", 1, 1, 2}}), "no such type of field"},
      {File().classes(1).one_class("Node", {{"core", 3, 1, 0}}),
       "field 'core' of class 'Node' has another type"},
      {File().classes(0).objects(0), "the last object is no node"},
      {one_class("Group", {}).object(0), "the last object is no node"},
      {one_node().object(0).node(0).number(0, 3), "3 bytes follow behind the last object"},
      {groups_and_nodes(2).object(0).object(1).node(0), "nothing refers to object 1"},
      {groups_and_nodes(1).object(2).node(0), "there is no class 2"},
      // Counts that can't be
      {File().classes(0).objects(0xffffffff), "4294967295 entries can't stand in the 0 bytes"},
      {one_class("GeoPositions3f", values3f).object(0).number(1ull << 61, 8),
       "can't stand in the 0 bytes"},
      {one_class("Node", node_fields).object(0).number(0, 8).number(~0ull, 8),
       "can't stand in the 0 bytes"},
      {File().classes(1).number(0xfffffff0, 4), "can't stand in the 0 bytes"},
      {one_class("StringAttributeMap", texts).number(0, 2).number(1ull << 40, 8), "can't stand in"},
      // References
      {one_node().object(0).node(1), "object 1 does not stand before"},
      {groups_and_nodes(3).object(0).object(1).node(1).object(1).node(2),
       "object 2 is a Node in the place of a NodeCore"},
      {groups_and_nodes(4).object(1).node(0).object(1).node(0, {1}).object(1).node(0, {1, 2}),
       "a node has two parents"},
      {groups_and_nodes(2).object(1).node(0).object(1).node(0, {1, 1}), "a node has two parents"},
      {one_node().object(0).node(0, {0}), "a child is null"},
      {with_classes(
           {{"GeoNormals3f", values3f}, {"Geometry", {{"positions", 8, 1, 0}}}, node_class}, 3)
           .object(0)
           .number(0, 8)
           .object(1)
           .number(1, 4),
       "field 'positions': a property stands in a field for another kind"},
      {with_classes({{"GeoNormals3f", values3f}, {"Geometry", {{"indices", 8, 1, 0}}}}, 2)
           .object(0)
           .number(0, 8)
           .object(1)
           .number(1, 4),
       "in the place of a GeoIndices"},
      // Attachments
      {with_attachments().number(1, 2).number(4, 1), "no such kind of attachment"},
      {with_attachments().number(4097, 2), "an object can't have 4097 attachments"},
      {with_attachments().number(1, 2).number(3, 1).number(0, 2).number(0, 4),
       "an attachment is null"},
      {with_attachments().number(1, 2).number(1, 1).number(3, 4).raw("a\0b", 3),
       "a name holds a zero byte"},
      {with_attachments().number(2, 2).number(1, 1).text("a").number(1, 1).text("b"),
       "two attachments have the same place"},
      {with_attachments().number(1, 2).number(2, 1).number(2, 4).text("a").text("").text("a").text(
           "b"),
       "the key 'a' stands twice"},
      {one_class("StringAttributeMap", texts)
           .number(0, 2)
           .number(2, 8)
           .text("k")
           .text("1")
           .text("k")
           .text("2"),
       "the key 'k' stands twice"},
      // Fields that contradict each other
      {one_image(0x7fffffff, ""), "contradict each other"},
      {one_image(0xffffffff, "abc"), "contradict each other"},
  };
  for (const auto& [file, message] : cases) {
    const auto result = read_bytes(file.bytes());
    EXPECT_TRUE(result.root.isNull()) << message;
    EXPECT_EQ(result.error.find("test.osb: byte "), 0u) << result.error;
    EXPECT_NE(result.error.find(message), std::string::npos)
        << result.error << "\nexpected " << message;
  }
  for (const std::string_view text : {"", "\x89OSB", "solid cube", "\x89OSB\n\x1a\n\x01\0\0\0"}) {
    const auto result = read_bytes(std::as_bytes(std::span(text)));
    EXPECT_NE(result.error.find("this is not an .osb file"), std::string::npos);
  }
}

TEST(Osb, DeepFilesAreRefused) {
  const osg::UInt64 count = 100000;
  File file = with_classes({node_class}, count);
  for (osg::UInt64 i = 0; i < count; ++i)
    file.object(0).node(0, i == 0 ? std::vector<osg::UInt64>{} : std::vector{i});
  EXPECT_NE(read_bytes(file.bytes()).error.find("deeper than 2000 levels"), std::string::npos);
}

/// Quadratic work on what a file may hold many of would take minutes here.
TEST(Osb, ManySmallThingsAreFast) {
  const osg::UInt64 count = 100000;
  const Class map_class = {"StringAttributeMap", {{"attributes", 7, 2, 1}}};
  File file = with_classes({map_class, node_class}, count + 2);
  file.number(0, 2).number(count, 8);
  for (osg::UInt64 i = 0; i < count; ++i) file.text(std::to_string(i)).text("");
  std::vector<osg::UInt64> children;
  for (osg::UInt64 i = 0; i < count; ++i) {
    file.object(1).node(0);
    children.push_back(i + 2);
  }
  file.number(1, 2).number(2, 2);
  file.number(3, 1).number(0, 2).number(1, 4);
  file.number(2, 1).number(count, 4);
  for (osg::UInt64 i = 0; i < count; ++i) file.text(std::to_string(i)).text("");
  file.node(0, children);
  const auto result = read_bytes(file.bytes());
  ASSERT_TRUE(result) << result.error;
  EXPECT_EQ(result.root->getNChildren(), count);
  EXPECT_EQ(written(result.root), file.bytes());
}

// --- Damage at every place -----------------------------------------------------------------------

/// What was accepted can be written, and is then read as the same.
void expect_sound(const osg::SceneReadResult& result) {
  if (!result) {
    EXPECT_FALSE(result.error.empty());
    return;
  }
  result.root->updateVolume();
  const Bytes bytes = written(result.root);
  const auto again = read_bytes(bytes);
  ASSERT_TRUE(again) << again.error;
  EXPECT_EQ(written(again.root), bytes);
}

TEST(Osb, NoPrefixIsAccepted) {
  const Bytes bytes = written(make_full_scene());
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    const auto result = read_bytes(std::span(bytes).first(size));
    ASSERT_TRUE(result.root.isNull()) << size;
    ASSERT_EQ(result.error.find("test.osb: byte "), 0u) << result.error;
  }
}

TEST(Osb, DamagedBytesAreRefusedOrSound) {
  Bytes bytes = written(make_full_scene());
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const std::byte whole = bytes[i];
    for (const int flip : {0x01, 0xff}) {
      bytes[i] = whole ^ static_cast<std::byte>(flip);
      expect_sound(read_bytes(bytes));
      if (HasFailure()) FAIL() << "byte " << i << " ^ " << flip;
    }
    bytes[i] = whole;
  }
}

// --- Random scenes -------------------------------------------------------------------------------

/// Objects refer to any that were made before, so everything is shared in every way.
NodePtr random_scene(std::mt19937& random) {
  const auto pick = [&](const auto& list) { return list[random() % list.size()]; };
  std::vector<osg::ImagePtr> images = {osg::NullFC};
  std::vector<osg::MaterialPtr> materials = {osg::NullFC};
  std::vector<osg::GeoPositionsPtr> positions = {osg::NullFC};
  std::vector<osg::GeoTexCoordsPtr> coords = {osg::NullFC};
  std::vector<osg::NodeCorePtr> cores = {osg::NullFC};
  std::vector<osg::AttachmentPtr> maps;
  std::vector<NodePtr> nodes = {Node::create()};
  for (int i = 0; i < 60; ++i) {
    const auto seed = static_cast<unsigned>(random());
    switch (random() % 8) {
      case 0:
        images.push_back(make_image(osg::gl::kLuminance, seed));
        break;
      case 1:
        positions.push_back(filled<osg::GeoPositions3f>(seed % 50, seed));
        break;
      case 2:
        coords.push_back(filled<osg::GeoTexCoords2f>(seed % 50, seed));
        break;
      case 3:
        materials.push_back(make_chunk_material(pick(images)));
        break;
      case 4: {
        const auto choice = osg::SwitchMaterial::create();
        for (int k = 0; k < 3; ++k) choice->addMaterial(pick(materials));
        materials.push_back(choice);
        break;
      }
      case 5: {
        const auto geometry = osg::Geometry::create();
        geometry->setPositions(pick(positions));
        for (osg::UInt32 set = 0; set < 8; ++set) geometry->setTexCoordsSet(set, pick(coords));
        geometry->setMaterial(pick(materials));
        cores.push_back(geometry);
        break;
      }
      case 6: {
        const auto map = osg::StringAttributeMap::create();
        map->setAttribute(std::to_string(seed), std::string(seed % 100, 'x'));
        maps.push_back(map);
        break;
      }
      default: {
        const auto node = node_with(pick(cores));
        if (!maps.empty()) node->addAttachment(pick(maps), static_cast<osg::UInt16>(seed));
        if (!maps.empty() && node->getCore()) node->getCore()->addAttachment(pick(maps), 1);
        pick(nodes)->addChild(node);
        nodes.push_back(node);
      }
    }
  }
  return nodes.front();
}

TEST(Osb, RandomScenesComeBack) {
  for (osg::UInt32 seed = 1; seed <= 50; ++seed) {
    std::mt19937 random(seed);
    expect_round_trip(random_scene(random));
    if (HasFailure()) FAIL() << "seed " << seed;
  }
}

}  // namespace
