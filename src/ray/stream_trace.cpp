#include "ray/stream_trace.h"

#include <algorithm>

#include "ray/ray_stream.h"
#include "ray/trace.h"

namespace morlu {

namespace {

math::vector3 get(const ray_stream::vectors& from, int lane) {
  return {from.x.value[lane], from.y.value[lane], from.z.value[lane]};
}

}  // namespace

ray_stream::ray_stream(const bih_tree<float>& tree, const osg::triangle_set& set,
                       std::span<const ray_query> queries, std::span<ray_hit> answers)
    : nodes(tree.nodes.get()),
      indices(tree.indices.get()),
      triangles(set.triangles.get()),
      box(set.box),
      rays(queries.data()),
      hits(answers.data()),
      ray_count(queries.size()) {
  for (int lane = 0; lane < lanes; ++lane)
    bottom.value[lane] = top.value[lane] = lane * max_pending * words;
}

void ray_stream::finish(int lane) {
  ray_hit& out = hits[number.value[lane]];
  const math::vector3 from = get(origin, lane);
  out.hit = true;
  out.point = from + (get(end, lane) - from) * best_t.value[lane];
  out.normal = math::unit(get(normal, lane));
  out.t = reach.value[lane];
  out.index = best.value[lane];
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
  constexpr std::size_t most_at_once = std::size_t{1} << 30;  // rays are numbered in 31 bits
  for (; rays.size() > most_at_once; rays = rays.subspan(most_at_once)) {
    trace_many(tree, set, rays.first(most_at_once), hits, unit);
    hits = hits.subspan(most_at_once);
  }
  std::fill_n(hits.begin(), rays.size(), ray_hit{});
  ray_stream stream(tree, set, rays, hits);
  unit == vector_unit::avx512 ? avx512::walk_stream(stream) : avx2::walk_stream(stream);
#endif
}

}  // namespace morlu
