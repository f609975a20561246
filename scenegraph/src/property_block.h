#pragma once

#include <cstddef>

/// The memory behind a property. Large blocks are pages of their own: they grow by remapping, what
/// was never written costs nothing and reads as zero, and unused pages can be given back.
namespace osg::detail {

/// Whether a block of so many bytes is made of pages of its own. Under the address sanitizer none
/// is, so that it sees every overrun.
bool is_paged(std::size_t bytes);

/// A block of `new_bytes`, which are not 0, with what `data` holds of them; takes the place of
/// `data`, null for none. What is new in a paged block is zero, in others undefined. Throws
/// `std::bad_alloc` and leaves `data` as it was.
std::byte* resize_block(std::byte* data, std::size_t old_bytes, std::size_t new_bytes);

void free_block(std::byte* data, std::size_t bytes);

/// Gives pages of a block back that lie wholly within [from, to), if it is worth it. Returns the
/// first byte from which on they read as zero: `to` if none went.
std::size_t drop_pages(std::byte* data, std::size_t bytes, std::size_t from, std::size_t to);

}  // namespace osg::detail
