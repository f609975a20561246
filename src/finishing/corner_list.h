#pragma once

#include <osg/geometry.h>
#include <osg/index_layout.h>

#include <span>
#include <vector>

#include "finishing/first_use_numbers.h"

namespace morlu::osg {

/// Floats of a value as index building keeps it: three, of texture coordinates two.
constexpr ::osg::UInt32 words_of(::osg::Attribute attribute) {
  return attribute < ::osg::Attribute::TexCoords ? 3 : 2;
}

/// Makes words that are equal as floats equal as bits: -0.0 becomes 0.0. NaN goes by its bits.
inline void make_keys(std::span<::osg::UInt32> words) {
  constexpr ::osg::UInt32 negative_zero = 0x80000000;
  for (::osg::UInt32& word : words) word = word == negative_zero ? 0 : word;
}

/// The corners of a geometry's triangles, in the order of its triangle iterator. Points into the
/// geometry, which must not change meanwhile.
class corner_list {
 public:
  /// Throws `std::length_error` if 32-bit numbers don't do.
  explicit corner_list(const ::osg::Geometry& geometry);

  std::size_t size() const { return vertices_.size(); }

  /// Numbers for the corners, written to `out`: equal number, equal values of all these attributes.
  /// Returns the running vertex that each number was given to first.
  std::vector<::osg::UInt32> number(std::span<const ::osg::Attribute> by, number_column out) const;

  /// Writes the attribute's values at these running vertices, words_of(attribute) floats as bits
  /// each, to every `stride` words from `to` on.
  void read(::osg::Attribute attribute, std::span<const ::osg::UInt32> vertices, ::osg::UInt32* to,
            std::size_t stride) const;

 private:
  std::size_t index_limit(std::span<const ::osg::Attribute> by) const;
  std::vector<::osg::UInt32> number_indices(::osg::UInt32 column, std::size_t limit,
                                            number_column out) const;
  std::vector<::osg::UInt32> number_values(std::span<const ::osg::Attribute> by,
                                           std::span<const ::osg::UInt32> vertices,
                                           std::size_t expected, number_column out) const;

  ::osg::IndexLayout layout_;
  std::vector<::osg::UInt32> vertices_;  // running vertices, three a triangle
};

}  // namespace morlu::osg
