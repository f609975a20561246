// Wrong, cut-off and hostile glTF: each gets a message with file, place and reason.
#include <gtest/gtest.h>

#include <utility>

#include "support/gltf_builder.h"
#include "support/scene_counts.h"

namespace {

using nlohmann::json;
using support::GltfBuilder;
using support::read_gltf;

void expect_error(const std::string& bytes, const std::string& message) {
  const auto read = read_gltf(bytes);
  EXPECT_FALSE(read) << "no error, but should be: " << message;
  EXPECT_EQ(read.error.substr(0, 11), "test.gltf: ");
  EXPECT_NE(read.error.find(message), std::string::npos)
      << "the error is '" << read.error << "', but should hold '" << message << "'";
}

/// A triangle with indices; `change` makes it wrong.
template <class Change>
void expect_broken(Change&& change, const std::string& message) {
  SCOPED_TRACE(message);
  GltfBuilder builder;
  json& primitive = builder.triangle();
  primitive["indices"] = builder.scalars<std::uint16_t>({0, 1, 2});
  ASSERT_TRUE(read_gltf(builder.text())) << read_gltf(builder.text()).error;
  change(builder, builder.json);
  expect_error(builder.text(), message);
}

struct Damage {
  const char* place;  // in the JSON
  json value;         // null takes away what is there
  const char* message;
};

void expect_broken(const Damage& damage) {
  expect_broken(
      [&](auto&, json& j) {
        const json::json_pointer place(damage.place);
        if (damage.value.is_null())
          j[place.parent_pointer()].erase(place.back());
        else
          j[place] = damage.value;
      },
      damage.message);
}

TEST(GltfBroken, Structure) {
  const Damage cases[] = {
      {"/nodes/0/mesh", 7, "nodes[0]: there is no mesh 7"},
      {"/nodes/0/mesh", "box", "nodes[0].mesh: should be an integer from 0 to 2147483647"},
      {"/nodes/0/mesh", 4294967296, "nodes[0].mesh: should be an integer"},
      {"/nodes/0/children", json::array({0, "1"}), "nodes[0].children[1]: should be an integer"},
      {"/nodes/0/children", json::array({5}), "nodes[0]: there is no node 5"},
      {"/nodes/0/matrix", {1, 2, 3}, "nodes[0]: matrix has 3 numbers in place of 16"},
      {"/meshes/0/primitives/0/attributes", nullptr, "'attributes' property is missing"},
      {"/meshes/0/primitives/0/mode", 7, "meshes[0].primitives[0]: mode 7 is none of glTF's"},
      {"/meshes/0/primitives/0/material", 0, "meshes[0].primitives[0]: there is no material 0"},
      {"/meshes", json::object(), "meshes: should be an array of objects"},
      {"/asset/version", "1.0", "asset.version: '1.0' is not supported"},
      {"/asset", nullptr, "asset"},
      {"/extensionsRequired", json::array({"KHR_draco_mesh_compression"}),
       "extensionsRequired: the extension KHR_draco_mesh_compression is not supported"},
      {"/extensionsRequired", json::array({"EXT_meshopt_compression"}),
       "extensionsRequired: the extension EXT_meshopt_compression is not supported"},
  };
  for (const Damage& each : cases) expect_broken(each);
  expect_broken(
      [](auto&, json& j) {
        j["scene"] = 2;
        j["scenes"] = {json::object()};
      },
      "scene: there is no scene 2");
}

TEST(GltfBroken, NodesThatAreNoTree) {
  const auto with_nodes = [](json nodes, json roots) {
    return [nodes = std::move(nodes), roots = std::move(roots)](auto&, json& j) {
      j["nodes"] = nodes;
      j["scenes"] = {{{"nodes", roots}}};
    };
  };
  const json child = {{"children", {1}}};
  const json leaf = json::object();
  expect_broken(with_nodes({child, leaf, child}, {0, 2}),
                "nodes[2]: its child 1 is also one of node 0");
  expect_broken(with_nodes({child, leaf}, {0, 1}), "scenes[0]: node 1 is no root");
  expect_broken(with_nodes({leaf}, {0, 0}), "scenes[0]: node 0 stands in it twice");
  // A cycle hangs below no root, so that it can't be walked.
  GltfBuilder cycle;
  cycle.json["nodes"] = {{{"children", {1}}}, {{"children", {0}}}};
  cycle.json["scenes"] = {{{"nodes", {0}}}};
  expect_error(cycle.text(), "scenes[0]: node 0 is no root");
  GltfBuilder deep;
  for (int i = 1; i <= 20000; ++i) deep.add("nodes", {{"children", {i}}});
  deep.add("nodes", json::object());
  expect_error(deep.text(), "lies deeper than 1024 levels");
}

TEST(GltfBroken, DataThatIsNotThere) {
  const Damage cases[] = {
      {"/accessors/0/count", 4,
       "accessors[0]: its 4 elements reach past the 36 bytes of bufferViews[0]"},
      {"/accessors/0/byteOffset", 18446744073709551615u,
       "accessors[0].byteOffset: should be an integer, 0 or above"},
      {"/accessors/0/byteOffset", 9223372036854775807, "accessors[0]: its 3 elements reach past"},
      {"/accessors/0/componentType", 5124, "accessors[0]: component type 5124 is none of glTF's"},
      {"/accessors/0/type", "VEC2", "accessors[0]: positions can't have 2 components"},
      {"/accessors/1/componentType", 5122, "accessors[1]: indices must be unsigned integers"},
      {"/accessors/0/bufferView", 9, "bufferViews[9]: there is no such buffer view"},
      {"/bufferViews/0/buffer", 3, "bufferViews[0]: there is no buffer 3"},
      {"/bufferViews/0/byteLength", 99, "bufferViews[0]: reaches past the 42 bytes of buffer 0"},
      {"/bufferViews/0/byteStride", 4, "accessors[0]: the stride 4 is below an element's 12 bytes"},
      {"/meshes/0/primitives/0/attributes/NORMAL", 8, "accessors[8]: there is no such accessor"},
  };
  for (const Damage& each : cases) expect_broken(each);
  expect_broken(
      [](GltfBuilder& b, json& j) {
        j["meshes"][0]["primitives"][0]["attributes"]["NORMAL"] = b.vec3({0, 0, 1});
      },
      "meshes[0].primitives[0]: an attribute has 1 entries for 3 positions");
  expect_broken(
      [](GltfBuilder& b, json& j) {
        j["meshes"][0]["primitives"][0]["indices"] = b.scalars<std::uint8_t>({0, 1, 3});
      },
      "meshes[0].primitives[0]: index 3 reaches past the 3 vertices");
  expect_broken(
      [](GltfBuilder& b, json& j) {
        j["accessors"][0]["sparse"] = {
            {"count", 1},
            {"indices", {{"bufferView", b.view<std::uint8_t>({3})}, {"componentType", 5121}}},
            {"values", {{"bufferView", b.view<float>({1, 2, 3})}}}};
      },
      "accessors[0]: sparse index 3 reaches past the 3 elements");
}

TEST(GltfBroken, BuffersThatCantBeLoaded) {
  const auto with_buffer = [](json buffer) {
    return [buffer = std::move(buffer)](auto&, json& j) { j["buffers"] = {buffer}; };
  };
  expect_broken(with_buffer({{"byteLength", 44}}), "buffers[0]: has neither a uri nor a BIN chunk");
  expect_broken(with_buffer({{"byteLength", 44}, {"uri", "data:;base64,AAAA"}}),
                "buffers[0]: holds 3 bytes, not the 44 that are told");
  expect_broken(with_buffer({{"byteLength", 44}, {"uri", "data:;base64,A!AA"}}),
                "buffers[0]: the data URI holds a character that is not base64");
  expect_broken(with_buffer({{"byteLength", 44}, {"uri", "a.bin"}}),
                "buffers[0]: 'a.bin' can't be looked for without a directory");
  GltfBuilder builder;
  builder.triangle();
  for (const char* uri : {"/etc/hostname", "file:///etc/hostname", "https://a.b/c.bin", "%2Fetc"}) {
    builder.json["buffers"] = {{{"byteLength", 36}, {"uri", uri}}};
    EXPECT_NE(read_gltf(builder.text(), ".").error.find("is no relative path"), std::string::npos);
  }
  builder.json["buffers"] = {{{"byteLength", 36}, {"uri", "no such.bin"}}};
  EXPECT_NE(read_gltf(builder.text(), "folder").error.find("buffers[0]: 'folder/no such.bin'"),
            std::string::npos);
  const auto read = osg::io::readGltf("/no/such/file.gltf");
  EXPECT_EQ(read.error.find("/no/such/file.gltf: "), 0u) << read.error;
}

TEST(GltfBroken, SmallFilesCantFillTheMemory) {
  GltfBuilder zeros;
  zeros.primitive({{"POSITION", zeros.add("accessors", {{"componentType", 5126},
                                                        {"count", 100'000'000},
                                                        {"type", "VEC3"}})}});
  expect_error(zeros.text(), "accessors[0]: more data is asked for than a file of this size can");
  GltfBuilder overlap;
  overlap.view(std::vector<float>(300'000));
  for (int i = 0; i < 2000; ++i)
    overlap.primitive({{"POSITION", overlap.add("accessors", {{"bufferView", 0},
                                                              {"componentType", 5126},
                                                              {"count", 100'000},
                                                              {"type", "VEC3"}})}});
  expect_error(overlap.glb(), "more data is asked for");
  // A JPEG header that claims 65500 x 65500 pixels costs a warning, not 12 gigabytes.
  GltfBuilder image;
  image.triangle()["material"] = 0;
  image.add("images", {{"uri", "data:image/jpeg;base64,/9j/wAARCP/c/9wDAREAAhEBAxEB"}});
  image.add("textures", {{"source", 0}});
  image.add("materials", {{"normalTexture", {{"index", 0}}}});
  const auto read = read_gltf(image.text());
  ASSERT_TRUE(read) << read.error;
  ASSERT_EQ(read.warnings.size(), 1u);
  EXPECT_NE(read.warnings[0].find("images[0]: 65500 x 65500 pixels"), std::string::npos)
      << read.warnings[0];
  std::string nested(100'000, '[');
  expect_error("{\"extras\":" + nested, "values nest deeper than 64 levels");
}

TEST(GltfBroken, SyntaxIsToldWithItsPlace) {
  expect_error("", "is empty");
  expect_error("solid cube", "is no glTF");
  expect_error("{\"asset\":{\"version\":\"2.0\"}", "JSON at byte 26: the text ends too early");
  expect_error("{\"asset\":{\"version\":\"2.0\"},\"nodes\":[{} {}]}",
               "JSON at byte 39: ',' is missing");
  expect_error("{\"asset\":{\"version\":\"2.0\"},\"extras\":tru}",
               "JSON at byte 39: 'tru' is no value");
  expect_error("{\"asset\":{\"version\":\"2.0\"},\"nodes\":[null]}",
               "nodes[0]: should be an object");
  expect_error("{\"n\\u006fdes\":[]}", "the name of a section is written with escapes");
}

// Every prefix and every single changed byte of a small file: an answer, and one that can be
// written and read again with the same counts.
TEST(GltfBroken, CutOffAndChangedFiles) {
  GltfBuilder builder;
  builder.triangle()["indices"] = builder.scalars<std::uint8_t>({0, 1, 2});
  builder.json["nodes"][0]["extras"] = {{"a", {1, nullptr, "x"}}};
  const std::string whole = builder.glb();
  for (std::size_t size = 0; size < whole.size(); ++size)
    EXPECT_FALSE(read_gltf(whole.substr(0, size))) << "the first " << size << " bytes";
  std::size_t readable = 0;
  for (std::size_t at = 0; at < whole.size(); ++at) {
    for (const int flip : {1, 0x80}) {
      std::string changed = whole;
      changed[at] = static_cast<char>(changed[at] ^ flip);
      const auto read = read_gltf(changed);
      EXPECT_NE(!read, read.error.empty());
      if (read) ++readable;
    }
  }
  EXPECT_GT(readable, 50u) << "changes of vertex data go unnoticed";
}

TEST(GltfBroken, Containers) {
  GltfBuilder builder;
  builder.triangle();
  const auto patched = [&](std::size_t at, std::size_t value) {
    return builder.glb().replace(at, 4, GltfBuilder::word(value));
  };
  expect_error(patched(4, 1), "header: version 1 is not supported");
  expect_error(patched(8, 100'000), "header: the file is cut off");
  expect_error(patched(12, 0xfffffff0), "chunk 0: reaches past the end of the file");
  expect_error(patched(16, 0), "chunk 0: is not the JSON chunk that must come first");
  expect_error("glTF", "header: the file ends within its header");
}

}  // namespace
