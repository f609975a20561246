#include "gltf/out_materials.h"

#include "gltf/definition.h"

namespace osg::io {
namespace {

using nlohmann::json;

/// The definition that a material carries; null if there is none that makes sense.
json definition_of(const PBRChunkPtr& chunk) {
  if (!chunk || nests_too_deep(chunk->getDefinition())) return nullptr;
  json definition = json::parse(chunk->getDefinition(), nullptr, false);
  return definition.is_object() ? definition : json(nullptr);
}

void collect_extensions(const json& value, std::set<std::string>& names) {
  if (!value.is_structured()) return;
  for (const auto& [name, member] : value.items()) {
    if (value.is_object() && name == "extensions" && member.is_object())
      for (const auto& [extension, content] : member.items()) names.insert(extension);
    collect_extensions(member, names);
  }
}

}  // namespace

int OutMaterials::index_of(const MaterialPtr& material) {
  if (!material) return -1;
  const auto [found, fresh] = index_.try_emplace(material, static_cast<int>(materials_.size()));
  if (fresh) materials_.push_back(material_text(material));
  return found->second;
}

std::string OutMaterials::material_text(const MaterialPtr& material) {
  const auto chunks = ChunkMaterial::dcast(material);
  const PBRChunkPtr chunk = chunks ? chunks->findLastChunk<PBRChunk>() : PBRChunkPtr();
  const MaterialLook look = look_of(material);
  std::vector<ImagePtr> images;
  json definition = definition_of(chunk);
  if (definition.is_null()) {
    definition = definition_of_look(look, images);
  } else {
    images = chunk->getImages();
    apply_look(look, look_of_definition(definition, images), definition, images);
  }
  visit_textures(definition, [&](json& texture) {
    const json value = texture.value("texture", json::object());
    const json source = value.is_object() ? value.value("source", json()) : json();
    const json sampler = value.is_object() ? value.value("sampler", json()) : json();
    const bool known = source.is_number_unsigned() && source.get<std::size_t>() < images.size();
    texture.erase("texture");
    texture["index"] = texture_number(known ? images[source.get<std::size_t>()] : ImagePtr(),
                                      sampler.is_object() ? sampler.dump() : "");
  });
  collect_extensions(definition, extensions_);
  std::string text = definition.dump(-1, ' ', false, json::error_handler_t::replace);
  const auto add = [&text](const char* name, const std::string& value) {
    if (value.empty()) return;
    text.pop_back();
    text.append(text.size() > 1 ? ",\"" : "\"").append(name).append("\":").append(value);
    text += '}';
  };
  const char* name = osg::getName(material);
  add("name", name && *name ? json_string(name) : "");
  add("extras", extras_of(*material));
  return text;
}

std::size_t OutMaterials::texture_number(const ImagePtr& image, const std::string& sampler) {
  JsonText text;
  text.begin_object();
  if (!sampler.empty()) text.member("sampler", samplers_.number_of(sampler));
  if (image && !image->empty()) text.member("source", image_number(image));
  return textures_.number_of(text.end_object().text());
}

std::size_t OutMaterials::image_number(const ImagePtr& image) {
  const auto [found, fresh] = image_index_.try_emplace(image, images_.size());
  if (fresh) images_.push_back(image);
  return found->second;
}

std::size_t OutMaterials::Table::number_of(const std::string& text) {
  const auto [found, fresh] = index.try_emplace(text, texts.size());
  if (fresh) texts.push_back(text);
  return found->second;
}

}  // namespace osg::io
