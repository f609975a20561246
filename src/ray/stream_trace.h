#pragma once

#include <span>

#include "ray/intersect.h"
#include "ray/triangle_set.h"

namespace morlu {

template <class T>
class bih_tree;

struct ray_query {
  math::vector3 origin;
  math::vector3 direction;
};

/// Vector units that rays can be traced on, the widest last.
enum class vector_unit { none, avx2, avx512 };

/// The widest unit of this machine.
vector_unit widest_unit();

/// The closest triangle of `set` for many rays, `hits[i]` for `rays[i]`: for each what `trace`
/// gives for it alone, bit for bit. Several rays are under way at once, a lane each, so that none
/// waits for memory alone. `unit` is one of this machine's. Allocates nothing.
void trace_many(const bih_tree<float>& tree, const osg::triangle_set& set,
                std::span<const ray_query> rays, std::span<ray_hit> hits,
                vector_unit unit = widest_unit());

}  // namespace morlu
