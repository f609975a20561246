#pragma once

#include <functional>
#include <type_traits>

#include "osg/node.h"

namespace osg {

/// Something that walks a graph and calls functions on the cores that it meets.
class OSG_API Action {
 public:
  /// Continue goes on with the node's children, Skip passes them by.
  enum ResultE : UInt8 { Continue, Skip };

  /// What is called at a node: with its core, and with the action, which tells the rest.
  using Functor = std::function<ResultE(CNodePtr& core, Action* action)>;

  virtual ~Action();

  /// The node being visited; null outside a walk.
  NodePtr getActNode() const { return NodePtr(act_node_); }

 protected:
  Action() = default;
  Action(const Action&) = delete;
  Action& operator=(const Action&) = delete;

  void setActNode(Node* node) { act_node_ = node; }

 private:
  Node* act_node_ = nullptr;  // held by the graph, which a walk doesn't change
};

namespace detail {

template <class Method>
struct CoreMethod;
template <class Core>
struct CoreMethod<Action::ResultE (Core::*)(Action*)> {
  using Class = Core;
};
template <class Core>
struct CoreMethod<Action::ResultE (Core::*)(Action*) const> {
  using Class = Core;
};

}  // namespace detail

/// A functor of a plain function or a function object.
template <class Function>
requires std::is_invocable_r_v<Action::ResultE, Function&, CNodePtr&, Action*> Action::Functor
makeFunctor(Function function) {
  return Action::Functor(std::move(function));
}

/// A functor of a core's own method, such as `&Geometry::intersect`. Cores of other classes are
/// passed over with Continue.
template <class Method>
Action::Functor makeMethodFunctor(Method method) {
  using Core = typename detail::CoreMethod<Method>::Class;
  return [method](CNodePtr& core, Action* action) {
    const FCPtr<Core> own = Core::dcast(core);
    return own ? ((*own).*method)(action) : Action::Continue;
  };
}

}  // namespace osg
