#include "osg/type.h"

#include <map>
#include <mutex>

namespace osg {

namespace {

/// All types and groups of the process. Leaked, so that objects with static storage may still ask
/// for types while the process ends.
struct TypeRegistry {
  std::mutex mutex;
  std::map<std::string, TypeBase*, std::less<>> types;
  std::map<std::string, UInt32, std::less<>> groups;
  UInt32 last_type_id = 0;

  static TypeRegistry& the() {
    static auto* registry = new TypeRegistry;
    return *registry;
  }

  UInt32 next_type_id() {
    const std::lock_guard lock(mutex);
    return ++last_type_id;
  }
  UInt32 group_id(const std::string& name) {
    const std::lock_guard lock(mutex);
    return groups.try_emplace(name, static_cast<UInt32>(groups.size()) + 1).first->second;
  }
};

}  // namespace

TypeBase::TypeBase(const char* name, const char* parent_name)
    : name_(name ? name : ""),
      parent_name_(parent_name ? parent_name : ""),
      id_(TypeRegistry::the().next_type_id()) {
  TypeRegistry& registry = TypeRegistry::the();
  const std::lock_guard lock(registry.mutex);
  registry.types.try_emplace(name_, this);
}

TypeBase::~TypeBase() {
  TypeRegistry& registry = TypeRegistry::the();
  const std::lock_guard lock(registry.mutex);
  const auto known = registry.types.find(name_);
  if (known != registry.types.end() && known->second == this) registry.types.erase(known);
}

TypeBase* TypeBase::find(std::string_view name) {
  TypeRegistry& registry = TypeRegistry::the();
  const std::lock_guard lock(registry.mutex);
  const auto known = registry.types.find(name);
  return known == registry.types.end() ? nullptr : known->second;
}

const TypeBase* TypeBase::getParent() const {
  const TypeBase* parent = parent_.load(std::memory_order_acquire);
  if (!parent && !parent_name_.empty()) {
    parent = find(parent_name_);
    parent_.store(parent, std::memory_order_release);
  }
  return parent;
}

bool TypeBase::isDerivedFrom(const TypeBase& other) const {
  for (const TypeBase* type = this; type; type = type->getParent())
    if (type == &other) return true;
  return false;
}

FieldContainerType::FieldContainerType(const char* name, const char* parent_name,
                                       const char* group_name, CreatePrototype create_prototype,
                                       InitMethod init, FieldDescription** descriptions,
                                       UInt32 description_bytes)
    : TypeBase(name, parent_name),
      group_name_(group_name && *group_name ? group_name : getName()),
      group_id_(TypeRegistry::the().group_id(group_name_)),
      create_prototype_(create_prototype) {
  if (descriptions) {
    const std::size_t count = description_bytes / sizeof(FieldDescription*);
    descriptions_.assign(descriptions, descriptions + count);
  }
  if (init) init();
}

FieldContainerPtr FieldContainerType::getPrototype() const {
  if (!create_prototype_) return NullFC;
  if (!has_prototype_.load(std::memory_order_acquire)) {
    const std::lock_guard lock(prototype_guard_);
    if (!prototype_) prototype_ = create_prototype_();
    has_prototype_.store(true, std::memory_order_release);
  }
  return prototype_;
}

FieldContainerPtr FieldContainerType::createContainer() const {
  const FieldContainerPtr prototype = getPrototype();
  return prototype ? prototype->shallowCopy() : FieldContainerPtr();
}

}  // namespace osg
