#pragma once

#include <mutex>

namespace osg::detail {

/// Guards the weak links from cores to nodes and from properties to geometries, process-wide. Held
/// for a few instructions only; no reference is dropped while it is held, since the dying object
/// takes it too.
std::mutex& link_mutex();

/// Makes sure that one thread at a time computes volumes and bounds.
std::mutex& volume_mutex();

}  // namespace osg::detail
