// osgUtil's index visitor, to be measured from another process, since its names clash with those of
// our own layer. Reads the number of corners and a row of ten floats each: position, normal, two
// texture coordinates. Then carries out commands of one byte, each answered by a 32-bit number:
//   p  makes the flat geometry anew
//   r  indexes it
//   v  tells how many vertices it has
#include <osg/Geometry>
#include <osgUtil/MeshOptimizers>

#include <cstdint>
#include <cstdio>
#include <vector>

namespace {

constexpr std::size_t floats = 10;

osg::ref_ptr<osg::Geometry> make_geometry(const std::vector<float>& rows) {
  const std::size_t corners = rows.size() / floats;
  osg::ref_ptr<osg::Vec3Array> positions = new osg::Vec3Array, normals = new osg::Vec3Array;
  osg::ref_ptr<osg::Vec2Array> coords[] = {new osg::Vec2Array, new osg::Vec2Array};
  for (std::size_t i = 0; i < corners; ++i) {
    const float* row = &rows[i * floats];
    positions->push_back({row[0], row[1], row[2]});
    normals->push_back({row[3], row[4], row[5]});
    for (std::size_t set = 0; set < 2; ++set)
      coords[set]->push_back({row[6 + 2 * set], row[7 + 2 * set]});
  }
  osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
  geometry->setVertexArray(positions.get());
  geometry->setNormalArray(normals.get(), osg::Array::BIND_PER_VERTEX);
  for (unsigned set = 0; set < 2; ++set)
    geometry->setTexCoordArray(set, coords[set].get(), osg::Array::BIND_PER_VERTEX);
  geometry->addPrimitiveSet(
      new osg::DrawArrays(osg::PrimitiveSet::TRIANGLES, 0, static_cast<int>(corners)));
  return geometry;
}

}  // namespace

int main() {
  std::uint32_t corners = 0;
  if (std::fread(&corners, sizeof(corners), 1, stdin) != 1) return 1;
  std::vector<float> rows(corners * floats);
  if (std::fread(rows.data(), sizeof(float), rows.size(), stdin) != rows.size()) return 1;

  osg::ref_ptr<osg::Geometry> geometry;
  for (int command = std::getchar(); command != EOF; command = std::getchar()) {
    std::uint32_t answer = 0;
    if (command == 'p')
      geometry = make_geometry(rows);
    else if (command == 'r')
      osgUtil::IndexMeshVisitor().makeMesh(*geometry);
    else if (command == 'v')
      answer = geometry->getVertexArray()->getNumElements();
    std::fwrite(&answer, sizeof(answer), 1, stdout);
    std::fflush(stdout);
  }
  return 0;
}
