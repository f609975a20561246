#pragma once

#include <osg/material.h>
#include <osg/node.h>

#include <string>

namespace morlu::program {

/// What a material's images are for. `other`: normals, roughness and the like, no base colour.
enum class TextureUse { none, base_color, other };
TextureUse use_of_textures(const ::osg::MaterialPtr& material);

/// The geometry's own material, else that of the topmost MaterialGroup above; may be null.
::osg::MaterialPtr material_of(const ::osg::NodePtr& node);

bool holds_geometry(const ::osg::NodePtr& scene);

/// Warns if parts of a scene from `file` that may go into atlases have a material that is more than
/// its texture, and tells their number.
void warn_of_richer_materials(const ::osg::NodePtr& scene, const std::string& file);

/// Warns if parts have textures that clamp or mirror and coordinates beyond 0 to 1, which look
/// different when they are shifted, and tells their number.
void warn_of_shifts(const ::osg::NodePtr& scene, const std::string& file);

}  // namespace morlu::program
