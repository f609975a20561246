#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "osg/container_class.h"
#include "osg/field.h"

namespace osg {

/// Data that an application or a library hangs on a node, core, material or image.
class OSG_API Attachment : public AbstractContainerClass<"Attachment", Attachment, FieldContainer> {
 public:
  /// Fields 1 (the containers it hangs on, not kept) and 2 (internal) are the base's.
  static constexpr UInt32 kInternalFieldId = 2;
  static constexpr UInt32 kNextFieldId = 3;

  /// An internal attachment is a cache: it is not written to files.
  bool isInternal() const { return internal_; }
  void setInternal(bool internal) { internal_ = internal; }

  void executeSync(FieldContainer& other, FieldMask mask) override;

 private:
  bool internal_ = false;
};
using AttachmentPtr = FCPtr<Attachment>;

/// An attachment with one field, described by `Desc`, all static: `getTypeName()`,
/// `getParentTypeName()`, `getGroupName()`, `getInitMethod()`, `getDesc()` (array of one pointer to
/// a description) and the type `Payload` of the value. A fresh attachment holds a copy of the
/// prototype's value.
///
/// A library that has such a type registered at load refers to `getClassType()` from an object of
/// static storage of its own.
template <class Desc>
class OSG_API SimpleAttachment : public Attachment {
 public:
  using Ptr = FCPtr<SimpleAttachment>;
  using PayloadField = SField<typename Desc::Payload, 0>;
  static constexpr UInt32 kPayloadFieldId = kNextFieldId;
  static constexpr FieldMask kPayloadFieldMask = FieldMask{1} << kPayloadFieldId;

  static FieldContainerType& getClassType() {
    static FieldContainerType& type = FieldContainerType::declare(Desc::getTypeName(), [] {
      return new FieldContainerType(
          Desc::getTypeName(), Desc::getParentTypeName(), Desc::getGroupName(),
          [] { return FieldContainerPtr(Ptr(new SimpleAttachment())); }, Desc::getInitMethod(),
          Desc::getDesc(), sizeof(FieldDescription*));
    });
    return type;
  }
  static Ptr create() { return dcast(getClassType().createContainer()); }
  static Ptr dcast(const FieldContainerPtrBase& handle) {
    FieldContainer* object = handle.getContainer();
    if (!object || !object->getType().isDerivedFrom(getClassType())) return NullFC;
    return Ptr(static_cast<SimpleAttachment*>(object));
  }

  PayloadField& getField() { return field_; }
  const PayloadField& getField() const { return field_; }
  /// For the description's accessor.
  static Field* accessField(FieldContainer& self) {
    return &static_cast<SimpleAttachment&>(self).field_;
  }

  FieldContainerType& getType() override { return getClassType(); }
  const FieldContainerType& getType() const override { return getClassType(); }
  UInt32 getContainerSize() const override { return sizeof(SimpleAttachment); }
  FCPtr<FieldContainer> shallowCopy() const override {
    return FieldContainerPtr(Ptr(new SimpleAttachment(*this)));
  }
  void executeSync(FieldContainer& other, FieldMask mask) override {
    Attachment::executeSync(other, mask);
    if (mask & kPayloadFieldMask) field_.setFrom(static_cast<SimpleAttachment&>(other).field_);
  }

 protected:
  SimpleAttachment() = default;
  SimpleAttachment(const SimpleAttachment&) = default;
  ~SimpleAttachment() override = default;

 private:
  PayloadField field_;
};

/// A container that carries attachments, each at a place of (group of its type, binding).
///
/// The places are few: look-up is a linear scan without allocation. Attachments die with the
/// container unless another handle holds them.
class OSG_API AttachmentContainer
    : public AbstractContainerClass<"AttachmentContainer", AttachmentContainer, FieldContainer> {
 public:
  static constexpr UInt32 kAttachmentsFieldId = 1;
  static constexpr FieldMask AttachmentsFieldMask = FieldMask{1} << kAttachmentsFieldId;
  static constexpr UInt32 kNextFieldId = 2;

  struct Entry {
    UInt32 group;
    UInt16 binding;
    AttachmentPtr attachment;
  };

  /// The attachment of that type's group and binding; null if there is none.
  AttachmentPtr findAttachment(const FieldContainerType& type, UInt16 binding = 0) const {
    return findAttachment(type.getGroupId(), binding);
  }
  AttachmentPtr findAttachment(UInt32 group, UInt16 binding = 0) const;
  /// Puts `attachment` at its place; a former one there is dropped. Null adds nothing.
  void addAttachment(const AttachmentPtr& attachment, UInt16 binding = 0);
  /// Drops the attachment at that place, if there is one.
  void subAttachment(const FieldContainerType& type, UInt16 binding = 0);
  /// All attachments, in the order in which their places were first taken.
  const std::vector<Entry>& getAttachments() const { return attachments_; }

  /// Keyed texts of the container itself, apart from its name and its attribute maps.
  void setAttachmentField(std::string_view key, std::string_view value);
  /// The text of `key`; empty if it was never set.
  std::string getAttachmentField(std::string_view key) const;
  /// All of them, in the order in which the keys were first set.
  std::vector<std::pair<std::string, std::string>> getAttachmentFields() const;
  /// Replaces all of them; no key may stand there twice.
  void setAttachmentFields(std::vector<std::pair<std::string, std::string>> fields);

 protected:
  AttachmentContainer() = default;
  /// The copy refers to the same attachments.
  AttachmentContainer(const AttachmentContainer&) = default;
  ~AttachmentContainer() override = default;

 private:
  std::vector<Entry> attachments_;
};
using AttachmentContainerPtr = FCPtr<AttachmentContainer>;

/// Texts by key, in the order in which the keys were first set.
class OSG_API StringAttributeMap
    : public ContainerClass<"StringAttributeMap", StringAttributeMap, Attachment> {
 public:
  using Attribute = std::pair<std::string, std::string>;

  /// Sets or replaces the value; a known key keeps its place. O(keys) time.
  void setAttribute(std::string_view key, std::string_view value);
  /// Copies the value of `key` to `value`; false, and `value` as it was, if the key is not there.
  bool getAttribute(std::string_view key, std::string& value) const;
  bool hasAttribute(std::string_view key) const;
  std::vector<std::string> getKeys() const;
  const std::vector<Attribute>& getAttributes() const { return attributes_; }
  /// Replaces all attributes; no key may stand there twice.
  void setAttributes(std::vector<Attribute> attributes) { attributes_ = std::move(attributes); }

 protected:
  friend ContainerClass<"StringAttributeMap", StringAttributeMap, Attachment>;
  StringAttributeMap() = default;
  StringAttributeMap(const StringAttributeMap&) = default;
  ~StringAttributeMap() override = default;

 private:
  std::vector<Attribute> attributes_;
};
using StringAttributeMapPtr = FCPtr<StringAttributeMap>;
using StringAttributeMapBase = StringAttributeMap;

/// The name of a container, null if it has none. A name may be empty. The text stays valid until
/// the container gets another name or dies.
OSG_API const char* getName(const AttachmentContainer& container);
OSG_API const char* getName(const AttachmentContainerPtr& container);
/// Names the container; `text` may point into its present name, null counts as empty. Null
/// container: nothing.
OSG_API void setName(const AttachmentContainerPtr& container, const char* text);
OSG_API void setName(const AttachmentContainerPtr& container, const std::string& text);

}  // namespace osg
