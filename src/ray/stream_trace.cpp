#include "ray/stream_trace.h"

#include "ray/ray_stream.h"
#include "ray/trace.h"

namespace morlu {

namespace {

void put(ray_stream::vectors& to, int lane, const math::vector3& v) {
  to.x.value[lane] = v[0];
  to.y.value[lane] = v[1];
  to.z.value[lane] = v[2];
}
math::vector3 get(ray_stream::vectors& from, int lane) {
  return {from.x.value[lane], from.y.value[lane], from.z.value[lane]};
}

}  // namespace

ray_stream::ray_stream(const bih_tree<float>& tree, const osg::triangle_set& set,
                       std::span<const ray_query> rays, std::span<ray_hit> hits)
    : nodes(tree.nodes.get()),
      indices(tree.indices.get()),
      triangles(set.triangles.get()),
      set_(set),
      rays_(rays),
      hits_(hits) {
  for (int lane = 0; lane < lanes; ++lane) top.value[lane] = lane * max_pending;
}

void ray_stream::start(int lane) {
  const unsigned bit = 1u << lane;
  hit &= ~bit;
  busy &= ~bit;
  while (next_ < rays_.size()) {
    const std::size_t number = next_++;
    hits_[number] = ray_hit{};
    ray_hit entry{};
    const ray_query& query = rays_[number];
    const float t_exit = intersect_box(set_.box, query.origin, query.direction, entry);
    if (!entry.hit) continue;
    const walk_ray ray(query.origin, query.direction, t_exit);
    put(origin, lane, ray.origin);
    put(end, lane, ray.end);
    put(inverse, lane, ray.inverse_direction);
    node.value[lane] = 0;
    t_min.value[lane] = entry.t;
    t_max.value[lane] = t_exit;
    top.value[lane] = lane * max_pending;
    number_[lane] = number;
    busy |= bit;
    return;
  }
}

void ray_stream::finish(int lane) {
  if (!(hit >> lane & 1)) return;
  ray_hit& out = hits_[number_[lane]];
  const triangle& at = triangles[best.value[lane]];
  const math::vector3 from = get(origin, lane);
  intersect_triangle(at[0], at[1], at[2], from, get(end, lane), out);
  out.index = best.value[lane];
  finish_hit(from, out);
}

vector_unit widest_unit() {
#ifdef MORLU_VECTOR_UNITS
  static const vector_unit widest = __builtin_cpu_supports("avx512f") ? vector_unit::avx512
                                    : __builtin_cpu_supports("avx2")  ? vector_unit::avx2
                                                                      : vector_unit::none;
  return widest;
#else
  return vector_unit::none;
#endif
}

void trace_many(const bih_tree<float>& tree, const osg::triangle_set& set,
                std::span<const ray_query> rays, std::span<ray_hit> hits, vector_unit unit) {
  if (unit == vector_unit::none || tree.stats.max_depth + 2 > ray_stream::max_pending) {
    empty_trace_statistics nothing;
    for (std::size_t i = 0; i < rays.size(); ++i)
      trace(tree, set, rays[i].origin, rays[i].direction, hits[i], nothing);
    return;
  }
#ifdef MORLU_VECTOR_UNITS
  ray_stream stream(tree, set, rays, hits);
  (unit == vector_unit::avx512 ? avx512::walk_stream : avx2::walk_stream)(stream);
#endif
}

}  // namespace morlu
