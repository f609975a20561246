// Textures put into atlases: packing beside stb_rect_pack, with the same rectangles in the same
// page; what the packing leaves unused of the smallest page that holds all; layouts of free size
// beside the same in a page of their width; drawing beside copying as many bytes; whole scenes.

#include <algorithm>
#include <cstring>
#include <iostream>
#include <memory>
#include <random>
#include <sstream>

#include <osg/cores.h>
#include <osg/material.h>

#include <benchmark/benchmark.h>

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-function"
#define STBRP_STATIC
#define STB_RECT_PACK_IMPLEMENTATION
#include <stb_rect_pack.h>
#pragma GCC diagnostic pop

#include "bench/figure.h"
#include "materials/atlas_page.h"
#include "materials/image_scaling.h"
#include "materials/tile_layout.h"
#include "morlu/materials.h"

namespace {

using morlu::bench::contender;
using morlu::bench::contest;
using morlu::osg::atlas_image_table;
using morlu::osg::texture_atlas;

struct size {
  int width, height;
};

/// Sides as textures have them: powers of two, multiples of 8, any.
std::vector<size> sizes(std::size_t count, unsigned seed) {
  std::mt19937 random(seed);
  const auto side = [&] {
    const auto any = static_cast<int>(8 + random() % 120);
    const auto kind = random() % 3;
    return kind == 0 ? 8 << random() % 5 : kind == 1 ? (any + 7) / 8 * 8 : any;
  };
  std::vector<size> all(count);
  for (size& each : all) each = {side(), side()};
  return all;
}

/// Tallest first, then widest, as tiles come to a page.
std::vector<size> tallest_first(std::vector<size> all) {
  std::ranges::stable_sort(all, std::greater(),
                           [](const size& s) { return std::pair(s.height, s.width); });
  return all;
}

bool packs(const std::vector<size>& tiles, int side) {
  morlu::osg::free_rects free(static_cast<unsigned>(side), static_cast<unsigned>(side));
  return std::ranges::all_of(tiles, [&](const size& s) {
    return free.take(static_cast<unsigned>(s.width), static_cast<unsigned>(s.height)).has_value();
  });
}

/// The height that they take of a page; 0 if not all fit.
int stb_height(const std::vector<size>& tiles, const size& page) {
  stbrp_context context;
  std::vector<stbrp_node> nodes(static_cast<std::size_t>(page.width));
  stbrp_init_target(&context, page.width, page.height, nodes.data(), page.width);
  std::vector<stbrp_rect> rects;
  rects.reserve(tiles.size());
  for (const size& s : tiles) rects.push_back({0, s.width, s.height, 0, 0, 0});
  if (!stbrp_pack_rects(&context, rects.data(), static_cast<int>(rects.size()))) return 0;
  int height = 0;
  for (const stbrp_rect& rect : rects) height = std::max(height, rect.y + rect.h);
  return height;
}

bool stb_packs(const std::vector<size>& tiles, int side) {
  return stb_height(tiles, {side, side}) > 0;
}

template <class Packs>
int smallest_side(const std::vector<size>& tiles, const Packs& packs_into, bool power_of_two) {
  int side = 128;
  while (!packs_into(tiles, side)) side += power_of_two ? side : 8;
  return side;
}

constexpr auto no_fault = [] { return std::string(); };

contest pack(std::size_t count) {
  const auto tiles = std::make_shared<std::vector<size>>(tallest_first(sizes(count, 1)));
  const int side =
      std::max(smallest_side(*tiles, packs, true), smallest_side(*tiles, stb_packs, true));
  const auto run = [&](auto packer) {
    const auto done = std::make_shared<bool>(false);
    return contender{.run = [=] { *done = packer(*tiles, side); },
                     .fault = [=] { return std::string(*done ? "" : "not all fit"); }};
  };
  contest opened{.ours = run(packs), .peer = run(stb_packs)};
  opened.peer->name = "stb_rect_pack";
  return opened;
}

/// Of the smallest square that holds all, in percent.
contest unused(std::size_t count, bool power_of_two) {
  const auto tiles = tallest_first(sizes(count, 1));
  double area = 0;
  for (const size& s : tiles) area += double{1} * s.width * s.height;
  const auto side_of = [&](const auto& packer) {
    const double side = smallest_side(tiles, packer, power_of_two);
    const double percent = 100 * (1 - area / (side * side));
    return contender{.run = [] {}, .fault = no_fault, .value = [=] { return percent; }};
  };
  contest opened{.ours = side_of(packs), .peer = side_of(stb_packs)};
  opened.peer->name = "stb_rect_pack";
  return opened;
}

morlu::osg::tile_layout laid_out(const std::vector<size>& tiles) {
  std::vector<morlu::osg::tile_sides> sides;
  sides.reserve(tiles.size());
  for (const size& s : tiles) sides.push_back({s.width, s.height});
  return morlu::osg::computeLayout(std::move(sides), 10000);
}

/// The time, or what stays unused in percent.
contest lay_out(std::size_t count, bool time) {
  constexpr int any_height = 1 << 24;
  const auto tiles = std::make_shared<std::vector<size>>(tallest_first(sizes(count, 1)));
  const auto width = static_cast<int>(laid_out(*tiles).width);
  double area = 0;
  for (const size& s : *tiles) area += double{1} * s.width * s.height;
  const auto run = [&](auto height_of) {
    contender side{.run = [=] { benchmark::DoNotOptimize(height_of()); }, .fault = no_fault};
    if (!time) side.value = [=] { return 100 * (1 - area / width / height_of()); };
    return side;
  };
  contest opened{.ours = run([=] { return static_cast<double>(laid_out(*tiles).height); }),
                 .peer = run([=] {
                   return double{1} * stb_height(*tiles, {width, any_height});
                 })};
  opened.peer->name = "stb_rect_pack";
  return opened;
}

osg::ImagePtr picture(const size& s, std::mt19937& random, bool alpha) {
  const auto image = osg::Image::create();
  image->set(alpha ? osg::gl::kRGBA : osg::gl::kRGB, s.width, s.height);
  std::generate_n(image->getData(), image->getSize(),
                  [&] { return static_cast<osg::UInt8>(random()); });
  return image;
}

contender memory_copy(std::size_t bytes) {
  const auto from = std::make_shared<std::vector<char>>(bytes, 1);
  return {.name = "memcpy to new memory",
          .run =
              [=] {
                const std::unique_ptr<char[]> to(new char[bytes]);
                std::memcpy(to.get(), from->data(), bytes);
                benchmark::DoNotOptimize(to[bytes / 2]);
              },
          .fault = no_fault};
}

/// A page of images, each `repeats` times side by side; in the page's format or converted.
contest draw(std::size_t count, float repeats, bool alpha, bool image_alpha) {
  std::mt19937 random(2);
  const auto table = std::make_shared<atlas_image_table>();
  for (const size& s : sizes(count, 3))
    table->add(picture(s, random, image_alpha), repeats, repeats);
  const auto atlases = std::make_shared<std::vector<texture_atlas>>(
      morlu::osg::packAtlases(table->records(), 8192, alpha, false));
  texture_atlas* const page = &atlases->front();
  const std::size_t bytes = std::size_t{page->used_width} * page->used_height * (alpha ? 4 : 3);
  return {
      .ours = {
          .prepare =
              [=] {
                page->final_image = osg::NullFC;
                page->material->clearChunks();
              },
          .run = [=] { morlu::osg::drawAtlas(*page, table->records()); },
          .fault = [=] { return std::string(atlases->size() == 1 ? "" : "more than one page"); }},
      .peer = memory_copy(bytes),
      .work = static_cast<double>(bytes) * 1e-9};
}

/// Images of 256 x 256 pixels, beside copying as many bytes.
contest halve(std::size_t count) {
  std::mt19937 random(6);
  const auto full = std::make_shared<atlas_image_table>();
  for (std::size_t i = 0; i < count; ++i) full->add(picture({256, 256}, random, false), 1, 1);
  const auto table = std::make_shared<atlas_image_table>();
  const std::size_t bytes = count * 256 * 256 * 3;
  return {.ours = {.prepare = [=] { *table = *full; },
                   .run = [=] { morlu::osg::scaleImages(table->records(), 1, 32); },
                   .fault =
                       [=] {
                         return std::string(table->records()[0].width == 128 ? "" : "not halved");
                       }},
          .peer = memory_copy(bytes),
          .work = static_cast<double>(bytes) * 1e-9};
}

osg::NodePtr textured_square(const osg::ImagePtr& image, float tiles) {
  const auto types = osg::GeoPTypesUI8::create();
  types->push_back(osg::kTriangles);
  const auto lengths = osg::GeoPLengthsUI32::create();
  lengths->push_back(6);
  const auto positions = osg::GeoPositions3f::create();
  const auto coords = osg::GeoTexCoords2f::create();
  for (const unsigned k : {0u, 1u, 3u, 0u, 3u, 2u}) {
    const auto x = static_cast<float>(k & 1), y = static_cast<float>(k >> 1);
    positions->push_back({x, y, 0});
    coords->push_back({tiles * x, y});
  }
  const auto geometry = osg::Geometry::create();
  geometry->setTypes(types);
  geometry->setLengths(lengths);
  geometry->setPositions(positions);
  geometry->setTexCoords(coords);
  const auto material = osg::SimpleTexturedMaterial::create();
  material->setImage(image);
  geometry->setMaterial(material);
  const auto node = osg::Node::create();
  node->setCore(geometry);
  return node;
}

contest scene(std::size_t count) {
  const auto root = std::make_shared<osg::NodePtr>();
  const auto placed = std::make_shared<unsigned>();
  const auto build = [=] {
    std::mt19937 random(4);
    *root = osg::Node::create();
    (*root)->setCore(osg::Group::create());
    for (const size& s : sizes(count, 5))
      (*root)->addChild(textured_square(picture(s, random, random() % 2), random() % 4 ? 1 : 2));
  };
  const auto run = [=] {
    std::ostringstream said;
    std::streambuf* const before = std::cout.rdbuf(said.rdbuf());
    *placed = morlu::osg::createTextureAtlasForScene(*root, 4096, 2, 2);
    std::cout.rdbuf(before);
  };
  return {.ours = {.prepare = build, .run = run, .fault = [=] {
                     return std::string(*placed == count ? "" : "not all images are placed");
                   }}};
}

const morlu::bench::registration figures({
    {"texture atlas", "50 images", "pack", "us", [] { return pack(50); }},
    {"texture atlas", "500 images", "pack", "us", [] { return pack(500); }},
    {"texture atlas", "2000 images", "pack", "us", [] { return pack(2000); }},
    {"texture atlas", "50 images", "unused, square", "%", [] { return unused(50, false); }},
    {"texture atlas", "500 images", "unused, square", "%", [] { return unused(500, false); }},
    {"texture atlas", "2000 images", "unused, square", "%", [] { return unused(2000, false); }},
    {"texture atlas", "50 images", "unused, 2^n", "%", [] { return unused(50, true); }},
    {"texture atlas", "500 images", "unused, 2^n", "%", [] { return unused(500, true); }},
    {"texture atlas", "2000 images", "unused, 2^n", "%", [] { return unused(2000, true); }},
    {"texture atlas", "200 images", "lay out", "us", [] { return lay_out(200, true); }},
    {"texture atlas", "10000 images", "lay out", "us", [] { return lay_out(10000, true); }},
    {"texture atlas", "200 images", "unused, layout", "%", [] { return lay_out(200, false); }},
    {"texture atlas", "10000 images", "unused, layout", "%", [] { return lay_out(10000, false); }},
    {"texture atlas", "2000 images", "draw", "GB/s", [] { return draw(2000, 1, false, false); }},
    {"texture atlas", "2000 images, tiled", "draw", "GB/s",
     [] { return draw(2000, 2, true, true); }},
    {"texture atlas", "2000 images, to RGBA", "draw", "GB/s",
     [] { return draw(2000, 1, true, false); }},
    {"texture atlas", "200 images", "halve", "GB/s", [] { return halve(200); }},
    {"texture atlas", "2000 images", "whole scene", "s", [] { return scene(2000); }},
});

}  // namespace
