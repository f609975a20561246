#include "assimp/materials.h"

#include <assimp/scene.h>
#include <algorithm>
#include <cmath>

#include "assimp/collada.h"
#include "gltf/definition.h"

namespace osg::io {
namespace {

/// A property that is a finite number.
std::optional<Real32> number(const aiMaterial& source, const char* key, unsigned type,
                             unsigned index) {
  ai_real value = 0;
  if (source.Get(key, type, index, value) != aiReturn_SUCCESS || !std::isfinite(value))
    return std::nullopt;
  return static_cast<Real32>(value);
}

/// False, and `color` as it was, if there is none.
bool read_color(const aiMaterial& source, const char* key, unsigned type, unsigned index,
                Color4f& color) {
  aiColor4D value;
  if (source.Get(key, type, index, value) != aiReturn_SUCCESS) return false;
  const Real32 values[4] = {value.r, value.g, value.b, value.a};
  for (UInt32 i = 0; i < 4; ++i)
    if (std::isfinite(values[i])) color[i] = values[i];
  return true;
}

std::string name_of(const aiMaterial& source) {
  aiString name;
  source.Get(AI_MATKEY_NAME, name);
  return name.C_Str();
}

std::string texture_name(const aiMaterial& source, aiTextureType type) {
  aiString name;
  return source.GetTexture(type, 0, &name) == aiReturn_SUCCESS ? name.C_Str() : std::string();
}

/// Whether the importer made the material up because the file has none: under a name of its own,
/// or without one, white or grey, and with nothing else to say.
bool is_made_up(const aiMaterial& source) {
  const std::string name = name_of(source);
  if (name == kNoColladaMaterial) return true;
  if (name != AI_DEFAULT_MATERIAL_NAME && name != "%%%DEFAULT" && !name.empty()) return false;
  for (int type = aiTextureType_DIFFUSE; type <= AI_TEXTURE_TYPE_MAX; ++type)
    if (source.GetTextureCount(static_cast<aiTextureType>(type)) > 0) return false;
  // A material that the file has comes with its opacity; an OBJ file's has its name as well.
  if (name.empty() && number(source, AI_MATKEY_OPACITY)) return false;
  Color4f diffuse(1.0f, 1.0f, 1.0f, 1.0f);
  read_color(source, AI_MATKEY_COLOR_DIFFUSE, diffuse);
  const Real32 grey = diffuse[0];
  const bool usual = grey == 1.0f || grey == 0.8f || grey == 0.6f || grey == 0.3f;
  return usual && diffuse == Color4f(grey, grey, grey, 1.0f) &&
         number(source, AI_MATKEY_OPACITY).value_or(1.0f) == 1.0f;
}

UInt32 wrap_of(const aiMaterial& source, const char* key, aiTextureType type) {
  int mode = aiTextureMapMode_Wrap;
  source.Get(key, type, 0, mode);
  if (mode == aiTextureMapMode_Mirror) return gl::kMirroredRepeat;
  return mode == aiTextureMapMode_Wrap ? gl::kRepeat : gl::kClampToEdge;
}

/// The texture of that type; none if there is no image.
std::optional<TextureLook> texture_of(const aiMaterial& source, aiTextureType type,
                                      ModelImages& images) {
  if (source.GetTextureCount(type) == 0) return std::nullopt;
  TextureLook look{.image = images.image(texture_name(source, type))};
  if (!look.image) return std::nullopt;
  look.wrap_s = wrap_of(source, _AI_MATKEY_MAPPINGMODE_U_BASE, type);
  look.wrap_t = wrap_of(source, _AI_MATKEY_MAPPINGMODE_V_BASE, type);
  int set = 0;
  source.Get(AI_MATKEY_UVWSRC(type, 0), set);
  look.set = static_cast<UInt32>(std::clamp<int>(set, 0, 7));
  return look;
}

aiTextureType base_type(const aiMaterial& source) {
  return source.GetTextureCount(aiTextureType_BASE_COLOR) > 0 ? aiTextureType_BASE_COLOR
                                                              : aiTextureType_DIFFUSE;
}

MaterialLook look_of_source(const aiMaterial& source, ModelImages& images) {
  MaterialLook look;
  if (!read_color(source, AI_MATKEY_BASE_COLOR, look.diffuse))
    read_color(source, AI_MATKEY_COLOR_DIFFUSE, look.diffuse);
  read_color(source, AI_MATKEY_COLOR_AMBIENT, look.ambient);
  read_color(source, AI_MATKEY_COLOR_SPECULAR, look.specular);
  read_color(source, AI_MATKEY_COLOR_EMISSIVE, look.emission);
  look.ambient[3] = look.specular[3] = look.emission[3] = 1.0f;
  look.shininess = number(source, AI_MATKEY_SHININESS).value_or(look.shininess);
  look.diffuse[3] = number(source, AI_MATKEY_OPACITY).value_or(look.diffuse[3]);
  look.diffuse[3] = std::clamp(look.diffuse[3], 0.0f, 1.0f);
  const aiTextureType type = base_type(source);
  look.texture = texture_of(source, type, images);
  int flags = 0;
  source.Get(AI_MATKEY_TEXFLAGS(type, 0), flags);
  const std::string opacity = texture_name(source, aiTextureType_OPACITY);
  const bool cut_out = !opacity.empty() && opacity == texture_name(source, type);
  const bool alpha = look.texture && look.texture->image->hasAlphaChannel() &&
                     (cut_out || (flags & aiTextureFlags_UseAlpha) != 0);
  look.blended = alpha || look.diffuse[3] < 1.0f;
  return look;
}

/// What a glTF material can say of the source beyond its look, under its names there.
class Definition {
 public:
  Definition(const MaterialLook& look, const aiMaterial& source, ModelImages& images)
      : source_(source), images_(images), json_(definition_of_look(look, list_)) {}

  /// Null if there is nothing beyond the look.
  PBRChunkPtr chunk(bool& physical) {
    const bool normals = add_texture(aiTextureType_NORMALS, "normalTexture");
    const bool emissive = add_texture(aiTextureType_EMISSIVE, "emissiveTexture");
    const bool occlusion = add_occlusion();
    const bool one_sided = take_sides();
    const bool factors = add_factors();
    const bool metallic_roughness = add_metallic_roughness();
    physical = factors || metallic_roughness;
    if (!normals && !emissive && !occlusion && !one_sided && !physical) return NullFC;
    const auto chunk = PBRChunk::create();
    chunk->setDefinition(json_.dump());
    chunk->setImages(list_);
    return chunk;
  }
  MaterialLook look() const { return look_of_definition(json_, list_); }

 private:
  bool add_texture(aiTextureType type, const char* name) {
    const auto look = texture_of(source_, type, images_);
    if (!look) return false;
    nlohmann::json& texture = json_[name];
    texture = texture_definition(*look, list_);
    if (type == aiTextureType_EMISSIVE && !json_.contains("emissiveFactor"))
      json_["emissiveFactor"] = {1.0, 1.0, 1.0};
    return true;
  }
  bool add_occlusion() {
    return add_texture(aiTextureType_AMBIENT_OCCLUSION, "occlusionTexture") ||
           add_texture(aiTextureType_LIGHTMAP, "occlusionTexture");
  }
  /// A material that says it has one side only; one that says nothing shows both.
  bool take_sides() {
    int both = 1;
    if (source_.Get(AI_MATKEY_TWOSIDED, both) != aiReturn_SUCCESS || both != 0) return false;
    json_.erase("doubleSided");
    return true;
  }
  bool add_factors() {
    const auto metallic = number(source_, AI_MATKEY_METALLIC_FACTOR);
    const auto roughness = number(source_, AI_MATKEY_ROUGHNESS_FACTOR);
    nlohmann::json& pbr = json_["pbrMetallicRoughness"];
    if (metallic) pbr["metallicFactor"] = std::clamp<double>(*metallic, 0.0, 1.0);
    if (roughness) pbr["roughnessFactor"] = std::clamp<double>(*roughness, 0.0, 1.0);
    return metallic || roughness;
  }
  /// glTF has both in one image; that is what a file means that names the same for both.
  bool add_metallic_roughness() {
    const std::string metal = texture_name(source_, aiTextureType_METALNESS);
    if (metal.empty() || metal != texture_name(source_, aiTextureType_DIFFUSE_ROUGHNESS))
      return false;
    const auto look = texture_of(source_, aiTextureType_METALNESS, images_);
    if (!look) return false;
    json_["pbrMetallicRoughness"]["metallicRoughnessTexture"] = texture_definition(*look, list_);
    return true;
  }

  const aiMaterial& source_;
  ModelImages& images_;
  std::vector<ImagePtr> list_;
  nlohmann::json json_;
};

/// Textures that there is no place for: one line a kind.
void warn_of_textures(const aiMaterial& source, Warnings& warnings) {
  const auto warn = [&](aiTextureType type, const char* what) {
    if (source.GetTextureCount(type) > 0)
      warnings.count(std::string(what) + " are left out", "material");
  };
  warn(aiTextureType_SPECULAR, "specular textures");
  warn(aiTextureType_AMBIENT, "ambient textures");
  warn(aiTextureType_HEIGHT, "bump textures");
  warn(aiTextureType_SHININESS, "shininess textures");
  warn(aiTextureType_DISPLACEMENT, "displacement textures");
  warn(aiTextureType_REFLECTION, "reflection textures");
  const std::string base = texture_name(source, base_type(source));
  if (texture_name(source, aiTextureType_OPACITY) != base)
    warn(aiTextureType_OPACITY, "opacity textures apart from the colour's");
  if (texture_name(source, aiTextureType_METALNESS) !=
      texture_name(source, aiTextureType_DIFFUSE_ROUGHNESS)) {
    warn(aiTextureType_METALNESS, "metalness textures apart from the roughness's");
    warn(aiTextureType_DIFFUSE_ROUGHNESS, "roughness textures apart from the metalness's");
  }
  if (source.GetTextureCount(base_type(source)) > 1)
    warnings.count("colour textures but the first are left out", "material");
}

/// The base texture's transform; nothing for the identity and for one that isn't finite.
std::optional<aiUVTransform> transform_of(const aiMaterial& source) {
  aiUVTransform t;
  if (source.Get(AI_MATKEY_UVTRANSFORM(base_type(source), 0), t) != aiReturn_SUCCESS)
    return std::nullopt;
  const ai_real values[] = {t.mTranslation.x, t.mTranslation.y, t.mScaling.x, t.mScaling.y,
                            t.mRotation};
  if (!std::all_of(std::begin(values), std::end(values),
                   [](ai_real v) { return std::isfinite(v); }))
    return std::nullopt;
  const bool identity = t.mTranslation == aiVector2D(0, 0) && t.mScaling == aiVector2D(1, 1) &&
                        t.mRotation == ai_real(0);
  return identity ? std::nullopt : std::optional(t);
}

}  // namespace

ModelMaterials::ModelMaterials(const aiScene& scene, ModelImages& images, Warnings& warnings)
    : scene_(scene), images_(images), warnings_(warnings), materials_(scene.mNumMaterials) {}

const ModelMaterial& ModelMaterials::material(UInt32 index, const std::string& place) {
  if (index >= materials_.size() || !scene_.mMaterials[index])
    throw ReadError{place, "there is no material " + std::to_string(index)};
  auto& material = materials_[index];
  if (!material) material = build(*scene_.mMaterials[index]);
  return *material;
}

ModelMaterial ModelMaterials::build(const aiMaterial& source) {
  ModelMaterial result;
  if (is_made_up(source)) return result;
  MaterialLook look = look_of_source(source, images_);
  warn_of_textures(source, warnings_);
  if (look.texture) {
    result.set = look.texture->set;
    result.transform = transform_of(source);
  }
  Definition definition(look, source, images_);
  bool physical = false;
  const PBRChunkPtr chunk = definition.chunk(physical);
  const Color4f emission = definition.look().emission;  // white under a texture of its own
  if (physical) look = definition.look();               // as of any material of that kind
  look.emission = emission;
  const ChunkMaterialPtr material = build_material(look, name_of(source));
  if (chunk) material->addChunk(chunk);
  result.material = material;
  return result;
}

}  // namespace osg::io
