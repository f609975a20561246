#include "osb/classes.h"

#include <unordered_map>

namespace osg::osb {
namespace {

/// Collects name and type of each field.
struct SpecVisitor {
  std::vector<FieldSpec> specs;

  template <class T, class Set>
  void field(const char* name, const T&, Set&&) {
    specs.push_back({name, wire_type<T>()});
  }
  void entries(const char* name, const GeoProperty& property) {
    specs.push_back({name, wire_type_of(property)});
  }
  void values(const ValueContainer& container) {
    readFields(container, [this]<class T>(const char* name, const T&) {
      specs.push_back({name, wire_type<T>()});
    });
  }
};

struct Registry {
  std::vector<KnownClass> classes;
  std::unordered_map<std::string_view, const KnownClass*> by_name;

  template <class... T>
  void add(FieldList list) {
    (add_class(T::getClassType(), list), ...);
  }
  void add_class(const FieldContainerType& type, FieldList list) {
    SpecVisitor visitor;
    visit_fields(list, *type.getPrototype(), visitor);
    const auto number = static_cast<UInt16>(classes.size());
    classes.push_back({&type, list, number, std::move(visitor.specs)});
  }

  Registry() {
    add<Node>(FieldList::Node);
    add<Group>(FieldList::None);
    add<Transform, ComponentTransform>(FieldList::Transform);
    add<MaterialGroup>(FieldList::MaterialGroup);
    add<Switch>(FieldList::Switch);
    add<DistanceLOD>(FieldList::DistanceLOD);
    add<Geometry>(FieldList::Geometry);
    add<GeoPTypesUI8, GeoPLengthsUI32, GeoPLengthsUI16, GeoPositions3f, GeoNormals3f, GeoColors3f,
        GeoColors4f, GeoColors3ub, GeoColors4ub, GeoTexCoords1f, GeoTexCoords2f, GeoTexCoords3f,
        GeoIndicesUI32, GeoIndicesUI16>(FieldList::Property);
    add<ChunkMaterial, SimpleMaterial, SimpleTexturedMaterial, SwitchMaterial, MaterialChunk,
        TextureChunk, CubeTextureChunk, BlendChunk, TransformChunk, PBRChunk, Image>(
        FieldList::Value);
    add<StringAttributeMap>(FieldList::AttributeMap);
    for (const KnownClass& known : classes) by_name[known.type->getName()] = &known;
  }

  static const Registry& the() {
    static const auto* registry = new Registry;
    return *registry;
  }
};

}  // namespace

const std::vector<KnownClass>& known_classes() {
  return Registry::the().classes;
}

const KnownClass* find_known_class(std::string_view name) {
  const Registry& registry = Registry::the();
  const auto known = registry.by_name.find(name);
  return known == registry.by_name.end() ? nullptr : known->second;
}

const KnownClass* class_to_write(const FieldContainerType& type) {
  for (const TypeBase* one = &type; one; one = one->getParent()) {
    const KnownClass* known = find_known_class(one->getName());
    if (known && known->type == one) return known;
    if (one == &NodeCore::getClassType()) return find_known_class("Group");
  }
  return nullptr;
}

}  // namespace osg::osb
