#include "support/random_geometry.h"

namespace morlu::test {

namespace {

using ::osg::UInt16;
using ::osg::UInt32;

class maker {
 public:
  maker(std::mt19937& random, layout kind) : random_(random), kind_(kind) {}

  ::osg::GeometryPtr make() {
    add_primitives();
    add_properties();
    if (kind_ != layout::none) add_indices();
    return geometry_;
  }

 private:
  UInt32 below(UInt32 limit) { return static_cast<UInt32>(random_() % limit); }
  bool one_in(UInt32 n) { return below(n) == 0; }
  float component() {
    static constexpr float values[] = {0.0f, -0.0f, 1.0f, -1.0f, 0.5f, 2.0f};
    return values[below(6)];
  }

  void add_primitives() {
    const auto types = ::osg::GeoPTypesUI8::create();
    const auto lengths = ::osg::GeoPLengthsUI16::create();
    for (UInt32 n = below(8) + 1; n > 0; --n) {
      types->push_back(one_in(20) ? 77 : below(10));
      lengths->push_back(one_in(10) ? below(4) : below(20));
      vertex_count_ += lengths->getValue(lengths->size() - 1);
    }
    if (one_in(10)) types->push_back(::osg::kTriangles);  // without a length
    if (one_in(4)) vertex_count_ -= std::min(vertex_count_, below(10));
    if (one_in(4)) vertex_count_ += below(10);
    geometry_->setTypes(types);
    geometry_->setLengths(lengths);
  }

  template <class Property>
  ::osg::GeoPropertyPtr filled(UInt32 count) {
    const auto property = Property::create();
    property->resize(count);
    for (auto& value : property->values())
      for (UInt32 k = 0; k < std::decay_t<decltype(value)>::dimension; ++k)
        value[k] = static_cast<std::decay_t<decltype(value[k])>>(std::abs(component()));
    return property;
  }
  ::osg::GeoPropertyPtr filled_floats(const ::osg::GeoPropertyPtr& property, UInt32 count) {
    property->resize(count);
    auto* to = reinterpret_cast<float*>(property->editData());
    for (UInt32 i = 0; i < count * property->getDimension(); ++i) to[i] = component();
    return property;
  }
  ::osg::GeoPropertyPtr colors(UInt32 count) {
    switch (below(4)) {
      case 0:
        return filled_floats(::osg::GeoColors3f::create(), count);
      case 1:
        return filled_floats(::osg::GeoColors4f::create(), count);
      case 2:
        return filled<::osg::GeoColors3ub>(count);
      default:
        return filled<::osg::GeoColors4ub>(count);
    }
  }
  ::osg::GeoPropertyPtr coords(UInt32 count) {
    switch (below(3)) {
      case 0:
        return filled_floats(::osg::GeoTexCoords1f::create(), count);
      case 1:
        return filled_floats(::osg::GeoTexCoords2f::create(), count);
      default:
        return filled_floats(::osg::GeoTexCoords3f::create(), count);
    }
  }

  void add_properties() {
    const UInt32 entries = kind_ == layout::none ? vertex_count_ : below(12) + 1;
    geometry_->setAttribute(::osg::Attribute::Positions,
                            filled_floats(::osg::GeoPositions3f::create(), entries));
    for (UInt32 i = 1; i < ::osg::kAttributeCount; ++i) {
      if (!one_in(3)) continue;
      const ::osg::Attribute attribute = ::osg::attributeAt(i);
      const UInt32 count = one_in(6) ? below(4) : entries + (one_in(4) ? below(5) : 0);
      if (attribute == ::osg::Attribute::Normals)
        geometry_->setAttribute(attribute, filled_floats(::osg::GeoNormals3f::create(), count));
      else if (attribute < ::osg::Attribute::TexCoords)
        geometry_->setAttribute(attribute, colors(count));
      else
        geometry_->setAttribute(attribute, coords(count));
    }
    if (one_in(8)) geometry_->setTexCoords7(geometry_->getTexCoords());  // one object, two fields
  }

  void add_indices() {
    UInt32 columns = 1;
    if (kind_ == layout::multi) {
      columns = below(5) + 1;
      auto& mapping = geometry_->getIndexMapping();
      for (UInt32 k = 0; k < columns; ++k) mapping.push_back(static_cast<UInt16>(0));
      for (UInt32 i = 0; i < ::osg::kAttributeCount; ++i) {
        if (one_in(8)) continue;  // unmapped
        UInt16& flags = mapping[below(columns)];
        flags = static_cast<UInt16>(flags | ::osg::mappingFlag(::osg::attributeAt(i)));
      }
    }
    const ::osg::GeoIndicesPtr indices = one_in(2)
                                             ? ::osg::GeoIndicesPtr(::osg::GeoIndicesUI16::create())
                                             : ::osg::GeoIndicesUI32::create();
    const UInt32 entries = geometry_->getPositions()->size() + (one_in(4) ? 3 : 0);
    for (UInt32 i = 0; i < vertex_count_ * columns; ++i) indices->push_back(below(entries));
    geometry_->setIndices(indices);
  }

  std::mt19937& random_;
  const layout kind_;
  const ::osg::GeometryPtr geometry_ = ::osg::Geometry::create();
  UInt32 vertex_count_ = 0;
};

}  // namespace

::osg::GeometryPtr random_geometry(std::mt19937& random, layout kind) {
  return maker(random, kind).make();
}

}  // namespace morlu::test
