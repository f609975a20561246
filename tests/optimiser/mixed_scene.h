#pragma once

#include <algorithm>
#include <cmath>
#include <new>
#include <set>
#include <string>
#include <vector>

#include "optimiser/scene_queries.h"
#include "primitives/node_walk.h"
#include "support/failing_memory.h"
#include "support/said.h"
#include "support/scene_parts.h"

/// Scenes with all that geometry can be, and what is to be seen of a scene whatever it is made of.
namespace morlu::tests {

enum part_kind : unsigned {
  textured = 1,  // three images, one of them tiled
  glass = 2,     // images with alpha, blended, and a plain material with alpha
  strokes = 4,   // lines and points, alone and beside triangles
  switched = 8,  // below a Switch and a DistanceLOD, or of a derived type
  skipped = 16,  // a material with a choice
  painted = 32,  // by a MaterialGroup, a core below another
  all_kinds = 63
};

/// What an application may derive.
struct own_geometry : ::osg::ContainerClass<"OwnGeometry", own_geometry, ::osg::Geometry> {
  own_geometry() = default;
  own_geometry(const own_geometry&) = default;
};

/// Each part in a place and a colour of its own.
struct mixed_scene {
  ::osg::NodePtr root = node_with(transform(::osg::Matrix::translation(5, 0, 1)));

  explicit mixed_scene(unsigned kinds) {
    for (int i = 0; i < 3; ++i) add(square(shining(color())));
    if (kinds & textured) {
      const auto tiled = picture(::osg::gl::kRGB, 16, 32);
      for (const float high : {1.5f, 1.0f}) add(square(tiled, high));
      add(square(picture(::osg::gl::kRGB, 32, 16)));
      add(square(picture(::osg::gl::kLuminance, 24, 24)));
    }
    if (kinds & glass) {
      for (int i = 0; i < 2; ++i) add(square(picture(::osg::gl::kRGBA, 32, 32)));
      add(square(shining(color(), 0.5f)));
    }
    if (kinds & strokes) add_strokes();
    if (kinds & switched) {
      add(square(shining(color())), ::osg::Switch::create());
      add(square(shining(color())), ::osg::DistanceLOD::create());
      const ::osg::GeometryPtr own = own_geometry::create(), plain = square(shining(color()));
      own->setTypes(plain->getTypes());
      own->setLengths(plain->getLengths());
      own->setPositions(plain->getPositions());
      own->setMaterial(plain->getMaterial());
      add(own);
    }
    if (kinds & skipped) {
      const auto choice = ::osg::SwitchMaterial::create();
      choice->addMaterial(shining(color()));
      add(square(choice));
    }
    if (kinds & painted) {
      const auto group = ::osg::MaterialGroup::create();
      group->setMaterial(shining(color()));
      add(square(::osg::NullFC), group)->addChild(node_with(square(shining(color()))));
    }
  }

  static ::osg::ChunkMaterialPtr showing(const ::osg::ImagePtr& image) {
    return of_chunks({texture_of(image)});
  }

  /// Two triangles with texture coordinates from 0 to `high`; their normals lie in their plane.
  static ::osg::GeometryPtr square(const ::osg::MaterialPtr& material, float high = 1) {
    const std::vector<::osg::Pnt3f> corners{{0, 0, 0}, {1, 0, 0}, {1, 1, 0},
                                            {0, 0, 0}, {1, 1, 0}, {0, 1, 0}};
    const auto geometry = triangles(corners);
    const auto coords = ::osg::GeoTexCoords2f::create();
    const auto normals = ::osg::GeoNormals3f::create();
    for (const auto& p : corners) coords->push_back({p[0] * high, p[1] * high});
    for (int i = 0; i < 6; ++i) normals->push_back({1, 0, 0});
    geometry->setTexCoords(coords);
    geometry->setNormals(normals);
    geometry->setMaterial(material);
    return geometry;
  }

 private:
  ::osg::NodePtr add(const ::osg::GeometryPtr& core,
                     const ::osg::NodeCorePtr& above = ::osg::Group::create()) {
    const auto x = static_cast<float>(3 * place_++);
    const auto part = node_with(core), placed = node_with(above, {part});
    root->addChild(node_with(transform(::osg::Matrix::translation(x, x / 2, 0)), {placed}));
    return part;
  }

  ::osg::Color3f color() {
    ++color_;
    const auto share = [](unsigned bits) { return 0.125f + 0.25f * static_cast<float>(bits & 3); };
    return {share(color_), share(color_ >> 2), share(color_ >> 4)};
  }

  ::osg::ChunkMaterialPtr picture(::osg::UInt32 format, int width, int height) {
    const auto rgb = color();
    const auto image = ::osg::Image::create();
    image->set(::osg::gl::kRGBA, width, height);
    for (std::size_t i = 0; i < image->getSize(); ++i)
      image->getData()[i] = static_cast<::osg::UInt8>(
          i % 4 == 3 ? 128 : 255 * rgb[static_cast<::osg::UInt32>(i % 4)]);
    image->reformat(format);
    const auto material = showing(image);
    if (format == ::osg::gl::kRGBA) material->addChunk(::osg::BlendChunk::create());
    return material;
  }

  void add_strokes() {
    const std::vector<::osg::Pnt3f> way{{0, 4, 2}, {1, 4, 2}, {2, 4, 2}};
    const auto alone = triangles(way), both = square(shining(color()));
    alone->getTypes()->setValue(::osg::kLineStrip, 0);
    alone->setMaterial(shining(color()));
    both->setTexCoords(::osg::NullFC);
    both->setNormals(::osg::NullFC);
    for (const auto type : {::osg::kPoints, ::osg::kLineStrip}) {
      both->getTypes()->push_back(type);
      both->getLengths()->push_back(3);
      for (const auto& p : way) both->getPositions()->push_back(p);
    }
    add(alone)->addChild(node_with(both));
  }

  unsigned color_ = 0, place_ = 0;
};

/// The colour in steps of a quarter at those coordinates, and whether it is blended.
inline std::string color_at(const ::osg::NodePtr& node, const float* coordinates) {
  const auto chunks = ::osg::ChunkMaterial::dcast(osg::getEffectiveMaterial(node));
  if (!chunks) return "none or a choice";
  std::string text = chunks->findLastChunk<::osg::BlendChunk>() ? "blended" : "solid";
  const auto add = [&](double share) { text += ' ' + std::to_string(std::lround(4 * share)); };
  if (const auto image = osg::findMaterialImage(node)) {
    const auto pixel = [](float at, int size) {
      return static_cast<int>((at - std::floor(at)) * static_cast<float>(size)) % size;
    };
    const auto rgba = ::osg::Image::create();
    image->subImage(pixel(coordinates[0], image->getWidth()),
                    pixel(coordinates[1], image->getHeight()), 0, 1, 1, 1, rgba);
    rgba->reformat(::osg::gl::kRGBA);
    for (int k = 0; k < 3; ++k) add(rgba->getData()[k] / 256.0 - 0.125);
  } else if (const auto colors = chunks->findFirstChunk<::osg::MaterialChunk>()) {
    for (::osg::UInt32 k = 0; k < 3; ++k) add(colors->getEmission()[k] - 0.125);
  }
  return text;
}

/// Each triangle, line and point with its place in the world and its colour.
inline std::multiset<std::string> shown(const ::osg::NodePtr& root) {
  std::multiset<std::string> all;
  osg::for_each_node(root, [&](const ::osg::NodePtr& node) {
    const auto geometry = ::osg::Geometry::dcast(node->getCore());
    if (!geometry || !geometry->getTypes()) return;
    const auto world = node->getToWorld();
    const auto add = [&](const auto& at, ::osg::UInt32 first, ::osg::UInt32 corners) {
      float mean[5] = {};
      for (::osg::UInt32 i = first; i < first + corners; ++i) {
        const auto p = world * at.getPosition(i);
        for (::osg::UInt32 k = 0; k < 3; ++k) mean[k] += p[k] / static_cast<float>(corners);
        for (::osg::UInt32 k = 0; k < 2 && geometry->getTexCoords(); ++k)
          mean[3 + k] += at.getTexCoords(i)[k] / static_cast<float>(corners);
      }
      std::string text = std::to_string(corners) + color_at(node, mean + 3);
      for (int k = 0; k < 3; ++k) text += ' ' + std::to_string(std::lround(8 * mean[k]));
      all.insert(text);
    };
    for (auto at = geometry->beginTriangles(); !at.isAtEnd(); ++at) add(at, 0, 3);
    for (auto at = geometry->beginLines(); !at.isAtEnd(); ++at) add(at, 0, 2);
    for (auto at = geometry->beginPrimitives(); !at.isAtEnd(); ++at)
      for (::osg::UInt32 i = 0; at.getType() == ::osg::kPoints && i < at.getLength(); ++i)
        add(at, i, 1);
  });
  return all;
}

/// Runs `work` on a scene while memory fails at one request after another: all is shown in the
/// scene's parent and the result together, once.
template <class Work>
void expect_nothing_lost(unsigned kinds, const Work& work) {
  bool is_reached = true;
  for (int nth = 0; is_reached; nth += 1 + nth / 30) {
    SCOPED_TRACE(std::to_string(kinds) + ' ' + std::to_string(nth));
    const mixed_scene scene(kinds);
    const auto before = shown(scene.root);
    const auto parent = node_with(::osg::Group::create(), {scene.root});
    ::osg::NodePtr result;
    test::said quiet;
    try {
      const test::failing_memory memory(nth, nth % 3 == 2);
      result = work(scene.root, nth);
      is_reached = memory.met();
    } catch (const std::bad_alloc&) {
    }
    quiet.end();
    auto all = shown(parent);
    if (result) all.merge(shown(result));
    ASSERT_EQ(all, before);
  }
}

}  // namespace morlu::tests
