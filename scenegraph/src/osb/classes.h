#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "osb/wire_type.h"
#include "osg/cores.h"
#include "osg/geometry.h"
#include "osg/material.h"

namespace osg::osb {

/// Which function of `visit_fields` lists the fields of a class.
enum class FieldList : UInt8 {
  None,
  Node,
  Transform,
  MaterialGroup,
  Switch,
  DistanceLOD,
  Geometry,
  Property,
  Value,  // a ValueContainer lists its fields itself
  AttributeMap,
};

struct FieldSpec {
  std::string name;
  WireType type;

  bool operator==(const FieldSpec&) const = default;
};

/// A class whose objects stand in files as what they are.
struct KnownClass {
  const FieldContainerType* type;
  FieldList list;
  UInt16 number;                  // place in the list of all
  std::vector<FieldSpec> fields;  // in the order of `visit_fields`
};

const std::vector<KnownClass>& known_classes();
/// Null if there is no such class.
const KnownClass* find_known_class(std::string_view name);
/// The class as which an object of that type is written: its own, or the nearest known one that it
/// is derived from; Group for a core that is derived from none. Null: none.
const KnownClass* class_to_write(const FieldContainerType& type);

/// Why a value can't be set; null: it was.
using Refusal = const char*;

// One function a kind of class lists its fields. `visit.field(name, value, set)` gets the present
// value and a function that sets another one and returns nothing or a `Refusal`. Files, schemas and
// reference lists are all made by visitors of these functions, so that a field stands in one place
// only.

template <class Visitor>
void visit_node(Node& node, Visitor& visit) {
  visit.field("travMask", node.getTravMask(), [&](UInt32 mask) { node.setTravMask(mask); });
  visit.field("core", node.getCore(), [&](const NodeCorePtr& core) { node.setCore(core); });
  visit.field("children", node.getChildren(), [&](const std::vector<NodePtr>& children) {
    for (const NodePtr& child : children) {
      if (!child) return "a child is null";
      if (child->getParent()) return "a node has two parents";
      node.addChild(child);
    }
    return Refusal();
  });
}

template <class Visitor>
void visit_geometry(Geometry& core, Visitor& visit) {
  constexpr const char* attribute_names[kAttributeCount] = {
      "positions",  "normals",    "colors",     "secondaryColors", "texCoords",  "texCoords1",
      "texCoords2", "texCoords3", "texCoords4", "texCoords5",      "texCoords6", "texCoords7"};
  visit.field("types", core.getTypes(), [&](const GeoPTypesPtr& types) { core.setTypes(types); });
  visit.field("lengths", core.getLengths(),
              [&](const GeoPLengthsPtr& lengths) { core.setLengths(lengths); });
  visit.field("indices", core.getIndices(),
              [&](const GeoIndicesPtr& indices) { core.setIndices(indices); });
  visit.field(
      "indexMapping", core.getIndexMapping().getValues(),
      [&](const std::vector<UInt16>& mapping) { core.getIndexMapping().getValues() = mapping; });
  for (UInt32 i = 0; i < kAttributeCount; ++i) {
    const GeoPropertyPtr present(core.getAttribute(attributeAt(i)));
    visit.field(attribute_names[i], present, [&](const GeoPropertyPtr& property) {
      const bool fits = core.setAttribute(attributeAt(i), property);
      return fits ? Refusal() : "a property stands in a field for another kind";
    });
  }
  visit.field("material", core.getMaterial(),
              [&](const MaterialPtr& material) { core.setMaterial(material); });
}

template <class Visitor>
void visit_distance_lod(DistanceLOD& core, Visitor& visit) {
  visit.field("center", core.getCenter(), [&](const Pnt3f& center) { core.setCenter(center); });
  visit.field("range", core.getRange().getValues(),
              [&](const std::vector<Real32>& range) { core.getRange().getValues() = range; });
}

/// Calls `visit` for the fields of an object of the class or of one derived from it. Properties
/// have one field of their own kind, `visit.entries(name, property)`; value containers are handed
/// to `visit.values(container)`.
template <class Visitor>
void visit_fields(FieldList list, FieldContainer& object, Visitor& visit) {
  switch (list) {
    case FieldList::None:
      return;
    case FieldList::Node:
      return visit_node(static_cast<Node&>(object), visit);
    case FieldList::Geometry:
      return visit_geometry(static_cast<Geometry&>(object), visit);
    case FieldList::DistanceLOD:
      return visit_distance_lod(static_cast<DistanceLOD&>(object), visit);
    case FieldList::Property:
      return visit.entries("entries", static_cast<GeoProperty&>(object));
    case FieldList::Value:
      return visit.values(static_cast<ValueContainer&>(object));
    case FieldList::Transform: {
      auto& core = static_cast<Transform&>(object);
      return visit.field("matrix", core.getMatrix(), [&](const Matrix& m) { core.setMatrix(m); });
    }
    case FieldList::MaterialGroup: {
      auto& core = static_cast<MaterialGroup&>(object);
      return visit.field("material", core.getMaterial(),
                         [&](const MaterialPtr& material) { core.setMaterial(material); });
    }
    case FieldList::Switch: {
      auto& core = static_cast<Switch&>(object);
      return visit.field("choice", core.getChoice(), [&](Int32 i) { core.setChoice(i); });
    }
    case FieldList::AttributeMap: {
      auto& map = static_cast<StringAttributeMap&>(object);
      return visit.field("attributes", map.getAttributes(),
                         [&](const std::vector<TextPair>& texts) { map.setAttributes(texts); });
    }
  }
}

}  // namespace osg::osb
