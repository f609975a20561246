#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <vector>

#include <osg/geometry.h>

#include "sample/palette.h"
#include "sample/shapes.h"

namespace morlu::sample {

/// How a part looks: its paint by number, and whether its vertices are weathered, with colours.
struct Look {
  std::uint32_t paint = 0;
  bool weathered = false;

  auto operator<=>(const Look&) const = default;
};

/// Makes each core once: parts of one shape and look share it.
class Catalogue {
 public:
  explicit Catalogue(std::vector<Paint> paints) : paints_(std::move(paints)) {}

  const std::vector<Paint>& paints() const { return paints_; }
  /// `look.paint` counts only if there are paints; without any, cores have no material.
  ::osg::GeometryPtr core(const Shape& shape, const Look& look);

 private:
  ::osg::GeometryPtr make_core(const Shape& shape, const Look& look) const;

  struct Key {
    Shape shape;
    Look look;
    auto operator<=>(const Key&) const = default;
  };
  std::vector<Paint> paints_;
  std::map<Key, ::osg::GeometryPtr> cores_;
};

}  // namespace morlu::sample
