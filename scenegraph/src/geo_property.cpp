#include "osg/geo_property.h"

#include <cstdlib>
#include <limits>
#include <new>
#include <stdexcept>

#include "mutexes.h"
#include "osg/geometry.h"

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

std::byte* checked_block(void* block) {
  if (!block) throw std::bad_alloc();
  return static_cast<std::byte*>(block);
}

}  // namespace

GeoProperty::GeoProperty(const GeoProperty& other)
    : AbstractContainerClass(other),
      component_type_(other.component_type_),
      dimension_(other.dimension_),
      stride_(other.stride_) {
  if (other.empty()) return;
  const std::size_t bytes = std::size_t{other.count_} * stride_;
  data_ = checked_block(std::malloc(bytes));
  std::memcpy(data_, other.data_, bytes);
  count_ = capacity_ = other.count_;
}

/// In no geometry's list any more, since these hold their properties.
GeoProperty::~GeoProperty() {
  std::free(data_);
}

// --- Storage: the bytes past the last entry are undefined ----------------------------------------

void GeoProperty::resize(std::size_t count) {
  checked_count(count);
  if (count > capacity_)
    make_room(count);
  else if (count > count_)
    std::memset(entry(count_), 0, (count - count_) * stride_);
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
  data_ = checked_block(std::realloc(data_, capacity * stride_));
  capacity_ = static_cast<UInt32>(capacity);
}

/// Grows beyond the capacity, with zeros behind the entries. Fresh zero pages cost nothing until
/// they are touched: worth a copy where less is kept than added.
void GeoProperty::make_room(std::size_t count) {
  const std::size_t capacity = grown_capacity(capacity_, count);
  const std::size_t kept = std::size_t{count_} * stride_;
  if (count - count_ < count_) {
    reallocate(capacity);
    std::memset(data_ + kept, 0, (count - count_) * stride_);
    return;
  }
  std::byte* fresh = checked_block(std::calloc(capacity, stride_));
  if (kept > 0) std::memcpy(fresh, data_, kept);
  std::free(data_);
  data_ = fresh;
  capacity_ = static_cast<UInt32>(capacity);
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
