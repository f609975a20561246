// What becomes of a leaf of a rebuilt scene: textures in one atlas, geometry in few cores.

#include "optimiser/leaf_geometry.h"

#include <osg/cores.h>
#include <osg/material.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <string>
#include <vector>

#include "finishing/core_building.h"
#include "geoset/extract.h"
#include "kd/compile_tree.h"
#include "kd/strategies.h"
#include "materials/atlas_coords.h"
#include "materials/leaf_atlas.h"
#include "materials/tex_coords.h"
#include "morlu/optimiser.h"
#include "optimiser/scene_queries.h"
#include "primitives/node_moves.h"
#include "primitives/say.h"

namespace morlu::osg {

namespace {

using ::osg::ChunkMaterialPtr;
using ::osg::GeometryPtr;
using ::osg::ImagePtr;
using ::osg::NodePtr;

// --- Atlas image ---------------------------------------------------------------------------------

/// Nobody else has these names in the process.
std::atomic<std::uint32_t> next_atlas_number{0};

/// The larger one of two that are equally near.
::osg::Int32 nearest_power_of_two(::osg::Int32 size) {
  constexpr ::osg::Int32 largest = 8192;
  ::osg::Int32 above = 1;
  while (above < size && above < largest) above *= 2;
  const ::osg::Int32 below = above / 2;
  return size - below < above - size ? below : above;
}

ImagePtr black_image(bool has_alpha) {
  const auto image = ::osg::Image::create();
  image->set(has_alpha ? ::osg::gl::kRGBA : ::osg::gl::kRGB, 2, 2);
  return image;
}

/// Where memory runs out the image stays as far as it came, which draws as well.
void finish(const ImagePtr& image) {
  if (image->getWidth() <= 1 || image->getHeight() <= 1) return;
  try {
    image->scale(nearest_power_of_two(image->getWidth()), nearest_power_of_two(image->getHeight()));
    const std::string name = "TexFiles/texture" + std::to_string(next_atlas_number) + ".png";
    image->setName(name);
    ::osg::setName(image, name);
    image->setAttachmentField("fileName", name);
    ++next_atlas_number;
  } catch (...) {
    say("Scaling failed...\n");
  }
}

// --- Materials -----------------------------------------------------------------------------------

template <class Chunk>
::osg::FCPtr<Chunk> last_chunk(const ChunkMaterialPtr& material) {
  return material->findLastChunk<Chunk>();
}

/// Null for a material that has no texture of its chunks.
ChunkMaterialPtr textured_material(const ::osg::MaterialPtr& material) {
  if (::osg::SimpleTexturedMaterial::dcast(material)) return ::osg::NullFC;
  const auto chunks = ::osg::ChunkMaterial::dcast(material);
  const auto texture = chunks ? last_chunk<::osg::TextureChunk>(chunks) : ::osg::NullFC;
  const bool shows = texture && texture->getImage() && !texture->getImage()->empty();
  return shows ? chunks : ::osg::NullFC;
}

/// Whether both mix their image with colours, and the result with what lies behind, in one way.
bool blend_alike(const ChunkMaterialPtr& a, const ChunkMaterialPtr& b) {
  const auto image_a = last_chunk<::osg::TextureChunk>(a);
  const auto image_b = last_chunk<::osg::TextureChunk>(b);
  return image_a->getEnvMode() == image_b->getEnvMode() &&
         image_a->getEnvCombineRGB() == image_b->getEnvCombineRGB() &&
         ::osg::equalByValue(last_chunk<::osg::BlendChunk>(a), last_chunk<::osg::BlendChunk>(b));
}

/// The colours that all have, else plain ones.
::osg::MaterialChunkPtr colors_of(const std::vector<ChunkMaterialPtr>& materials) {
  const auto first = last_chunk<::osg::MaterialChunk>(materials.front());
  const bool all_agree =
      std::all_of(materials.begin(), materials.end(), [&](const ChunkMaterialPtr& each) {
        return ::osg::equalByValue(last_chunk<::osg::MaterialChunk>(each), first);
      });
  return first && all_agree ? ::osg::MaterialChunk::dcast(first->shallowCopy())
                            : ::osg::MaterialChunk::create();
}

ChunkMaterialPtr atlas_material(const std::vector<ChunkMaterialPtr>& materials,
                                const ImagePtr& atlas) {
  const auto texture =
      ::osg::TextureChunk::dcast(last_chunk<::osg::TextureChunk>(materials.back())->shallowCopy());
  texture->setImage(atlas);
  const auto material = ::osg::ChunkMaterial::create();
  material->addChunk(colors_of(materials));
  material->addChunk(texture);
  material->addChunk(last_chunk<::osg::BlendChunk>(materials.front()));
  return material;
}

// --- Texture coordinates -------------------------------------------------------------------------

/// Whether triangles would have to be deformed to come near zero.
bool are_far(const osg_geoset& set) {
  constexpr float farthest = 50;
  const ::osg::GeoTexCoords& coords = *set.geometry->getTexCoords();
  for (std::uint32_t i = 0; i + 2 < 3 * set.num_objects; i += 3) {
    const ::osg::Vec2f t[] = {coords.getValue(i), coords.getValue(i + 1), coords.getValue(i + 2)};
    for (unsigned axis = 0; axis < 2; ++axis) {
      const auto [low, high] = std::minmax({t[0][axis], t[1][axis], t[2][axis]});
      if (!(high - std::floor(low) <= farthest) || !std::isfinite(t[1][axis])) return true;
    }
  }
  return false;
}

// --- Leaf ----------------------------------------------------------------------------------------

NodePtr node_of(const GeometryPtr& geometry) {
  const NodePtr node = ::osg::Node::create();
  node->setCore(geometry);
  return node;
}

class leaf_building {
 public:
  leaf_building(object_scene& scene, const leaf_setup& setup) : scene_(scene), setup_(setup) {}

  NodePtr run(std::span<const std::uint64_t> objects) {
    for (const std::uint64_t object : objects) add(static_cast<unsigned>(object));
    pack_textures();
    part_by_atlas();
    add_textured();
    for (const std::uint64_t object : objects) add_lines_and_points(static_cast<unsigned>(object));
    add_rest();
    return root_;
  }

 private:
  struct part {
    NodePtr node;
    std::int64_t record = -1;  // -1 without a texture that goes into the atlas
  };

  void add(unsigned object) {
    osg_geoset& set = scene_.simple_object(object).set;
    const NodePtr source = scene_.object_node(object);
    const auto material = getEffectiveMaterial(source);
    set.geometry->setMaterial(material);
    part added{node_of(set.geometry)};
    if (suits_atlas(textured_material(material), set, source)) {
      optimizeGeosetTexCoords(set, setup_.optimize_tc, 50);
      set.resizeFields(
          static_cast<unsigned>(set.num_objects));  // what it had room for is no texture
      collectAtlasImages({&added.node, 1}, images_);
      added.record = images_.find(findMaterialImage(added.node));
    }
    parts_.push_back(added);
  }

  bool suits_atlas(const ChunkMaterialPtr& material, const osg_geoset& set, const NodePtr& source) {
    const auto& coords = set.geometry->getTexCoords();
    if (!material || !coords || coords->size() < 3 * set.num_objects) return false;
    if (isShownOtherwise(source) || are_far(set)) return false;
    if (!blend_material_) blend_material_ = material;
    return blend_alike(material, blend_material_);
  }

  void pack_textures() {
    auto& records = images_.records();
    if (records.empty()) return;
    const bool has_alpha = std::any_of(records.begin(), records.end(),
                                       [](const atlas_image& each) { return each.has_alpha; });
    atlas_ = black_image(has_alpha);
    texture_layout layout;
    if (createAtlas(records, false, 10000, layout)) fillAtlasImage(layout, records, atlas_);
    std::vector<leaf_object> objects;
    for (const part& each : parts_)
      objects.push_back({::osg::Geometry::dcast(each.node->getCore()), each.record});
    remapLeafTexCoords(objects, records, *atlas_);
    finish(atlas_);
  }

  /// What has no place in the atlas needs its own texture.
  void part_by_atlas() {
    for (const part& each : parts_) {
      const bool is_placed =
          each.record >= 0 && images_.records()[static_cast<std::size_t>(each.record)].placed;
      if (is_placed)
        textured_.push_back(each.node);
      else
        rest_->addChild(each.node);
    }
  }

  void add_textured() {
    osg_geoset set;
    std::vector<ChunkMaterialPtr> materials;
    for (const NodePtr& node : textured_) {
      const auto geometry = ::osg::Geometry::dcast(node->getCore());
      materials.push_back(::osg::ChunkMaterial::dcast(geometry->getMaterial()));
      extract(node, set, true, false, false, node == textured_.back(), true);
    }
    if (set.num_objects == 0) return;
    kd_tree tree;
    compile_tree(set, tree, {.leaf_size = 5, .max_depth = 0, .strategy = 3},
                 kd_strategy_ObjMedian());
    set.geometry->setMaterial(atlas_material(materials, atlas_));
    root_->addChild(SplitmodelParts(tree, set, 0, 1, NodePtr(), setup_.level, true));
  }

  void add_lines_and_points(unsigned object) {
    const NodePtr source = scene_.object_node(object);
    const auto geometry = ::osg::Geometry::dcast(source->getCore());
    if (countPrimitiveLines(geometry) > 0) {
      osg_line_geoset lines;
      extractLines(source, lines, true, false, false, true);
      add_set(lines, source);
    }
    if (countPrimitivePoints(geometry) > 0) {
      osg_point_geoset points;
      extractPoints(source, points, true, false, false, true);
      add_set(points, source);
    }
  }

  template <class Set>
  void add_set(Set& set, const NodePtr& source) {
    if (set.num_objects == 0) return;
    set.resizeFields(static_cast<unsigned>(set.num_objects));
    set.geometry->setMaterial(getEffectiveMaterial(source));
    rest_->addChild(node_of(set.geometry));
  }

  void add_rest() {
    if (rest_->getNChildren() == 0) return;
    mergeGeo_setup merge;
    merge.opt = static_cast<std::int32_t>(setup_.level);
    merge.silent = true;
    merge.optimizetc = 0;  // what is in no atlas keeps its coordinates
    root_->addChild(mergeGeo(rest_, {.leaf_size = 64000, .max_depth = 0, .strategy = 3}, merge));
  }

  object_scene& scene_;
  const leaf_setup setup_;
  const NodePtr root_ = makeGroup(), rest_ = makeGroup();
  std::vector<part> parts_;
  std::vector<NodePtr> textured_;  // whose texture is in the atlas
  atlas_image_table images_;
  ChunkMaterialPtr blend_material_;  // blends as all in the atlas do
  ImagePtr atlas_;
};

}  // namespace

NodePtr buildLeafGeometry(object_scene& scene, std::span<const std::uint64_t> objects,
                          const leaf_setup& setup) {
  return leaf_building(scene, setup).run(objects);
}

}  // namespace morlu::osg
