#include "gltf/materials.h"

#include <algorithm>

#include "attribute_json.h"
#include "gltf/definition.h"

namespace osg::io {
namespace {

using nlohmann::json;

constexpr const char* kTransform = "KHR_texture_transform";

/// Extensions of an object of tinygltf's, exactly as they stood in the file.
template <class Source>
void add_extensions(const Source& source, json& target) {
  if (source.extensions_json_string.empty()) return;
  json extensions = json::parse(source.extensions_json_string, nullptr, false);
  if (extensions.is_object() && !extensions.empty()) target["extensions"] = std::move(extensions);
}

template <class Info>
void add_texture(const Info& info, const char* name, json& target) {
  if (info.index < 0) return;
  json& texture = target[name];
  texture["index"] = info.index;
  if (info.texCoord > 0) texture["texCoord"] = info.texCoord;
  if constexpr (std::is_same_v<Info, tinygltf::NormalTextureInfo>)
    if (info.scale != 1.0) texture["scale"] = info.scale;
  if constexpr (std::is_same_v<Info, tinygltf::OcclusionTextureInfo>)
    if (info.strength != 1.0) texture["strength"] = info.strength;
  add_extensions(info, texture);
}

json pbr_json(const tinygltf::PbrMetallicRoughness& source) {
  json pbr = json::object();
  if (source.baseColorFactor != std::vector<double>{1.0, 1.0, 1.0, 1.0})
    pbr["baseColorFactor"] = source.baseColorFactor;
  if (source.metallicFactor != 1.0) pbr["metallicFactor"] = source.metallicFactor;
  if (source.roughnessFactor != 1.0) pbr["roughnessFactor"] = source.roughnessFactor;
  add_texture(source.baseColorTexture, "baseColorTexture", pbr);
  add_texture(source.metallicRoughnessTexture, "metallicRoughnessTexture", pbr);
  add_extensions(source, pbr);
  return pbr;
}

/// The material in canonical form: defaults left out, numbers as doubles, members sorted, textures
/// still by number.
json material_json(const tinygltf::Material& source) {
  json material = json::object();
  json pbr = pbr_json(source.pbrMetallicRoughness);
  if (!pbr.empty()) material["pbrMetallicRoughness"] = std::move(pbr);
  if (source.emissiveFactor.size() == 3 &&
      source.emissiveFactor != std::vector<double>{0.0, 0.0, 0.0})
    material["emissiveFactor"] = source.emissiveFactor;
  if (source.alphaMode != "OPAQUE" && !source.alphaMode.empty())
    material["alphaMode"] = source.alphaMode;
  if (source.alphaCutoff != 0.5) material["alphaCutoff"] = source.alphaCutoff;
  if (source.doubleSided) material["doubleSided"] = true;
  add_texture(source.normalTexture, "normalTexture", material);
  add_texture(source.occlusionTexture, "occlusionTexture", material);
  add_texture(source.emissiveTexture, "emissiveTexture", material);
  add_extensions(source, material);
  return material;
}

/// A number that is finite as a float.
std::optional<Real32> finite(const json& object, const char* name, Real32 otherwise) {
  const auto found = object.find(name);
  if (found == object.end()) return otherwise;
  if (!found->is_number()) return std::nullopt;
  const double value = found->get<double>();
  if (!(std::abs(value) <= 1e30)) return std::nullopt;
  return static_cast<Real32>(value);
}

/// Reads the extension; nothing if it makes no sense.
std::optional<TextureTransform> read_transform(const json& extension) {
  if (!extension.is_object()) return std::nullopt;
  TextureTransform transform;
  const auto pair = [&](const char* name, Real32* values) {
    const auto found = extension.find(name);
    if (found == extension.end()) return true;
    if (!found->is_array() || found->size() != 2) return false;
    const json named = {{"x", (*found)[0]}, {"y", (*found)[1]}};
    const auto x = finite(named, "x", 0.0f);
    const auto y = finite(named, "y", 0.0f);
    if (x) values[0] = *x;
    if (y) values[1] = *y;
    return x && y;
  };
  const auto rotation = finite(extension, "rotation", 0.0f);
  if (!pair("offset", transform.offset) || !pair("scale", transform.scale) || !rotation)
    return std::nullopt;
  transform.rotation = *rotation;
  return transform;
}

/// A use of a set of texture coordinates.
struct TextureUse {
  json* texture;
  UInt32 set;
  TextureTransform transform;
};

std::vector<TextureUse> collect_uses(json& material, bool& all_understood) {
  std::vector<TextureUse> uses;
  visit_textures(material, [&](json& texture) {
    TextureUse use{&texture, 0, {}};
    const auto set_of = [&](const json& object) {
      const auto found = object.find("texCoord");
      if (found != object.end() && found->is_number_integer())
        use.set = static_cast<UInt32>(std::clamp<Int64>(found->get<Int64>(), 0, kTexCoordSets));
    };
    set_of(texture);
    if (texture.contains("extensions") && texture["extensions"].contains(kTransform)) {
      const json& extension = texture["extensions"][kTransform];
      const auto transform = read_transform(extension);
      if (!transform) all_understood = false;
      use.transform = transform.value_or(TextureTransform{});
      if (transform) set_of(extension);
    }
    uses.push_back(use);
  });
  return uses;
}

/// Takes the transform out of the texture, now that its coordinates are what it makes of them.
void drop_transform(const TextureUse& use) {
  json& texture = *use.texture;
  if (!texture.contains("extensions") || !texture["extensions"].contains(kTransform)) return;
  texture["extensions"].erase(kTransform);
  if (texture["extensions"].empty()) texture.erase("extensions");
  if (use.set > 0)
    texture["texCoord"] = use.set;
  else
    texture.erase("texCoord");
}

/// Moves transforms from the material into `baked`, set by set, where all uses of a set agree.
void bake_transforms(json& material, GltfMaterial& target, Warnings& warnings) {
  bool all_understood = true;
  const std::vector<TextureUse> uses = collect_uses(material, all_understood);
  for (UInt32 set = 0; set < kTexCoordSets; ++set) {
    const TextureTransform* first = nullptr;
    bool agreed = true;
    for (const TextureUse& use : uses) {
      if (use.set != set) continue;
      if (!first) first = &use.transform;
      agreed = agreed && use.transform == *first;
    }
    if (!first) continue;
    if (!agreed || !all_understood) {
      warnings.count(
          "texture transforms that differ within a material are kept with it only, "
          "not applied to the coordinates",
          "material");
      continue;
    }
    if (*first != TextureTransform{}) target.baked[set] = *first;
    for (const TextureUse& use : uses)
      if (use.set == set) drop_transform(use);
  }
}

}  // namespace

const GltfMaterial& GltfMaterials::material(int index, const std::string& place) {
  if (index == -1) return none_;
  if (index < 0 || static_cast<std::size_t>(index) >= materials_.size())
    throw ReadError{place, "there is no material " + std::to_string(index)};
  auto& material = materials_[static_cast<std::size_t>(index)];
  if (!material) material = build(document_.model.materials[static_cast<std::size_t>(index)]);
  return *material;
}

GltfMaterial GltfMaterials::build(const tinygltf::Material& source) {
  GltfMaterial result;
  json definition = material_json(source);
  bake_transforms(definition, result, warnings_);
  std::vector<ImagePtr> images;
  visit_textures(definition, [&](json& texture) {
    const json& index = texture["index"];
    texture["texture"] = texture_json(index.is_number_integer() ? index.get<int>() : -1, images);
    texture.erase("index");
  });
  const MaterialLook look = look_of_definition(definition, images);
  const ChunkMaterialPtr material = build_material(look, source.name);
  const auto chunk = PBRChunk::create();
  chunk->setDefinition(definition.dump());
  chunk->setImages(std::move(images));
  material->addChunk(chunk);
  attach_extras(material, source.extras_json_string);
  result.material = material;
  return result;
}

json GltfMaterials::texture_json(int index, std::vector<ImagePtr>& images) {
  json texture = json::object();
  const auto& model = document_.model;
  const auto place = place_of("textures", static_cast<std::size_t>(index));
  if (index < 0 || static_cast<std::size_t>(index) >= model.textures.size())
    throw ReadError{place, "there is no such texture"};
  const tinygltf::Texture& source = model.textures[static_cast<std::size_t>(index)];
  if (source.sampler >= 0) {
    if (static_cast<std::size_t>(source.sampler) >= model.samplers.size())
      throw ReadError{place, "there is no sampler " + std::to_string(source.sampler)};
    const tinygltf::Sampler& sampler = model.samplers[static_cast<std::size_t>(source.sampler)];
    json& values = texture["sampler"] = json::object();
    if (sampler.minFilter >= 0) values["minFilter"] = sampler.minFilter;
    if (sampler.magFilter >= 0) values["magFilter"] = sampler.magFilter;
    values["wrapS"] = sampler.wrapS;
    values["wrapT"] = sampler.wrapT;
  }
  if (source.source < 0) {
    warnings_.add(place + ": has no image that can be read; materials go without it");
    return texture;
  }
  const ImagePtr image = images_.image(source.source);
  if (!image) return texture;
  const auto found = std::find(images.begin(), images.end(), image);
  texture["source"] = static_cast<std::size_t>(found - images.begin());
  if (found == images.end()) images.push_back(image);
  return texture;
}

}  // namespace osg::io
