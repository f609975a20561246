#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include <osg/matrix.h>

#include "boxes.h"

namespace morlu::program {

/// The tight box around positions in world space, in double precision.
class WorldBounds {
 public:
  /// Widens the box by the positions under each of the matrices. Those without a finite place there
  /// are counted and otherwise passed over.
  void extend(std::span<const ::osg::Pnt3f> positions,
              std::span<const ::osg::Matrix4d> world_from_object);

  const std::optional<Box>& box() const { return box_; }
  std::uint64_t dropped_positions() const { return dropped_; }

 private:
  bool holds(const Box& object_box, const ::osg::Matrix4d& world_from_object) const;
  void extend(const ::osg::Pnt3d& point);

  std::optional<Box> box_;
  std::uint64_t dropped_ = 0;
};

}  // namespace morlu::program
