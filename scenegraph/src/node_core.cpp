#include "osg/node_core.h"

#include "mutexes.h"
#include "osg/cores.h"
#include "osg/node.h"

namespace osg {

namespace detail {

std::mutex& link_mutex() {
  static auto* mutex = new std::mutex;
  return *mutex;
}

std::mutex& volume_mutex() {
  static auto* mutex = new std::mutex;
  return *mutex;
}

}  // namespace detail

std::size_t NodeCore::getNumParents() const {
  const std::lock_guard lock(detail::link_mutex());
  return nodes_.size();
}

std::vector<FCPtr<Node>> NodeCore::getParents() const {
  const std::lock_guard lock(detail::link_mutex());
  return {nodes_.begin(), nodes_.end()};
}

void NodeCore::extendVolume(DynamicVolume&) const {}

void NodeCore::invalidate_nodes() {
  const std::lock_guard lock(detail::link_mutex());
  invalidate_nodes_locked();
}

void NodeCore::invalidate_nodes_locked() {
  for (const Node* node : nodes_) node->invalidateVolume();
}

void Transform::setMatrix(const TransformationMatrix<Real32>& matrix) {
  matrix_ = matrix;
  invalidate_nodes();
}

}  // namespace osg
