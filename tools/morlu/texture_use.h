#pragma once

#include <osg/material.h>
#include <osg/node.h>

namespace morlu::program {

/// What a material's images are for. `other`: normals, roughness and the like, no base colour.
enum class TextureUse { none, base_color, other };
TextureUse use_of_textures(const ::osg::MaterialPtr& material);

/// The geometry's own material, else that of the topmost MaterialGroup above; may be null.
::osg::MaterialPtr material_of(const ::osg::NodePtr& node);

}  // namespace morlu::program
