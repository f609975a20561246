// The three iterators against a slow reading of the same tables: which corners each type of
// primitive has, and which entry each corner uses in each index layout.

#include "osg/primitive_iterators.h"

#include <gtest/gtest.h>

#include <cstring>
#include <numeric>
#include <optional>
#include <random>

#include "osg/geometry.h"
#include "support/random_geometry.h"
#include "support/scene_parts.h"

namespace {

using osg::Attribute;
using osg::Int32;
using osg::UInt16;
using osg::UInt32;
using osg::Vec4f;

using Corners = std::vector<UInt32>;  // running vertices

/// A geometry, and beside it in plain rows what its properties hold.
struct Model {
  osg::GeometryPtr geometry = osg::Geometry::create();
  std::vector<UInt32> types, lengths;
  std::optional<std::vector<UInt32>> indices;
  std::vector<UInt16> mapping;
  // As the family sees them, missing components 0; nothing for an absent attribute.
  std::vector<std::optional<std::vector<Vec4f>>> values{osg::kAttributeCount};

  const std::vector<Vec4f>* present(Attribute attribute) const {
    const auto& row = values[osg::indexOf(attribute)];
    return row && !row->empty() ? &*row : nullptr;
  }
};

// --- The tables, read slowly ---------------------------------------------------------------------

std::vector<Corners> triangles_of(UInt32 type, UInt32 n) {
  std::vector<Corners> made;
  if (type == 4)
    for (UInt32 k = 0; k + 2 < n; k += 3) made.push_back({k, k + 1, k + 2});
  if (type == 7)
    for (UInt32 k = 0; k + 3 < n; k += 4) {
      made.push_back({k, k + 1, k + 2});
      made.push_back({k, k + 2, k + 3});
    }
  if (type == 8 && n % 2 == 1) --n;
  if (type == 8 && n < 4) return made;
  if (type == 5 || type == 8)
    for (UInt32 k = 0; k + 2 < n; ++k)
      made.push_back(k % 2 == 0 ? Corners{k, k + 1, k + 2} : Corners{k + 1, k, k + 2});
  if (type == 6 || type == 9)
    for (UInt32 k = 0; k + 2 < n; ++k) made.push_back({0, k + 1, k + 2});
  return made;
}

std::vector<Corners> lines_of(UInt32 type, UInt32 n) {
  std::vector<Corners> made;
  if (type == 1)
    for (UInt32 k = 0; k + 1 < n; k += 2) made.push_back({k, k + 1});
  if (type == 2 || type == 3)
    for (UInt32 k = 0; k + 1 < n; ++k) made.push_back({k, k + 1});
  if (type == 2 && n > 0) made.push_back({n - 1, 0});
  return made;
}

std::vector<Corners> primitive_of(UInt32, UInt32 n) {
  Corners all(n);
  std::iota(all.begin(), all.end(), 0u);
  return {all};
}

/// Which entry of the attribute's row running vertex `vertex` uses; -1 for none.
Int32 entry_of(const Model& model, Attribute attribute, UInt32 vertex) {
  const auto* row = model.present(attribute);
  if (!row) return -1;
  UInt32 index = vertex;
  if (model.indices && model.mapping.empty()) {
    index = (*model.indices)[vertex];
  } else if (model.indices) {
    const auto column_with = [&](Attribute wanted) {
      for (std::size_t k = 0; k < model.mapping.size(); ++k)
        if (model.mapping[k] & osg::mappingFlag(wanted)) return static_cast<int>(k);
      return -1;
    };
    int column = column_with(attribute);
    if (column < 0) column = std::max(0, column_with(Attribute::Positions));
    index = (*model.indices)[vertex * model.mapping.size() + static_cast<UInt32>(column)];
  }
  return static_cast<Int32>(std::min<std::size_t>(index, row->size() - 1));
}

struct Element {
  UInt32 type, length, primitive;
  Corners corners;
};

template <class Split>
std::vector<Element> elements_of(const Model& model, Split split) {
  std::vector<Element> made;
  if (!model.present(Attribute::Positions)) return made;
  UInt32 left = static_cast<UInt32>(model.present(Attribute::Positions)->size());
  if (model.indices)
    left =
        static_cast<UInt32>(model.indices->size() / std::max<std::size_t>(1, model.mapping.size()));
  UInt32 first = 0;
  for (UInt32 i = 0; i < std::min(model.types.size(), model.lengths.size()); ++i) {
    const UInt32 length = std::min(left, model.lengths[i]);
    for (Corners corners : split(model.types[i], length)) {
      for (UInt32& corner : corners) corner += first;
      made.push_back({model.types[i], length, i, corners});
    }
    first += length;
    left -= length;
  }
  return made;
}

// --- Random geometry -----------------------------------------------------------------------------

std::vector<UInt32> row_of(const auto& property) {
  std::vector<UInt32> row;
  for (UInt32 i = 0; i < property->size(); ++i) row.push_back(property->getValue(i));
  return row;
}

/// With what no well-made geometry has: huge lengths and indices, cut-off indices, columns of any
/// bits, no positions.
osg::GeometryPtr odd_geometry(UInt32 seed) {
  std::mt19937 random(seed);
  const auto one_in = [&](UInt32 n) { return random() % n == 0; };
  const auto geometry =
      morlu::test::random_geometry(random, static_cast<morlu::test::layout>(random() % 3));
  std::vector<UInt32> lengths = row_of(geometry->getLengths());
  if (one_in(20)) lengths.back() = 0xffff;
  geometry->setLengths(property_of<osg::GeoPLengthsUI16>(lengths));
  if (one_in(40)) lengths.back() = ~UInt32{0};
  if (one_in(2)) geometry->setLengths(property_of<osg::GeoPLengthsUI32>(lengths));
  const auto& indices = geometry->getIndices();
  if (indices && one_in(4))
    for (UInt32 i = 0; i < indices->size(); i += 7) indices->setValue(~UInt32{0}, i);
  if (indices && one_in(8)) indices->resize(random() % (indices->size() + 1));
  if (one_in(4)) geometry->getIndexMapping().push_back(static_cast<UInt16>(random() & random()));
  if (one_in(30)) geometry->setPositions(osg::NullFC);
  return geometry;
}

/// As the family sees them, out of the bytes.
std::vector<Vec4f> values_of(const osg::GeoProperty& property, UInt32 seen_components) {
  const bool is_float = property.getComponentType() == osg::ComponentType::Float32;
  std::vector<Vec4f> values(property.size());
  for (std::size_t i = 0; i < values.size(); ++i) {
    const std::byte* from = property.getData() + i * property.getStride();
    for (UInt32 k = 0; k < std::min<UInt32>(property.getDimension(), seen_components); ++k)
      if (is_float)
        std::memcpy(&values[i][k], from + 4 * k, 4);
      else
        values[i][k] = static_cast<float>(from[k]) / 255.0f;
  }
  return values;
}

Model random_model(UInt32 seed) {
  Model model;
  model.geometry = odd_geometry(seed);
  model.types = row_of(model.geometry->getTypes());
  model.lengths = row_of(model.geometry->getLengths());
  model.mapping = model.geometry->getIndexMapping().getValues();
  if (model.geometry->getIndices()) model.indices = row_of(model.geometry->getIndices());
  for (UInt32 i = 0; i < osg::kAttributeCount; ++i)
    if (const auto* property = model.geometry->getAttribute(osg::attributeAt(i)))
      model.values[i] = values_of(*property, osg::attributeAt(i) < Attribute::TexCoords ? 3 : 2);
  return model;
}

// --- Comparison ----------------------------------------------------------------------------------

template <class Value>
Vec4f widened(const Value& value) {
  Vec4f wide;
  for (UInt32 k = 0; k < Value::dimension; ++k) wide[k] = value[k];
  return wide;
}

/// All values and indices of a corner through the named getters, attribute by attribute.
template <class Iterator>
std::vector<std::pair<Vec4f, Int32>> named_getters(const Iterator& it, UInt32 c) {
  return {{widened(it.getPosition(c)), it.getPositionIndex(c)},
          {widened(it.getNormal(c)), it.getNormalIndex(c)},
          {widened(it.getColor(c)), it.getColorIndex(c)},
          {widened(it.getSecondaryColor(c)), it.getSecondaryColorIndex(c)},
          {widened(it.getTexCoords(c)), it.getTexCoordsIndex(c)},
          {widened(it.getTexCoords1(c)), it.getTexCoordsIndex1(c)},
          {widened(it.getTexCoords2(c)), it.getTexCoordsIndex2(c)},
          {widened(it.getTexCoords3(c)), it.getTexCoordsIndex3(c)},
          {widened(it.getTexCoords4(c)), it.getTexCoordsIndex4(c)},
          {widened(it.getTexCoords5(c)), it.getTexCoordsIndex5(c)},
          {widened(it.getTexCoords6(c)), it.getTexCoordsIndex6(c)},
          {widened(it.getTexCoords7(c)), it.getTexCoordsIndex7(c)}};
}

template <class Iterator>
void expect_corner(const Model& model, const Iterator& it, UInt32 corner, UInt32 vertex) {
  ASSERT_EQ(it.getVertex(corner), vertex);
  const auto got = named_getters(it, corner);
  for (UInt32 i = 0; i < osg::kAttributeCount; ++i) {
    const Int32 entry = entry_of(model, osg::attributeAt(i), vertex);
    const Vec4f value = entry < 0 ? Vec4f() : (*model.values[i])[static_cast<UInt32>(entry)];
    ASSERT_EQ(got[i].second, entry) << "attribute " << i;
    ASSERT_EQ(got[i].first, value) << "attribute " << i;
    ASSERT_EQ(it.getAttributeIndex(osg::attributeAt(i), corner), entry);
  }
}

template <class Iterator>
void expect_walk(const Model& model, Iterator it, const Iterator& end,
                 const std::vector<Element>& expected) {
  UInt32 number = 0;
  for (const Element& element : expected) {
    ASSERT_FALSE(it.isAtEnd());
    ASSERT_NE(it, end);
    ASSERT_EQ(it.getIndex(), number++);
    ASSERT_EQ(it.getType(), element.type);
    ASSERT_EQ(it.getLength(), element.length);
    ASSERT_EQ(it.getPrimitive(), element.primitive);
    for (UInt32 corner = 0; corner < element.corners.size(); ++corner)
      expect_corner(model, it, corner, element.corners[corner]);
    const Iterator before = it++;
    ASSERT_NE(before, it);
  }
  ASSERT_TRUE(it.isAtEnd());
  ASSERT_EQ(it, end);
}

TEST(Iterators, AgreeWithTheTablesOnRandomGeometry) {
  for (UInt32 seed = 1; seed <= 4000; ++seed) {
    SCOPED_TRACE(seed);
    const Model model = random_model(seed);
    const osg::Geometry& geometry = *model.geometry;
    expect_walk(model, geometry.beginTriangles(), geometry.endTriangles(),
                elements_of(model, triangles_of));
    expect_walk(model, geometry.beginLines(), geometry.endLines(), elements_of(model, lines_of));
    expect_walk(model, geometry.beginPrimitives(), geometry.endPrimitives(),
                elements_of(model, primitive_of));
    if (HasFatalFailure()) return;
  }
}

/// Bounds refer to what the iterators show: corners of triangles and lines, and points.
TEST(Iterators, VolumesHoldWhatTheyShowAndNothingElse) {
  for (UInt32 seed = 1; seed <= 2000; ++seed) {
    SCOPED_TRACE(seed);
    const Model model = random_model(seed);
    osg::DynamicVolume expected;
    const auto extend = [&](const std::vector<Element>& elements) {
      for (const Element& element : elements)
        for (const UInt32 vertex : element.corners) {
          const Vec4f p = (*model.present(Attribute::Positions))[static_cast<UInt32>(
              entry_of(model, Attribute::Positions, vertex))];
          expected.extendBy(osg::Pnt3f(p[0], p[1], p[2]));
        }
    };
    extend(elements_of(model, triangles_of));
    extend(elements_of(model, lines_of));
    extend(elements_of(model, [](UInt32 type, UInt32 n) {
      return type == 0 ? primitive_of(type, n) : std::vector<Corners>();
    }));
    const osg::DynamicVolume volume = node_with(model.geometry)->getVolume(true);
    ASSERT_EQ(volume.isEmpty(), expected.isEmpty());
    ASSERT_EQ(volume.getMin(), expected.getMin());
    ASSERT_EQ(volume.getMax(), expected.getMax());
  }
}

// --- Single cases --------------------------------------------------------------------------------

osg::GeometryPtr make_primitive(UInt32 type, UInt32 length) {
  std::vector<osg::Pnt3f> positions;
  for (UInt32 i = 0; i < length; ++i) positions.push_back({i, i * i, 1});
  return one_primitive(type, positions);
}

template <class Iterator>
UInt32 count(Iterator it) {
  UInt32 elements = 0;
  for (; !it.isAtEnd(); ++it) ++elements;
  return elements;
}

TEST(Iterators, MissingFieldsHaveNoElements) {
  const auto without = [](auto clear) {
    const auto geometry = make_primitive(osg::kTriangles, 3);
    EXPECT_EQ(count(geometry->beginTriangles()), 1u);
    clear(*geometry);
    EXPECT_EQ(geometry->beginTriangles(), geometry->endTriangles());
    EXPECT_EQ(geometry->beginLines(), geometry->endLines());
    EXPECT_EQ(geometry->beginPrimitives(), geometry->endPrimitives());
  };
  without([](osg::Geometry& g) { g.setTypes(osg::NullFC); });
  without([](osg::Geometry& g) { g.setLengths(osg::NullFC); });
  without([](osg::Geometry& g) { g.setPositions(osg::NullFC); });
  without([](osg::Geometry& g) { g.getTypes()->clear(); });
  without([](osg::Geometry& g) { g.getLengths()->clear(); });
  without([](osg::Geometry& g) { g.getPositions()->clear(); });
}

TEST(Iterators, CornersPastAPrimitivesLengthAreAbsent) {
  const auto geometry = make_primitive(osg::kPoints, 2);
  geometry->getLengths()->setValue(1000, 0);
  auto it = geometry->beginPrimitives();
  ASSERT_EQ(it.getLength(), 2u);
  EXPECT_EQ(it.getPositionIndex(1), 1);
  EXPECT_EQ(it.getPositionIndex(2), -1);
  EXPECT_EQ(it.getPosition(999), osg::Pnt3f());
}

TEST(Iterators, WideColorsAreReadWhole) {
  const auto geometry = make_primitive(osg::kPoints, 1);
  const auto colors = osg::GeoColors4f::create();
  colors->resize(1);
  colors->values()[0] = {0.1f, 0.2f, 0.3f, 0.4f};
  geometry->setColors(colors);
  const auto it = geometry->beginPrimitives();
  EXPECT_EQ(it.getValue<osg::Color4f>(Attribute::Colors, 0), osg::Color4f(0.1f, 0.2f, 0.3f, 0.4f));
}

}  // namespace
