// What optimisation may touch in a scene graph, and how its geometry looks.
#include "optimiser/scene_queries.h"

#include <osg/cores.h>
#include <osg/geometry.h>
#include <osg/state_chunks.h>

#include <algorithm>
#include <map>

#include "primitives/node_moves.h"
#include "primitives/node_walk.h"
#include "primitives/say.h"

namespace morlu::osg {

namespace {

template <class Core>
bool has_core(const ::osg::NodePtr& node) {
  return !Core::dcast(node->getCore()).isNull();
}

// The same questions of a material, so that a node's is looked for once.

bool is_skipped_material(const ::osg::MaterialPtr& material) {
  if (::osg::SwitchMaterial::dcast(material)) return true;
  const auto chunks = ::osg::ChunkMaterial::dcast(material);
  return chunks && chunks->findFirstChunk<::osg::CubeTextureChunk>();
}

struct placed_image {
  ::osg::ImagePtr image;
  bool blended = false;
};

placed_image image_of(const ::osg::MaterialPtr& material) {
  placed_image result;
  if (const auto simple = ::osg::SimpleTexturedMaterial::dcast(material)) {
    result = {simple->getImage(), simple->getEnvMode() == ::osg::gl::kBlend};
  } else if (const auto chunks = ::osg::ChunkMaterial::dcast(material)) {
    const auto texture = chunks->findLastChunk<::osg::TextureChunk>();
    if (!texture) return {};
    const auto mode = texture->getEnvMode();
    result = {texture->getImage(),
              mode == ::osg::gl::kBlend || (mode == ::osg::gl::kCombine &&
                                            texture->getEnvCombineRGB() == ::osg::gl::kModulate)};
  }
  if (result.image && (result.image->getWidth() < 1 || result.image->getHeight() < 1))
    result.image = ::osg::NullFC;
  return result;
}

/// In blocks, since a loop that may end at each pixel can't be run in vectors.
bool has_alpha(const ::osg::Image& image) {
  if (image.getPixelFormat() != ::osg::gl::kRGBA) return false;
  constexpr std::size_t block = std::size_t{4} << 12;
  for (std::size_t begin = 0; begin < image.getSize(); begin += block) {
    const ::osg::UInt8* pixel = image.getData() + begin;
    const std::size_t bytes = std::min(block, image.getSize() - begin);
    ::osg::UInt8 common = 255;
    for (std::size_t i = 3; i < bytes; i += 4) common &= pixel[i];
    if (common != 255) return true;
  }
  return false;
}

bool is_transparent(const ::osg::MaterialPtr& material) {
  const auto chunks = ::osg::ChunkMaterial::dcast(material);
  const auto colors = chunks ? chunks->findLastChunk<::osg::MaterialChunk>() : ::osg::NullFC;
  return colors && !(colors->getDiffuse()[3] == 1.0f);
}

::osg::Color4f with_alpha(const ::osg::Color4f& color) {
  return color;
}
::osg::Color4f with_alpha(const ::osg::Color3f& color) {
  return {color[0], color[1], color[2], 1.0f};
}

/// The walk behind both forms of `getGeometryNodes`.
class geometry_collector {
 public:
  using nodes = std::vector<::osg::NodePtr>;

  geometry_collector(nodes& opaque, nodes& transparent)
      : opaque_(opaque), transparent_(transparent) {}

  /// Returns the nodes under Switch and DistanceLOD cores.
  nodes collect(const ::osg::NodePtr& root) {
    struct place {
      bool switched;
      ::osg::NodePtr painter;  // the topmost MaterialGroup above
    };
    walk_nodes(root, place{false, searchMaterialGroup(root)},
               [this](const ::osg::NodePtr& node, place& at) {
                 if (at.switched) return visit_switched(node);
                 if (!node->getCore() || node->getTravMask() == 0) return false;
                 at.switched = has_core<::osg::Switch>(node) || has_core<::osg::DistanceLOD>(node);
                 if (at.switched) return true;
                 const bool goes_on = visit(node, at.painter);
                 if (!at.painter && has_core<::osg::MaterialGroup>(node)) at.painter = node;
                 return goes_on;
               });
    return std::move(switched_);
  }

 private:
  /// A geometry ends its branch, whatever its mask and material.
  bool visit_switched(const ::osg::NodePtr& node) {
    if (!has_core<::osg::Geometry>(node)) return true;
    switched_.push_back(node);
    return false;
  }

  bool visit(const ::osg::NodePtr& node, const ::osg::NodePtr& painter) {
    if (!has_core<::osg::Geometry>(node)) return true;
    const ::osg::MaterialPtr material = getPaintedMaterial(node, painter);
    if (is_skipped_material(material)) return false;
    const bool clear = image_has_alpha(image_of(material).image) || is_transparent(material);
    (clear ? transparent_ : opaque_).push_back(node);
    return true;
  }

  /// Scenes show one image on many geometries.
  bool image_has_alpha(const ::osg::ImagePtr& image) {
    if (!image) return false;
    const auto [entry, fresh] = alpha_of_image_.try_emplace(image, false);
    if (fresh) entry->second = has_alpha(*image);
    return entry->second;
  }

  nodes& opaque_;
  nodes& transparent_;
  nodes switched_;
  std::map<::osg::ImagePtr, bool> alpha_of_image_;
};

/// A geometry at the top gets a group above it, so that every geometry has a parent on the walk. It
/// is hidden as before, and an id map knows it by its name.
::osg::NodePtr under_group(const ::osg::NodePtr& node) {
  if (!has_core<::osg::Geometry>(node)) return node;
  const auto geometry = ::osg::Node::create();
  geometry->setCore(node->getCore());
  geometry->setTravMask(node->getTravMask());
  if (const char* name = ::osg::getName(node)) ::osg::setName(geometry, name);
  const auto group = makeGroup();
  group->addChild(geometry);
  return group;
}

void append(std::vector<::osg::NodePtr>& list, const std::vector<::osg::NodePtr>& more) {
  list.insert(list.end(), more.begin(), more.end());
}

}  // namespace

unsigned getGeometryNodes(::osg::NodePtr node, std::vector<::osg::NodePtr>& list,
                          std::vector<::osg::NodePtr>& alphaList, bool withSwitched) {
  if (!node) return 0;
  const auto switched = geometry_collector(list, alphaList).collect(under_group(node));
  if (withSwitched) append(list, switched);
  return static_cast<unsigned>(switched.size());
}

unsigned getGeometryNodes(::osg::NodePtr node, std::vector<::osg::NodePtr>& list,
                          bool withSwitched) {
  if (!node) return 0;
  std::vector<::osg::NodePtr> transparent;
  getGeometryNodes(std::move(node), list, transparent, withSwitched);
  const std::size_t size = list.size();
  append(list, transparent);
  return static_cast<unsigned>(size);
}

void getSkippedNodes(::osg::NodePtr node, std::vector<::osg::NodePtr>& list) {
  walk_nodes(std::move(node), [&](const ::osg::NodePtr& each) {
    const bool skipped = isSkippedGeometry(each);
    if (skipped) list.push_back(each);
    return !skipped;
  });
}

void getTravMaskZeroNodes(::osg::NodePtr node, std::vector<::osg::NodePtr>& list, bool hidden) {
  walk_nodes(std::move(node), hidden, [&](const ::osg::NodePtr& each, bool& inherited) {
    if (!each->getCore()) return false;
    inherited = inherited || each->getTravMask() == 0;
    if (inherited && has_core<::osg::Geometry>(each)) list.push_back(each);
    return true;
  });
}

::osg::RefPtr<::osg::NodePtr> searchMaterialGroup(const ::osg::NodePtr& node) {
  ::osg::NodePtr topmost;
  if (!node) return topmost;
  for (auto above = node->getParent(); above; above = above->getParent())
    if (has_core<::osg::MaterialGroup>(above)) topmost = above;
  return topmost;
}

bool isSkippedGeometry(const ::osg::NodePtr& node) {
  if (!node || !has_core<::osg::Geometry>(node)) return false;
  return node->getTravMask() == 0 || is_skipped_material(getEffectiveMaterial(node));
}

unsigned countSkippedGeometry(const ::osg::NodePtr& node) {
  unsigned count = 0;
  for_each_node(node, [&](const ::osg::NodePtr& each) { count += isSkippedGeometry(each); });
  return count;
}

::osg::MaterialPtr getPaintedMaterial(const ::osg::NodePtr& node, const ::osg::NodePtr& painter) {
  const auto geometry = ::osg::Geometry::dcast(node->getCore());
  if (geometry && geometry->getMaterial()) return geometry->getMaterial();
  if (!painter) return ::osg::NullFC;
  return ::osg::MaterialGroup::dcast(painter->getCore())->getMaterial();
}

::osg::MaterialPtr getEffectiveMaterial(const ::osg::NodePtr& node) {
  if (!node) return ::osg::NullFC;
  const auto geometry = ::osg::Geometry::dcast(node->getCore());
  if (geometry && geometry->getMaterial()) return geometry->getMaterial();
  return getPaintedMaterial(node, searchMaterialGroup(node));
}

::osg::ImagePtr getMaterialImage(const ::osg::NodePtr& node, bool& hasAlpha, bool& blended) {
  const placed_image found = image_of(getEffectiveMaterial(node));
  hasAlpha = found.image && has_alpha(*found.image);
  blended = found.blended;
  return found.image;
}

::osg::ImagePtr findMaterialImage(const ::osg::NodePtr& node) {
  return image_of(getEffectiveMaterial(node)).image;
}

bool hasMaterialImage(const ::osg::NodePtr& node) {
  return !findMaterialImage(node).isNull();
}

bool hasTransparentMaterial(const ::osg::NodePtr& node) {
  return is_transparent(getEffectiveMaterial(node));
}

bool getMaterialColors(const ::osg::MaterialPtr& material, material_colors& colors) {
  ::osg::MaterialPtr shown = material;
  if (const auto choice = ::osg::SwitchMaterial::dcast(material)) {
    if (choice->getChoice() < 0) {
      say("False SwitchMatChoice\n");
      return false;
    }
    shown = choice->getChosenMaterial();
  }
  const auto read = [&](const auto& from) {
    colors = {with_alpha(from.getDiffuse()), with_alpha(from.getSpecular()),
              with_alpha(from.getAmbient()), with_alpha(from.getEmission()), from.getShininess()};
    return true;
  };
  const auto chunks = ::osg::ChunkMaterial::dcast(shown);
  if (const auto first = chunks ? chunks->findFirstChunk<::osg::MaterialChunk>() : ::osg::NullFC)
    return read(*first);
  const auto simple = ::osg::SimpleMaterial::dcast(shown);
  return simple && read(*simple);
}

}  // namespace morlu::osg
