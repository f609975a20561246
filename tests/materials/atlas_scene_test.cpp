// The atlas of a scene: what takes part, and that everything looks as before.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include <osg/geometry_tools.h>

#include "morlu/materials.h"
#include "optimiser/scene_queries.h"
#include "primitives/node_walk.h"
#include "support/failing_memory.h"
#include "support/said.h"
#include "support/scene_parts.h"
#include "support/scene_text.h"

namespace morlu::tests {
namespace {

namespace gl = ::osg::gl;
using ::osg::Geometry;
using ::osg::GeometryPtr;
using ::osg::Image;
using ::osg::ImagePtr;
using ::osg::MaterialPtr;
using ::osg::NodePtr;
using ::osg::UInt32;
using ::osg::UInt8;
using ::osg::Vec2f;
using Chunks = ::osg::ChunkMaterial;

// --- Scenes --------------------------------------------------------------------------------------

GeometryPtr core_of(const NodePtr& node) {
  return Geometry::dcast(node->getCore());
}

/// Noise; opaque unless the format is RGBA and `clear`.
ImagePtr picture(std::mt19937& random, UInt32 format, int width, int height, bool clear = false) {
  const auto image = noise(random, format, width, height);
  const bool alpha = image->hasAlphaChannel() && !clear;
  for (std::size_t i = image->getBpp(); alpha && i <= image->getSize(); i += image->getBpp())
    image->getData()[i - 1] = 255;
  return image;
}

::osg::ChunkMaterialPtr textured(const ImagePtr& image, UInt32 wrap = gl::kRepeat) {
  const auto texture = texture_of(image);
  texture->setWrapS(wrap);
  texture->setWrapT(wrap);
  return of_chunks({texture});
}

/// The unit square, with coordinates from `low` to `high`.
GeometryPtr square(const MaterialPtr& material, Vec2f low = {0.25f, 0.25f},
                   Vec2f high = {0.75f, 0.75f}) {
  const std::vector<::osg::Pnt3f> corners{{0, 0, 0}, {1, 0, 0}, {1, 1, 0},
                                          {0, 0, 0}, {1, 1, 0}, {0, 1, 0}};
  const auto geometry = triangles(corners);
  const auto coords = ::osg::GeoTexCoords2f::create();
  for (const auto& p : corners)
    coords->push_back({low[0] + p[0] * (high[0] - low[0]), low[1] + p[1] * (high[1] - low[1])});
  geometry->setTexCoords(coords);
  geometry->setMaterial(material);
  return geometry;
}

void add_line(const GeometryPtr& geometry) {
  geometry->getTypes()->push_back(::osg::kLines);
  geometry->getLengths()->push_back(2);
  for (int i = 0; i < 2; ++i) {
    geometry->getPositions()->push_back({0, 0, 1});
    geometry->getTexCoords()->push_back({0.5f, 0.5f});
  }
}

// --- How they look -------------------------------------------------------------------------------

using Texel = std::array<int, 4>;

Texel texel_of(const Image& image, int x, int y) {
  const auto copy = Image::create();
  const int bytes = static_cast<int>(image.getBpp());
  copy->set(image.getPixelFormat(), 1, 1, 1, 1, 1, 0,
            image.getData() + (y * image.getWidth() + x) * bytes);
  copy->reformat(gl::kRGBA);
  const UInt8* p = copy->getData();
  return {p[0], p[1], p[2], p[3]};
}

int wrapped(double coordinate, int size, bool clamps) {
  const double place =
      clamps ? std::clamp(coordinate, 0.0, 1.0) : coordinate - std::floor(coordinate);
  return std::min(static_cast<int>(place * size), size - 1);
}

/// What each square of the scene shows at its points, from the first place on; -1 for no texture.
std::vector<Texel> look(const NodePtr& scene, int places, const std::vector<Vec2f>& points) {
  std::vector<Texel> seen(static_cast<std::size_t>(places) * points.size(), Texel{-2, 0, 0, 0});
  osg::for_each_node(scene, [&](const NodePtr& node) {
    const auto geometry = core_of(node);
    if (!geometry) return;
    const auto place = static_cast<std::size_t>(std::lround(node->getToWorld()[12]));
    const auto image = osg::findMaterialImage(node);
    const auto chunks = Chunks::dcast(osg::getEffectiveMaterial(node));
    const auto texture = chunks ? chunks->findLastChunk<::osg::TextureChunk>() : ::osg::NullFC;
    const bool clamps = texture && texture->getWrapS() == gl::kClampToEdge;
    for (auto t = geometry->beginTriangles(); !t.isAtEnd(); ++t)
      for (std::size_t i = 0; i < points.size(); ++i) {
        const auto edge = [&](UInt32 a, UInt32 b) {
          const auto p = t.getPosition(a), q = t.getPosition(b);
          return double{q[0] - p[0]} * (points[i][1] - p[1]) -
                 double{q[1] - p[1]} * (points[i][0] - p[0]);
        };
        const double w[] = {edge(1, 2), edge(2, 0), edge(0, 1)};
        if (std::min({w[0], w[1], w[2]}) < 0) continue;
        double uv[2] = {};
        for (UInt32 k = 0; k < 3; ++k)
          for (UInt32 axis = 0; axis < 2; ++axis)
            uv[axis] += double{t.getTexCoords(k)[axis]} * w[k] / (w[0] + w[1] + w[2]);
        seen[place * points.size() + i] =
            image ? texel_of(*image, wrapped(uv[0], image->getWidth(), clamps),
                             wrapped(uv[1], image->getHeight(), clamps))
                  : Texel{-1, 0, 0, 0};
      }
  });
  return seen;
}

std::vector<Vec2f> points_to_look_at() {
  std::mt19937 random(17);
  std::uniform_real_distribution<float> inside(0.001f, 0.999f);
  std::vector<Vec2f> points(60);
  for (Vec2f& p : points) p = {inside(random), inside(random)};
  return points;
}

/// Points that fall beside the border of two texels may come out either way.
void expect_same_look(const std::vector<Texel>& before, const std::vector<Texel>& after) {
  ASSERT_EQ(before.size(), after.size());
  std::size_t wrong = 0;
  for (std::size_t i = 0; i < before.size(); ++i) wrong += before[i] != after[i];
  EXPECT_LE(static_cast<double>(wrong), 0.002 * static_cast<double>(before.size()));
}

/// Squares beside each other in all ways in which a scene shows textures. Corners lie away from the
/// edges of images, where coordinates would be moved.
class mixed_scene {
 public:
  explicit mixed_scene(unsigned seed, int squares) : random_(seed) {
    for (int i = 0; i < 9; ++i) images_.push_back(any_picture());
    for (int i = 0; i < 3; ++i)
      images_.push_back(Image::dcast(images_[random_() % images_.size()]->shallowCopy()));
    images_.push_back(picture(random_, gl::kRGB, 140, 20));  // too large
    std::vector<NodePtr> groups;
    for (const ImagePtr& image : images_) materials_.push_back(any_material(image));
    materials_.push_back(Chunks::create());
    materials_.push_back(::osg::NullFC);
    for (int i = 0; i < 4; ++i) {
      const auto inner = below_material(any(materials_), {});
      groups.push_back(i % 2 ? below_material(any(materials_), {inner}) : inner);
      inner_.push_back(inner);
    }
    groups.push_back(node_with(::osg::Switch::create()));
    groups.push_back(node_with(::osg::Group::create()));
    root = node_with(::osg::Group::create(), groups);
    inner_.insert(inner_.end(), groups.end() - 2, groups.end());
    for (; places < squares; ++places)
      any(inner_)->addChild(node_with(
          transform(::osg::Matrix::translation(static_cast<float>(places), 0, 0)), {any_square()}));
  }

  NodePtr root;
  int places = 0;

 private:
  template <class T>
  const T& any(const std::vector<T>& all) {
    return all[random_() % all.size()];
  }
  ImagePtr any_picture() {
    const UInt32 formats[] = {gl::kRGB, gl::kRGBA, gl::kRGBA, gl::kLuminance, gl::kBGR, gl::kBGRA};
    const auto format = random_() % 6;
    return picture(random_, formats[format], 3 + static_cast<int>(random_() % 40),
                   3 + static_cast<int>(random_() % 40), format == 2);
  }
  MaterialPtr any_material(const ImagePtr& image) {
    if (random_() % 4) return textured(image, random_() % 6 ? gl::kRepeat : gl::kClampToEdge);
    return simple_textured(image);
  }
  float any_coordinate() {
    const float share = static_cast<float>(random_() % 100) / 100;
    return static_cast<float>(random_() % 4) - 2 + 0.5f + (share - 0.5f) * 0.1f;
  }
  NodePtr any_square() {
    NodePtr node;
    if (!cores_.empty() && random_() % 3 == 0) {
      node = node_with(any(cores_));
    } else {
      const bool tiles = random_() % 2;
      const Vec2f low(any_coordinate(), any_coordinate());
      const auto core =
          square(MaterialPtr(), low, low + (tiles ? Vec2f(1.03f, 2) : Vec2f(0.1f, 0.12f)));
      if (random_() % 2) ::osg::createSharedIndex(core);
      if (random_() % 2) core->setMaterial(any(materials_));
      if (random_() % 6 == 0) add_line(core);
      cores_.push_back(core);
      node = node_with(core);
    }
    if (random_() % 9 == 0) node->setTravMask(0);
    return node;
  }

  std::mt19937 random_;
  std::vector<ImagePtr> images_;
  std::vector<MaterialPtr> materials_;
  std::vector<NodePtr> inner_;
  std::vector<GeometryPtr> cores_;
};

osg::scene_atlas quiet_atlas(const NodePtr& scene, unsigned size, unsigned limit, unsigned bound) {
  test::said hidden;
  auto atlas = osg::createSceneAtlas(scene, size, limit, bound);
  hidden.end();
  return atlas;
}

TEST(SceneAtlas, LeavesTheLookOfAnyScene) {
  const auto points = points_to_look_at();
  std::size_t tiles = 0;
  for (unsigned seed = 1; seed <= 25; ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    const mixed_scene scene(seed, 80);
    const auto before = look(scene.root, scene.places, points);
    tiles += quiet_atlas(scene.root, 256, 1 + seed % 3, 0).tiles.size();
    expect_same_look(before, look(scene.root, scene.places, points));
  }
  EXPECT_GT(tiles, 100u);
}

TEST(SceneAtlas, IsTheSameEachTimeAndChangesNothingTwice) {
  const mixed_scene first(3, 40), second(3, 40);
  EXPECT_EQ(quiet_atlas(first.root, 128, 2, 2).tiles.size(),
            quiet_atlas(second.root, 128, 2, 2).tiles.size());
  EXPECT_EQ(support::scene_text(first.root), support::scene_text(second.root));
}

TEST(SceneAtlas, LeavesTheLookWhereMemoryEnds) {
  const auto points = points_to_look_at();
  int failed = 0;
  for (int nth = 0;; nth += 1 + nth / 6) {
    const mixed_scene scene(5, 30);
    const auto before = look(scene.root, scene.places, points);
    const auto done = test::with_failing_memory(
        nth, [&] { osg::createTextureAtlasForScene(scene.root, 256, 2, 0); });
    failed += done.thrown;
    expect_same_look(before, look(scene.root, scene.places, points));
    if (!done.met) break;
  }
  EXPECT_GT(failed, 20);
}

TEST(SceneAtlas, TellsWhatItDoes) {
  const std::string refusal =
      "createTextureAtlasForScene: Texture Size must between 32x32 and 8192x8192.\n";
  const auto counts = [](int solid, int transparent, int placed) {
    return std::to_string(solid) + " solid images collected for texture atlas.\n" +
           std::to_string(transparent) + " transparent images collected for texture atlas.\n" +
           std::to_string(placed) + " solid images processed.\n" +
           "0 transparent images processed.\n";
  };
  const struct {
    unsigned size;
    std::string text;
  } cases[] = {{16, refusal + counts(3, 1, 3)},
               {31, refusal + counts(3, 1, 3)},
               {32, counts(2, 1, 2)},
               {8192, counts(3, 1, 3)},
               {8193, refusal + counts(3, 1, 3)},
               {~0u, refusal + counts(3, 1, 3)}};
  for (const auto& [size, text] : cases) {
    std::mt19937 random(2);
    std::vector<NodePtr> nodes;
    for (const int side : {4, 8, 16})
      nodes.push_back(node_with(square(textured(picture(random, gl::kRGB, side, 4)))));
    nodes.push_back(node_with(square(textured(picture(random, gl::kRGBA, 4, 4, true)))));
    test::said said;
    const unsigned placed =
        osg::createTextureAtlasForScene(node_with(::osg::Group::create(), nodes), size, 2, 2);
    said.end();
    EXPECT_EQ(said.out, text) << size;
    EXPECT_EQ(said.err, "");
    EXPECT_EQ(placed, size == 32 ? 2u : 3u);
  }
  test::said said;
  EXPECT_EQ(osg::createTextureAtlasForScene(::osg::NullFC, 16, 2, 2), 0u);
  said.end();
  EXPECT_EQ(said.out, "");
}

// Each beside two others that fit: whether it goes into the atlas too.
TEST(SceneAtlas, TakesWhatSuitsIt) {
  std::mt19937 random(4);
  const auto small = picture(random, gl::kRGB, 8, 8);
  const auto on_second = textured(small);
  on_second->findLastChunk<::osg::TextureChunk>()->setTexCoordSet(1);
  const auto with_line = [&](float low) {
    const auto geometry = square(textured(small), {low, 0.25f}, {0.75f, 0.75f});
    add_line(geometry);
    return geometry;
  };
  const auto without_coords = square(textured(small));
  without_coords->setTexCoords(::osg::NullFC);
  const auto sized = [&](int width, int height) {
    return square(textured(picture(random, gl::kRGB, width, height)));
  };
  const struct {
    GeometryPtr geometry;
    bool goes;
  } cases[] = {
      {square(textured(small)), true},
      {sized(499, 8), true},
      {sized(500, 8), false},
      {sized(8, 500), false},
      {square(textured(small), {-7.0f, 0}, {-5.0f, 1}), true},
      {square(textured(small), {0, 0}, {2.04f, 1}), true},
      {square(textured(small), {0, 0}, {2.06f, 1}), false},
      {square(textured(small, gl::kClampToEdge)), true},
      {square(textured(small, gl::kClampToEdge), {0, 0}, {1, 1.5f}), false},
      {square(textured(small, gl::kMirroredRepeat), {-0.5f, 0}, {1, 1}), false},
      {square(on_second), false},
      {square(textured(Image::create())), false},
      {square(Chunks::create()), false},
      {with_line(0.25f), true},
      {with_line(-0.25f), false},
      {without_coords, false},
  };
  int number = 0;
  for (const auto& [geometry, goes] : cases) {
    SCOPED_TRACE(testing::Message() << "case " << number++);
    const MaterialPtr own = geometry->getMaterial();
    const auto node = node_with(geometry);
    std::vector<NodePtr> nodes{node};
    for (const int side : {9, 10})
      nodes.push_back(node_with(square(textured(picture(random, gl::kRGB, side, side)))));
    const auto atlas = quiet_atlas(node_with(::osg::Group::create(), nodes), 1000, 2, 0);
    const auto core = core_of(node);
    const auto after = core->getMaterial();
    EXPECT_EQ(after != own, goes);
    EXPECT_EQ(core->getTexCoords().isNull(), geometry == without_coords);
    ASSERT_EQ(atlas.pages.size(), 1u);
    if (goes) {
      EXPECT_EQ(after, Geometry::dcast(nodes[1]->getCore())->getMaterial());
    }
  }
}

TEST(SceneAtlas, LeavesASingleImageAlone) {
  std::mt19937 random(8);
  const auto material = textured(picture(random, gl::kRGB, 8, 8));
  const auto geometry = square(material);
  const auto node = node_with(geometry);
  EXPECT_TRUE(quiet_atlas(node_with(::osg::Group::create(), {node}), 256, 2, 2).tiles.empty());
  const auto after = core_of(node);
  EXPECT_NE(after, geometry);  // with coordinates near zero
  EXPECT_EQ(after->getMaterial(), material);
}

// RGB between images that are transparent, with colours at its vertices.
TEST(SceneAtlas, GivesPagesTheirMaterial) {
  std::mt19937 random(10);
  const auto glass = textured(picture(random, gl::kRGB, 4, 4));
  glass->addChunk(diffuse({1, 1, 1, 0.5f}));
  const auto colored = square(glass);
  colored->setColors(property_of<::osg::GeoColors3f>(std::vector(6, ::osg::Color3f(1, 0, 0))));
  const auto clear = textured(picture(random, gl::kRGBA, 4, 4, true));
  std::vector<NodePtr> nodes{node_with(colored), node_with(square(clear))};
  for (int i = 0; i < 2; ++i)
    nodes.push_back(node_with(square(textured(picture(random, gl::kRGB, 4, 4)))));
  const auto atlas = quiet_atlas(node_with(::osg::Group::create(), nodes), 64, 2, 2);

  const auto chunks_of = [&](std::size_t i) {
    return Chunks::dcast(Geometry::dcast(nodes[i]->getCore())->getMaterial())->getChunks();
  };
  ASSERT_EQ(atlas.pages.size(), 2u);
  const auto solid = chunks_of(2), transparent = chunks_of(0);
  ASSERT_EQ(solid.size(), 1u);
  ASSERT_EQ(transparent.size(), 3u);
  EXPECT_EQ(chunks_of(1), transparent);
  EXPECT_EQ(::osg::TextureChunk::dcast(solid[0])->getImage(), atlas.pages[0]);
  EXPECT_EQ(::osg::TextureChunk::dcast(transparent[0])->getImage(), atlas.pages[1]);
  EXPECT_EQ(::osg::BlendChunk::dcast(transparent[1])->getSrcFactor(), gl::kSrcAlpha);
  EXPECT_EQ(::osg::BlendChunk::dcast(transparent[1])->getDestFactor(), gl::kOneMinusSrcAlpha);
  EXPECT_EQ(::osg::MaterialChunk::dcast(transparent[2])->getColorMaterial(),
            gl::kAmbientAndDiffuse);
  EXPECT_EQ(atlas.pages[0]->getPixelFormat(), gl::kRGB);
  for (const auto& tile : atlas.tiles)
    if (tile.page == 1 && tile.source->getPixelFormat() == gl::kRGB) {
      EXPECT_EQ(texel_of(*atlas.pages[1], static_cast<int>(tile.x), static_cast<int>(tile.y))[3],
                255);
    }
}

TEST(SceneAtlas, KeepsSharingCores) {
  std::mt19937 random(12);
  const auto shared = square(MaterialPtr(), {0, 0}, {2, 1});
  const auto lines = square(MaterialPtr(), {0, 0}, {2, 1});
  add_line(lines);
  std::vector<NodePtr> nodes(6);
  for (std::size_t i = 0; i < 6; ++i) nodes[i] = node_with(i < 3 ? lines : shared);
  const auto hidden = node_with(shared);
  hidden->setTravMask(0);
  const auto red = textured(picture(random, gl::kRGB, 4, 4)),
             blue = textured(picture(random, gl::kRGB, 6, 6));
  const auto above_red = below_material(red, {nodes[0], nodes[1], nodes[3], nodes[4], hidden});
  const auto above_blue = below_material(blue, {nodes[2], nodes[5]});
  quiet_atlas(node_with(::osg::Group::create(), {above_red, above_blue}), 64, 2, 0);
  for (const std::size_t i : {0u, 3u}) {
    EXPECT_EQ(nodes[i]->getCore(), nodes[i + 1]->getCore());
    EXPECT_NE(nodes[i]->getCore(), nodes[i + 2]->getCore());
    EXPECT_EQ(Geometry::dcast(nodes[i]->getCore())->getMaterial(),
              Geometry::dcast(nodes[i + 2]->getCore())->getMaterial());
  }
  EXPECT_EQ(Geometry::dcast(hidden->getCore())->getMaterial(), red);
  EXPECT_EQ(Geometry::dcast(hidden->getCore())->getTexCoords()->getValue(1), Vec2f(2, 0));
  for (const NodePtr& group : {above_red, above_blue})
    EXPECT_EQ(group->getCore()->getType(), ::osg::Group::getClassType());
}

TEST(SceneAtlas, NamesImagesThatItWouldMixUp) {
  std::mt19937 random(14);
  const auto image = picture(random, gl::kRGB, 8, 8);
  const auto variant = [&](std::size_t byte) {
    const auto copy = Image::dcast(image->shallowCopy());
    copy->getData()[byte] ^= 1;
    return copy;
  };
  const auto late = variant(64), equal = Image::dcast(image->shallowCopy());
  const NodePtr scene = node_with(::osg::Group::create());
  for (const auto& each : {image, late, variant(63), equal, late})
    scene->addChild(node_with(square(textured(each))));
  scene->addChild(node_with(square(textured(variant(65)), {0, 0}, {3, 3})));  // stays out
  const auto found = osg::findAtlasMixUps(scene, 64, 2);
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0].shown, image);
  EXPECT_EQ(found[0].lost, late);
}

}  // namespace
}  // namespace morlu::tests
