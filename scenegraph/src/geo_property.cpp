#include "osg/geo_property.h"

#include <limits>
#include <stdexcept>

#include "mutexes.h"
#include "osg/geometry.h"
#include "property_block.h"

namespace osg {

namespace {

constexpr std::size_t max_entries = std::numeric_limits<UInt32>::max();

std::size_t checked_count(std::size_t count) {
  if (count > max_entries) throw std::length_error("osg::GeoProperty: too many entries");
  return count;
}

/// Half as much again, so that appending one by one moves each entry a constant number of times.
std::size_t grown_capacity(std::size_t capacity, std::size_t wanted) {
  return std::max(wanted, std::min(max_entries, capacity + capacity / 2));
}

}  // namespace

GeoProperty::GeoProperty(const GeoProperty& other)
    : AbstractContainerClass(other),
      component_type_(other.component_type_),
      dimension_(other.dimension_),
      stride_(other.stride_) {
  if (other.empty()) return;
  const std::size_t bytes = std::size_t{other.count_} * stride_;
  data_ = detail::resize_block(nullptr, 0, bytes);
  std::memcpy(data_, other.data_, bytes);
  count_ = capacity_ = other.count_;
}

/// In no geometry's list any more, since these hold their properties.
GeoProperty::~GeoProperty() {
  detail::free_block(data_, std::size_t{capacity_} * stride_);
}

// --- Storage -------------------------------------------------------------------------------------

/// What was written once has to be made zero again; the rest of a large block is zero still.
void GeoProperty::resize(std::size_t count) {
  checked_count(count);
  if (count > capacity_) reallocate(grown_capacity(capacity_, count));
  note_written();
  const std::size_t kept = std::size_t{count_} * stride_;
  const std::size_t wanted = count * stride_;
  if (wanted > kept && written_ > kept)
    std::memset(data_ + kept, 0, std::min(wanted, written_) - kept);
  else if (wanted < kept)
    written_ = detail::drop_pages(data_, std::size_t{capacity_} * stride_, wanted, written_);
  count_ = static_cast<UInt32>(count);
}

void GeoProperty::reserve(std::size_t count) {
  if (checked_count(count) > capacity_) reallocate(count);
}

void GeoProperty::grow() {
  constexpr std::size_t first_capacity = 16;
  const std::size_t wanted = checked_count(std::size_t{count_} + 1);
  reallocate(grown_capacity(capacity_, std::max(wanted, first_capacity)));
}

void GeoProperty::reallocate(std::size_t capacity) {
  note_written();
  const std::size_t bytes = capacity * stride_;
  data_ = detail::resize_block(data_, std::size_t{capacity_} * stride_, bytes);
  capacity_ = static_cast<UInt32>(capacity);
  if (!detail::is_paged(bytes)) written_ = bytes;
}

// --- Links to the geometries that this property bounds -------------------------------------------

void GeoProperty::link(detail::BoundsLink& link) {
  link.next = bounded_;
  link.from = &bounded_;
  if (bounded_) bounded_->from = &link.next;
  bounded_ = &link;
}

void GeoProperty::unlink(detail::BoundsLink& link) {
  if (!link.from) return;
  *link.from = link.next;
  if (link.next) link.next->from = link.from;
  link.next = nullptr;
  link.from = nullptr;
}

void GeoProperty::changed(FieldMask, ChangeOrigin) {
  if (!watched_.load(std::memory_order_acquire)) return;
  const std::lock_guard lock(detail::link_mutex());
  watched_.store(false, std::memory_order_relaxed);
  for (const detail::BoundsLink* link = bounded_; link; link = link->next)
    link->owner.invalidate_bounds_locked();
}

}  // namespace osg
