#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "osg/handle.h"

namespace osg {

/// A registered type: unique id, name, parent. Types are compared by identity.
///
/// Registration works during static initialisation in any order; a parent is named and looked up on
/// first use. The registry lives as long as the process.
class OSG_API TypeBase {
 public:
  TypeBase(const char* name, const char* parent_name);
  TypeBase(const TypeBase&) = delete;
  TypeBase& operator=(const TypeBase&) = delete;
  virtual ~TypeBase();

  /// Unique in the process, from 1 upward, stable for one order of registration.
  UInt32 getId() const { return id_; }
  /// The plain class name, such as "Group".
  const char* getCName() const { return name_.c_str(); }
  const std::string& getName() const { return name_; }
  const std::string& getParentName() const { return parent_name_; }
  /// Null for a root or if no type of the parent's name is registered.
  const TypeBase* getParent() const;
  /// True for the type itself and every type below it.
  bool isDerivedFrom(const TypeBase& other) const;

  /// The type of that name, first registered; null if there is none.
  static TypeBase* find(std::string_view name);

  friend bool operator==(const TypeBase& a, const TypeBase& b) { return &a == &b; }

 private:
  const std::string name_;
  const std::string parent_name_;
  const UInt32 id_;
  mutable std::atomic<const TypeBase*> parent_{nullptr};
};

/// Type of a field: "SFInt32", "MFNodePtr" and the like. Their parent is "Field".
class OSG_API FieldType : public TypeBase {
 public:
  enum class Cardinality : UInt8 { Single, Multi };
  FieldType(const char* name, const char* parent_name, Cardinality cardinality)
      : TypeBase(name, parent_name), cardinality_(cardinality) {}
  Cardinality getCardinality() const { return cardinality_; }

 private:
  Cardinality cardinality_;
};

class Field;

/// Describes one field of a container class.
class OSG_API FieldDescription {
 public:
  /// Reaches the field in a container of the described class.
  using Accessor = Field* (*)(FieldContainer&);

  FieldDescription(const FieldType& type, const char* name, UInt32 id, FieldMask mask,
                   bool internal, Accessor accessor)
      : type_(&type), name_(name), id_(id), mask_(mask), internal_(internal), accessor_(accessor) {}

  const FieldType& getFieldType() const { return *type_; }
  const char* getCName() const { return name_.c_str(); }
  UInt32 getFieldId() const { return id_; }
  FieldMask getFieldMask() const { return mask_; }
  bool isInternal() const { return internal_; }
  Field* access(FieldContainer& container) const { return accessor_(container); }

 private:
  const FieldType* type_;
  std::string name_;
  UInt32 id_;
  FieldMask mask_;
  bool internal_;
  Accessor accessor_;
};

/// Type of a container class: adds a group, a prototype to copy instances from, and descriptions.
///
/// Types of one group share their place in an attachment container: see `findAttachment`.
class OSG_API FieldContainerType : public TypeBase {
 public:
  using CreatePrototype = FieldContainerPtr (*)();
  using InitMethod = void (*)();

  /// Registers the type. `create_prototype` null: the class can't be instantiated. `init` runs at
  /// once if given. `descriptions` is an array of pointers of `description_bytes` bytes; what they
  /// point to has to outlive the type. An empty group name stands for the type's own name.
  FieldContainerType(const char* name, const char* parent_name, const char* group_name,
                     CreatePrototype create_prototype, InitMethod init,
                     FieldDescription** descriptions = nullptr, UInt32 description_bytes = 0);

  /// The registered container type of that name, made by `make` if there is none yet; a type is
  /// therefore the same object in every shared library of the process.
  template <class Make>
  static FieldContainerType& declare(const char* name, Make make) {
    if (auto* known = dynamic_cast<FieldContainerType*>(TypeBase::find(name))) return *known;
    return *make();
  }

  UInt32 getGroupId() const { return group_id_; }
  const std::string& getGroupName() const { return group_name_; }
  bool isAbstract() const { return create_prototype_ == nullptr; }
  /// The instance that new ones are copied from, made on first use; null for an abstract class.
  /// What making it throws passes through, and the next call tries again.
  FieldContainerPtr getPrototype() const;
  /// A shallow copy of the prototype; null for an abstract class.
  FieldContainerPtr createContainer() const;
  const std::vector<const FieldDescription*>& getDescriptions() const { return descriptions_; }

 private:
  const std::string group_name_;
  const UInt32 group_id_;
  CreatePrototype create_prototype_;
  std::vector<const FieldDescription*> descriptions_;
  mutable std::mutex prototype_guard_;
  mutable std::atomic<bool> has_prototype_{false};
  mutable FieldContainerPtr prototype_;
};

}  // namespace osg
