#pragma once

#include <functional>
#include <nlohmann/json.hpp>

#include "material_look.h"

/// A glTF material as a PBRChunk carries it: the material's JSON without name, extras and members
/// that have their default. In place of a texture's number each texture stands itself:
/// `{"texture":{"sampler":{...},"source":k},"texCoord":1}`, `source` being the image's place in the
/// chunk's list.
namespace osg::io {

/// Calls `visit(texture)` for each object in the material that refers to a texture, those in
/// extensions among them: members whose name ends in "Texture".
void visit_textures(nlohmann::json& material,
                    const std::function<void(nlohmann::json& texture)>& visit);

/// The look that an importer gives a material with this definition. Members of wrong types count
/// as absent.
MaterialLook look_of_definition(const nlohmann::json& definition,
                                const std::vector<ImagePtr>& images);

/// Puts what `look` says differently from `before` into the definition; a new image goes to the end
/// of `images`.
void apply_look(const MaterialLook& look, const MaterialLook& before, nlohmann::json& definition,
                std::vector<ImagePtr>& images);

/// The JSON of a texture; a new image goes to the end of `images`.
nlohmann::json texture_definition(const TextureLook& look, std::vector<ImagePtr>& images);

/// What a material without a definition is written as: `look` with a roughness that fits its
/// highlight, no metal, both sides drawn.
nlohmann::json definition_of_look(const MaterialLook& look, std::vector<ImagePtr>& images);

}  // namespace osg::io
