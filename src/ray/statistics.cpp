#include "morlu/ray.h"

namespace morlu {

bih_tree_stats::bih_tree_stats() {
  clear();
}
bih_tree_stats& bih_tree_stats::operator=(const bih_tree_stats& other) = default;
void bih_tree_stats::clear() {
  nodes = leaves = max_depth = max_leaf_size = 0;
}

// Three triangles a leaf keep a node's cost near that of its tests; 50 levels end chains of
// elements that no split can part.
build_setup::build_setup() : max_leaf_size(3), max_depth(50) {}
build_setup& build_setup::operator=(const build_setup& other) = default;

trace_statistics::trace_statistics() {
  clear();
}
trace_statistics& trace_statistics::operator=(const trace_statistics& other) = default;

trace_statistics& trace_statistics::operator+=(const trace_statistics& other) {
  rays += other.rays;
  occ_rays += other.occ_rays;
  node_tests += other.node_tests;
  leaf_tests += other.leaf_tests;
  tri_tests += other.tri_tests;
  failed_tri_tests += other.failed_tri_tests;
  overwrite_tri_tests += other.overwrite_tri_tests;
  return *this;
}

void trace_statistics::clear() {
  rays = occ_rays = node_tests = leaf_tests = 0;
  tri_tests = failed_tri_tests = overwrite_tri_tests = 0;
}

void trace_statistics::add_ray() {
  ++rays;
}
void trace_statistics::add_occ_ray() {
  ++occ_rays;
}
void trace_statistics::add_node_test() {
  ++node_tests;
}
void trace_statistics::add_leaf_test() {
  ++leaf_tests;
}
void trace_statistics::add_tri_test() {
  ++tri_tests;
}
void trace_statistics::add_failed_tri_test() {
  ++failed_tri_tests;
}
void trace_statistics::add_overwrite_tri_test() {
  ++overwrite_tri_tests;
}

}  // namespace morlu
