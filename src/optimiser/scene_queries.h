#pragma once

#include <osg/image.h>
#include <osg/material.h>

#include "morlu/optimiser.h"

/// What the library asks about materials beyond the exported queries.
namespace morlu::osg {

/// See "skipped geometry" in the public header. False for null and for cores that aren't geometry.
bool isSkippedGeometry(const ::osg::NodePtr& node);

/// Nodes of skipped geometry at and below `node`, also those below one another.
unsigned countSkippedGeometry(const ::osg::NodePtr& node);

/// The geometry's own material, else that of the topmost MaterialGroup above, else null.
::osg::MaterialPtr getEffectiveMaterial(const ::osg::NodePtr& node);
/// The same for a caller that knows the topmost MaterialGroup above, null if there is none: a climb
/// from each node would make walks quadratic in the depth of the graph.
::osg::MaterialPtr getPaintedMaterial(const ::osg::NodePtr& node, const ::osg::NodePtr& painter);

/// The image on the effective material: that of a SimpleTexturedMaterial, else of the last
/// TextureChunk; null if there is none or it has no pixels. `hasAlpha`: an RGBA image with an alpha
/// below 255 somewhere. `blended`: the environment mode mixes the image with the colour below it.
/// Reads the image's pixels.
::osg::ImagePtr getMaterialImage(const ::osg::NodePtr& node, bool& hasAlpha, bool& blended);

/// The same image. Reads no pixels.
::osg::ImagePtr findMaterialImage(const ::osg::NodePtr& node);

/// Whether there is one. Reads no pixels.
bool hasMaterialImage(const ::osg::NodePtr& node);

/// Whether the last MaterialChunk of the effective material has a diffuse alpha other than 1; NaN
/// is other.
bool hasTransparentMaterial(const ::osg::NodePtr& node);

struct material_colors {
  ::osg::Color4f diffuse{0, 0, 0, 0};
  ::osg::Color4f specular{0, 0, 0, 0};
  ::osg::Color4f ambient{0, 0, 0, 0};
  ::osg::Color4f emission{0, 0, 0, 0};
  ::osg::Real32 shininess = 0;
};

/// The colours of the first MaterialChunk, else those of a SimpleMaterial with alpha 1. Of a
/// SwitchMaterial those of its choice; a negative choice says so on standard output. False, and
/// `colors` as it was, for all other materials and null.
bool getMaterialColors(const ::osg::MaterialPtr& material, material_colors& colors);

}  // namespace morlu::osg
