#pragma once

#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

#include "osg/scene_file_handler.h"

namespace osg {

/// What goes from an object to the objects that it refers to at most so many times in a row; deeper
/// graphs are refused by writer and reader, as the layer destroys what it holds by recursion.
inline constexpr UInt32 kOsbMaxDepth = 2000;

/// Puts the subgraph at `root` into `bytes` as an .osb file has it: nodes, cores, geometry,
/// materials, images, names, attributes, and what shares what. Equal scenes give equal bytes,
/// whatever the addresses and the order of creation.
///
/// Objects of classes derived from the layer's own are written as the nearest of these, attachments
/// other than names, fields and attribute maps are left out; both with a warning. Internal
/// attachments are left out. Refused are a null root, graphs deeper than `kOsbMaxDepth` and
/// materials that hold themselves; `bytes` is then empty.
OSG_API SceneWriteResult writeOsb(const NodePtr& root, std::vector<std::byte>& bytes);

/// Makes a scene of the bytes of an .osb file; `name` stands for the file in messages. Bytes that
/// no writer makes are refused with place and reason. Takes memory and time in proportion to the
/// number of bytes, whatever they are.
OSG_API SceneReadResult readOsb(std::span<const std::byte> bytes, std::string_view name);

}  // namespace osg
