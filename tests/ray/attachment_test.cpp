// The trees' life on cores, and picks through them.

#include "ray/attachment.h"

#include <gtest/gtest.h>

#include <boost/weak_ptr.hpp>

#include <osg/cores.h>
#include <osg/intersect_action.h>
#include <osg/remote_aspect.h>

#include "ray/ray_scenes.h"

namespace morlu::tests {
namespace {

using Attachment = ::osg::MorluBIHAttachment;

struct Hit {
  bool hit;
  float t;
  ::osg::NodePtr node;
  int triangle;
  ::osg::Vec3f normal;
};

Hit pick(const ::osg::NodePtr& root, const ::osg::Pnt3f& from, const ::osg::Vec3f& direction) {
  ::osg::IntersectAction action(::osg::Line(from, direction));
  action.apply(root);
  return {action.didHit(), action.getHitT(), action.getHitObject(), action.getHitTriangle(),
          action.getHitNormal()};
}

/// Registers the library's own test while it lives.
struct Registered {
  Registered() { osg::register_morlu_intersect(); }
  ~Registered() { osg::unregister_morlu_intersect(); }
};

TEST(Attachment, TypesAreThereFromTheStart) {
  const auto* type = ::osg::TypeBase::find("MorluBIH");
  ASSERT_NE(type, nullptr);
  EXPECT_EQ(type, &Attachment::getClassType());
  EXPECT_EQ(type->getParentName(), "Attachment");
  EXPECT_NE(::osg::TypeBase::find("MorluSetup"), nullptr);
  std::string text;
  Attachment::create()->getField().getValuesByString(text);
  EXPECT_EQ(text, "\"\"");
}

TEST(Attachment, PayloadsShareTheirTreesButNotTheMark) {
  osg::BIHAttachPayload one;
  ASSERT_TRUE(one.tree && one.geo_set);
  osg::BIHAttachPayload two(one);
  EXPECT_EQ(one.tree, two.tree);
  EXPECT_FALSE(one == two);
  EXPECT_TRUE(one == one);
  EXPECT_EQ(one.bin_size(), 0u);
  one.dirty = two.dirty = true;
  osg::update_bih_payload(mesh_node(tests::ball(4)), one);
  EXPECT_TRUE(two.tree->active);
  EXPECT_TRUE(two.dirty);
  EXPECT_FALSE(one.dirty);
}

TEST(Attachment, WalksAttachMarkAndReplace) {
  const auto root = node_with(::osg::Group::create());
  const auto shared = tests::make_geometry(tests::ball(4));
  const auto rogue = tests::make_geometry({{{{1, 1, 1}, {1, 1, 1}, {2, 2, 2}}}});
  for (const ::osg::NodeCorePtr& core :
       std::initializer_list<::osg::NodeCorePtr>{shared, shared, rogue, ::osg::NullFC})
    root->addChild(node_with(core));
  osg::num_attachments() = 0;
  osg::attach_bih(root);
  osg::attach_bih(::osg::NullFC);
  osg::mark_bih(root);
  EXPECT_EQ(osg::num_attachments(), 0u);

  osg::precalc_BIH(root);
  EXPECT_EQ(osg::num_attachments(), 2u);  // the shared core once
  osg::precalc_BIH(root);
  EXPECT_EQ(osg::num_attachments(), 2u);
  EXPECT_NE(::osg::RemoteAspect::getFieldFilter(Attachment::getClassType().getId()), 0u);
  const boost::weak_ptr<bih_tree<float>> first = osg::find_payload(shared)->tree;
  osg::update_bih(root);
  EXPECT_EQ(osg::num_attachments(), 5u);
  EXPECT_TRUE(first.expired());  // the replaced tree is gone
  EXPECT_EQ(shared->getAttachments().size(), 1u);
  EXPECT_FALSE(osg::find_payload(rogue)->tree->active);

  osg::mark_bih(root);
  EXPECT_TRUE(osg::find_payload(shared)->dirty);
  EXPECT_EQ(osg::usable_payload(root->getChild(0)), osg::find_payload(shared));
  EXPECT_FALSE(osg::find_payload(shared)->dirty);
  EXPECT_EQ(osg::usable_payload(root->getChild(2)), nullptr);
}

TEST(Attachment, InfoLines) {
  EXPECT_EQ(osg::get_info(::osg::NullFC), "No BIHTree.");
  const auto node = mesh_node({{{{0, 0, 0}, {2, 0, 0}, {0, 2, 1}}}});
  EXPECT_EQ(osg::get_info(node->getCore()), "No BIHTree.");
  osg::attach_bih(node);
  EXPECT_EQ(osg::get_info(node->getCore()),
            "BIHTree, A/N/L/D/MP/NT, bbox:  ACTIVE/2/2/0/1/1 (0, 0, 0)/(2, 2, 1)");
  const auto empty = node_with(::osg::Geometry::create());
  osg::attach_bih(empty);
  EXPECT_EQ(osg::get_info(empty->getCore()), "BIHTree, A/N/L/D/MP/NT, bbox:  INACTIVE/");
}

TEST(Attachment, AGeometryThatLostItsTrianglesKeepsItsTree) {
  const auto geometry = tests::make_geometry(tests::ball(4));
  const auto node = node_with(geometry);
  osg::attach_bih(node);
  const auto before = osg::get_info(geometry);
  geometry->setLengths(::osg::NullFC);
  osg::mark_bih(node);
  ASSERT_NE(osg::usable_payload(node), nullptr);
  EXPECT_EQ(osg::get_info(geometry), before);

  // Without memory for more triangles the set is empty, and the tree is of those that are gone.
  const osg::BIHAttachPayload& payload = *osg::find_payload(geometry);
  payload.geo_set->triangles.reset();
  payload.geo_set->count = 0;
  osg::mark_bih(node);
  EXPECT_EQ(osg::usable_payload(node), nullptr);
}

// A picked ball under a mirrored, unevenly scaled transform, with a rogue triangle before the
// others: numbers count usable triangles.
TEST(Pick, FindsTheNearestThroughTransforms) {
  const Registered registered;
  auto triangles = tests::ball(16);
  triangles.insert(triangles.begin(), {{{0, 0, 9}, {0, 0, 9}, {0, 0, 9}}});
  const auto geometry = tests::make_geometry(triangles);
  const auto root = node_with(::osg::Group::create());
  const auto add = [&](const ::osg::Matrix& matrix) {
    const auto node = node_with(geometry);
    root->addChild(placed(node, matrix));
    return node;
  };
  const auto large = add(::osg::Matrix::translation(10, 0, 0) * ::osg::Matrix::scale(4, 4, 4));
  const auto flat = add(::osg::Matrix::translation(4, 0, 0) * ::osg::Matrix::scale(0.5f, 3, 3));
  osg::num_picktests() = 0;
  const Hit hit = pick(root, {-5, 0.1f, 0.1f}, {1, 0, 0});
  ASSERT_TRUE(hit.hit);
  EXPECT_EQ(hit.node, flat);
  EXPECT_NEAR(hit.t, 8.5f, 0.02f);
  EXPECT_LT(hit.normal[0], -0.9f);
  EXPECT_EQ(osg::num_colltests(), 2u);
  EXPECT_EQ(pick(root, {30, 0.1f, 0.1f}, {-1, 0, 0}).node, large);
  EXPECT_FALSE(pick(root, {-5, 20, 0}, {1, 0, 0}).hit);

  // The layer's own test agrees, but for its count of triangles.
  osg::unregister_morlu_intersect();
  const Hit own = pick(root, {-5, 0.1f, 0.1f}, {1, 0, 0});
  EXPECT_EQ(own.node, hit.node);
  EXPECT_NEAR(own.t, hit.t, 1e-5f);
  EXPECT_NE(osg::find_payload(geometry), nullptr);
}

TEST(Pick, NoticesAMarkedGeometryAndAStaleVolume) {
  const Registered registered;
  const auto geometry = tests::make_geometry(tests::ball(8));
  const auto node = node_with(geometry);
  node->updateVolume();
  ASSERT_TRUE(pick(node, {-5, 0.1f, 0.1f}, {1, 0, 0}).hit);
  const auto positions = geometry->getPositions();
  for (::osg::UInt32 i = 0; i < positions->size(); ++i)
    positions->setValue(positions->getValue(i) + ::osg::Vec3f(0, 7, 0), i);
  ::osg::endEditCP(positions);
  EXPECT_FALSE(pick(node, {-5, 7.1f, 0.1f}, {1, 0, 0}).hit);  // nobody told the tree
  osg::mark_bih(node);
  EXPECT_TRUE(pick(node, {-5, 7.1f, 0.1f}, {1, 0, 0}).hit);
  EXPECT_FALSE(pick(node, {-5, 0.1f, 0.1f}, {1, 0, 0}).hit);
}

TEST(Pick, ByVolumesAlone) {
  const auto node = mesh_node(tests::ball(8));
  const auto lines = node_with(::osg::Geometry::create());
  osg::register_bbox_intersect();
  EXPECT_EQ(pick(node, {-5, 0, 0}, {1, 0, 0}).t, 0);  // the volume isn't known
  node->updateVolume();
  const Hit hit = pick(node, {-5, 0.99f, 0.99f}, {1, 0, 0});  // a corner of the box
  EXPECT_FALSE(pick(lines, {-5, 0, 0}, {1, 0, 0}).hit);
  osg::unregister_morlu_intersect();
  EXPECT_TRUE(hit.hit);
  EXPECT_NEAR(hit.t, 4, 1e-5f);
  EXPECT_EQ(hit.triangle, 0);
  EXPECT_EQ(hit.normal, ::osg::Vec3f(0, 0, 1));
}

}  // namespace
}  // namespace morlu::tests
