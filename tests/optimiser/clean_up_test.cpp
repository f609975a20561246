// Each clean-up operation beside a plain recursive one, on random graphs, and on graphs that a
// recursion, or a search a child, would not end on.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <random>

#include "morlu/optimiser.h"
#include "optimiser/plant_scene.h"
#include "primitives/node_walk.h"
#include "support/said.h"

namespace morlu::tests {
namespace {

using ::osg::NodePtr;

// --- Graphs as texts -----------------------------------------------------------------------------

// "G(S1(a!b)T(c))": a Group with a Switch that chooses its child 1 and a Transform, with
// geometries; b has traversal mask 0. G Group, M MaterialGroup, T Transform, L DistanceLOD, S
// Switch and its choice (- for none), N no core; lower case: geometry, e without primitives, c
// clear.

::osg::GeometryPtr geometry_of(char kind) {
  const auto geometry = ::osg::Geometry::create();
  const auto lengths = ::osg::GeoPLengthsUI32::create();
  lengths->push_back(kind == 'e' ? 0 : 3);
  geometry->setLengths(lengths);
  if (kind != 'x') geometry->setMaterial(kind == 'c' ? clear_material(0.005f) : plain_material(1));
  return geometry;
}

::osg::NodeCorePtr core_of(char kind) {
  if (kind == 'N') return ::osg::NullFC;
  if (kind == 'G') return ::osg::Group::create();
  if (kind == 'T') return ::osg::Transform::create();
  if (kind == 'L') return ::osg::DistanceLOD::create();
  if (kind == 'S') return ::osg::Switch::create();
  if (kind != 'M') return geometry_of(kind);
  const auto group = ::osg::MaterialGroup::create();
  group->setMaterial(clear_material(0));
  return group;
}

/// Builds what a text says; `nodes` in the order of the text.
struct graph {
  explicit graph(const std::string& text) {
    std::vector<NodePtr> above;
    std::uint32_t mask = ~0u;
    for (std::size_t i = 0; i < text.size(); ++i) {
      if (text[i] == '(') above.push_back(nodes.back());
      if (text[i] == ')') above.pop_back();
      if (text[i] == '!') mask = 0;
      if (!std::isalpha(text[i])) continue;
      nodes.push_back(node_with(core_of(text[i]), {text[i]}));
      nodes.back()->setTravMask(mask);
      mask = ~0u;
      if (const auto choice = ::osg::Switch::dcast(nodes.back()->getCore())) {
        ++i;
        choice->setChoice(text[i] == '-' ? -1 : text[i] - '0');
      }
      if (!above.empty()) above.back()->addChild(nodes.back());
    }
  }

  /// Everything about every node, also about those that are out of the graph.
  std::string all() const {
    std::map<NodePtr, std::size_t> number;
    for (const NodePtr& node : nodes) number.emplace(node, number.size());
    std::string text;
    for (const NodePtr& node : nodes) {
      text += std::to_string(number[node]) + ':';
      if (node->getCore()) text += node->getCore()->getType().getCName();
      if (const auto choice = ::osg::Switch::dcast(node->getCore()))
        text += std::to_string(choice->getChoice());
      text += ' ' + std::string(::osg::getName(node)) + (node->getTravMask() ? "" : " hidden");
      for (const NodePtr& child : node->getChildren())
        text += ' ' + std::to_string(number.at(child));
      text += '\n';
    }
    return text;
  }

  std::vector<NodePtr> nodes;
};

/// Names as they are by now, so that it tells who is where.
std::string text_of(const NodePtr& node) {
  std::string text = ::osg::getName(node);
  if (node->getTravMask() == 0) text.insert(0, 1, '!');
  if (node->getNChildren() == 0) return text;
  text += '(';
  for (const NodePtr& child : node->getChildren()) text += text_of(child);
  return text + ')';
}

// --- Plain operations ----------------------------------------------------------------------------

namespace plain {

template <class Core>
bool is_a(const NodePtr& node) {
  return !Core::dcast(node->getCore()).isNull();
}
bool is_group(const NodePtr& node) {
  return node->getCore() && node->getCore()->getType() == ::osg::Group::getClassType();
}
bool is_ordered(const NodePtr& node) {
  return is_a<::osg::Switch>(node) || is_a<::osg::DistanceLOD>(node);
}
void hide_by(const NodePtr& above, const NodePtr& node) {
  node->setTravMask(node->getTravMask() & above->getTravMask());
}
void replace(NodePtr node, NodePtr other) {
  const NodePtr parent = node->getParent();
  hide_by(node, other);
  if (is_ordered(parent)) return void(parent->replaceChildBy(node, other));
  parent->addChild(other);
  parent->subChild(node);
}

/// A Switch goes on to choose what it chose.
void unlink(const NodePtr& parent, const NodePtr& child) {
  const auto core = ::osg::Switch::dcast(parent->getCore());
  const int choice = core ? core->getChoice() : -1,
            count = static_cast<int>(parent->getNChildren());
  int place = 0;
  while (parent->getChild(static_cast<unsigned>(place)) != child) ++place;
  parent->subChild(child);
  if (place <= choice && choice < count) core->setChoice(place < choice ? choice - 1 : -1);
}

bool lod(const NodePtr& node);
bool choice(const NodePtr& node);

bool each_child(bool (*operation)(const NodePtr&), const NodePtr& node) {
  bool any = false;
  for (unsigned i = 0; i < node->getNChildren();)
    if (const NodePtr child = node->getChild(i); operation(child))
      any = true;
    else
      ++i;
  return any;
}

bool lod(const NodePtr& node) {
  if (!node->getCore()) return false;
  if (!is_a<::osg::DistanceLOD>(node)) return each_child(lod, node);
  if (node->getNChildren() == 0) return false;
  if (node->getParent()) replace(node, node->getChild(0));
  return true;
}

bool choice(const NodePtr& node) {
  if (!node->getCore()) return false;
  const auto core = ::osg::Switch::dcast(node->getCore());
  if (!core) return each_child(choice, node);
  const int chosen = core->getChoice();
  if (chosen >= static_cast<int>(node->getNChildren())) return false;
  if (!node->getParent()) return true;
  if (chosen < 0) {
    node->getParent()->subChild(node);
    return true;
  }
  const NodePtr child = node->getChild(static_cast<unsigned>(chosen));
  replace(node, child);
  choice(child);
  return true;
}

bool collected(const NodePtr& node, bool (*operation)(const NodePtr&)) {
  std::vector<NodePtr> gone;
  for (const NodePtr& child : node->getChildren())
    if (operation(child)) gone.push_back(child);
  if (gone.size() == node->getNChildren()) return !gone.empty();
  for (const NodePtr& child : gone) unlink(node, child);
  return false;
}

bool invisible(const NodePtr& node) {
  if (!node->getCore()) return false;
  if (const auto geometry = ::osg::Geometry::dcast(node->getCore())) {
    auto material = geometry->getMaterial();
    const auto group = osg::searchMaterialGroup(node);
    if (!material && group) material = ::osg::MaterialGroup::dcast(group->getCore())->getMaterial();
    if (!material) return false;
    const auto chunks = ::osg::ChunkMaterial::dcast(material);
    if (chunks && chunks->findFirstChunk<::osg::MaterialChunk>()) return true;
  }
  return collected(node, invisible);
}

bool no_geometry(const NodePtr& node) {
  if (const auto geometry = ::osg::Geometry::dcast(node->getCore()))
    return geometry->getLengths()->getValue(0) == 0;
  if (node->getNChildren() == 0) return true;
  return !is_ordered(node) && collected(node, no_geometry);
}

void remove(const NodePtr& node) {
  const NodePtr parent = node->getParent();
  if (!parent) return;
  const bool alone = parent->getNChildren() == 1;
  unlink(parent, node);
  if (alone) remove(parent);
}

bool hidden(const NodePtr& node) {
  const std::vector<NodePtr> children(node->getChildren().begin(), node->getChildren().end());
  if (node->getTravMask() == 0)
    remove(node);
  else
    std::for_each(children.begin(), children.end(), hidden);
  return false;
}

bool groups(const NodePtr& node) {
  const std::vector<NodePtr> children(node->getChildren().begin(), node->getChildren().end());
  if (children.empty()) return false;
  const NodePtr child = children[0];
  if (children.size() > 1 || (is_ordered(node) && is_group(child))) {
    std::for_each(children.begin(), children.end(), groups);
  } else if (is_group(child)) {
    while (child->getNChildren() > 0) {
      hide_by(child, child->getChild(0));
      node->addChild(child->getChild(0));
    }
    node->subChild(child);
    groups(node);
  } else if (is_group(node) && node->getParent()) {
    replace(node, child);
    groups(child);
  } else if (is_group(node)) {
    while (child->getNChildren() > 0) node->addChild(child->getChild(0));
    hide_by(child, node);
    node->setCore(child->getCore());
    node->subChild(child);
    groups(node);
  }
  return false;
}

}  // namespace plain

struct operation {
  const char* name;
  std::function<bool(const NodePtr&)> made;
  bool (*plain)(const NodePtr&);
};

template <void run(NodePtr)>
bool silent(const NodePtr& node) {
  run(node);
  return false;
}

const operation lod{"lod", osg::removeLODParts, plain::lod},
    choice{"switch", osg::removeSwitchParts, plain::choice},
    invisible{"invisible", osg::removeInvisibleParts, plain::invisible},
    empty{"empty", osg::removeNonGeoParts, plain::no_geometry},
    hidden{"hidden", silent<osg::deleteTravMaskZeroNodes>, plain::hidden},
    groups{"groups", silent<osg::RemoveGroupNodes>, plain::groups};
const operation* const operations[] = {&lod, &choice, &invisible, &empty, &hidden, &groups};

// --- Tests ---------------------------------------------------------------------------------------

TEST(CleanUp, KeepsToItsDefinitionAtTheEdges) {
  const struct {
    const operation& what;
    const char *before, *after;
    bool result;
    unsigned said = 0;
  } cases[] = {
      {lod, "L(ab)", "L(ab)", true},
      {lod, "G(Lb)", "G(Lb)", false},
      {lod, "G(L(abd)f)", "G(fa)", true},
      {lod, "G(L(L(a))L(b)d)", "G(dba)", true},
      {lod, "S1(aL(bd)f)", "S(abf)", true},
      {choice, "G(S1(abd)f)", "G(fb)", true},
      {choice, "G(S-(a)f)", "G(f)", true},
      {choice, "G(S2(ab)f)", "G(S(ab)f)", false},
      {choice, "G(S0(S1(aG(S0(b))))S0(d))", "G(G(b)d)", true},
      {choice, "L(S1(ab)d)", "L(bd)", true},
      {invisible, "G(cG(c))", "G(cG(c))", true, 2},
      {invisible, "G(caG(cb))", "G(aG(b))", false, 2},
      {invisible, "M(ax)", "M(a)", false, 1},
      {empty, "G(GG)", "G(GG)", true},
      {empty, "G(ea)", "G(a)", false},
      {empty, "G(S0(e)SL)", "G(S(e))", false},
      {hidden, "G(T(G(!a)))", "G", false},
      {groups, "G(G(G(ab)))", "G(ab)", false},
      {groups, "G(G(a)G(b)d)", "G(dab)", false},
      {groups, "G(T(ab))", "G(ab)", false},
      {groups, "S1(G(a)G(bd))", "S(aG(bd))", false},
      {groups, "S0(G(ab))", "S(G(ab))", false},
      {groups, "G(!G(a)b)", "G(b!a)", false},
  };
  for (const auto& [what, before, after, result, said] : cases) {
    SCOPED_TRACE(std::string(what.name) + ' ' + before);
    const graph made(before);
    test::said quiet;
    EXPECT_EQ(what.made(made.nodes[0]), result);
    quiet.end();
    EXPECT_EQ(text_of(made.nodes[0]), after);
    std::string lines;
    for (unsigned i = 0; i < said; ++i) lines += "Remove Geometry because of transparency.\n";
    EXPECT_EQ(quiet.out, lines);
  }
  for (const operation* each : operations) EXPECT_FALSE(each->made({}));
  osg::deleteNode({});
  osg::RenameMultipleNodeNames({}, false);
}

/// A text for a node and what is below it; lone children are frequent.
std::string random_text(std::mt19937& random, int depth) {
  constexpr char kinds[] = "GGGGMTLSSNaaecxb";
  const char kind = depth == 0 ? 'a' : kinds[random() % 16];
  std::string text = random() % 8 ? "" : "!";
  text += kind;
  if (kind == 'S') text += "-0123"[random() % 5];
  const unsigned children = random() % 3 ? random() % 4 : 1;
  if (depth == 0 || children == 0) return text;
  text += '(';
  for (unsigned i = 0; i < children; ++i) text += random_text(random, depth - 1);
  return text + ')';
}

TEST(CleanUp, DoesAsAPlainRecursion) {
  for (unsigned seed = 0; seed < 1500; ++seed) {
    std::mt19937 random(seed);
    const std::string text = random_text(random, 2 + static_cast<int>(seed % 6));
    const std::size_t start = seed % 3 ? 0 : 1;  // in the middle of a graph too
    for (const operation* each : operations) {
      SCOPED_TRACE(std::string(each->name) + ' ' + std::to_string(seed) + ' ' + text);
      const graph made(text), expected(text);
      if (made.nodes.size() <= start) continue;
      test::said quiet;
      const bool result = each->made(made.nodes[start]);
      quiet.end();
      ASSERT_EQ(result, each->plain(expected.nodes[start]));
      ASSERT_EQ(made.all(), expected.all());
    }
  }
}

TEST(CleanUp, KeepsTheChoiceOfOthersWithTheSameCore) {
  const graph one("S1(!abd)"), other("S1(abd)");
  other.nodes[0]->setCore(one.nodes[0]->getCore());
  osg::deleteTravMaskZeroNodes(one.nodes[0]);
  EXPECT_TRUE(one.all().starts_with("0:Switch0"));
  EXPECT_TRUE(other.all().starts_with("0:Switch1"));
}

TEST(CleanUp, NumbersNodesOfEqualName) {
  const auto names = [](bool geometry_only) {
    const graph made("G(aG(a)bG(a))");
    ::osg::setName(made.nodes[2], "a");
    osg::RenameMultipleNodeNames(made.nodes[0], geometry_only);
    return text_of(made.nodes[0]);
  };
  EXPECT_EQ(names(false), "G_0(a_0a_1(a_2)bG_1(a_3))");
  EXPECT_EQ(names(true), "G(a_0a(a_1)bG(a_2))");
}

/// The pattern below itself, in place of its '*', so many times.
NodePtr chain(const std::string& pattern, unsigned count) {
  NodePtr below = node_with(geometry_of('a'));
  while (count-- > 0) {
    const graph one(pattern);
    const auto end = std::find_if(one.nodes.begin(), one.nodes.end(), [](const NodePtr& node) {
      return std::string(::osg::getName(node)) == "z";
    });
    (*end)->getParent()->replaceChildBy(*end, below);
    below = one.nodes[0];
  }
  return below;
}

std::size_t count_of(const NodePtr& root) {
  std::size_t count = 0;
  osg::for_each_node(root, [&](const NodePtr&) { ++count; });
  return count;
}

// A recursion would end on its stack; a climb or a shift of the list a child takes minutes.
TEST(CleanUp, TakesDeepAndWideGraphs) {
  constexpr unsigned size = 50000;  // links, most of two levels
  const struct {
    const operation& what;
    const char* pattern;   // of the chain, z is the next link
    const char* siblings;  // of the wide group
    unsigned deep, wide;   // afterwards: nodes with the chain's top and leaf, children
  } cases[] = {
      {lod, "G(L(zb)d)", "L(a)b", 2 * size + 2, 2 * size},
      {lod, "L(z)", "L(L(a))b", 2, 2 * size},
      {choice, "T(S1(bz)d)", "S0(S0(a))b", 2 * size + 2, 2 * size},
      {invisible, "G(cxz)", "caG(c)", 2 * size + 2, size},
      {empty, "T(eGz)", "eaG(e)", size + 2, size},
      {hidden, "T(!bz)", "!aG(!b)d", size + 2, size},
      {groups, "G(G(z)b)", "G(G(a))bG(d)", 2 * size + 1, 3 * size},
      {groups, "G(G(z))", "a", 1, size},
  };
  for (const auto& [what, pattern, siblings, deep, wide] : cases) {
    SCOPED_TRACE(std::string(what.name) + ' ' + pattern);
    const NodePtr links = node_with(core_of('G')), group = node_with(core_of('G'));
    links->addChild(chain(pattern, size));
    for (unsigned i = 0; i < size; ++i) {
      const graph one(std::string("G(").append(siblings) + ')');
      while (one.nodes[0]->getNChildren() > 0) group->addChild(one.nodes[0]->getChild(0));
    }
    test::said quiet;
    what.made(links);
    what.made(group);
    quiet.end();
    EXPECT_EQ(count_of(links), deep);
    EXPECT_EQ(group->getNChildren(), wide);
  }
  const NodePtr top = chain("G(z)", size);
  NodePtr leaf = top;
  while (leaf->getNChildren() > 0) leaf = leaf->getChild(0);
  osg::deleteNode(leaf);
  EXPECT_EQ(top->getNChildren(), 0u);
}

}  // namespace
}  // namespace morlu::tests
