// Texture coordinates of large sets brought near zero: nothing to do but to look, values to round
// and shift, and elements to cut (counted before the cuts). The peer is a plain loop over the same
// rows in the same steps with the C library's functions; it cuts nothing.

#include "materials/tex_coords.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <random>

#include "bench/figure.h"

namespace {

using morlu::bench::contender;
using morlu::bench::contest;
using morlu::osg::osg_geoset;
using osg::UInt32;
using osg::Vec2f;

/// Small triangles one beside the other, with coordinates of `span` somewhere within `range`.
struct rows {
  UInt32 triangles;
  float span, range;

  std::vector<Vec2f> coords() const {
    std::mt19937 random(1);
    std::uniform_real_distribution<float> origin(0, range - span);
    std::vector<Vec2f> all;
    for (UInt32 i = 0; i < triangles; ++i) {
      const Vec2f base(origin(random), origin(random));
      for (const Vec2f& corner : {Vec2f(0, 0), Vec2f(span, 0), Vec2f(0, span)})
        all.push_back(base + corner);
    }
    return all;
  }
  void fill(osg_geoset& set, const std::vector<Vec2f>& from) const {
    set.clear();
    const auto lengths = osg::GeoPLengthsUI32::create();
    lengths->push_back(3 * triangles);
    const auto positions = osg::GeoPositions3f::create();
    const auto normals = osg::GeoNormals3f::create();
    const auto coords = osg::GeoTexCoords2f::create();
    positions->resize(from.size());
    normals->resize(from.size());
    coords->resize(from.size());
    for (UInt32 i = 0; i < from.size(); ++i) {
      const UInt32 triangle = i / 3;
      positions->values()[i] = {static_cast<float>(triangle) + (i % 3 == 1), i % 3 == 2, 0};
    }
    std::ranges::copy(from, coords->values().begin());
    set.geometry->setLengths(lengths);
    set.geometry->setPositions(positions);
    set.geometry->setNormals(normals);
    set.geometry->setTexCoords(coords);
    set.vertex_count = set.vertex_capacity = from.size();
    set.setup();
  }
};

void plain_near_zero(Vec2f* t) {
  for (unsigned i = 0; i < 3; ++i)
    for (unsigned k = 0; k < 2; ++k) {
      float& x = t[i][k];
      if (std::fabs(x - std::floor(x)) <= 0.001f)
        x = std::floor(x);
      else if (std::fabs(std::ceil(x) - x) <= 0.001f)
        x = std::ceil(x);
    }
  for (unsigned k = 0; k < 2; ++k) {
    const float low = std::min({t[0][k], t[1][k], t[2][k]});
    const float shift = low < 0 || low > 1 ? std::floor(low) : 0;
    for (unsigned i = 0; i < 3; ++i) t[i][k] -= shift;
  }
}

contest open(const rows& of) {
  const auto from = std::make_shared<std::vector<Vec2f>>(of.coords());
  const auto set = std::make_shared<osg_geoset>();
  return {.ours = {.prepare = [=] { of.fill(*set, *from); },
                   .run = [=] { morlu::osg::optimizeGeosetTexCoords(*set, 2, 50); },
                   .fault = [=]() -> std::string {
                     if ((set->num_objects > of.triangles) != (of.span > 1)) return "wrong cuts";
                     for (UInt32 i = 0; i < 3 * set->num_objects; ++i) {
                       const Vec2f t = set->geometry->getTexCoords()->getValue(i);
                       if (!(std::max(t[0], t[1]) <= 2)) return "left far from zero";
                     }
                     return "";
                   }},
          .work = of.triangles * 1e-6};
}

contest beside_plain_loop(const rows& of) {
  contest opened = open(of);
  const auto from = std::make_shared<std::vector<Vec2f>>(of.coords());
  const auto values = std::make_shared<std::vector<Vec2f>>();
  opened.peer = contender{.name = "plain loop",
                          .prepare = [=] { *values = *from; },
                          .run =
                              [=] {
                                for (std::size_t i = 0; i < values->size(); i += 3)
                                  plain_near_zero(&(*values)[i]);
                              },
                          .fault = [] { return ""; }};
  return opened;
}

constexpr UInt32 many = 1'700'000;

const morlu::bench::registration figures({
    {"texture coordinates", "1.7M within 0 to 1", "near zero", "Mtriangle/s",
     [] {
       return beside_plain_loop({many, 0.1f, 1});
     }},
    {"texture coordinates", "1.7M tiled", "near zero", "Mtriangle/s",
     [] {
       return beside_plain_loop({many, 0.9f, 10});
     }},
    {"texture coordinates", "100k to cut", "cut to 2", "Mtriangle/s",
     [] {
       return open({100'000, 4, 10});
     }},
});

}  // namespace
