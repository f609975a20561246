// The three kinds of set: thin faces of what is written once for all of them.

#include "morlu/geoset.h"

#include "geoset/append.h"

namespace morlu::osg {

namespace {

template <class Set>
::osg::Color3<float>& interpolate_color(const Set& set, ::osg::Color3<float>& out, unsigned element,
                                        const point& p, int which) {
  using ::osg::Attribute;
  if (which == 0 || which == 1)
    interpolate(set, which == 0 ? Attribute::Colors : Attribute::SecondaryColors, element, p,
                out.getValues());
  return out;
}

}  // namespace

// --- Triangles -----------------------------------------------------------------------------------

osg_geoset::osg_geoset() : geometry(::osg::Geometry::create()) {}
osg_geoset::~osg_geoset() = default;

void osg_geoset::clear() {
  clear_set(*this);
}
void osg_geoset::setVertexCapacity(std::size_t n) {
  set_vertex_capacity(*this, n);
}
bool osg_geoset::resizeFields(unsigned n) {
  return resize_fields(*this, n);
}
void osg_geoset::setup() {
  set_up(*this);
}
bool osg_geoset::AddObject(const point& a, const point& b, const point& c, std::size_t parent) {
  return append_piece(*this, {a, b, c}, parent);
}
void osg_geoset::replaceObject(const point& a, const point& b, const point& c, unsigned element) {
  replace_by_piece(*this, {a, b, c}, element);
}
void osg_geoset::PrepareTriangle(prepared_element& out, unsigned element) {
  prepare(*this, out, element);
}
::osg::Color3<float>& osg_geoset::interpolateColor(::osg::Color3<float>& out, unsigned element,
                                                   const point& p, int which) {
  return interpolate_color(*this, out, element, p, which);
}
::osg::Vector<float, 2>& osg_geoset::interpolateTexCoord(::osg::Vector<float, 2>& out,
                                                         unsigned element, const point& p,
                                                         int which) {
  if (which >= 0 && which < 4)
    interpolate(*this, ::osg::texCoordsAttribute(static_cast<unsigned>(which)), element, p,
                out.getValues());
  return out;
}
void osg_geoset::updateObjectBounds(unsigned first, unsigned last) {
  update_bounds(*this, first, last);
}
void osg_geoset::calcBoundingBox() {
  compute_box(*this);
}
void osg_geoset::buildTriangles() {
  build_triangles(*this);
}

// --- Lines ---------------------------------------------------------------------------------------

osg_line_geoset::osg_line_geoset() : geometry(::osg::Geometry::create()) {}
osg_line_geoset::~osg_line_geoset() = default;

void osg_line_geoset::clear() {
  clear_set(*this);
}
void osg_line_geoset::setVertexCapacity(std::size_t n) {
  set_vertex_capacity(*this, n);
}
bool osg_line_geoset::resizeFields(unsigned n) {
  return resize_fields(*this, n);
}
void osg_line_geoset::setup() {
  set_up(*this);
}
bool osg_line_geoset::AddObject(const point& a, const point& b, std::size_t parent) {
  return append_piece(*this, {a, b}, parent);
}
void osg_line_geoset::replaceObject(const point& a, const point& b, unsigned element) {
  replace_by_piece(*this, {a, b}, element);
}
void osg_line_geoset::setLine(prepared_element& out, unsigned element) {
  prepare(*this, out, element);
}
::osg::Color3<float>& osg_line_geoset::interpolateColor(::osg::Color3<float>& out, unsigned element,
                                                        const point& p, int which) {
  return interpolate_color(*this, out, element, p, which);
}
void osg_line_geoset::updateObjectBounds(unsigned first, unsigned last) {
  update_bounds(*this, first, last);
}
void osg_line_geoset::calcBoundingBox() {
  compute_box(*this);
}

// --- Points --------------------------------------------------------------------------------------

osg_point_geoset::osg_point_geoset() : geometry(::osg::Geometry::create()) {}
osg_point_geoset::~osg_point_geoset() = default;

void osg_point_geoset::clear() {
  clear_set(*this);
}
void osg_point_geoset::setVertexCapacity(std::size_t n) {
  set_vertex_capacity(*this, n);
}
bool osg_point_geoset::resizeFields(unsigned n) {
  return resize_fields(*this, n);
}
void osg_point_geoset::setup() {
  set_up(*this);
}
void osg_point_geoset::PrepareTriangle(prepared_element& out, unsigned element) {
  prepare(*this, out, element);
}
void osg_point_geoset::calcBoundingBox() {
  compute_box(*this);
}

}  // namespace morlu::osg
