// Models of other formats than glTF, small ones that the tests write: what is kept of them, what
// is told of what is not, and what becomes of broken ones.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "osg/cores.h"
#include "osg/io/model_files.h"
#include "support/run_threads.h"
#include "support/scene_counts.h"
#include "support/scene_look.h"
#include "support/scene_parts.h"
#include "support/temp_folder.h"

// assimp 5.2 forgets the mesh that it is at when an OBJ file turns out to be broken. The leak
// checker asks for this name; without it the function is never called.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
  return "leak:libassimp.so\n";
}

namespace {

using support::count_scene;
using support::SceneCounts;

/// A folder of its own that goes with the test.
class OtherFormats : public testing::Test {
 protected:
  std::string path(const std::string& name) const { return (folder_ / name).string(); }
  void write(const std::string& name, const std::string& text) const {
    std::filesystem::create_directories((folder_ / name).parent_path());
    std::ofstream(folder_ / name, std::ios::binary) << text;
  }
  osg::SceneReadResult read(const std::string& name) const {
    return osg::SceneFileHandler::the().read(path(name));
  }
  osg::SceneReadResult read(const std::string& name, const std::string& text) const {
    write(name, text);
    return read(name);
  }
  /// The file with this text must be refused with a message that holds all of the parts.
  void expect_error(const std::string& name, const std::string& text,
                    const std::vector<std::string>& parts) const {
    const auto result = read(name, text);
    EXPECT_FALSE(result) << name << " should not be read";
    for (const std::string& part : parts)
      EXPECT_NE(result.error.find(part), std::string::npos)
          << "'" << result.error << "' should hold '" << part << "'";
    EXPECT_EQ(result.error.find('\n'), std::string::npos);
  }

  const support::TempFolder folder_;
};

/// A PNG of 2 x 2 pixels: red, green; blue and half transparent white.
std::string png() {
  const unsigned char bytes[] = {0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a, 0x00, 0x00, 0x00,
                                 0x0d, 0x49, 0x48, 0x44, 0x52, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00,
                                 0x00, 0x02, 0x08, 0x06, 0x00, 0x00, 0x00, 0x72, 0xb6, 0x0d, 0x24,
                                 0x00, 0x00, 0x00, 0x13, 0x49, 0x44, 0x41, 0x54, 0x78, 0x9c, 0x63,
                                 0xf8, 0xcf, 0xc0, 0xf0, 0x1f, 0x0c, 0x81, 0x34, 0x08, 0x34, 0x00,
                                 0x00, 0x49, 0x49, 0x09, 0x78, 0x28, 0xa0, 0xdb, 0x77, 0x00, 0x00,
                                 0x00, 0x00, 0x49, 0x45, 0x4e, 0x44, 0xae, 0x42, 0x60, 0x82};
  return {reinterpret_cast<const char*>(bytes), sizeof bytes};
}

/// By name, anywhere in the graph; the first in depth-first order.
osg::NodePtr find(const osg::NodePtr& node, const std::string& name) {
  const char* own = osg::getName(node);
  if (own && own == name) return node;
  for (const osg::NodePtr& child : node->getChildren())
    if (const osg::NodePtr found = find(child, name)) return found;
  return osg::NullFC;
}

osg::GeometryPtr geometry(const osg::SceneReadResult& read, const std::string& name) {
  const osg::NodePtr node = find(read.root, name);
  return node ? osg::Geometry::dcast(node->getCore()) : osg::GeometryPtr();
}

template <class Chunk>
osg::FCPtr<Chunk> chunk_of(const osg::GeometryPtr& geometry) {
  return osg::ChunkMaterial::dcast(geometry->getMaterial())->findFirstChunk<Chunk>();
}

/// "4x2 9x1": kinds of primitives and their lengths.
std::string primitives_of(const osg::GeometryPtr& geometry) {
  std::string text;
  for (osg::UInt32 i = 0; i < geometry->getTypes()->size(); ++i)
    text += std::to_string(geometry->getTypes()->getValue(i)) + "x" +
            std::to_string(geometry->getLengths()->getValue(i)) + " ";
  return text;
}

const char* const kPlateObj = R"(mtllib plate.mtl
o plate
v 0 0 0
v 1 0 0
v 1 1 0
v 0 1 0
vt 0 0
vt 1 0
vt 1 1
vt 0 0.75
usemtl painted
f 1/1 2/2 3/3 4/4
usemtl glass
f 1/1 2/2 3/3
f 1/1 3/3 4/4
o copy
usemtl painted
f 4/4 3/3 1/1
)";

TEST_F(OtherFormats, ObjWithMaterialsAndTextures) {
  write("plate.mtl",
        "newmtl painted\nKd 0.5 0.25 1\nKe 0.125 0 0\nNs 20\nmap_Kd sub\\tile.png\n"
        "newmtl glass\nKd 1 1 1\nd 0.25\nmap_Kd -clamp on .\\sub\\tile.png\n"
        "map_d .\\sub\\tile.png\nmap_Ks shine.png\n");
  write("sub/tile.png", png());
  const auto result = read("plate.obj", kPlateObj);
  ASSERT_TRUE(result) << result.error;
  ASSERT_EQ(result.warnings.size(), 1u);
  EXPECT_EQ(result.warnings[0], "specular textures are left out (1 material)");

  // One object of two materials is a group of two geometries that bear its name.
  ASSERT_EQ(result.root->getNChildren(), 2u);
  EXPECT_EQ(name_of(result.root), "");
  const osg::NodePtr plate = result.root->getChild(0);
  EXPECT_EQ(name_of(plate), "plate");
  ASSERT_EQ(plate->getNChildren(), 2u);
  EXPECT_EQ(name_of(plate->getChild(0)), "plate");
  EXPECT_EQ(name_of(plate->getChild(1)), "plate_2");
  EXPECT_EQ(name_of(result.root->getChild(1)), "copy");

  const auto painted = osg::Geometry::dcast(plate->getChild(0)->getCore());
  const auto glass = geometry(result, "plate_2");
  const auto copy = geometry(result, "copy");
  ASSERT_TRUE(painted && glass && copy);
  EXPECT_EQ(primitives_of(painted), "7x4 ");
  EXPECT_EQ(primitives_of(glass), "4x6 ");
  EXPECT_EQ(glass->getPositions()->size(), 4u) << "corners that agree are one vertex";
  EXPECT_FALSE(painted->getNormals()) << "none in the file";
  EXPECT_EQ(painted->getTexCoords()->getValue(3), osg::Vec2f(0.0f, 0.25f)) << "v is turned over";
  EXPECT_EQ(painted->getMaterial(), copy->getMaterial());
  EXPECT_EQ(name_of(painted->getMaterial()), "painted");

  const auto colors = chunk_of<osg::MaterialChunk>(painted);
  EXPECT_EQ(colors->getDiffuse(), osg::Color4f(0.5f, 0.25f, 1.0f, 1.0f));
  EXPECT_EQ(colors->getEmission(), osg::Color4f(0.125f, 0.0f, 0.0f, 1.0f));
  EXPECT_EQ(colors->getShininess(), 20.0f);
  EXPECT_FALSE(chunk_of<osg::BlendChunk>(painted));
  EXPECT_EQ(chunk_of<osg::MaterialChunk>(glass)->getDiffuse()[3], 0.25f);
  EXPECT_TRUE(chunk_of<osg::BlendChunk>(glass));

  const auto texture = chunk_of<osg::TextureChunk>(painted);
  const auto clamped = chunk_of<osg::TextureChunk>(glass);
  ASSERT_TRUE(texture && clamped);
  EXPECT_EQ(texture->getImage(), clamped->getImage()) << "one file is one image";
  EXPECT_EQ(texture->getImage()->getName(), "tile.png");
  EXPECT_EQ(texture->getImage()->getWidth(), 2);
  EXPECT_EQ(texture->getWrapS(), osg::gl::kRepeat);
  EXPECT_EQ(clamped->getWrapT(), osg::gl::kClampToEdge);
}

TEST_F(OtherFormats, MissingFilesAreToldOnceAndTheRestIsRead) {
  auto result = read("plate.obj", kPlateObj);
  ASSERT_TRUE(result) << result.error;
  ASSERT_EQ(result.warnings.size(), 1u);
  EXPECT_NE(result.warnings[0].find("plate.mtl' can't be read"), std::string::npos);
  EXPECT_EQ(count_scene(result.root).triangles, 5u);
  EXPECT_EQ(name_of(geometry(result, "copy")->getMaterial()), "painted");

  write("plate.mtl", "newmtl painted\nmap_Kd none.png\nnewmtl glass\nmap_Kd none.png\n");
  result = read("plate.obj");
  ASSERT_EQ(result.warnings.size(), 1u);
  EXPECT_NE(result.warnings[0].find("texture 'none.png': can't be opened"), std::string::npos);
  write("none.png", png().substr(0, 50));
  result = read("plate.obj");
  ASSERT_EQ(result.warnings.size(), 1u);
  EXPECT_NE(result.warnings[0].find("texture 'none.png': the image is broken"), std::string::npos);
  EXPECT_FALSE(chunk_of<osg::TextureChunk>(geometry(result, "copy")));
}

//      4        The dart 4-1-3-2 turns the wrong way at 3, so that its first corner is no ear: the
//     / \       triangle 2-4-1 holds 3. House and plate are convex and stay polygons.
//    / 3 \      .
//   /.' '.\     .
//  1       2
TEST_F(OtherFormats, PolygonsStayWhereTheyAreConvex) {
  const auto result = read("polygons.obj", R"(o mixed
v 0 0 0
v 4 0 0
v 2 1 0
v 2 4 0
v 0 2 0
v 4 2 0
f 1 2 6 4 5
f 1 2 6 5
f 4 1 3 2
l 1 2 3
p 6
)");
  ASSERT_TRUE(result) << result.error;
  const auto mixed = geometry(result, "mixed");
  ASSERT_TRUE(mixed);
  EXPECT_EQ(primitives_of(mixed), "9x5 7x4 4x6 1x4 0x1 ");
  const SceneCounts counts = count_scene(result.root);
  EXPECT_EQ(counts.triangles, 7u);
  EXPECT_EQ(counts.lines, 2u);
  EXPECT_EQ(counts.points, 1u);
  // All triangles turn as the faces do, and together they have the faces' area: 12, 8 and 6.
  double area = 0.0;
  for (auto at = mixed->beginTriangles(); !at.isAtEnd(); ++at) {
    const osg::Vec3f normal =
        (at.getPosition(1) - at.getPosition(0)).cross(at.getPosition(2) - at.getPosition(0));
    EXPECT_GT(normal[2], 0.0f);
    area += 0.5 * normal[2];
  }
  EXPECT_DOUBLE_EQ(area, 12.0 + 8.0 + 6.0);
}

TEST_F(OtherFormats, PlyKeepsColorsAndSharedVertices) {
  const std::string header =
      "ply\nformat ascii 1.0\nelement vertex 4\nproperty float x\n"
      "property float y\nproperty float z\nproperty uchar red\n"
      "property uchar green\nproperty uchar blue\nproperty uchar alpha\n";
  const std::string vertices =
      "0 0 0 255 0 0 255\n1 0 0 0 255 0 255\n1 1 0 0 0 255 51\n"
      "1 1 0 0 0 255 51\n";
  const auto result = read("faces.PLY", header +
                                            "element face 2\nproperty list uchar int "
                                            "vertex_indices\nend_header\n" +
                                            vertices + "3 0 1 2\n3 0 2 3\n");
  ASSERT_TRUE(result) << result.error;
  ASSERT_EQ(result.root->getNChildren(), 1u);
  const auto faces = osg::Geometry::dcast(result.root->getChild(0)->getCore());
  ASSERT_TRUE(faces);
  EXPECT_FALSE(faces->getMaterial()) << "the file has none";
  EXPECT_EQ(faces->getPositions()->size(), 4u) << "equal vertices of the file stay apart";
  EXPECT_EQ(primitives_of(faces), "4x6 ");
  EXPECT_EQ(faces->getColors()->getValue(1), osg::Color3f(0.0f, 1.0f, 0.0f));
  const auto colors = osg::GeoColors4f::dcast(faces->getColors());
  ASSERT_TRUE(colors);
  EXPECT_FLOAT_EQ(colors->values()[2][3], 0.2f);

  const auto cloud = read("cloud.ply", header + "end_header\n" + vertices);
  ASSERT_TRUE(cloud) << cloud.error;
  EXPECT_EQ(count_scene(cloud.root).points, 4u);
}

TEST_F(OtherFormats, StlJoinsEqualCornersOfAFacet) {
  const auto result = read("plate.stl", R"(solid plate
facet normal 0 0 1
 outer loop
  vertex 0 0 0
  vertex 1 0 0
  vertex 1 1 0
 endloop
endfacet
facet normal 0 0 1
 outer loop
  vertex 0 0 0
  vertex 1 1 0
  vertex 0 1 0
 endloop
endfacet
endsolid plate
)");
  ASSERT_TRUE(result) << result.error;
  const auto plate = geometry(result, "plate");
  ASSERT_TRUE(plate);
  EXPECT_EQ(primitives_of(plate), "4x6 ");
  EXPECT_EQ(plate->getPositions()->size(), 4u);
  EXPECT_EQ(plate->getNormals()->getValue(3), osg::Vec3f(0.0f, 0.0f, 1.0f));
  EXPECT_FALSE(plate->getMaterial());
}

/// `extra` goes below the scene, `asset` into the asset, `binding` below the first instance.
std::string collada(const std::string& extra = "", const std::string& asset = "",
                    const std::string& binding = "") {
  return R"(<?xml version="1.0" encoding="utf-8"?>
<COLLADA xmlns="http://www.collada.org/2005/11/COLLADASchema" version="1.4.1"><asset>)" +
         asset + R"(</asset>
<library_effects><effect id="red-effect"><profile_COMMON><technique sid="common"><lambert>
 <diffuse><color>1 0 0 1</color></diffuse></lambert></technique></profile_COMMON></effect>
</library_effects>
<library_materials><material id="red-material" name="red"><instance_effect url="#red-effect"/>
</material></library_materials>
<library_cameras><camera id="eye"><optics><technique_common><perspective><yfov>45</yfov>
 <znear>0.1</znear><zfar>10</zfar></perspective></technique_common></optics></camera>
</library_cameras>
<library_lights><light id="lamp"><technique_common><point><color>1 1 1</color></point>
 </technique_common></light></library_lights>
<library_geometries><geometry id="wedge-mesh" name="wedge"><mesh>
 <source id="p"><float_array id="pa" count="12">0 0 0 2 0 0 2 1 0 0 1 3</float_array>
  <technique_common><accessor source="#pa" count="4" stride="3"><param name="X" type="float"/>
  <param name="Y" type="float"/><param name="Z" type="float"/></accessor></technique_common>
 </source>
 <vertices id="v"><input semantic="POSITION" source="#p"/></vertices>
 <triangles material="paint" count="1"><input semantic="VERTEX" source="#v" offset="0"/>
  <p>0 1 2</p></triangles>
 <triangles count="1"><input semantic="VERTEX" source="#v" offset="0"/><p>0 2 3</p></triangles>
</mesh></geometry></library_geometries>
<library_visual_scenes><visual_scene id="scene" name="yard">
 <node id="n1" name="left"><translate>5 0 0</translate>
  <instance_geometry url="#wedge-mesh">)" +
         binding + R"(</instance_geometry></node>
 <node id="n2" name="right"><scale>-1 1 1</scale>
  <instance_geometry url="#wedge-mesh">)" +
         binding + "</instance_geometry></node>" + extra + R"(
</visual_scene></library_visual_scenes>
<scene><instance_visual_scene url="#scene"/></scene></COLLADA>)";
}

const char* const kPaintBinding =
    "<bind_material><technique_common><instance_material symbol=\"paint\" "
    "target=\"#red-material\"/></technique_common></bind_material>";

TEST_F(OtherFormats, ColladaSharesMirrorsAndKeepsAxes) {
  const auto result = read("yard.dae", collada("",
                                               "<unit name=\"inch\" meter=\"0.0254\"/>"
                                               "<up_axis>Z_UP</up_axis>",
                                               kPaintBinding));
  ASSERT_TRUE(result) << result.error;
  EXPECT_TRUE(result.warnings.empty()) << result.warnings[0];
  EXPECT_EQ(name_of(result.root), "yard");
  const auto attributes = osg::StringAttributeMap::dcast(
      result.root->findAttachment(osg::StringAttributeMap::getClassType()));
  ASSERT_TRUE(attributes);
  std::string value;
  EXPECT_TRUE(attributes->getAttribute("upAxis", value) && value == "Z") << value;
  EXPECT_TRUE(attributes->getAttribute("unitScale", value) && value == "0.0254") << value;

  const SceneCounts counts = count_scene(result.root);
  EXPECT_EQ(counts.geometry_nodes, 4u);
  EXPECT_EQ(counts.cores.size(), 2u) << "both nodes share both";
  EXPECT_EQ(counts.low[0], -2.0);
  EXPECT_EQ(counts.high[0], 7.0);
  EXPECT_EQ(counts.high[2], 3.0);
  const osg::NodePtr left = find(result.root, "left");
  const osg::NodePtr right = find(result.root, "right");
  ASSERT_TRUE(left && right);
  ASSERT_TRUE(osg::Transform::dcast(right->getCore()));
  EXPECT_EQ(osg::Transform::dcast(right->getCore())->getMatrix()[0], -1.0f);
  ASSERT_EQ(left->getNChildren(), 2u);
  EXPECT_EQ(left->getChild(0)->getCore(), right->getChild(0)->getCore());
  EXPECT_EQ(name_of(left->getChild(0)->getCore()), "wedge");

  // A part that names no material has none, though its neighbour and the document have one.
  const auto painted = osg::Geometry::dcast(left->getChild(0)->getCore());
  const auto bare = osg::Geometry::dcast(left->getChild(1)->getCore());
  EXPECT_EQ(name_of(painted->getMaterial()), "red");
  EXPECT_EQ(chunk_of<osg::MaterialChunk>(painted)->getDiffuse(),
            osg::Color4f(1.0f, 0.0f, 0.0f, 1.0f));
  EXPECT_FALSE(bare->getMaterial());

  const auto unbound = read("unbound.dae", collada());
  ASSERT_TRUE(unbound) << unbound.error;
  EXPECT_TRUE(count_scene(unbound.root).materials.empty());
}

TEST_F(OtherFormats, WhatIsLeftOutIsToldInALineEach) {
  const auto result = read(
      "eye.dae", collada("<node name=\"a\"><instance_camera url=\"#eye\"/></node><node name=\"b\">"
                         "<instance_light url=\"#lamp\"/></node>"));
  ASSERT_TRUE(result) << result.error;
  ASSERT_EQ(result.warnings.size(), 2u);
  EXPECT_EQ(result.warnings[0], "cameras are left out (1 camera)");
  EXPECT_EQ(result.warnings[1], "lights are left out (1 light)");
  EXPECT_TRUE(find(result.root, "a"));
  EXPECT_EQ(count_scene(result.root).geometry_nodes, 4u);

  const auto empty = read("empty.x3d", "<X3D version=\"3.0\"><Scene></Scene></X3D>");
  ASSERT_TRUE(empty) << empty.error;
  ASSERT_EQ(empty.warnings.size(), 1u);
  EXPECT_EQ(empty.warnings[0], "the file holds no geometry");
}

TEST_F(OtherFormats, OthersAreReadAsWell) {
  auto result = read("plate.off", "OFF\n4 2 0\n0 0 0\n1 0 0\n1 1 0\n0 1 0\n4 0 1 2 3\n3 0 1 2\n");
  ASSERT_TRUE(result) << result.error;
  EXPECT_EQ(count_scene(result.root).triangles, 3u);

  result = read("plate.x3d",
                "<X3D version=\"3.0\"><Scene><Transform DEF=\"T\" translation=\"1 2 3\"><Shape>"
                "<Appearance><Material diffuseColor=\"1 0 0\" transparency=\"0.5\"/></Appearance>"
                "<IndexedFaceSet coordIndex=\"0 1 2 3 -1\"><Coordinate point=\"0 0 0 1 0 0 1 1 0 0 "
                "1 0\"/></IndexedFaceSet></Shape></Transform></Scene></X3D>");
  ASSERT_TRUE(result) << result.error;
  const SceneCounts counts = count_scene(result.root);
  EXPECT_EQ(counts.triangles, 2u);
  EXPECT_EQ(counts.high[2], 3.0);
  ASSERT_TRUE(find(result.root, "T"));
  const auto shape = osg::Geometry::dcast(find(result.root, "T")->getChild(0)->getCore());
  EXPECT_EQ(chunk_of<osg::MaterialChunk>(shape)->getDiffuse(),
            osg::Color4f(1.0f, 0.0f, 0.0f, 0.5f));

  // One node of the file is one node here, whatever pivots it has.
  result = read("plate.fbx", R"(; FBX 7.4.0 project file
FBXHeaderExtension:  {
	FBXHeaderVersion: 1003
	FBXVersion: 7400
}
Objects:  {
	Geometry: 1000, "Geometry::Square", "Mesh" {
		Vertices: *12 {
			a: 0,0,0,1,0,0,1,1,0,0,1,5
		}
		PolygonVertexIndex: *4 {
			a: 0,1,2,-4
		}
	}
	Model: 2000, "Model::Plate", "Mesh" {
		Version: 232
		Properties70:  {
			P: "Lcl Translation", "Lcl Translation", "", "A",1,2,3
			P: "RotationPivot", "Vector3D", "Vector", "",1,0,0
		}
	}
}
Connections:  {
	C: "OO",1000,2000
	C: "OO",2000,0
}
)");
  ASSERT_TRUE(result) << result.error;
  const osg::NodePtr plate = find(result.root, "Plate");
  ASSERT_TRUE(plate);
  EXPECT_EQ(plate->getParent(), result.root);
  const auto placed = osg::Transform::dcast(plate->getCore());
  ASSERT_TRUE(placed);
  EXPECT_EQ(placed->getMatrix()[14], 3.0f);
  EXPECT_EQ(count_scene(result.root).high[2], 8.0);
}

TEST_F(OtherFormats, BrokenFilesAreRefusedWithFileAndReason) {
  expect_error("empty.obj", "", {"empty.obj", "is empty"});
  expect_error("no.dae", "<COLLADA", {"no.dae"});
  expect_error("text.dae", "not XML at all", {"text.dae"});
  expect_error("text.ply", "not a PLY file", {"text.ply"});
  expect_error("text.3ds", "ab", {"text.3ds"});
  expect_error("text.fbx", "; FBX 7.4.0\n{{{{", {"text.fbx"});
  expect_error("gltf.fbx", "{\"asset\":{\"version\":\"2.0\"}}", {"gltf.fbx"});
  expect_error("beyond.obj", "v 0 0 0\nv 1 0 0\nv 1 1 0\nf 1 2 7\n", {"beyond.obj"});
  std::filesystem::create_directories(folder_ / "folder.obj");
  auto result = read("folder.obj");
  EXPECT_EQ(result.error, path("folder.obj") + ": is no regular file");
  result = read("absent.obj");
  EXPECT_NE(result.error.find("absent.obj: can't be opened: No such file"), std::string::npos)
      << result.error;
  EXPECT_FALSE(osg::io::readOtherModel(path("suffix.unknown")));
  EXPECT_FALSE(osg::SceneFileHandler::the().findFormat("a.wrl"));
}

/// Memory for as many would be taken before the first is read, or the stack used up.
TEST_F(OtherFormats, CountsAndLevelsBeyondTheFileAreRefused) {
  std::string xml = "<COLLADA>", frames = "xof 0303txt 0032\n";
  for (int i = 0; i < 5000; ++i) xml += "<a b='\">'/><!--<c>--><?d?><e></e>";
  write("wide.dae", xml);
  EXPECT_EQ(read("wide.dae").error.find("deeper"), std::string::npos);
  for (int i = 0; i < 100000; ++i) xml += "<a>", frames += "Frame {\n";
  for (const auto& [name, text] : {std::pair("deep.dae", &xml), std::pair("deep.x", &frames)})
    expect_error(name, *text, {name, ": byte ", ": lies deeper than 4096 levels"});
  expect_error("huge.ply",
               "ply\nformat binary_little_endian 1.0\nelement vertex 4000000000\n"
               "property float x\nproperty float y\nproperty float z\nend_header\nabc",
               {"huge.ply: element: announces 4000000000 entries in a file of "});
  expect_error("huge.off", "OFF\n4000000000 1 0\n0 0 0\n",
               {"huge.off: OFF: announces 4000000000 entries in a file of 25 bytes"});
  expect_error("huge.ase", "*GEOMOBJECT {\n *MESH {\n  *MESH_NUMVERTEX 99999999999999999999\n",
               {"huge.ase: *MESH_NUM: announces 99999999999999999999 entries"});
  expect_error("huge.md5mesh", "MD5Version 10\nmesh {\n\tnumverts 500000000\n}\n",
               {"huge.md5mesh: num: announces 500000000 entries"});
}

/// Whatever a cut or changed file gives, it is a scene or a message.
TEST_F(OtherFormats, DamagedFilesDoNoHarm) {
  const std::string texts[] = {kPlateObj, collada("", "", kPaintBinding)};
  const char* const names[] = {"damaged.obj", "damaged.dae"};
  osg::UInt64 state = 20240607;
  const auto random = [&state] {
    state ^= state << 13;
    state ^= state >> 7;
    return state ^= state << 17;
  };
  for (int round = 0; round < 60; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    for (int format = 0; format < 2; ++format) {
      std::string text = texts[format];
      if (round % 2 == 0)
        text.resize(random() % text.size());
      else
        for (int change = 0; change < 3; ++change)
          text[random() % text.size()] = static_cast<char>('0' + random() % 10);
      const auto result = read(names[format], text);
      EXPECT_EQ(result.error.empty(), static_cast<bool>(result));
      if (result) count_scene(result.root);
    }
  }
}

TEST_F(OtherFormats, SeveralThreadsReadAtOnceAndNothingIsPrinted) {
  write("yard.dae", collada("", "", kPaintBinding));
  write("plate.obj", kPlateObj);
  write("text.ply", "not a PLY file");
  const std::string yard = support::SceneLook::of(read("yard.dae").root);
  const std::string plate = support::SceneLook::of(read("plate.obj").root);
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  std::vector<std::string> looks(8);
  support::run_threads(8, [&](int i) {
    for (int round = 0; round < 5; ++round) {
      looks[static_cast<std::size_t>(i)] =
          support::SceneLook::of(read(i % 2 == 0 ? "yard.dae" : "plate.obj").root);
      EXPECT_FALSE(read("text.ply"));
    }
  });
  EXPECT_EQ(testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr(), "");
  for (std::size_t i = 0; i < looks.size(); ++i) EXPECT_EQ(looks[i], i % 2 == 0 ? yard : plate);
}

}  // namespace
