// osgUtil's optimiser on a scene of placed parts, to be measured from another process, since its
// names clash with those of our own layer. Reads 32-bit numbers, all of them counts unless told:
//   materials
//   cores, and for each: its material, whether it has colours and texture coordinates (0 or 1),
//     vertices, corners; then floats: positions, normals, three a colour, two a coordinate; then
//     the vertex of each corner
//   parts, and for each: its core; then the floats of its matrix, column after column
// Then carries out commands of one byte, each answered by a 32-bit number:
//   p  makes the scene anew
//   m  takes transforms into the vertices, merges what has the same material, indexes it
//   c  the same, then puts triangles in cache order
//   t  tells how many triangles the scene has
//   d  tells how many geometries are drawn
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Material>
#include <osg/MatrixTransform>
#include <osg/TriangleIndexFunctor>
#include <osgUtil/Optimizer>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

template <class Value>
std::vector<Value> read_values(std::size_t count) {
  std::vector<Value> values(count);
  if (std::fread(values.data(), sizeof(Value), count, stdin) != count) std::exit(1);
  return values;
}
std::uint32_t read_number() {
  return read_values<std::uint32_t>(1)[0];
}

struct core_values {
  std::uint32_t material;
  std::vector<float> positions, normals, colors, coords;
  std::vector<std::uint32_t> corners;

  core_values() {
    const auto head = read_values<std::uint32_t>(5);
    material = head[0];
    const std::size_t vertices = head[3];
    positions = read_values<float>(3 * vertices);
    normals = read_values<float>(3 * vertices);
    colors = read_values<float>(head[1] * 3 * vertices);
    coords = read_values<float>(head[2] * 2 * vertices);
    corners = read_values<std::uint32_t>(head[4]);
  }
};

struct part_place {
  std::uint32_t core = read_number();
  osg::Matrixf matrix = osg::Matrixf(read_values<float>(16).data());
};

/// The input as it came.
struct scene_values {
  std::uint32_t materials = read_number();
  std::vector<core_values> cores = std::vector<core_values>(read_number());
  std::vector<part_place> parts = std::vector<part_place>(read_number());
};

template <class Array>
osg::ref_ptr<Array> array_of(const std::vector<float>& values) {
  using element = typename Array::ElementDataType;
  const auto* data = reinterpret_cast<const element*>(values.data());
  return new Array(static_cast<unsigned>(values.size() * sizeof(float) / sizeof(element)), data);
}

osg::ref_ptr<osg::Geometry> make_geometry(const core_values& of, osg::StateSet& state) {
  osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
  const auto each = osg::Array::BIND_PER_VERTEX;
  geometry->setVertexArray(array_of<osg::Vec3Array>(of.positions).get());
  geometry->setNormalArray(array_of<osg::Vec3Array>(of.normals).get(), each);
  if (!of.colors.empty()) geometry->setColorArray(array_of<osg::Vec3Array>(of.colors).get(), each);
  if (!of.coords.empty())
    geometry->setTexCoordArray(0, array_of<osg::Vec2Array>(of.coords).get(), each);
  geometry->addPrimitiveSet(new osg::DrawElementsUInt(
      osg::PrimitiveSet::TRIANGLES, static_cast<unsigned>(of.corners.size()), of.corners.data()));
  geometry->setStateSet(&state);
  geometry->setDataVariance(osg::Object::STATIC);
  return geometry;
}

std::vector<osg::ref_ptr<osg::StateSet>> make_states(std::uint32_t count) {
  std::vector<osg::ref_ptr<osg::StateSet>> states;
  for (std::uint32_t i = 0; i < count; ++i) {
    osg::ref_ptr<osg::Material> material = new osg::Material;
    const float shade = static_cast<float>(i) / static_cast<float>(count);
    material->setDiffuse(osg::Material::FRONT_AND_BACK, {shade, shade, shade, 1});
    states.emplace_back(new osg::StateSet);
    states.back()->setAttributeAndModes(material.get());
    states.back()->setDataVariance(osg::Object::STATIC);
  }
  return states;
}

/// Each part has a geometry of its own: what parts share would stay unmerged.
osg::ref_ptr<osg::Group> make_scene(const scene_values& of) {
  const auto states = make_states(of.materials);
  osg::ref_ptr<osg::Group> root = new osg::Group;
  for (const part_place& part : of.parts) {
    const core_values& core = of.cores[part.core];
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(make_geometry(core, *states[core.material]).get());
    geode->setDataVariance(osg::Object::STATIC);
    osg::ref_ptr<osg::MatrixTransform> place = new osg::MatrixTransform(part.matrix);
    place->setDataVariance(osg::Object::STATIC);
    place->addChild(geode.get());
    root->addChild(place.get());
  }
  return root;
}

/// Of the two ways to flatten transforms this one is the faster; it duplicates nothing here.
void optimise(osg::Group& root, unsigned further) {
  using all = osgUtil::Optimizer;
  all().optimize(&root, all::FLATTEN_STATIC_TRANSFORMS_DUPLICATING_SHARED_SUBGRAPHS |
                            all::REMOVE_REDUNDANT_NODES | all::MERGE_GEODES | all::MERGE_GEOMETRY |
                            all::INDEX_MESH | further);
}

struct triangle_counter {
  std::uint32_t count = 0;
  void operator()(unsigned, unsigned, unsigned) { ++count; }
};

/// Counts what is drawn; what still stands below a transform doesn't count as triangles.
class scene_counter : public osg::NodeVisitor {
 public:
  std::uint32_t triangles = 0, draws = 0;

  scene_counter() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) {}
  void apply(osg::Transform&) override {}
  void apply(osg::Geometry& geometry) override {
    osg::TriangleIndexFunctor<triangle_counter> counter;
    geometry.accept(counter);
    triangles += counter.count;
    ++draws;
  }
};

}  // namespace

int main() {
  const scene_values values;
  osg::ref_ptr<osg::Group> root;
  for (int command = std::getchar(); command != EOF; command = std::getchar()) {
    scene_counter counter;
    if (command == 'p')
      root = make_scene(values);
    else if (command == 'm')
      optimise(*root, 0);
    else if (command == 'c')
      optimise(*root, osgUtil::Optimizer::VERTEX_POSTTRANSFORM);
    else
      root->accept(counter);
    const std::uint32_t answer = command == 'd' ? counter.draws : counter.triangles;
    std::fwrite(&answer, sizeof(answer), 1, stdout);
    std::fflush(stdout);
  }
  return 0;
}
