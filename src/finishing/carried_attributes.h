#pragma once

#include <array>

#include "geoset/element.h"

namespace morlu::osg {

/// All that sets of a kind may carry: whoever indexes geometry from a set by all of them leaves no
/// attribute without its column.
template <class Set>
constexpr auto carried_attributes() {
  std::array<::osg::Attribute, rows_of<Set>.size()> attributes{};
  for (std::size_t k = 0; k < attributes.size(); ++k) attributes[k] = rows_of<Set>[k].attribute;
  return attributes;
}

}  // namespace morlu::osg
