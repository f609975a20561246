#include "sample/palette.h"

#include <string>

#include "sample/pictures.h"

namespace morlu::sample {
namespace {

using ::osg::Color4f;

struct Finish {
  const char* name;
  Color4f diffuse;
  float highlight, shininess;
};
const Finish opaque_finishes[] = {
    {"Galvanised steel", {0.62f, 0.65f, 0.67f, 1.0f}, 0.5f, 40.0f},
    {"Blue paint", {0.12f, 0.28f, 0.55f, 1.0f}, 0.3f, 60.0f},
    {"Safety yellow", {0.92f, 0.74f, 0.10f, 1.0f}, 0.3f, 50.0f},
    {"Copper", {0.72f, 0.42f, 0.26f, 1.0f}, 0.6f, 50.0f},
    {"Green paint", {0.16f, 0.42f, 0.24f, 1.0f}, 0.3f, 60.0f},
    {"Black rubber", {0.08f, 0.08f, 0.09f, 1.0f}, 0.05f, 4.0f},
    {"Concrete", {0.58f, 0.56f, 0.53f, 1.0f}, 0.02f, 2.0f},
    {"Red lead", {0.60f, 0.20f, 0.14f, 1.0f}, 0.1f, 12.0f},
};
const Finish clear_finishes[] = {
    {"Glass", {0.72f, 0.86f, 0.90f, 0.30f}, 0.8f, 100.0f},
    {"Smoked cover", {0.25f, 0.25f, 0.28f, 0.55f}, 0.5f, 80.0f},
    {"Grating", {0.55f, 0.57f, 0.60f, 0.75f}, 0.3f, 20.0f},
};

bool is_clear(std::uint32_t index, std::uint32_t count) {
  return count < 10 ? count >= 2 && index == count - 1 : index % 10 == 9;
}

// Which materials get an image: every third a clear one while there are any, so that images with
// alpha come early.
std::vector<bool> choose_textured(const std::vector<Paint>& paints, std::uint32_t textured) {
  std::vector<std::size_t> order[2];  // opaque, clear
  for (std::size_t i = 0; i < paints.size(); ++i) order[paints[i].transparent].push_back(i);
  std::vector<bool> chosen(paints.size());
  std::size_t next[2] = {0, 0};
  for (std::uint32_t i = 0; i < textured; ++i) {
    bool clear = i % 3 == 2;
    if (next[clear] == order[clear].size()) clear = !clear;
    chosen[order[clear][next[clear]++]] = true;
  }
  return chosen;
}

float varied(float value, Random& random) {
  return value * (0.85f + 0.15f * random.share());
}

::osg::MaterialChunkPtr make_colors(const Finish& finish, Random& random) {
  const auto chunk = ::osg::MaterialChunk::create();
  Color4f diffuse = finish.diffuse;
  for (unsigned i = 0; i < 3; ++i) diffuse[i] = varied(diffuse[i], random);
  const float h = finish.highlight;
  chunk->setDiffuse(diffuse);
  chunk->setAmbient({0.3f * diffuse[0], 0.3f * diffuse[1], 0.3f * diffuse[2], 1.0f});
  chunk->setSpecular({h, h, h, 1.0f});
  chunk->setShininess(finish.shininess);
  return chunk;
}

::osg::BlendChunkPtr make_blending() {
  const auto chunk = ::osg::BlendChunk::create();
  chunk->setSrcFactor(::osg::gl::kSrcAlpha);
  chunk->setDestFactor(::osg::gl::kOneMinusSrcAlpha);
  return chunk;
}

::osg::TextureChunkPtr make_texture(const ::osg::ImagePtr& image, const std::string& name) {
  const auto chunk = ::osg::TextureChunk::create();
  image->setName(name);
  ::osg::setName(image, name);
  chunk->setImage(image);
  return chunk;
}

}  // namespace

std::vector<Paint> make_palette(std::uint32_t count, std::uint32_t textured, std::uint64_t seed) {
  std::vector<Paint> paints(count);
  for (std::uint32_t i = 0; i < count; ++i) paints[i].transparent = is_clear(i, count);
  const std::vector<bool> with_image = choose_textured(paints, textured);

  Random random(seed, 1);
  std::uint32_t images = 0;
  for (std::uint32_t i = 0; i < count; ++i) {
    Paint& paint = paints[i];
    const Finish& finish = paint.transparent ? clear_finishes[i / 10 % std::size(clear_finishes)]
                                             : opaque_finishes[i % std::size(opaque_finishes)];
    const auto material = ::osg::ChunkMaterial::create();
    ::osg::setName(material, std::string(finish.name) + " " + std::to_string(i + 1));
    material->addChunk(make_colors(finish, random));
    if (with_image[i]) {
      const auto picture = static_cast<Picture>(images++ % picture_kinds);
      const auto image = make_picture(picture, paint.transparent, i + 1, random);
      material->addChunk(make_texture(image, "texture-" + std::to_string(images)));
      paint.textured = true;
      paint.tiled = tiles(picture);
    }
    if (paint.transparent) material->addChunk(make_blending());
    paint.material = material;
  }
  return paints;
}

}  // namespace morlu::sample
