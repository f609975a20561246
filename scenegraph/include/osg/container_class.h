#pragma once

#include <algorithm>
#include <cstddef>

#include "osg/type.h"

namespace osg {

/// A class name as a template argument, so that no class can forget to have one of its own.
template <std::size_t N>
struct ClassName {
  constexpr ClassName(const char (&text)[N]) { std::copy_n(text, N, value); }
  char value[N];
};

/// Type object, virtual type access and checked cast of a class that can't be instantiated itself.
/// Use: `class Material : public AbstractContainerClass<"Material", Material,
/// AttachmentContainer>`.
template <ClassName Name, class Self, class Parent>
class OSG_API AbstractContainerClass : public Parent {
 public:
  using Ptr = FCPtr<Self>;

  static FieldContainerType& getClassType() { return class_type(nullptr); }

  FieldContainerType& getType() override { return getClassType(); }
  const FieldContainerType& getType() const override { return getClassType(); }
  FCPtr<FieldContainer> shallowCopy() const override { return NullFC; }

  /// The same object as a handle of this class; null if it is of no such type.
  static Ptr dcast(const FieldContainerPtrBase& handle) {
    FieldContainer* object = handle.getContainer();
    if (!object || !object->getType().isDerivedFrom(Self::getClassType())) return NullFC;
    return Ptr(static_cast<Self*>(object));
  }

 protected:
  AbstractContainerClass() = default;
  /// For parents that are made from two values, as geometry properties are.
  template <class A, class B>
  AbstractContainerClass(A a, B b) : Parent(a, b) {}
  AbstractContainerClass(const AbstractContainerClass&) = default;
  ~AbstractContainerClass() override = default;

  static FieldContainerType& class_type(FieldContainerType::CreatePrototype create) {
    static FieldContainerType& type = FieldContainerType::declare(Name.value, [create] {
      return new FieldContainerType(Name.value, Parent::getClassType().getCName(), "", create,
                                    nullptr);
    });
    return type;
  }
};

/// The same for a class with instances. `Self` befriends this template, which makes and copies it.
template <ClassName Name, class Self, class Parent>
class OSG_API ContainerClass : public AbstractContainerClass<Name, Self, Parent> {
 public:
  using Ptr = FCPtr<Self>;

  static FieldContainerType& getClassType() {
    return ContainerClass::class_type([] { return FieldContainerPtr(Self::create()); });
  }
  /// A new instance with default values.
  static Ptr create() { return Ptr(new Self()); }

  FieldContainerType& getType() override { return getClassType(); }
  const FieldContainerType& getType() const override { return getClassType(); }
  UInt32 getContainerSize() const override { return sizeof(Self); }
  FCPtr<FieldContainer> shallowCopy() const override {
    return FieldContainerPtr(new Self(static_cast<const Self&>(*this)));
  }

 protected:
  ContainerClass() = default;
  template <class A, class B>
  ContainerClass(A a, B b) : AbstractContainerClass<Name, Self, Parent>(a, b) {}
  ContainerClass(const ContainerClass&) = default;
  ~ContainerClass() override = default;
};

}  // namespace osg
