#include "osb/scene_order.h"

#include <algorithm>
#include <limits>

#include "osb/failure.h"
#include "osg/osb.h"

namespace osg::osb {
namespace {

constexpr UInt32 kOpen = std::numeric_limits<UInt32>::max();
constexpr UInt16 kNoNumber = std::numeric_limits<UInt16>::max();

/// Collects the objects that fields refer to.
struct ReferenceVisitor {
  std::vector<FieldContainer*>& references;

  template <class T, class Set>
  void field(const char*, const T& value, Set&&) {
    take(value);
  }
  void entries(const char*, const GeoProperty&) {}
  void values(const ValueContainer& container) {
    readFields(container, [this](const char*, const auto& value) { take(value); });
  }

  template <class T>
  void take(const T& value) {
    if constexpr (Handle<T>) {
      if (value) references.push_back(value.getContainer());
    } else if constexpr (List<T>) {
      if constexpr (Handle<ElementOf<T>>)
        for (const auto& one : value) take(one);
    }
  }
};

bool is_own_type(const FieldContainer& attachment, std::string_view name) {
  return attachment.getType().getName() == name;
}

}  // namespace

std::optional<AttachmentKind> kind_to_write(const AttachmentContainer::Entry& entry) {
  const Attachment& attachment = *entry.attachment;
  if (attachment.isInternal()) return std::nullopt;
  if (entry.binding == 0 && is_own_type(attachment, "Name")) return AttachmentKind::Name;
  if (entry.binding == 0 && is_own_type(attachment, "AttachmentFields"))
    return AttachmentKind::Fields;
  // One with a place of its own would take another's place if it were read as its base.
  const KnownClass* known = class_to_write(attachment.getType());
  if (!known || known->type->getGroupId() != entry.group) return std::nullopt;
  return AttachmentKind::Object;
}

std::span<const AttachmentContainer::Entry> attachments_of(const FieldContainer& object) {
  if (!object.getType().isDerivedFrom(AttachmentContainer::getClassType())) return {};
  return static_cast<const AttachmentContainer&>(object).getAttachments();
}

SceneOrder::SceneOrder(const NodePtr& root) : class_numbers_(known_classes().size(), kNoNumber) {
  open(*root);
  // The branch stands in a list of its own: no depth of the graph can exhaust the stack.
  while (!frames_.empty()) {
    Frame& frame = frames_.back();
    if (frame.next_reference == references_.size()) {
      close();
      continue;
    }
    FieldContainer& object = *references_[frame.next_reference++];
    const auto known = numbers_.find(&object);
    if (known == numbers_.end())
      open(object);
    else if (known->second == kOpen)
      throw Failure{"a " + object.getType().getName() + " refers back to itself"};
    else if (known->second != 0)
      note_depth(depths_[known->second - 1]);
  }
}

void SceneOrder::open(FieldContainer& object) {
  const KnownClass* known = class_to_write(object.getType());
  if (!known) {
    warn("objects of class '" + object.getType().getName() + "' are left out");
    numbers_[&object] = 0;
    return;
  }
  if (known->type != &object.getType())
    warn("objects of class '" + object.getType().getName() + "' are written as '" +
         known->type->getName() + "'");
  numbers_[&object] = kOpen;
  frames_.push_back({&object, known, references_.size(), references_.size(), 0});
  collect_references(frames_.back());
}

void SceneOrder::close() {
  const Frame frame = frames_.back();
  frames_.pop_back();
  references_.resize(frame.first_reference);
  if (objects_.size() == kOpen - 1) throw Failure{"there are too many objects for one file"};
  objects_.push_back({frame.object, frame.known});
  depths_.push_back(frame.depth + 1);
  numbers_[frame.object] = static_cast<UInt32>(objects_.size());
  if (UInt16& number = class_numbers_[frame.known->number]; number == kNoNumber) {
    number = static_cast<UInt16>(classes_.size());
    classes_.push_back(frame.known);
  }
  note_depth(frame.depth + 1);
}

/// Of an object that the innermost open one refers to.
void SceneOrder::note_depth(UInt32 depth) {
  if (depth > kOsbMaxDepth)
    throw Failure{"the scene is deeper than " + std::to_string(kOsbMaxDepth) + " levels"};
  if (!frames_.empty()) frames_.back().depth = std::max(frames_.back().depth, depth);
}

void SceneOrder::collect_references(const Frame& frame) {
  UInt32 written = 0;
  for (const AttachmentContainer::Entry& entry : attachments_of(*frame.object)) {
    const std::optional<AttachmentKind> kind = kind_to_write(entry);
    if (kind == AttachmentKind::Object)
      references_.push_back(entry.attachment.getContainer());
    else if (!kind && !entry.attachment->isInternal())
      warn("attachments of class '" + entry.attachment->getType().getName() + "' are left out");
    if (kind && ++written > kMaxAttachments)
      throw Failure{"an object has more than " + std::to_string(kMaxAttachments) + " attachments"};
  }
  ReferenceVisitor visitor{references_};
  visit_fields(frame.known->list, *frame.object, visitor);
}

UInt32 SceneOrder::number_of(const FieldContainer* object) const {
  const auto known = numbers_.find(object);
  return known == numbers_.end() ? 0 : known->second;
}

std::vector<std::string> SceneOrder::warnings() const {
  std::vector<std::string> lines;
  for (const auto& [what, times] : warnings_)
    lines.push_back(times == 1 ? what : what + " (" + std::to_string(times) + " times)");
  return lines;
}

}  // namespace osg::osb
