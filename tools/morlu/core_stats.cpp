#include "core_stats.h"

#include <algorithm>
#include <array>
#include <unordered_map>

#include "morlu/primitives.h"

namespace morlu::program {
namespace {

using ::osg::Attribute;
using ::osg::IndexLayout;
using ::osg::UInt32;

constexpr UInt32 cache_entries = 32;
constexpr UInt32 none = ~UInt32{0};

/// Calls `use` with each running vertex that belongs to a triangle, a line or a point.
template <class Use>
void for_each_corner(const ::osg::Geometry& geometry, Use use) {
  for (auto primitive = geometry.beginPrimitives(); !primitive.isAtEnd(); ++primitive) {
    const UInt32 used = ::osg::usedVertexCount(primitive.getType(), primitive.getLength());
    for (UInt32 i = 0; i < used; ++i) use(primitive.getVertex(i));
  }
}

/// A column of indices that present attributes use. Indices past the largest of these mean its last
/// entry: they are one index.
struct Column {
  UInt32 number;
  UInt32 last_entry;
};

std::vector<Column> used_columns(const IndexLayout& layout) {
  std::vector<Column> columns;
  for (UInt32 i = 0; i < ::osg::kAttributeCount; ++i) {
    const Attribute attribute = ::osg::attributeAt(i);
    if (!layout.isPresent(attribute)) continue;
    const Column column{layout.getColumn(attribute), layout.getProperty(attribute)->size() - 1};
    const auto known = std::find_if(columns.begin(), columns.end(),
                                    [&](const Column& c) { return c.number == column.number; });
    if (known == columns.end())
      columns.push_back(column);
    else
      known->last_entry = std::max(known->last_entry, column.last_entry);
  }
  return columns;
}

UInt32 index_in(const Column& column, const IndexLayout& layout, UInt32 vertex) {
  return std::min(layout.getStoredIndex(column.number, vertex), column.last_entry);
}

/// Numbers pairs of numbers by first use.
class PairNumbers {
 public:
  UInt32 number(UInt32 a, UInt32 b) {
    const std::uint64_t key = std::uint64_t{a} << 32 | b;
    return numbers_.try_emplace(key, static_cast<UInt32>(numbers_.size())).first->second;
  }

 private:
  struct Mix {
    std::size_t operator()(std::uint64_t key) const {
      key *= 0x9E3779B97F4A7C15u;
      return key ^ key >> 32;
    }
  };
  std::unordered_map<std::uint64_t, UInt32, Mix> numbers_;
};

/// For each running vertex the number of its tuple of indices, column after column: the tuple of
/// the first n columns and the index in the next one are a pair, whose number is that of the longer
/// tuple.
std::vector<UInt32> number_tuples(const ::osg::Geometry& geometry, const IndexLayout& layout,
                                  const std::vector<Column>& columns) {
  std::vector<UInt32> tuple_of_vertex(layout.getVertexCount(), none);
  for_each_corner(geometry, [&](UInt32 vertex) {
    tuple_of_vertex[vertex] = index_in(columns[0], layout, vertex);
  });
  for (std::size_t i = 1; i < columns.size(); ++i) {
    PairNumbers numbers;
    for (UInt32 vertex = 0; vertex < tuple_of_vertex.size(); ++vertex) {
      UInt32& tuple = tuple_of_vertex[vertex];
      if (tuple != none) tuple = numbers.number(tuple, index_in(columns[i], layout, vertex));
    }
  }
  return tuple_of_vertex;
}

/// How many numbers there can be: none in the list is above the result.
std::size_t count_of_numbers(const std::vector<UInt32>& numbers) {
  std::size_t count = 0;
  for (const UInt32 number : numbers) {
    if (number != none) count = std::max<std::size_t>(count, std::size_t{number} + 1);
  }
  return count;
}

std::uint64_t count_distinct(const std::vector<UInt32>& numbers) {
  std::vector<bool> seen(count_of_numbers(numbers));
  for (const UInt32 number : numbers) {
    if (number != none) seen[number] = true;
  }
  return static_cast<std::uint64_t>(std::count(seen.begin(), seen.end(), true));
}

// A vertex is in the cache as long as less than 32 others came in after it: it carries the number
// of the miss that brought it in.
std::uint64_t count_misses(const ::osg::Geometry& geometry,
                           const std::vector<UInt32>& tuple_of_vertex) {
  std::vector<std::uint64_t> miss_of_tuple(count_of_numbers(tuple_of_vertex));
  std::uint64_t misses = 0;
  for (auto triangle = geometry.beginTriangles(); !triangle.isAtEnd(); ++triangle) {
    for (UInt32 corner = 0; corner < 3; ++corner) {
      std::uint64_t& miss = miss_of_tuple[tuple_of_vertex[triangle.getVertex(corner)]];
      if (miss == 0 || misses - miss >= cache_entries) miss = ++misses;
    }
  }
  return misses;
}

std::vector<::osg::Pnt3f> used_positions(const ::osg::Geometry& geometry,
                                         const IndexLayout& layout) {
  std::vector<bool> used(layout.getProperty(Attribute::Positions)->size());
  for_each_corner(geometry, [&](UInt32 vertex) {
    used[static_cast<UInt32>(layout.getIndex(Attribute::Positions, vertex))] = true;
  });
  std::vector<::osg::Pnt3f> positions;
  for (UInt32 i = 0; i < used.size(); ++i) {
    if (used[i]) positions.push_back(geometry.getPositions()->getValue(i));
  }
  return positions;
}

void count_elements(const ::osg::Geometry& geometry, CoreStats& stats) {
  for (auto primitive = geometry.beginPrimitives(); !primitive.isAtEnd(); ++primitive) {
    const UInt32 type = primitive.getType(), length = primitive.getLength();
    stats.triangles += ::osg::triangleCount(type, length);
    stats.lines += ::osg::lineCount(type, length);
    if (type == ::osg::kPoints) stats.points += length;
  }
  for (auto triangle = geometry.beginTriangles(); !triangle.isAtEnd(); ++triangle) {
    stats.unusable_triangles +=
        osg::is_rogue(triangle.getPosition(0), triangle.getPosition(1), triangle.getPosition(2));
  }
}

}  // namespace

CoreStats count_core(const ::osg::Geometry& geometry) {
  CoreStats stats;
  if (geometry.getIndices()) stats.index_entries = geometry.getIndices()->size();
  if (geometry.beginPrimitives().isAtEnd()) return stats;
  const IndexLayout layout(geometry);
  const std::vector<Column> columns = used_columns(layout);
  const std::vector<UInt32> tuple_of_vertex = number_tuples(geometry, layout, columns);
  count_elements(geometry, stats);
  stats.vertices = count_distinct(tuple_of_vertex);
  stats.cache_misses = count_misses(geometry, tuple_of_vertex);
  stats.positions = used_positions(geometry, layout);
  return stats;
}

}  // namespace morlu::program
