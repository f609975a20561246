#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <osg/geometry.h>
#include <osg/handle.h>
#include <osg/node.h>

#include "morlu/export.h"
#include "morlu/kd.h"

/// Questions that are asked of a scene graph. None changes the graph; null nodes are harmless. A
/// core counts as of a type if it is of that type or of one derived from it.
///
/// A geometry's effective material is its own, else that of the topmost MaterialGroup above the
/// node, else none. Skipped geometry is what no optimisation touches: geometry with traversal mask
/// 0, under a SwitchMaterial, or with a CubeTextureChunk.
namespace morlu::osg {

/// Collects the nodes with geometry at and below `node`, parents first, children in order, appended
/// to `list`: opaque ones first, then with `withSwitched` those under Switch and DistanceLOD cores,
/// then transparent ones, whose texture or material lets light through. Skipped geometry and what
/// has traversal mask 0 is left out with all below it; under a Switch or DistanceLOD neither is
/// asked, and a geometry ends its branch.
///
/// If `node` itself has a geometry, the list gets a new node with the same core in its place.
/// Returns the size of `list` before the transparent ones were appended. O(nodes + pixels), each
/// image is looked at once.
MORLU_API unsigned getGeometryNodes(::osg::NodePtr node, std::vector<::osg::NodePtr>& list,
                                    bool withSwitched);

/// The same with the transparent nodes in a list of their own. Returns the number of nodes under
/// Switch and DistanceLOD cores, whether or not `withSwitched` asked for them.
MORLU_API unsigned getGeometryNodes(::osg::NodePtr node, std::vector<::osg::NodePtr>& list,
                                    std::vector<::osg::NodePtr>& alphaList, bool withSwitched);

/// Appends the nodes of skipped geometry to `list`, without looking below one.
MORLU_API void getSkippedNodes(::osg::NodePtr node, std::vector<::osg::NodePtr>& list);

/// Appends the geometry nodes that a traversal mask of 0, their own or that of a node above them up
/// to `node`, hides; all of them if `hidden`. A node without core ends its branch.
MORLU_API void getTravMaskZeroNodes(::osg::NodePtr node, std::vector<::osg::NodePtr>& list,
                                    bool hidden);

/// The topmost node above `node`, not `node` itself, whose core is a MaterialGroup; null if there
/// is none. O(depth).
MORLU_API ::osg::RefPtr<::osg::NodePtr> searchMaterialGroup(const ::osg::NodePtr& node);

}  // namespace morlu::osg

/// Clean-up: nodes are taken out of a graph, dissolved or renamed, in place. Nothing is freed but
/// what nobody else holds. Null nodes are harmless. All takes time linear in the nodes, however
/// deep or wide the graph is, and works without recursion. Where memory runs out, `std::bad_alloc`
/// leaves, and what was not to be removed is still in the graph, maybe below one more Group.
///
/// What is put in the place of a node gets its traversal mask too: what was hidden stays hidden.
/// Children after an unlinked one move up. A Switch goes on to choose the child that it chose, none
/// if that went; of a DistanceLOD, levels move up.
namespace morlu::osg {

/// Replaces each DistanceLOD at and below `node` by its first child, also where that is one again.
/// Children that replace come to the end of the parent's list, in their order; under a Switch or
/// DistanceLOD, where places mean something, they take the place of what they replace. A
/// DistanceLOD without child stays, and so does `node` itself if it has no parent: nothing below it
/// changes then. If `node` itself is replaced, what is below its first child stays as it is.
///
/// True if there was something to replace, a `node` without parent included.
MORLU_API bool removeLODParts(::osg::NodePtr node);

/// The same for each Switch and the child that it chooses. A Switch with a negative choice goes,
/// and all below it; one that chooses a child that it doesn't have stays as it is. What replaces
/// `node` itself is gone through too.
MORLU_API bool removeSwitchParts(::osg::NodePtr node);

/// Unlinks geometry with a diffuse alpha below 0.01, with all below it, and what has only such
/// children. Geometry without effective material, or with one whose colours can't be read, ends its
/// branch and stays. A line on standard output for each geometry found.
///
/// True if `node` itself should go: what is to be unlinked then is left to the caller.
MORLU_API bool removeInvisibleParts(::osg::NodePtr node);

/// Unlinks what draws nothing: geometry whose first length is 0 or that has none, with all below
/// it, nodes without children, and what has only such children. Geometry that draws and Switch and
/// DistanceLOD with children stay with all below them.
///
/// True if `node` itself should go: what is to be unlinked then is left to the caller.
MORLU_API bool removeNonGeoParts(::osg::NodePtr node);

/// Unlinks `node` from its parent, and the parent from its own if it has no other child, and so on
/// upwards. The topmost, having no parent, stays without children. Nothing for a node without
/// parent. O(nodes that go), plus the children of the last parent.
MORLU_API void deleteNode(::osg::NodePtr node);

/// `deleteNode` on all nodes at and below `node` with a traversal mask of 0: nodes all of whose
/// children go, go too, also above `node`.
MORLU_API void deleteTravMaskZeroNodes(::osg::NodePtr node);

/// Dissolves chains of single children. A Group (of that very type) that is the only child of a
/// node is replaced by its children; a Group with one child that is no Group is replaced by it, at
/// the end of the parent's list. Nothing below a node that is no Group and has one child that is
/// none either. A Switch or DistanceLOD gets no children dissolved into it, and keeps places.
///
/// A `node` without parent takes over the core and the children of its only child, whose name and
/// attachments are lost, as are those of Groups.
MORLU_API void RemoveGroupNodes(::osg::NodePtr node);

/// Nodes at and below `node` that share a name get "_0", "_1", ... behind it, parents first,
/// children in order; with `geometryOnly` only those with geometry are renamed and counted. A new
/// name may be that of another node. O(n log n).
MORLU_API void RenameMultipleNodeNames(::osg::NodePtr node, bool geometryOnly);

}  // namespace morlu::osg

/// Placement: new positions for a scene. Volumes follow, and trees of the subgraph are marked as
/// stale. Each core moves once, however many nodes show it, in its own space. Nothing is thrown: a
/// failure ends an operation with a line on standard error. Refusals are lines on standard output
/// and leave all as it was; a null node is refused or nothing. O(nodes + positions).
namespace morlu::osg {

/// Scales and shifts all positions below `node` alike, so that its world box comes to lie in that
/// from `min` to `max`, lower corner on lower corner, as large as it fits. Geometry below geometry
/// stays. Exact where no transforms stand above geometry: positions move in their own space, and
/// transforms stay. Positions that cores share move once.
///
/// Refused unless `min` is below `max` on all axes, both finite, and if the scene's box is flat on
/// an axis, empty, or without end.
MORLU_API void transformSceneBB(::osg::NodePtr node, const ::osg::Point<float, 3>& min,
                                const ::osg::Point<float, 3>& max);

/// Into the cube of that side about the origin. A size of 0 or less: nothing, and silent.
MORLU_API void transformSceneBB(::osg::NodePtr node, float size);

/// With six numbers between colons: "1:2:3:4:5:6", min first. What is no number counts as 0,
/// further ones are ignored; fewer are refused.
MORLU_API void transformSceneBB(::osg::NodePtr node, std::string values);

/// Bakes all transforms at and below `node`, and those above it, into positions and normals, and
/// moves the centre of its volume to the point in `values`, as "1:2:3" (read as above). All
/// geometry below, hidden and switched too, gets a core of its own, a clone. Transforms become
/// Groups. Says where to and by how much. A DistanceLOD measures from where it did.
///
/// Normals are turned, without stretch and mirroring; the corners of mirrored geometry keep their
/// order. Silent without geometry; refused with fewer than three numbers or where a transform or
/// the volume isn't finite. If memory runs out, nothing has changed.
MORLU_API void centerGeoPositions(::osg::NodePtr node, std::string values);

/// Takes from all positions what is whole in the lowest x, y and z among them, so that they come to
/// lie near the origin. Takes part what `getGeometryNodes` finds, without switched geometry.
/// Nothing happens if a transform stands above any of it. Positions that two cores share move once
/// for each. Silent.
MORLU_API void baseGeoPositions(::osg::NodePtr node);

}  // namespace morlu::osg

/// How to optimise. What drives it is a text of options, `name(value)`, cut at commas:
/// "opt(1),maxtris(5000),flat(true)". Names match in any case; of equal ones the first counts.
namespace morlu::osg {

/// Settings of a merge; `optTree` reads them from the options of the same names.
struct mergeGeo_setup {
  /// Material groups of fewer triangles get their colour as vertex colours; below 1 none does.
  std::int32_t vertexcolor = -1;
  /// Geometry with texture coordinates beyond this stays out of the texture atlas; -1 once that has
  /// run.
  std::int32_t texcoords = 2;
  /// Above 0: triangles are cut until their texture coordinates span no more than this; -1 once the
  /// atlas has run.
  std::int32_t optimizetc = 2;
  /// Form of new geometry: 0 three vertices a triangle, 1 single index, 2 an index an attribute,
  /// 3 strips and fans.
  std::int32_t opt = 1;
  /// Most workers at once; below 2 the calling thread works.
  std::int32_t numthreads = 1;
  /// The merge says nothing.
  bool silent = false;
  /// No effect.
  bool storeondisk = false;
  /// Vertices come in world coordinates.
  bool toworld = true;
  /// No hierarchy above the merged geometry.
  bool flat = true;
  /// Every new core is put in the order of the vertex cache.
  bool cacheopt = false;
  /// Normals are computed anew.
  bool calcnormals = false;
  /// No effect.
  bool addcolorstex = false;
  /// Geometry without texture loses its texture coordinates.
  bool deleteunusedtc = true;
  /// Within a material only nodes of equal name are merged.
  bool mergesamename = false;
  /// A material's geometry is merged by spatial subdivision.
  bool mergehierarchy = false;
  /// All geometry is one group, without material.
  bool ignorematerial = false;
  /// Transparent geometry is merged with the opaque.
  bool alphageometry = false;
  /// Hidden geometry is kept, hidden.
  bool keeprenderfalse = false;
  /// Name of the id map; empty: none is made.
  std::string idmap;
};

/// The options as a text for users, one a line. Option names in it are for reading:
/// `checkOptParams` knows those that work.
MORLU_API std::string optTreeDoc();

/// Part of a parameter string that has no effect or another one than it seems, and why.
struct param_warning {
  std::string token;   // as it stands between its commas
  std::string reason;  // follows the token in a sentence: "is no option"
};

/// What `optTree` passes over silently in a parameter string, in its order: what is not of the form
/// name(value), names that no option bears, options that were given before, values that are no
/// number or no truth value where the option takes one, or out of range, and what stands behind a
/// value. O(text).
MORLU_API std::vector<param_warning> checkOptParams(const std::string& params);

/// Whether `optTree` takes geometry away with this text, on purpose: levels of detail or choices
/// that are not the first or not chosen, gut-out, a hull. O(text).
MORLU_API bool takesGeometryAway(const std::string& params);

/// The value that `optTree` takes from the text for an option, whose name matches in any case; none
/// if it isn't given. O(text).
MORLU_API std::optional<std::string> findOptParam(const std::string& params,
                                                  const std::string& name);

/// Writes the id map of the last `optTree` a second time, to `name`.strict.json: the same
/// structure, but JSON whatever stands in names and attributes. What JSON can't hold is escaped,
/// bytes that are no UTF-8 are replaced. Silent; false if the file can't be written, then none is
/// left. No file, and true, if nothing has an id. Not while an `optTree` runs.
MORLU_API bool writeStrictIdMap(const std::string& name);

/// Which set of texture coordinates of a final geometry holds the ids of its sources since the last
/// `optTree` with an id map, 0 to 3, or 7 where none of those was free; -1 for geometry that has no
/// ids from there and for null. The first component is the id, negative where there is none.
/// O(log geometries). Not while an `optTree` runs.
MORLU_API std::int32_t getIdMapSet(const ::osg::GeometryPtr& geometry);

/// Merges the geometry below `node` into few large cores: sorted by material, cut along a kd tree
/// into pieces of about `kd.leaf_size` elements at most (3,000,000 with `cacheopt`), built in the
/// form `opt`. Each group of one material becomes a Group node below the result, a new Group node
/// without parent, which the caller owns.
///
/// Sources stay in their places, and keep what `extract` and the settings leave them: colours may
/// have moved into their vertices (`vertexcolor`), unused texture coordinates may be gone.
/// Transparent geometry (without `alphageometry`) and hidden geometry (with `keeprenderfalse`, else
/// it is left out) moves from the input below Transform nodes of the result, without being merged;
/// children of such a node stay behind. Geometry below Switch and DistanceLOD takes no part, nor
/// does skipped geometry.
///
/// Of `kd`, `leaf_size` and `max_depth` count. With `numthreads` of 2 and more, groups are merged
/// on threads; results are the same but for the running numbers in names. Progress goes to standard
/// output. Nothing is thrown: a failure ends the merge with a line on standard error, and the
/// result has what is done by then; null if there is no memory even for a node.
///
/// One call at a time in the process; nobody else may use the graph meanwhile. O(triangles log
/// triangles) time; memory for about four times the flat form of the largest group, or of as many
/// groups as threads.
MORLU_API ::osg::NodePtr mergeGeo(::osg::NodePtr node, const kd_build_setup& kd,
                                  const mergeGeo_setup& setup);

/// Rebuilds the geometry below `node` as a spatial tree, and returns that, a new node without
/// parent. The nodes that `getGeometryNodes` finds are parted along a kd tree into leaves of fewer
/// than `kd.leaf_size` triangles, single nodes apart; of `kd` nothing else counts. In each leaf the
/// textures become one atlas, all that shows it one core, and the rest is merged by material; a
/// core of more triangles is cut. The result is `flat`, up to 128 cores a Group, or Groups that
/// follow the places of the cores, 16 a Group. Positions are those in the world, `opt` is the form
/// of the cores, `optimizetc` the bound of texture coordinates in atlases (see `mergeGeo_setup`).
/// With `idmap` cores of a single, cut leaf get ids of their sources. Cores with an atlas and those
/// that come of a cut get new normals, with a crease angle of 30 degrees.
///
/// Sources that are in the result, which all with triangles are, leave `node`, with nodes that are
/// then empty; what was below them stays, as does a geometry of `node` itself. Geometry of lines or
/// points only stays in `node`, as does what `getGeometryNodes` leaves out. Of the material of what
/// goes into an atlas the texture, how it mixes with colours and with what lies behind, and colours
/// that all in the leaf have are kept.
///
/// Null, and nothing is said or done, for null and where there is no geometry. Progress goes to
/// standard output. Throws `std::bad_alloc`, also where memory ran out in a part that else would
/// have left a gap; all geometry is then still in `node`. One call at a time in the process.
/// O(triangles log triangles) time; memory for several times the flat form of all geometry.
MORLU_API ::osg::NodePtr buildSceneTree(::osg::NodePtr node, const kd_build_setup& kd, bool flat,
                                        int opt, int optimizetc, bool idmap);

/// Optimises a scene of which some geometry is to be skipped: removes what is hidden and what draws
/// nothing, merges the rest by `kd` and `setup`, and rebuilds that by `buildSceneTree`. Returns a
/// new scene without parent: the rebuilt one and, unless `dropSource`, beside it `node` with what
/// takes no part: skipped geometry and what is below Switch and DistanceLOD; `node` then leaves its
/// parent. `noTexLimit` is `texcoords` -1.
///
/// Each geometry is in the result once. Where a part of the merge fails its sources are rebuilt in
/// its place. Throws `std::bad_alloc`; all geometry is then in `node`, some of it maybe merged.
/// Null gives null. Progress goes to standard output. One call at a time in the process.
MORLU_API ::osg::NodePtr optWithSkippedGeo(::osg::NodePtr node, mergeGeo_setup setup,
                                           kd_build_setup kd, bool noTexLimit, bool dropSource);

/// Makes a scene cheaper to draw, by a text of options (see `optTreeDoc`): stages in a fixed order,
/// all in place but the merge (`maxtris`, `cacheopt`), the hulls and the hierarchy (`flat`).
///
/// Returns the new scene, without parent, or `node` itself if nothing built one. `node` is changed
/// in place by stages before the merge, equal materials become one, and it returns to its parent as
/// the last child, also when an exception leaves. Null gives null.
///
/// An empty text asks for fixed choices: textures go into an atlas, geometry is merged by material
/// and put in cache order. What is below Switch and DistanceLOD or hidden comes below the result.
/// Where geometry is to be skipped, `optWithSkippedGeo` takes over, with pieces of 25,000
/// triangles. `node` then stays out of its parent, and maybe in the result, unless an exception
/// leaves.
///
/// Progress goes to standard output. One call at a time in the process.
MORLU_API ::osg::NodePtr optTree(::osg::NodePtr node, std::string params);

}  // namespace morlu::osg
