#pragma once

namespace morlu::osg {

/// Whether b lies right below a, as wide, or right beside it, as high.
template <class Rect>
bool joins(const Rect& a, const Rect& b) {
  return (a.y + a.height == b.y && a.width == b.width && a.x == b.x) ||
         (a.x + a.width == b.x && a.height == b.height && a.y == b.y);
}

/// Both as one, if they join.
template <class Rect>
Rect joined(const Rect& a, const Rect& b) {
  Rect both = a;
  if (a.x == b.x)
    both.height += b.height;
  else
    both.width += b.width;
  return both;
}

}  // namespace morlu::osg
