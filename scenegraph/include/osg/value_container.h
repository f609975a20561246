#pragma once

#include <string>
#include <variant>
#include <vector>

#include "osg/attachment.h"
#include "osg/matrix.h"

namespace osg {

class Image;
class Material;
class StateChunk;

/// The types that a field of a value container may have, as pointers to the field.
template <class... T>
struct FieldPointers {
  using Mutable = std::variant<T*...>;
  using Const = std::variant<const T*...>;
};
using ValueFieldPointers =
    FieldPointers<Int32, UInt32, UInt64, Real32, Color3f, Color4f, TransformationMatrix<Real32>,
                  std::string, std::vector<UInt8>, FCPtr<Image>, std::vector<FCPtr<Image>>,
                  std::vector<FCPtr<StateChunk>>, std::vector<FCPtr<Material>>>;

/// A field: its name, unique in its class, and where it stands.
template <class Pointer>
struct FieldEntry {
  const char* name;
  Pointer value;
};
using EditedFields = std::vector<FieldEntry<ValueFieldPointers::Mutable>>;
using ReadFields = std::vector<FieldEntry<ValueFieldPointers::Const>>;

/// A container that is what its fields say: images, chunks and materials.
///
/// Each class lists its fields in one place, `visitFields`, base class first. Equality, hashes and
/// files are made from that list, see `readFields` and `editFields`. Name and attachments are no
/// part of the value.
class OSG_API ValueContainer
    : public AbstractContainerClass<"ValueContainer", ValueContainer, AttachmentContainer> {
 public:
  /// Calls `visit(name, field)` for each field of `self`, which is constant or not.
  template <class Self, class Visitor>
  static void visitFields(Self&, Visitor&&) {}

  /// The fields in the order of `visitFields`; valid while the container lives.
  virtual ReadFields listFields() const = 0;

 protected:
  ValueContainer() = default;
  ValueContainer(const ValueContainer&) = default;
  ~ValueContainer() override = default;

  virtual EditedFields list_edited_fields() = 0;
  /// Called after the fields were edited one by one. Fields that contradict each other go back to
  /// their defaults, and the result is false.
  virtual bool accept_edited_fields();

 private:
  template <class Visitor>
  friend bool editFields(ValueContainer& container, Visitor&& visit);
};
using ValueContainerPtr = FCPtr<ValueContainer>;

/// A class of value containers that can be instantiated; makes the lists from `Self::visitFields`.
template <ClassName Name, class Self, class Parent>
class OSG_API ValueContainerClass : public ContainerClass<Name, Self, Parent> {
 public:
  ReadFields listFields() const override {
    ReadFields fields;
    Self::visitFields(static_cast<const Self&>(*this),
                      [&fields](const char* name, const auto& value) {
                        fields.push_back({name, &value});
                      });
    return fields;
  }

 protected:
  ValueContainerClass() = default;
  ValueContainerClass(const ValueContainerClass&) = default;
  ~ValueContainerClass() override = default;

  EditedFields list_edited_fields() override {
    EditedFields fields;
    Self::visitFields(static_cast<Self&>(*this), [&fields](const char* name, auto& value) {
      fields.push_back({name, &value});
    });
    return fields;
  }
};

/// Calls `visit(name, value)` with a constant reference to each field, in order. `visit` takes
/// every type of `ValueFieldPointers`.
template <class Visitor>
void readFields(const ValueContainer& container, Visitor&& visit) {
  for (const auto& field : container.listFields())
    std::visit([&](const auto* value) { visit(field.name, *value); }, field.value);
}

/// The same with references to write through: for readers of files. False if the new fields
/// contradict each other, as an image's size and number of bytes may; the container then holds
/// defaults. Null chunks are dropped from lists.
template <class Visitor>
bool editFields(ValueContainer& container, Visitor&& visit) {
  try {
    for (const auto& field : container.list_edited_fields())
      std::visit([&](auto* value) { visit(field.name, *value); }, field.value);
  } catch (...) {
    container.accept_edited_fields();
    throw;
  }
  return container.accept_edited_fields();
}

/// Bytes that two containers share exactly if they are of the same type and equal by value: -0.0
/// equals 0.0, NaNs compare by their bits, chunks by value, images and materials by identity. The
/// bytes hold for one run of the program only.
OSG_API std::string valueKey(const ValueContainer& container);
/// Two null handles are equal.
OSG_API bool equalByValue(const ValueContainerPtr& a, const ValueContainerPtr& b);
/// Equal values have equal hashes; null has 0.
OSG_API UInt64 hashByValue(const ValueContainerPtr& container);

}  // namespace osg
