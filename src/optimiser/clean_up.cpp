// Operations that take nodes out of a graph, in linear time and without recursion. What is stated
// as recursion with moves one by one is done in passes here: a list of children is only ever taken
// apart at its front and built up at its end, since taking from the middle moves the rest.
#include <osg/cores.h>
#include <osg/geometry.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "optimiser/scene_queries.h"
#include "primitives/node_moves.h"
#include "primitives/node_walk.h"
#include "primitives/say.h"

namespace morlu::osg {

namespace {

using ::osg::NodePtr;

template <class Core>
bool is_a(const NodePtr& node) {
  return !Core::dcast(node->getCore()).isNull();
}

bool is_plain_group(const NodePtr& node) {
  return node->getCore() && node->getCore()->getType() == ::osg::Group::getClassType();
}

/// Whether the places of the children mean something.
bool is_ordered(const NodePtr& node) {
  return is_a<::osg::Switch>(node) || is_a<::osg::DistanceLOD>(node);
}

std::vector<NodePtr> children_of(const NodePtr& node) {
  return {node->getChildren().begin(), node->getChildren().end()};
}

// --- Children replaced by what is below them -----------------------------------------------------

/// What stands for a node: a child of its own, or null if nothing does; no value if it stays.
using substitute = std::optional<NodePtr>;

/// What a Switch shows; null if that is nothing, and for other nodes.
NodePtr chosen_child(const NodePtr& node) {
  const auto core = ::osg::Switch::dcast(node->getCore());
  const std::int64_t choice = core ? core->getChoice() : -1;
  return choice >= 0 && choice < node->getNChildren()
             ? node->getChild(static_cast<::osg::UInt32>(choice))
             : NodePtr();
}

struct lod_rule {
  using core = ::osg::DistanceLOD;
  static constexpr bool at_once = false;  // what has come to the end of a list is looked at in turn
  static substitute of(const NodePtr& node) {
    if (!is_a<core>(node) || node->getNChildren() == 0) return {};
    return node->getChild(0);
  }
};

struct switch_rule {
  using core = ::osg::Switch;
  static constexpr bool at_once = true;
  static substitute of(const NodePtr& node) {
    const auto choice = core::dcast(node->getCore());
    const NodePtr chosen = chosen_child(node);
    if (!choice || (choice->getChoice() >= 0 && !chosen)) return {};
    return chosen;
  }
};

/// A Group's only child. Lone Groups below are dissolved by then.
struct group_rule {
  static constexpr bool at_once = true;
  static substitute of(const NodePtr& node) {
    if (!is_plain_group(node) || node->getNChildren() != 1) return {};
    const NodePtr child = node->getChild(0);
    if (is_plain_group(child)) return {};
    return child;
  }
};

/// What a node hides stays hidden without it. Null: nothing.
void hide_by(const NodePtr& above, const NodePtr& node) {
  if (node) node->setTravMask(node->getTravMask() & above->getTravMask());
}

template <class Rule>
void replace_in_place(const NodePtr& parent, NodePtr node) {
  while (const substitute other = Rule::of(node)) {
    hide_by(node, *other);
    parent->replaceChildBy(node, *other);
    if (!*other) return;
    node = *other;
  }
}

/// What is replaced waits in a queue beside those that stay, which move to the end of the list once
/// round, and so keep their order.
template <class Rule>
void replace_at_end(const NodePtr& parent) {
  const NodePtr queue = makeGroup();
  parent->addChild(queue);
  while (parent->getChild(0) != queue) {
    const NodePtr child = parent->getChild(0);
    (Rule::of(child) ? queue : parent)->addChild(child);
  }
  while (queue->getNChildren() > 0) {
    const NodePtr child = queue->getChild(0);
    const substitute other = Rule::of(child);
    if (other) hide_by(child, *other);
    if (!other) {
      parent->addChild(child);
    } else if (Rule::at_once) {
      queue->replaceChildBy(child, *other);
    } else {
      queue->addChild(*other);
      queue->subChild(child);
    }
  }
  parent->subChild(queue);
}

/// Replaces all children that the rule replaces: in their places where these mean something, else
/// by nodes at the end of the list. Linear. Where memory runs out, what was to be moved is in a
/// Group below the parent.
template <class Rule>
bool replace_children(const NodePtr& parent) {
  const auto children = parent->getChildren();
  if (std::none_of(children.begin(), children.end(),
                   [](const NodePtr& child) { return Rule::of(child).has_value(); }))
    return false;
  if (!is_ordered(parent))
    replace_at_end<Rule>(parent);
  else
    for (const NodePtr& child : children_of(parent)) replace_in_place<Rule>(parent, child);
  return true;
}

/// Puts what stands for a node in the node's place or at the end of the parent's list.
void replace(const NodePtr& node, const NodePtr& other) {
  const NodePtr parent = node->getParent();
  hide_by(node, other);
  if (other && is_ordered(parent)) {
    parent->replaceChildBy(node, other);
    return;
  }
  parent->addChild(other);
  parent->subChild(node);
}

template <class Rule>
bool replace_below(const NodePtr& top) {
  bool any = false;
  walk_nodes(top, [&](const NodePtr& node) {
    if (!node->getCore() || is_a<typename Rule::core>(node)) return false;
    any |= replace_children<Rule>(node);
    return true;
  });
  return any;
}

template <class Rule>
bool remove_alternatives(NodePtr node) {
  bool any = false;
  while (node && node->getCore()) {
    if (!is_a<typename Rule::core>(node)) return replace_below<Rule>(node) || any;
    const substitute other = Rule::of(node);
    if (!other) return any;
    if (!node->getParent()) return true;
    replace(node, *other);
    any = true;
    node = Rule::at_once ? *other : NodePtr();
  }
  return any;
}

// --- Parts that go -------------------------------------------------------------------------------

enum class verdict {
  stays,
  goes,
  with_children
};  // the last: goes if there are children, and all go

void choose(const NodePtr& node, const NodePtr& child) {
  const auto children = node->getChildren();
  const auto place = std::find(children.begin(), children.end(), child) - children.begin();
  if (node->getCore()->getNumParents() > 1)  // other nodes choose as before
    node->setCore(::osg::Switch::dcast(node->getCore()->shallowCopy()));
  ::osg::Switch::dcast(node->getCore())
      ->setChoice(child->getParent() == node ? static_cast<::osg::Int32>(place) : -1);
}

/// Runs what takes children out of a node. A Switch goes on to show what it shows, or nothing.
template <class Unlink>
void keeping_choice(const NodePtr& node, const Unlink& unlink) {
  const NodePtr chosen = chosen_child(node);
  unlink();
  if (chosen && chosen_child(node) != chosen) choose(node, chosen);
}

/// Takes the listed children, last first, out of a node, in one round of all children.
void unlink(const NodePtr& node, std::vector<NodePtr> last_first) {
  keeping_choice(node, [&] {
    for (const NodePtr& child : children_of(node)) {
      if (!last_first.empty() && last_first.back() == child) {
        node->subChild(child);
        last_first.pop_back();
      } else {
        node->addChild(child);
      }
    }
  });
}

/// A verdict on the node and all below it; below what stays or goes by itself nobody is asked.
/// Returns that on the node. What goes is unlinked from what stays; with `empties`, also from nodes
/// that go with their children. `judge` is `verdict(node, State&)`, a node before its children.
template <class State, class Judge>
bool remove_judged(const NodePtr& top, const State& state, bool empties, const Judge& judge) {
  struct judged {
    NodePtr node;
    std::size_t parent;
    verdict said;
    std::vector<NodePtr> gone;  // children that go, last first
  };
  std::vector<judged> all;
  walk_nodes(top, std::pair(std::size_t{0}, state), [&](const NodePtr& node, auto& inherited) {
    const verdict said = judge(node, inherited.second);
    all.push_back({node, inherited.first, said, {}});
    inherited.first = all.size() - 1;
    return said == verdict::with_children;
  });
  const auto goes = [](const judged& one) {
    if (one.said != verdict::with_children) return one.said == verdict::goes;
    return !one.gone.empty() && one.gone.size() == one.node->getNChildren();
  };
  std::vector<bool> is_going(all.size());
  for (std::size_t i = all.size(); i-- > 0;) {
    is_going[i] = goes(all[i]);
    if (is_going[i] && i > 0) all[all[i].parent].gone.push_back(all[i].node);
  }
  for (std::size_t i = 0; i < all.size(); ++i)
    if (!all[i].gone.empty() && (empties || !is_going[i]))
      unlink(all[i].node, std::move(all[i].gone));
  return is_going[0];
}

struct nothing {};

struct painted {
  NodePtr painter;  // the topmost MaterialGroup above; may be null
};

verdict judge_visibility(const NodePtr& node, painted& above) {
  constexpr double least_alpha = 0.01;
  if (!node->getCore()) return verdict::stays;
  const NodePtr painter = above.painter;
  if (!painter && is_a<::osg::MaterialGroup>(node)) above.painter = node;
  if (!is_a<::osg::Geometry>(node)) return verdict::with_children;
  const ::osg::MaterialPtr material = getPaintedMaterial(node, painter);
  material_colors colors;
  if (!material || !getMaterialColors(material, colors)) return verdict::stays;
  if (!(double{colors.diffuse[3]} < least_alpha)) return verdict::with_children;
  say("Remove Geometry because of transparency.\n");
  return verdict::goes;
}

verdict judge_geometry(const NodePtr& node, nothing) {
  if (const auto geometry = ::osg::Geometry::dcast(node->getCore())) {
    const auto& lengths = geometry->getLengths();
    const bool is_empty = !lengths || lengths->empty() || lengths->getValue(0) == 0;
    return is_empty ? verdict::goes : verdict::stays;
  }
  if (node->getNChildren() == 0) return verdict::goes;
  return is_ordered(node) ? verdict::stays : verdict::with_children;
}

// --- Lone children -------------------------------------------------------------------------------

/// Moves the children of a lone Group into the node, again and again.
void dissolve_lone_groups(const NodePtr& node) {
  while (node->getNChildren() == 1 && is_plain_group(node->getChild(0)) && !is_ordered(node)) {
    const NodePtr group = node->getChild(0);
    while (group->getNChildren() > 0) {
      const NodePtr child = group->getChild(0);
      hide_by(group, child);
      node->addChild(child);
    }
    node->subChild(group);
  }
}

/// A root can't be replaced: it becomes what its child is.
void take_over(const NodePtr& root, const NodePtr& child) {
  while (child->getNChildren() > 0) root->addChild(child->getChild(0));
  hide_by(child, root);
  root->setCore(child->getCore());
  root->subChild(child);
}

/// Settles everything about the children but what is below them. False if the walk ends here.
bool settle_children(const NodePtr& node) {
  dissolve_lone_groups(node);
  if (node->getNChildren() == 1 && !is_plain_group(node->getChild(0))) return false;
  for (const NodePtr& child : node->getChildren()) dissolve_lone_groups(child);
  replace_children<group_rule>(node);
  return true;
}

}  // namespace

bool removeLODParts(NodePtr node) {
  return remove_alternatives<lod_rule>(std::move(node));
}

bool removeSwitchParts(NodePtr node) {
  return remove_alternatives<switch_rule>(std::move(node));
}

bool removeInvisibleParts(NodePtr node) {
  return node && remove_judged(node, painted{searchMaterialGroup(node)}, false, judge_visibility);
}

bool removeNonGeoParts(NodePtr node) {
  return node && remove_judged(node, nothing{}, false, judge_geometry);
}

void deleteNode(NodePtr node) {
  while (node) {
    const NodePtr parent = node->getParent();
    if (!parent) return;
    const bool was_alone = parent->getNChildren() == 1;
    keeping_choice(parent, [&] { parent->subChild(node); });
    if (!was_alone) return;
    node = parent;
  }
}

void deleteTravMaskZeroNodes(NodePtr node) {
  const auto judge = [](const NodePtr& each, nothing) {
    return each->getTravMask() == 0 ? verdict::goes : verdict::with_children;
  };
  if (node && remove_judged(node, nothing{}, true, judge)) deleteNode(node);
}

void RemoveGroupNodes(NodePtr node) {
  if (!node) return;
  dissolve_lone_groups(node);
  if (const substitute child = group_rule::of(node)) {
    if (node->getParent()) {
      replace(node, *child);
      node = *child;
    } else {
      take_over(node, *child);
    }
  }
  walk_nodes(node, settle_children);
}

void RenameMultipleNodeNames(NodePtr node, bool geometryOnly) {
  std::map<std::string, std::vector<NodePtr>> nodes_of_name;
  for_each_node(std::move(node), [&](const NodePtr& each) {
    if (const char* name = ::osg::getName(each)) nodes_of_name[name].push_back(each);
  });
  for (const auto& [name, nodes] : nodes_of_name) {
    if (nodes.size() < 2) continue;
    std::size_t number = 0;
    for (const NodePtr& each : nodes)
      if (!geometryOnly || is_a<::osg::Geometry>(each))
        ::osg::setName(each, name + '_' + std::to_string(number++));
  }
}

}  // namespace morlu::osg
