#pragma once

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "support/scene_parts.h"

/// Small plants: many named parts under transforms, shared cores, a handful of materials.
namespace morlu::tests {

inline ::osg::NodePtr node_with(const ::osg::NodeCorePtr& core, const std::string& name = {}) {
  const auto node = ::node_with(core);
  return name.empty() ? node : named(name, node);
}

inline float between(std::mt19937& random, float low, float high) {
  return low + (high - low) * static_cast<float>(random() % 10001) / 10000;
}

inline ::osg::MaterialPtr plain_material(float red) {
  return simple_material({red, 0.5f, 0.25f});
}

inline ::osg::MaterialPtr clear_material(float alpha) {
  return of_chunks({diffuse({0.5f, 0.5f, 1, alpha})});
}

/// A patch of triangles of its own shape, about 1 wide; some with colours or texture coordinates.
inline ::osg::GeometryPtr patch(std::mt19937& random, const ::osg::MaterialPtr& material,
                                ::osg::PrimitiveType type = ::osg::kTriangles) {
  const unsigned side = 2 + random() % 5, row = side + 1;
  const auto indices = ::osg::GeoIndicesUI32::create();
  const auto normals = ::osg::GeoNormals3f::create();
  std::vector<::osg::Pnt3f> positions;
  for (unsigned y = 0; y < side; ++y)
    for (unsigned x = 0; x < side; ++x)
      for (const unsigned v : {0u, 1u, row, 1u, row + 1, row}) indices->push_back(y * row + x + v);
  for (unsigned v = 0; v < row * row; ++v) {
    const unsigned x = v % row, y = v / row;
    positions.push_back({static_cast<float>(x) / static_cast<float>(side),
                         static_cast<float>(y) / static_cast<float>(side),
                         between(random, 0, 0.3f)});
    ::osg::Vec3f normal(between(random, -1, 1), between(random, -1, 1), 1);
    normal.normalize();
    normals->push_back(normal);
  }
  const auto geometry = primitives_over(positions, {{type, indices->size()}});
  geometry->setIndices(indices);
  geometry->setMaterial(material);
  if (random() % 4) geometry->setNormals(normals);
  if (random() % 3 == 0) {
    const auto colors = ::osg::GeoColors3f::create();
    for (unsigned v = 0; v < row * row; ++v) colors->push_back({between(random, 0, 1), 1, 0});
    geometry->setColors(colors);
  }
  return geometry;
}

struct plant {
  ::osg::NodePtr root = node_with(::osg::Group::create(), "plant");
  std::vector<::osg::MaterialPtr> materials;
  std::vector<::osg::NodePtr> parts;  // opaque ones
  std::vector<::osg::NodePtr> clear, hidden;

  plant(unsigned seed, unsigned count) {
    std::mt19937 random(seed);
    for (int i = 0; i < 4; ++i) materials.push_back(plain_material(0.2f * static_cast<float>(i)));
    const auto material_group = ::osg::MaterialGroup::create();
    material_group->setMaterial(materials[3]);
    const auto painted = node_with(material_group, "painted");
    root->addChild(painted);
    ::osg::GeometryPtr shared;
    for (unsigned i = 0; i < count; ++i) {
      const unsigned kind = random() % 12;
      const bool by_group = kind == 0;
      if (!shared || random() % 3) {
        const auto type = kind == 1   ? ::osg::kLines
                          : kind == 2 ? ::osg::kPoints
                                      : ::osg::kTriangles;
        shared = patch(random, by_group ? ::osg::MaterialPtr() : materials[random() % 3], type);
      }
      add(random, by_group && !shared->getMaterial() ? painted : root, shared, i);
    }
    for (int i = 0; i < 2; ++i) {
      clear.push_back(place(random, root, patch(random, clear_material(0.5f)), "clear"));
      hidden.push_back(place(random, root, patch(random, materials[0]), "hidden"));
      hidden.back()->setTravMask(0);
    }
  }

 private:
  void add(std::mt19937& random, const ::osg::NodePtr& below, const ::osg::GeometryPtr& core,
           unsigned number) {
    if (!core->getMaterial() && below == root) core->setMaterial(materials[0]);
    parts.push_back(place(random, below, core, "part" + std::to_string(number)));
  }

  static ::osg::NodePtr place(std::mt19937& random, const ::osg::NodePtr& below,
                              const ::osg::GeometryPtr& core, const std::string& name) {
    ::osg::Matrix matrix;
    matrix.setTranslation(
        {between(random, -20, 20), between(random, -20, 20), between(random, 0, 5)});
    matrix[0] = between(random, 0.5f, 2);
    matrix[5] = between(random, 0.5f, 2);
    matrix[4] = between(random, -0.5f, 0.5f);
    const auto node = node_with(core, name);
    below->addChild(::node_with(transform(matrix), {node}));
    return node;
  }
};

}  // namespace morlu::tests
