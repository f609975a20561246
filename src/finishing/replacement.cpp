#include "finishing/replacement.h"

#include <iostream>
#include <vector>

#include "finishing/rebuild.h"
#include "geoset/source.h"

namespace morlu::osg {

using ::osg::NodePtr;

namespace {

/// What is in its place already stays: new names, for one.
void add_attachments(const ::osg::AttachmentContainer& from, ::osg::AttachmentContainer& to) {
  for (const auto& [group, binding, attachment] : from.getAttachments())
    if (!attachment->isInternal() && !to.findAttachment(group, binding))
      to.addAttachment(attachment, binding);
}

void add_core_attachments(const ::osg::NodeCore& from, const NodePtr& to) {
  if (const auto geometry = ::osg::Geometry::dcast(to->getCore())) add_attachments(from, *geometry);
  for (const NodePtr& child : to->getChildren()) add_core_attachments(from, child);
}

}  // namespace

void carry_over(const NodePtr& from, const NodePtr& to) {
  const auto core = ::osg::Geometry::dcast(from->getCore());
  add_core_attachments(*core, to);
  add_attachments(*from, *to);
  if (const char* name = name_of_source(from, core)) ::osg::setName(to, name);
  to->setTravMask(from->getTravMask());
}

void become(const NodePtr& node, const NodePtr& result) {
  add_core_attachments(*node->getCore(), result);
  const std::vector<NodePtr> children(result->getChildren().begin(), result->getChildren().end());
  try {
    for (const NodePtr& child : children) node->addChild(child);
    node->setCore(result->getCore());
  } catch (...) {
    for (const NodePtr& child : children) node->subChild(child);
    throw;
  }
}

NodePtr put_in_place(const NodePtr& node, const NodePtr& result) {
  const NodePtr parent = node->getParent();
  if (!parent || node->getNChildren() > 0) {
    become(node, result);
    return node;
  }
  carry_over(node, result);
  parent->replaceChildBy(node, result);
  return result;
}

void say_stays(const NodePtr& node, std::string_view operation, std::string_view reason) {
  const char* const name = name_of_source(node, ::osg::Geometry::dcast(node->getCore()));
  std::cerr << operation << ": '" << (name ? name : "") << "' stays as it is: " << reason
            << std::endl;
}

bool shared_results::shows_image(const NodePtr& node) {
  return may_use_tex_coords(node);
}

/// As deep as a result: few levels.
NodePtr shared_results::copy_of(const NodePtr& node) {
  if (!node) return node;
  const NodePtr copy = ::osg::Node::dcast(node->shallowCopy());
  for (const NodePtr& child : node->getChildren()) copy->addChild(copy_of(child));
  return copy;
}

}  // namespace morlu::osg
