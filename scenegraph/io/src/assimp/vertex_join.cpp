#include "assimp/vertex_join.h"

#include <bit>
#include <cstring>

namespace osg::io {
namespace {

constexpr UInt32 kFree = ~UInt32{0};

UInt64 hash_of(std::span<const VertexStream> streams, std::size_t vertex) {
  UInt64 hash = 0x9e3779b97f4a7c15u;
  for (const VertexStream& stream : streams)
    for (std::size_t at = 0; at < stream.size; at += 4) {
      UInt32 word;
      std::memcpy(&word, stream.data + vertex * stream.size + at, 4);
      hash = (hash ^ word) * 0xff51afd7ed558ccdu;
      hash ^= hash >> 32;
    }
  return hash;
}

bool equal(std::span<const VertexStream> streams, std::size_t a, std::size_t b) {
  for (const VertexStream& stream : streams)
    if (std::memcmp(stream.data + a * stream.size, stream.data + b * stream.size, stream.size) != 0)
      return false;
  return true;
}

}  // namespace

VertexJoin join_equal_vertices(std::span<const VertexStream> streams, UInt32 count) {
  VertexJoin join;
  join.new_from_old.resize(count);
  // Slots hold numbers of new vertices; at most half of them are taken.
  const std::size_t mask = std::bit_ceil(std::size_t{count} * 2 + 1) - 1;
  std::vector<UInt32> slots(mask + 1, kFree);
  for (UInt32 old = 0; old < count; ++old) {
    std::size_t at = hash_of(streams, old) & mask;
    while (slots[at] != kFree && !equal(streams, join.old_from_new[slots[at]], old))
      at = (at + 1) & mask;
    if (slots[at] == kFree) {
      slots[at] = static_cast<UInt32>(join.old_from_new.size());
      join.old_from_new.push_back(old);
    }
    join.new_from_old[old] = slots[at];
  }
  return join;
}

}  // namespace osg::io
