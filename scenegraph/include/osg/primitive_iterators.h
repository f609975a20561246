#pragma once
namespace osg {
class TriangleIterator;
class LineIterator;
class PrimitiveIterator;
}  // namespace osg
