#include "gltf/definition.h"

#include <algorithm>
#include <cmath>

namespace osg::io {
namespace {

using nlohmann::json;

/// A member of that name and type, through nested objects; null if there is none.
const json* member(const json& object, std::initializer_list<const char*> path) {
  const json* at = &object;
  for (const char* name : path) {
    if (!at->is_object()) return nullptr;
    const auto found = at->find(name);
    if (found == at->end()) return nullptr;
    at = &*found;
  }
  return at;
}

Real32 number(const json& object, std::initializer_list<const char*> path, Real32 otherwise) {
  const json* value = member(object, path);
  return value && value->is_number() ? static_cast<Real32>(value->get<double>()) : otherwise;
}

UInt32 unsigned_number(const json& object, std::initializer_list<const char*> path,
                       UInt32 otherwise) {
  const json* value = member(object, path);
  if (!value || !value->is_number_integer()) return otherwise;
  const Int64 whole = value->get<Int64>();
  return whole >= 0 && whole <= 0xffffffff ? static_cast<UInt32>(whole) : otherwise;
}

/// Up to four numbers of an array into `color`.
void read_color(const json* array, Color4f& color) {
  if (!array || !array->is_array()) return;
  for (UInt32 i = 0; i < 4 && i < array->size(); ++i)
    if ((*array)[i].is_number()) color[i] = static_cast<Real32>((*array)[i].get<double>());
}

/// The exponent of a highlight about as wide as that of a microfacet surface: after B. Walter et
/// al., "Microfacet models for refraction through rough surfaces" (2007), with alpha the square of
/// the roughness; within the 0 to 128 of fixed-function drawing.
Real32 shininess_of_roughness(Real32 roughness) {
  const Real32 alpha = roughness * roughness;
  const Real32 exponent = 2.0f / std::max(alpha * alpha, 1e-6f) - 2.0f;
  return std::clamp(exponent, 0.0f, 128.0f);
}

Real32 roughness_of_shininess(Real32 shininess) {
  if (!(shininess > 0.0f)) return 1.0f;
  return std::sqrt(std::sqrt(2.0f / (std::min(shininess, 1e6f) + 2.0f)));
}

std::optional<TextureLook> look_of_texture(const json* info, const std::vector<ImagePtr>& images) {
  if (!info || !info->is_object()) return std::nullopt;
  const UInt32 source = unsigned_number(*info, {"texture", "source"}, ~UInt32{0});
  if (source >= images.size() || !images[source]) return std::nullopt;
  TextureLook look{.image = images[source]};
  const auto sampler = [&](const char* name, UInt32 otherwise) {
    return unsigned_number(*info, {"texture", "sampler", name}, otherwise);
  };
  look.min_filter = sampler("minFilter", look.min_filter);
  look.mag_filter = sampler("magFilter", look.mag_filter);
  look.wrap_s = sampler("wrapS", look.wrap_s);
  look.wrap_t = sampler("wrapT", look.wrap_t);
  look.set = unsigned_number(*info, {"texCoord"}, 0);
  look.set = unsigned_number(*info, {"extensions", "KHR_texture_transform", "texCoord"}, look.set);
  return look;
}

double share(Real32 value) {
  return value > 0.0f ? std::min(static_cast<double>(value), 1.0) : 0.0;  // NaN is 0
}

json color_array(const Color4f& color, UInt32 components) {
  json array = json::array();
  for (UInt32 i = 0; i < components; ++i) array.push_back(share(color[i]));
  return array;
}

/// A member that is an object, made so if it is anything else.
json& object_member(json& object, const char* name) {
  json& value = object[name];
  if (!value.is_object()) value = json::object();
  return value;
}

// An insulator reflects this much of what meets it at right angles, times the extension's numbers.
constexpr double insulator_reflects = 0.04;
constexpr const char* specular_extension = "KHR_materials_specular";

/// The highlight of an insulator with that definition.
Color4f insulator_specular(const json& definition) {
  Color4f tint(1.0f, 1.0f, 1.0f, 1.0f);
  read_color(member(definition, {"extensions", specular_extension, "specularColorFactor"}), tint);
  const Real32 strength =
      number(definition, {"extensions", specular_extension, "specularFactor"}, 1.0f);
  Color4f specular(0.0f, 0.0f, 0.0f, 1.0f);
  for (UInt32 i = 0; i < 3; ++i) {
    const auto reflected = static_cast<Real32>(insulator_reflects * double{tint[i]});
    specular[i] = static_cast<Real32>(share(strength) * share(reflected));
  }
  return specular;
}

/// Makes it an insulator with that highlight.
void set_specular(const Color4f& specular, json& definition) {
  object_member(definition, "pbrMetallicRoughness")["metallicFactor"] = 0.0;
  json& extensions = object_member(definition, "extensions");
  extensions.erase(specular_extension);
  if (specular != insulator_specular(definition)) {
    json& tint = extensions[specular_extension]["specularColorFactor"] = json::array();
    for (UInt32 i = 0; i < 3; ++i) tint.push_back(share(specular[i]) / insulator_reflects);
  }
  if (extensions.empty()) definition.erase("extensions");
}

bool ends_in_texture(const std::string& name) {
  return name.size() >= 7 && (name.ends_with("Texture") || name == "texture");
}

}  // namespace

void visit_textures(json& material, const std::function<void(json&)>& visit) {
  if (!material.is_structured()) return;
  for (auto& [name, value] : material.items()) {
    const bool is_texture = material.is_object() && value.is_object() && ends_in_texture(name) &&
                            (value.contains("index") || value.contains("texture"));
    if (is_texture)
      visit(value);
    else if (name != "extras")
      visit_textures(value, visit);
  }
}

MaterialLook look_of_definition(const json& definition, const std::vector<ImagePtr>& images) {
  MaterialLook look;
  const json* glossy = member(definition, {"extensions", "KHR_materials_pbrSpecularGlossiness"});
  const json* mode = member(definition, {"alphaMode"});
  const bool blended = mode && *mode == "BLEND";
  const bool masked = mode && *mode == "MASK";
  if (glossy && glossy->is_object()) {
    read_color(member(*glossy, {"diffuseFactor"}), look.diffuse);
    look.specular = Color4f(1.0f, 1.0f, 1.0f, 1.0f);
    read_color(member(*glossy, {"specularFactor"}), look.specular);
    look.shininess = shininess_of_roughness(1.0f - number(*glossy, {"glossinessFactor"}, 1.0f));
    look.texture = look_of_texture(member(*glossy, {"diffuseTexture"}), images);
  } else {
    read_color(member(definition, {"pbrMetallicRoughness", "baseColorFactor"}), look.diffuse);
    const Real32 metallic = number(definition, {"pbrMetallicRoughness", "metallicFactor"}, 1.0f);
    look.specular = insulator_specular(definition);
    for (UInt32 i = 0; i < 3; ++i)  // or the metal's own colour
      look.specular[i] += (look.diffuse[i] - look.specular[i]) * metallic;
    look.shininess = shininess_of_roughness(
        number(definition, {"pbrMetallicRoughness", "roughnessFactor"}, 1.0f));
    look.texture =
        look_of_texture(member(definition, {"pbrMetallicRoughness", "baseColorTexture"}), images);
  }
  read_color(member(definition, {"emissiveFactor"}), look.emission);
  look.emission[3] = 1.0f;
  look.blended = blended;
  if (!blended && !masked) look.diffuse[3] = 1.0f;  // opaque: alpha is to be ignored
  return look;
}

json texture_definition(const TextureLook& look, std::vector<ImagePtr>& images) {
  const auto found = std::find(images.begin(), images.end(), look.image);
  const auto source = static_cast<std::size_t>(found - images.begin());
  if (found == images.end()) images.push_back(look.image);
  // glTF knows no clamping that mixes in a border.
  const auto wrap = [](UInt32 mode) { return mode == gl::kClamp ? gl::kClampToEdge : mode; };
  json info = {{"texture",
                {{"source", source},
                 {"sampler",
                  {{"minFilter", look.min_filter},
                   {"magFilter", look.mag_filter},
                   {"wrapS", wrap(look.wrap_s)},
                   {"wrapT", wrap(look.wrap_t)}}}}}};
  if (look.set > 0) info["texCoord"] = look.set;
  return info;
}

void apply_look(const MaterialLook& look, const MaterialLook& before, json& definition,
                std::vector<ImagePtr>& images) {
  if (look == before) return;
  if (!definition.is_object()) definition = json::object();
  // The other workflow has no place for what follows.
  if (json* extensions = definition.contains("extensions") ? &definition["extensions"] : nullptr)
    if (extensions->is_object()) extensions->erase("KHR_materials_pbrSpecularGlossiness");
  json& pbr = object_member(definition, "pbrMetallicRoughness");
  if (look.diffuse != before.diffuse) pbr["baseColorFactor"] = color_array(look.diffuse, 4);
  if (look.shininess != before.shininess)
    pbr["roughnessFactor"] = static_cast<double>(roughness_of_shininess(look.shininess));
  if (look.specular != before.specular) set_specular(look.specular, definition);
  if (look.emission != before.emission)
    definition["emissiveFactor"] = color_array(look.emission, 3);
  if (look.texture != before.texture) {
    if (look.texture)
      pbr["baseColorTexture"] = texture_definition(*look.texture, images);
    else
      pbr.erase("baseColorTexture");
  }
  const bool was_opaque = definition.value("alphaMode", json("OPAQUE")) == "OPAQUE";
  if (look.blended && !before.blended) definition["alphaMode"] = "BLEND";
  if (!look.blended && before.blended) definition.erase("alphaMode");
  if (was_opaque && look.diffuse[3] != before.diffuse[3]) definition["alphaMode"] = "BLEND";
}

json definition_of_look(const MaterialLook& look, std::vector<ImagePtr>& images) {
  json definition = {{"doubleSided", true}};
  json& pbr = definition["pbrMetallicRoughness"];
  pbr["baseColorFactor"] = color_array(look.diffuse, 4);
  set_specular(look.specular, definition);
  pbr["roughnessFactor"] = static_cast<double>(roughness_of_shininess(look.shininess));
  if (look.texture) pbr["baseColorTexture"] = texture_definition(*look.texture, images);
  const json emission = color_array(look.emission, 3);
  if (emission != json{0.0, 0.0, 0.0}) definition["emissiveFactor"] = emission;
  if (look.blended || look.diffuse[3] < 1.0f) definition["alphaMode"] = "BLEND";
  return definition;
}

}  // namespace osg::io
