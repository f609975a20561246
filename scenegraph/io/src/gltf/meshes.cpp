#include "gltf/meshes.h"

#include "attribute_json.h"
#include "gltf/feature_id_names.h"
#include "osg/io/feature_ids.h"

namespace osg::io {
namespace {

/// The number after `prefix` in an attribute's name; -1 if it is no such name.
int set_of(const std::string& name, std::string_view prefix) {
  if (name.size() != prefix.size() + 1 || !name.starts_with(prefix)) return -1;
  const char digit = name.back();
  return digit >= '0' && digit <= '9' ? digit - '0' : -1;
}

void expect_components(const AccessorView& view, UInt32 low, UInt32 high, const char* what) {
  if (view.components >= low && view.components <= high) return;
  throw ReadError{view.place, std::string(what) + " can't have " + std::to_string(view.components) +
                                  (view.components == 1 ? " component" : " components")};
}

Int32 last_free_set(const Geometry& geometry) {
  auto set = static_cast<Int32>(kTexCoordSets) - 1;
  while (set >= 0 && geometry.getTexCoordsSet(static_cast<UInt32>(set))) --set;
  return set;
}

/// Whether an entry of the extension's list tells of the first attribute; no other kind is read.
bool is_of_first_attribute(const tinygltf::Value& entry) {
  return entry.IsObject() && entry.Get("attribute").IsNumber() &&
         entry.Get("attribute").GetNumberAsDouble() == 0.0;
}

/// The number that stands for no id, if there is one.
std::optional<double> null_feature_id(const tinygltf::Primitive& source, Warnings& warnings) {
  std::optional<double> null_id;
  const auto extension = source.extensions.find(kMeshFeatures);
  if (extension == source.extensions.end() || !extension->second.IsObject()) return null_id;
  const tinygltf::Value& list = extension->second.Get("featureIds");
  for (std::size_t i = 0; list.IsArray() && i < list.ArrayLen(); ++i) {
    const tinygltf::Value& entry = list.Get(i);
    if (!is_of_first_attribute(entry))
      warnings.count("feature ids that aren't the first attribute's are left out", "set");
    else if (entry.Get("nullFeatureId").IsNumber())
      null_id = entry.Get("nullFeatureId").GetNumberAsDouble();
  }
  return null_id;
}

}  // namespace

GltfMeshes::GltfMeshes(const GltfDocument& document, GltfAccessors& accessors,
                       GltfMaterials& materials, Warnings& warnings)
    : document_(document),
      accessors_(accessors),
      materials_(materials),
      warnings_(warnings),
      meshes_(document.model.meshes.size()) {}

const std::vector<GeometryPtr>& GltfMeshes::cores(int index, const std::string& place) {
  if (index < 0 || static_cast<std::size_t>(index) >= meshes_.size())
    throw ReadError{place, "there is no mesh " + std::to_string(index)};
  Mesh& mesh = meshes_[static_cast<std::size_t>(index)];
  if (mesh.built) return mesh.cores;
  mesh.built = true;
  const tinygltf::Mesh& source = document_.model.meshes[static_cast<std::size_t>(index)];
  const std::string mesh_place = place_of("meshes", static_cast<std::size_t>(index));
  for (std::size_t i = 0; i < source.primitives.size(); ++i) {
    const GeometryPtr core =
        build(source.primitives[i], mesh_place + "." + place_of("primitives", i));
    if (!core) continue;
    if (!source.name.empty()) osg::setName(core, source.name);
    attach_extras(core, source.extras_json_string);
    mesh.cores.push_back(core);
  }
  return mesh.cores;
}

GeometryPtr GltfMeshes::build(const tinygltf::Primitive& source, const std::string& place) {
  if (source.extensions.count("KHR_draco_mesh_compression") > 0)
    throw ReadError{place, "the extension KHR_draco_mesh_compression is not supported"};
  if (source.mode < 0 || source.mode > 6)
    throw ReadError{place, "mode " + std::to_string(source.mode) + " is none of glTF's"};
  warnings_.count("morph targets are left out", "primitive", source.targets.empty() ? 0 : 1);
  warnings_.count("extras of primitives are left out", "primitive",
                  source.extras_json_string.empty() ? 0 : 1);
  const auto position = source.attributes.find("POSITION");
  if (position == source.attributes.end()) {
    warnings_.count("primitives without positions are left out", "primitive");
    return NullFC;
  }
  const auto core = Geometry::create();
  const GltfMaterial& material = materials_.material(source.material, place);
  core->setMaterial(material.material);
  add_attributes(source, material, core, place);
  add_primitive(source, core, place);
  return core;
}

void GltfMeshes::add_attributes(const tinygltf::Primitive& source, const GltfMaterial& material,
                                const GeometryPtr& core, const std::string& place) {
  for (const auto& [name, accessor] : source.attributes) {
    if (name == kFeatureIds) continue;
    Attribute kind = Attribute::Positions;
    const GeoPropertyPtr property = attribute(name, accessor, material, kind);
    if (property)
      core->setAttribute(kind, property);
    else
      warnings_.count(name + " is left out", "primitive");
  }
  add_feature_ids(source, core);
  const UInt32 vertices = core->getPositions()->size();
  for (UInt32 i = 0; i < kAttributeCount; ++i) {
    const GeoProperty* property = core->getAttribute(attributeAt(i));
    if (property && property->size() != vertices)
      throw ReadError{place, "an attribute has " + std::to_string(property->size()) +
                                 " entries for " + std::to_string(vertices) + " positions"};
  }
}

/// They go to the last set of texture coordinates that the file has no others for, marked.
void GltfMeshes::add_feature_ids(const tinygltf::Primitive& source, const GeometryPtr& core) {
  const std::optional<double> null_id = null_feature_id(source, warnings_);
  const auto attribute = source.attributes.find(kFeatureIds);
  if (attribute == source.attributes.end()) return;
  GeoPropertyPtr& property = feature_ids_[{attribute->second, null_id}];
  if (!property) {
    AccessorView view = accessors_.admit(attribute->second);
    view.normalized = false;
    const auto ids = GeoTexCoords2f::create();
    ids->resize(view.components == 1 ? view.count : 0);
    if (view.components == 1)
      GltfAccessors::read_floats(view, 2, reinterpret_cast<Real32*>(ids->editData()));
    for (Vec2f& value : ids->values())
      if (null_id == value[0]) value[0] = -1;
    property = ids;
  }
  const Int32 set = last_free_set(*core);
  if (set < 0 || (property->empty() && !core->getPositions()->empty())) {
    warnings_.count(std::string(kFeatureIds) + " is left out", "primitive");
    return;
  }
  core->setTexCoordsSet(static_cast<UInt32>(set), GeoTexCoords2f::dcast(property));
  setFeatureIdSet(core, set);
}

GeoPropertyPtr GltfMeshes::attribute(const std::string& name, int accessor,
                                     const GltfMaterial& material, Attribute& kind) {
  const int set = set_of(name, "TEXCOORD_");
  if (set >= 0 && set < static_cast<int>(kTexCoordSets)) {
    kind = texCoordsAttribute(static_cast<UInt32>(set));
    const auto& transform = material.baked[static_cast<std::size_t>(set)];
    return tex_coords(accessor, transform.value_or(TextureTransform{}));
  }
  if (name == "POSITION")
    kind = Attribute::Positions;
  else if (name == "NORMAL")
    kind = Attribute::Normals;
  else if (name == "COLOR_0")
    kind = Attribute::Colors;
  else if (name == kSecondaryColors)
    kind = Attribute::SecondaryColors;
  else
    return NullFC;
  GeoPropertyPtr& property = properties_[{accessor, kind}];
  if (property) return property;
  if (kind == Attribute::Positions)
    return property = read_floats<GeoPositions3f>(accessor, "positions");
  if (kind == Attribute::Normals) return property = read_floats<GeoNormals3f>(accessor, "normals");
  return property = colors(accessor);
}

GeoPropertyPtr GltfMeshes::colors(int accessor) {
  const AccessorView view = accessors_.admit(accessor);
  expect_components(view, 3, 4, "colours");
  const bool bytes = view.component_type == TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE;
  GeoPropertyPtr property = GeoColors4f::create();
  if (bytes && view.components == 3)
    property = GeoColors3ub::create();
  else if (bytes)
    property = GeoColors4ub::create();
  else if (view.components == 3)
    property = GeoColors3f::create();
  property->resize(view.count);
  auto* out = property->editData();
  if (bytes)
    GltfAccessors::read_bytes(view, view.components, reinterpret_cast<UInt8*>(out));
  else
    GltfAccessors::read_floats(view, view.components, reinterpret_cast<Real32*>(out));
  return property;
}

GeoPropertyPtr GltfMeshes::tex_coords(int accessor, const TextureTransform& transform) {
  GeoPropertyPtr& property = tex_coords_[{accessor, transform}];
  if (property) return property;
  property = read_floats<GeoTexCoords2f>(accessor, "texture coordinates");
  if (transform != TextureTransform{})
    for (Vec2f& uv : GeoTexCoords2f::dcast(property)->values()) uv = transform.apply(uv);
  return property;
}

template <class Property>
GeoPropertyPtr GltfMeshes::read_floats(int accessor, const char* what) {
  constexpr UInt32 width = Property::Element::dimension;
  const AccessorView view = accessors_.admit(accessor);
  expect_components(view, width, width, what);
  const auto property = Property::create();
  property->resize(view.count);
  GltfAccessors::read_floats(view, width, reinterpret_cast<Real32*>(property->editData()));
  return property;
}

void GltfMeshes::add_primitive(const tinygltf::Primitive& source, const GeometryPtr& core,
                               const std::string& place) {
  const UInt32 vertices = core->getPositions()->size();
  UInt32 length = vertices;
  if (source.indices >= 0) {
    const auto [found, fresh] = indices_.try_emplace(source.indices);
    if (fresh) found->second = accessors_.read_indices(source.indices);
    const auto& [property, largest] = found->second;
    length = property->size();
    if (length > 0 && largest >= vertices)
      throw ReadError{place, "index " + std::to_string(largest) + " reaches past the " +
                                 std::to_string(vertices) + " vertices"};
    core->setIndices(property);
  }
  GeoPTypesPtr& types = types_[static_cast<std::size_t>(source.mode)];
  if (!types) {
    types = GeoPTypesUI8::create();
    types->push_back(static_cast<UInt32>(source.mode));
  }
  GeoPLengthsPtr& lengths = lengths_[length];
  if (!lengths) {
    lengths = GeoPLengthsUI32::create();
    lengths->push_back(length);
  }
  core->setTypes(types);
  core->setLengths(lengths);
}

}  // namespace osg::io
