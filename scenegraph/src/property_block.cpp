#include "property_block.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#if defined(__linux__)
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace osg::detail {

namespace {

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define OSG_HEAP_BLOCKS_ONLY
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || !defined(__linux__)
#define OSG_HEAP_BLOCKS_ONLY
#endif

#if !defined(OSG_HEAP_BLOCKS_ONLY)
/// Below this, asking the system for pages costs more than filling the block with zeros.
constexpr std::size_t smallest_paged = std::size_t{256} << 10;

/// From here on the system is asked for large pages: far fewer faults on the way through the block,
/// for at most one large page that is written in part.
constexpr std::size_t smallest_in_large_pages = std::size_t{4} << 20;

std::byte* checked_pages(void* pages, std::size_t bytes) {
  if (pages == MAP_FAILED) throw std::bad_alloc();
  if (bytes >= smallest_in_large_pages) madvise(pages, bytes, MADV_HUGEPAGE);  // may be refused
  return static_cast<std::byte*>(pages);
}
#endif

std::byte* checked_block(void* block) {
  if (!block) throw std::bad_alloc();
  return static_cast<std::byte*>(block);
}

}  // namespace

#if defined(OSG_HEAP_BLOCKS_ONLY)

bool is_paged(std::size_t) {
  return false;
}

std::byte* resize_block(std::byte* data, std::size_t, std::size_t new_bytes) {
  return checked_block(std::realloc(data, new_bytes));
}

void free_block(std::byte* data, std::size_t) {
  std::free(data);
}

std::size_t drop_pages(std::byte*, std::size_t, std::size_t, std::size_t to) {
  return to;
}

#else

bool is_paged(std::size_t bytes) {
  return bytes >= smallest_paged;
}

std::byte* resize_block(std::byte* data, std::size_t old_bytes, std::size_t new_bytes) {
  if (!is_paged(old_bytes) && !is_paged(new_bytes))
    return checked_block(std::realloc(data, new_bytes));
  if (is_paged(old_bytes) && is_paged(new_bytes))
    return checked_pages(mremap(data, old_bytes, new_bytes, MREMAP_MAYMOVE), new_bytes);
  std::byte* fresh = is_paged(new_bytes)
                         ? checked_pages(mmap(nullptr, new_bytes, PROT_READ | PROT_WRITE,
                                              MAP_PRIVATE | MAP_ANONYMOUS, -1, 0),
                                         new_bytes)
                         : checked_block(std::malloc(new_bytes));
  if (data) std::memcpy(fresh, data, std::min(old_bytes, new_bytes));
  free_block(data, old_bytes);
  return fresh;
}

void free_block(std::byte* data, std::size_t bytes) {
  if (is_paged(bytes))
    munmap(data, bytes);
  else
    std::free(data);
}

std::size_t drop_pages(std::byte* data, std::size_t bytes, std::size_t from, std::size_t to) {
  if (!is_paged(bytes) || to < from + smallest_paged) return to;
  const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  const std::size_t first = (from + page - 1) / page * page;
  return madvise(data + first, to - first, MADV_DONTNEED) == 0 ? first : to;
}

#endif

}  // namespace osg::detail
