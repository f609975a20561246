// The trees' life on geometry cores.

#include "ray/attachment.h"

#include <osg/remote_aspect.h>

#include <boost/make_shared.hpp>

#include <sstream>

#include "primitives/node_walk.h"
#include "ray/bih_build.h"

namespace osg {

FieldDescription* MorluAttachBIHDesc::_desc[1];
FieldDescription* MorluAttachSetupDesc::_desc[1];

namespace {

/// The one field of an attachment of that type, described when it is first asked for.
template <class Attachment, class Desc>
FieldDescription* payload_description() {
  static FieldDescription description(
      Attachment::PayloadField::getClassType(), Desc::getFieldName(), Attachment::kPayloadFieldId,
      Attachment::kPayloadFieldMask, false, &Attachment::accessField);
  return &description;
}

}  // namespace

FieldDescription** MorluAttachBIHDesc::getDesc() {
  _desc[0] = payload_description<MorluBIHAttachment, MorluAttachBIHDesc>();
  return _desc;
}

FieldDescription** MorluAttachSetupDesc::getDesc() {
  _desc[0] = payload_description<MorluSetupAttachment, MorluAttachSetupDesc>();
  return _desc;
}

template class SField<morlu::osg::BIHAttachPayload, 0>;
template class MField<morlu::osg::BIHAttachPayload, 0>;
template class SField<morlu::osg::SetupAttachPayload, 0>;
template class MField<morlu::osg::SetupAttachPayload, 0>;
template class SimpleAttachment<MorluAttachBIHDesc>;
template class SimpleAttachment<MorluAttachSetupDesc>;

}  // namespace osg

namespace morlu::osg {

namespace {

// Registers both types when the library is loaded.
[[maybe_unused]] const ::osg::FieldContainerType* const registered_types[] = {
    &::osg::MorluBIHAttachment::getClassType(), &::osg::MorluSetupAttachment::getClassType()};

/// Fills set and tree from the node's geometry. What the set held before stays if there is no
/// usable triangle now. A tree that was active stays so; over a set that found no memory for its
/// triangles it is left without arrays.
void build_over_geometry(const ::osg::NodePtr& node, BIHAttachPayload& payload) {
  triangle_set& set = *payload.geo_set;
  bih_tree<float>& tree = *payload.tree;
  collect_triangles(node, set);
  if (set.count == 0) return tree.release();
  set.box = compute_bounding_box(set);
  bih_builder(tree, build_setup(3, 50)).build(set, set.box);
  tree.active = true;
}

}  // namespace

// --- Payloads

BIHAttachPayload::BIHAttachPayload()
    : tree(boost::make_shared<bih_tree<float>>()),
      geo_set(boost::make_shared<triangle_set>()),
      dirty(false) {}
BIHAttachPayload::BIHAttachPayload(const BIHAttachPayload& other) = default;
BIHAttachPayload& BIHAttachPayload::operator=(const BIHAttachPayload& other) = default;
BIHAttachPayload::~BIHAttachPayload() = default;
bool BIHAttachPayload::operator==(const BIHAttachPayload& other) const {
  return this == &other;
}
unsigned int BIHAttachPayload::bin_size() const {
  return 0;
}

SetupAttachPayload::SetupAttachPayload() : value(0) {}
SetupAttachPayload& SetupAttachPayload::operator=(const SetupAttachPayload& other) = default;
bool SetupAttachPayload::operator==(const SetupAttachPayload& other) const {
  return this == &other;
}
unsigned int SetupAttachPayload::bin_size() const {
  return 0;
}

// --- Trees on cores

BIHAttachPayload* find_payload(const ::osg::NodeCorePtr& core) {
  using Attachment = ::osg::MorluBIHAttachment;
  if (!core) return nullptr;
  const auto attachment = core->findAttachment(Attachment::getClassType(), 0);
  if (!attachment) return nullptr;
  return &static_cast<Attachment&>(*attachment).getField().getValue();
}

BIHAttachPayload* usable_payload(const ::osg::NodePtr& node) {
  BIHAttachPayload* payload = find_payload(node->getCore());
  if (!payload) {
    attach_bih(node);
    payload = find_payload(node->getCore());
  }
  if (!payload || !payload->tree->active) return nullptr;
  if (payload->dirty) update_bih_payload(node, *payload);
  return payload->tree->is_usable() ? payload : nullptr;
}

void attach_bih(::osg::NodePtr node) {
  if (!node || !node->getCore()) return;
  if (!(node->getCore()->getType() == ::osg::Geometry::getClassType())) return;
  BIHAttachPayload payload;
  build_over_geometry(node, payload);
  const auto& type = ::osg::MorluBIHAttachment::getClassType();
  const auto attachment = ::osg::MorluBIHAttachment::create();
  attachment->setInternal(true);
  ::osg::RemoteAspect::addFieldFilter(type.getId(),
                                      ::osg::AttachmentContainer::AttachmentsFieldMask);
  attachment->getField().setValue(payload);
  node->getCore()->addAttachment(attachment, 0);
  ++num_attachments();
}

void precalc_BIH(::osg::NodePtr node) {
  for_each_node(std::move(node), [](const ::osg::NodePtr& each) {
    if (!find_payload(each->getCore())) attach_bih(each);
  });
}

void update_bih(::osg::NodePtr node) {
  for_each_node(std::move(node), [](const ::osg::NodePtr& each) { attach_bih(each); });
}

void mark_bih(::osg::NodePtr node) {
  for_each_node(std::move(node), [](const ::osg::NodePtr& each) {
    if (BIHAttachPayload* payload = find_payload(each->getCore())) payload->dirty = true;
  });
}

void update_bih_payload(::osg::NodePtr node, BIHAttachPayload& payload) {
  build_over_geometry(node, payload);
  payload.dirty = false;
}

unsigned int& num_attachments() {
  static unsigned int count = 0;
  return count;
}

std::string get_info(::osg::NodeCorePtr core) {
  const BIHAttachPayload* payload = find_payload(core);
  if (!payload) return "No BIHTree.";
  const auto corner = [](std::ostream& out, const math::vector3& p) {
    out << '(' << p[0] << ", " << p[1] << ", " << p[2] << ')';
  };
  std::ostringstream out;
  out << "BIHTree, A/N/L/D/MP/NT, bbox: ";
  if (!payload->tree->active) {
    out << " INACTIVE/";
    return out.str();
  }
  const bih_tree_stats& stats = payload->tree->stats;
  out << " ACTIVE/" << stats.nodes << '/' << stats.leaves << '/' << stats.max_depth << '/'
      << stats.max_leaf_size << '/' << payload->geo_set->count << ' ';
  corner(out, payload->geo_set->box.min);
  out << '/';
  corner(out, payload->geo_set->box.max);
  return out.str();
}

}  // namespace morlu::osg
