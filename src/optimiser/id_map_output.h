#pragma once

#include <osg/node.h>

#include <cstdint>
#include <string>

#include "optimiser/id_map_handler.h"

/// An id map: which geometry of the optimised scene holds which node of the source. Ids travel in
/// the texture coordinates 7 of merged geometry; here they are read back and written out.
///
/// In this order: reset the handler, record the source, optimise, collect, then write or attach.
/// All while no worker runs, none deeper in the stack for a deeper scene.
namespace morlu::osg {

/// Appends the node and what is below it to the handler's tree, as of now. A node's name is its
/// own, else its core's, else "none"; an empty name counts as none. Its attributes are those of
/// its attribute map, else of its core's. Null: nothing. O(nodes + attributes).
void recordTree(id_map_handler& handler, const ::osg::NodePtr& node, std::uint32_t level);

/// Reads the ids out of the named geometry at and below `node`, notes in the handler who holds
/// them, and moves them to the first free set of texture coordinates, 0 to 3; if none is free they
/// stay. A set without entries is free. The index mapping follows.
///
/// Values that are no id (not finite, negative, beyond the names) count for nobody. A core that
/// several named nodes share counts for each of them. What is below a geometry or below a node
/// without core is not looked at. O(entries log ids).
void collectGeometry(id_map_handler& handler, const ::osg::NodePtr& node);

/// Writes `name`.json, relative to the working directory, and says on the standard output that it
/// does so, or that it can't: then nothing is left there. No file if nothing has an id.
///
/// Names stand in the text as they are: what breaks JSON in a name breaks it in the file. Numbers
/// have six digits. Indentation makes a tree of depth d d times as long; memory is linear.
void writeJson(const id_map_handler& handler, const std::string& name);

/// Writes `name`.strict.json, the same structure as JSON whatever stands in names: escaped, bytes
/// that are no UTF-8 replaced. Silent; false if it can't be written, then nothing is left there. No
/// file, and true, if nothing has an id.
bool writeStrictJson(const id_map_handler& handler, const std::string& name);

/// Hangs the id map of the process on `root` as attribute maps, replacing what is there. By
/// binding, from 1: set of texture coordinates ("TC0" to "TC3") by final geometry; name, lower and
/// upper corner, diffuse colour by id; final geometries by source name. Null: nothing.
void attachToRoot(const ::osg::NodePtr& root);

}  // namespace morlu::osg
