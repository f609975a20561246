#pragma once

#include <cstddef>
#include <span>
#include <string>

#include "osg/io/export.h"
#include "osg/scene_file_handler.h"

/// Model files of others, in and out.
///
/// A reader keeps the node tree, names, transforms, shared meshes as shared cores, all kinds of
/// primitives, vertex attributes that a `Geometry` has a place for, materials with all that the
/// file says of them, and `extras` as `StringAttributeMap`s. What it leaves out it tells in one
/// warning a kind. An error tells file, place and reason; then nothing was read. Readers survive
/// any bytes: memory stays within a fixed multiple of the sizes of the files that are involved.
/// Nothing here throws but `std::bad_alloc`.
namespace osg::io {

/// Registers all formats of this library with the scene file handler. The library does so itself
/// when it is loaded; a program that links it only for the handler calls this, so that the linker
/// keeps the library. Any thread, any number of times.
OSG_IO_API void registerModelFormats();

/// Reads glTF 2.0, text or binary, which the first bytes tell.
///
/// The result is a Group node with the name of the scene; the default scene is read, the first if
/// none is named so, all root nodes of the file if it has no scenes. A glTF node becomes a node
/// with a Transform core, or with a Group core if its transform is the identity, and its mesh a
/// Geometry child for each primitive, which is named after the node, else after the mesh, and
/// numbered where names would repeat. A node without transform and children, whose mesh has one
/// primitive, is itself the Geometry node. Cores carry their mesh's name and extras.
///
/// `extras`: an object's members are attributes. Strings stand as they are, other values as compact
/// JSON. A string that would then read as another value stands in quotes, so that all come back
/// with their type. `extras` that is no object is the attribute with the empty key.
///
/// Feature ids of the attribute `_FEATURE_ID_0` come as texture coordinates 7, which are marked as
/// such (osg/io/feature_ids.h): the id and 0, -1 for the id that means none. If the file has others
/// for that set, the ids come in the last set that it has none for.
OSG_IO_API SceneReadResult readGltf(const std::string& file);

/// The same from memory. `name` is for messages; other files are looked for below `base_dir`, and
/// not at all if it is empty: buffers in files are then an error, images a warning.
OSG_IO_API SceneReadResult readGltfMemory(std::span<const std::byte> bytes,
                                          const std::string& base_dir, const std::string& name);

/// Writes glTF 2.0: one file for the suffix `.glb`; else JSON text, with vertex data beside it in
/// `<stem>.bin` and images in `<stem>_<number>.png` and the like, which are overwritten. The same
/// graph gives the same bytes.
///
/// A root with a plain Group core becomes the scene, any other the scene's one node. Shared cores
/// are written as shared meshes and shared properties once. A group whose first children are leaf
/// geometries named as the reader names them becomes one node with a mesh of several primitives.
/// Lists, loops and lone strips and fans stay; quads and polygons become triangles, and so do
/// strips and fans beyond 16 of a geometry. A geometry of several kinds becomes several primitives
/// of one mesh. Materials that came from glTF are written as they came where they weren't changed.
/// A geometry without material takes that of the topmost MaterialGroup above. Switch and
/// DistanceLOD cores become groups with all their children, told in a warning; a traversal mask
/// that isn't all ones becomes the extra "osg:travMask", which the reader understands.
///
/// Texture coordinates that are marked as feature ids are written as such, in the attribute
/// `_FEATURE_ID_0` with the extension EXT_mesh_features: their first component, as floats.
///
/// If anything can't be written, no file of the export is left behind.
OSG_IO_API SceneWriteResult writeGltf(const NodePtr& root, const std::string& file);

/// Reads any other format that is known, by the file's suffix: obj, ply, stl, dae, 3ds, fbx, x3d
/// and some thirty more. Files that the model names are looked for beside it; it is told in a
/// warning where they can't be had.
///
/// The result is a Group node with the file's nodes below it, as `readGltf` makes them, one
/// geometry a mesh. Coordinates stay in the file's axes and units, which its root tells in
/// attributes where the format has them (Collada: `upAxis` and `unitScale`, the unit in metres).
/// Polygons stay polygons if they are convex, else they become triangles. Normals are the file's,
/// none are made. The second texture coordinate is turned over, v to 1 - v, so that an image begins
/// at v = 0 as in glTF. Geometry for which the file names no material has none.
OSG_IO_API SceneReadResult readOtherModel(const std::string& file);

}  // namespace osg::io
