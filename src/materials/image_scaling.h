#pragma once

#include <span>

#include "materials/atlas_images.h"

namespace morlu::osg {

/// Halves the sides of a share of the images, rounding down, so that their tiles take less room: on
/// copies, which the records then hold; images of the scene stay as they are.
///
/// Images have turns: those with the fewest so far come first, of equal ones the last of the table.
/// An image with a side of `minSide` pixels or less, or of one, is passed over. It ends when the
/// share (at least one) is halved or there were as many turns as images. A `percent` that isn't in
/// (0, 1], or no number, is told of on standard output and becomes 0.25.
///
/// True if at least one was halved. Throws `std::bad_alloc`; images whose turn has ended are then
/// halved, others as they were. O(images x log images + pixels halved).
bool scaleImages(std::span<atlas_image> table, double percent, unsigned minSide);

}  // namespace morlu::osg
