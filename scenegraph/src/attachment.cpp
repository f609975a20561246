#include "osg/attachment.h"

#include <algorithm>

namespace osg {

namespace {

/// Carries a container's name.
class Name : public ContainerClass<"Name", Name, Attachment> {
 public:
  std::string text;

 protected:
  friend ContainerClass<"Name", Name, Attachment>;
  Name() = default;
  Name(const Name&) = default;
  ~Name() override = default;
};

/// Carries a container's own keyed texts. A type of its own, so that they never mix with the
/// attribute maps that an application attaches.
class AttachmentFields : public ContainerClass<"AttachmentFields", AttachmentFields, Attachment> {
 public:
  std::vector<StringAttributeMap::Attribute> texts;

 protected:
  friend ContainerClass<"AttachmentFields", AttachmentFields, Attachment>;
  AttachmentFields() = default;
  AttachmentFields(const AttachmentFields&) = default;
  ~AttachmentFields() override = default;
};

using Attributes = std::vector<StringAttributeMap::Attribute>;

auto find_key(const Attributes& attributes, std::string_view key) {
  return std::ranges::find(attributes, key, &StringAttributeMap::Attribute::first);
}

void set_key(Attributes& attributes, std::string_view key, std::string_view value) {
  const auto known = std::ranges::find(attributes, key, &StringAttributeMap::Attribute::first);
  if (known != attributes.end())
    known->second = value;
  else
    attributes.emplace_back(key, value);
}

template <class T>
const T* find_own(const AttachmentContainer& container) {
  return static_cast<const T*>(container.findAttachment(T::getClassType()).getContainer());
}

}  // namespace

void Attachment::executeSync(FieldContainer& other, FieldMask mask) {
  FieldContainer::executeSync(other, mask);
  if (mask & (FieldMask{1} << kInternalFieldId))
    internal_ = static_cast<Attachment&>(other).internal_;
}

AttachmentPtr AttachmentContainer::findAttachment(UInt32 group, UInt16 binding) const {
  for (const Entry& entry : attachments_)
    if (entry.group == group && entry.binding == binding) return entry.attachment;
  return NullFC;
}

void AttachmentContainer::addAttachment(const AttachmentPtr& attachment, UInt16 binding) {
  if (!attachment) return;
  const UInt32 group = attachment->getType().getGroupId();
  for (Entry& entry : attachments_) {
    if (entry.group != group || entry.binding != binding) continue;
    entry.attachment = attachment;
    return;
  }
  attachments_.push_back({group, binding, attachment});
}

void AttachmentContainer::subAttachment(const FieldContainerType& type, UInt16 binding) {
  std::erase_if(attachments_, [&](const Entry& entry) {
    return entry.group == type.getGroupId() && entry.binding == binding;
  });
}

void AttachmentContainer::setAttachmentField(std::string_view key, std::string_view value) {
  auto texts = getAttachmentFields();
  set_key(texts, key, value);
  setAttachmentFields(std::move(texts));
}

void AttachmentContainer::setAttachmentFields(
    std::vector<std::pair<std::string, std::string>> texts) {
  // A new object each time: the old one may be shared with copies of this container.
  const auto fields = AttachmentFields::create();
  fields->texts = std::move(texts);
  addAttachment(fields);
}

std::string AttachmentContainer::getAttachmentField(std::string_view key) const {
  const auto* fields = find_own<AttachmentFields>(*this);
  if (!fields) return {};
  const auto known = find_key(fields->texts, key);
  return known == fields->texts.end() ? std::string() : known->second;
}

std::vector<std::pair<std::string, std::string>> AttachmentContainer::getAttachmentFields() const {
  const auto* fields = find_own<AttachmentFields>(*this);
  return fields ? fields->texts : Attributes();
}

void StringAttributeMap::setAttribute(std::string_view key, std::string_view value) {
  set_key(attributes_, key, value);
}

bool StringAttributeMap::getAttribute(std::string_view key, std::string& value) const {
  const auto known = find_key(attributes_, key);
  if (known == attributes_.end()) return false;
  value = known->second;
  return true;
}

bool StringAttributeMap::hasAttribute(std::string_view key) const {
  return find_key(attributes_, key) != attributes_.end();
}

std::vector<std::string> StringAttributeMap::getKeys() const {
  std::vector<std::string> keys;
  keys.reserve(attributes_.size());
  for (const Attribute& attribute : attributes_) keys.push_back(attribute.first);
  return keys;
}

const char* getName(const AttachmentContainer& container) {
  const auto* name = find_own<Name>(container);
  return name ? name->text.c_str() : nullptr;
}

const char* getName(const AttachmentContainerPtr& container) {
  return container ? getName(*container) : nullptr;
}

void setName(const AttachmentContainerPtr& container, const std::string& text) {
  if (!container) return;
  // A new attachment each time: the old one may be shared with copies of this container, and `text`
  // may stand in it.
  const auto name = Name::create();
  name->text = text;
  container->addAttachment(name);
}

void setName(const AttachmentContainerPtr& container, const char* text) {
  setName(container, std::string(text ? text : ""));
}

}  // namespace osg
