#include "ray/large_memory.h"

#ifdef __linux__
#include <sys/mman.h>
#endif

namespace morlu {

void* allocate_large(std::size_t bytes) {
  constexpr std::size_t page = std::size_t{2} << 20;
  constexpr std::size_t cache_line = 64;
  void* memory = nullptr;
  const bool is_large = bytes >= 2 * page;
  if (posix_memalign(&memory, is_large ? page : cache_line, bytes)) return nullptr;
#ifdef __linux__
  if (is_large) madvise(memory, bytes, MADV_HUGEPAGE);  // a wish: it may be refused
#endif
  return memory;
}

}  // namespace morlu
