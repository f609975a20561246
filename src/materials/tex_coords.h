#pragma once

#include <osg/node.h>

#include "morlu/geoset.h"

/// Texture coordinates near 0 to 1, for atlases, which hold an image only a few times over. All of
/// this concerns texture coordinates 0 only.
namespace morlu::osg {

/// Brings the texture coordinates of each element near zero by `roundTCToInteger`, `getTCPositiv`,
/// `getTCNearToZero` and `cutTC` with `cut`, and, with a `bound` above 0, halves elements whose
/// coordinates are still greater than `bound`, until they fit. Returns the number of elements
/// added; they follow those that were there. The set must be set up. Sets without texture
/// coordinates stay as they are.
///
/// An element keeps greater coordinates if a half of it would be rogue or the set can't grow, if
/// they aren't all finite, and with a `bound` of 1 on an axis where they lie in 1 to 2 (1 isn't
/// shifted to 0, so halves would be no better). Across a narrow element, or with a `bound` of 1
/// along each whole number, fits can be so small that they never end in practice: a call adds about
/// a million elements and 64 for each that was there at most, and leaves what is then still to do.
///
/// O(elements) where nothing is halved. Never throws.
unsigned optimizeGeosetTexCoords(osg_geoset& set, int bound, int cut);

/// The same for a node with a geometry of triangles only, with texture coordinates. The node gets a
/// core of its own with three vertices a triangle and without rogue triangles, with what sets carry
/// and the effective material; other nodes keep the former core. All other nodes stay as they are,
/// and those whose effective material shows no image, which lose their texture coordinates as
/// `extract` says. A `std::bad_alloc` leaves the node with its core.
unsigned normalizeNodeTexCoords(::osg::NodePtr node, int bound, int cut);

}  // namespace morlu::osg
