#pragma once

#include <osg/geometry.h>
#include <osg/index_layout.h>
#include <osg/material.h>

#include <cstdint>
#include <span>
#include <vector>

namespace morlu::osg {

/// The elements of one kind of a geometry, and which entries of its properties their corners use.
/// Points into the geometry, which must not change meanwhile.
struct cache_source {
  unsigned corners_each;
  ::osg::IndexLayout layout;
  std::vector<::osg::Attribute> attributes;         // positions first; those that there are
  std::vector<std::uint32_t> vertices;              // running vertices, corner after corner
  std::vector<std::vector<std::uint32_t>> entries;  // of each attribute, for each corner

  const std::vector<std::uint32_t>& positions() const { return entries.front(); }
  /// Entries of each attribute's property.
  std::vector<std::uint32_t> sizes() const;
};

/// The triangles that are no rogues, with positions, normals, colours, texture coordinates and ids.
cache_source triangles_to_order(const ::osg::Geometry& geometry);
/// All lines, with positions, normals, colours and ids.
cache_source lines_to_order(const ::osg::Geometry& geometry);

/// Elements in their new order, cut where a chunk is full.
class cache_chunks {
 public:
  /// A chunk is full once one of its attributes has `limit` different entries or, for
  /// `multi_index` false, once it has `limit` different combinations of entries.
  cache_chunks(const cache_source& source, unsigned limit, bool multi_index);
  /// The same where `sizes` bounds the entries of each attribute.
  cache_chunks(const cache_source& source, std::span<const std::uint32_t> sizes, unsigned limit,
               bool multi_index);

  bool is_full() const;
  void open();
  void add(std::uint32_t element);

  std::size_t size() const { return begins_.size(); }
  std::span<const std::uint32_t> operator[](std::size_t chunk) const;

 private:
  /// What chunks are measured by.
  struct column {
    const std::uint32_t* numbers;           // of each corner
    std::vector<std::uint32_t> last_chunk;  // that a number was met in, from 1
    std::uint32_t met = 0;                  // numbers in the current chunk
  };
  void add_column(const std::uint32_t* numbers, std::size_t count);

  unsigned corners_each_;
  unsigned limit_;
  std::vector<std::uint32_t> combinations_;  // a number for each corner
  std::vector<column> columns_;
  std::vector<std::uint32_t> order_;
  std::vector<std::size_t> begins_{0};
};

/// Makes cores of chunks: one primitive of type `primitive`, for each attribute the entries in the
/// order of their first use and a column of indices. Without normals they are computed.
class chunk_builder {
 public:
  chunk_builder(const cache_source& source, ::osg::UInt32 primitive, ::osg::MaterialPtr material);

  ::osg::GeometryPtr build(std::span<const std::uint32_t> elements);

 private:
  void write_column(std::size_t attribute, std::span<const std::uint32_t> elements,
                    ::osg::UInt32* indices, ::osg::Geometry& core);

  const cache_source& source_;
  ::osg::UInt32 primitive_;
  ::osg::MaterialPtr material_;
  std::vector<std::vector<std::uint32_t>> number_of_entry_;  // by attribute; `no_number` between
};

}  // namespace morlu::osg
