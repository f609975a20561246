#include "loss_watch.h"

#include <cmath>

#include <osg/cores.h>
#include <osg/geometry.h>
#include <osg/material.h>

#include "cli.h"
#include "morlu/optimiser.h"
#include "morlu/primitives.h"
#include "scene_nodes.h"
#include "texture_use.h"

namespace morlu::program {
namespace {

using ::osg::Attribute;
using ::osg::GeometryPtr;
using ::osg::NodePtr;
using ::osg::Pnt3f;

constexpr ::osg::UInt32 watched_attributes = indexOf(Attribute::TexCoords7);  // ids come anew

bool is_usable(const Pnt3f& a, const Pnt3f& b, const Pnt3f& c) {
  return !osg::is_rogue(a, b, c);
}

// A triangle has to be usable where it is defined and where it stands, whichever the optimisation
// looks at.
std::uint64_t usable_triangles(const ::osg::Geometry& geometry, const ::osg::Matrix& world) {
  std::uint64_t count = 0;
  for (auto at = geometry.beginTriangles(); !at.isAtEnd(); ++at) {
    const Pnt3f a = at.getPosition(0), b = at.getPosition(1), c = at.getPosition(2);
    count += is_usable(a, b, c) && is_usable(world * a, world * b, world * c);
  }
  return count;
}

bool is_apart(const Pnt3f& a, const Pnt3f& b) {
  constexpr float coincidence = 2e-6f;
  for (unsigned k = 0; k < 3; ++k)
    if (std::fabs(a[k] - b[k]) > coincidence) return true;
  return false;
}

std::uint64_t usable_lines(const ::osg::Geometry& geometry, const ::osg::Matrix& world) {
  std::uint64_t count = 0;
  for (auto at = geometry.beginLines(); !at.isAtEnd(); ++at) {
    const Pnt3f a = at.getPosition(0), b = at.getPosition(1);
    count += is_apart(a, b) && is_apart(world * a, world * b);
  }
  return count;
}

struct Counts {
  std::uint64_t triangles = 0, lines = 0, points = 0;
};

Counts all_elements(const ::osg::Geometry& geometry) {
  Counts counts;
  for (auto at = geometry.beginPrimitives(); !at.isAtEnd(); ++at) {
    counts.triangles += ::osg::triangleCount(at.getType(), at.getLength());
    counts.lines += ::osg::lineCount(at.getType(), at.getLength());
    if (at.getType() == ::osg::kPoints) counts.points += at.getLength();
  }
  return counts;
}

/// Nodes with geometry that an optimisation doesn't look at.
std::uint64_t count_left_out(const NodePtr& scene) {
  std::vector<NodePtr> taken;
  osg::getGeometryNodes(scene, taken, false);
  return geometry_nodes(scene).size() - taken.size();
}

/// Triangles that take part and are unusable.
std::uint64_t count_unusable(const NodePtr& scene) {
  std::vector<NodePtr> taken;
  osg::getGeometryNodes(scene, taken, false);
  std::uint64_t count = 0;
  for (const NodePtr& node : taken) {
    const auto geometry = ::osg::Geometry::dcast(node->getCore());
    count += all_elements(*geometry).triangles - usable_triangles(*geometry, node->getToWorld());
  }
  return count;
}

}  // namespace

// Texture coordinates that no texture uses are no loss; ids in their place are none.
void LossWatch::count(const NodePtr& node, Elements which, Corners& corners) {
  const auto geometry = ::osg::Geometry::dcast(node->getCore());
  Counts counts = all_elements(*geometry);
  if (which == Elements::usable && counts.triangles + counts.lines > 0) {
    const ::osg::Matrix world = node->getToWorld();
    counts.triangles = usable_triangles(*geometry, world);
    counts.lines = usable_lines(*geometry, world);
  }
  const std::uint64_t sum = 3 * counts.triangles + 2 * counts.lines + counts.points;
  if (sum == 0) return;
  const ::osg::IndexLayout layout(*geometry);
  const bool is_textured = use_of_textures(material_of(node)) != TextureUse::none;
  for (::osg::UInt32 i = 0; i < watched_attributes; ++i) {
    const Attribute attribute = ::osg::attributeAt(i);
    const bool is_tex_coords = attribute >= Attribute::TexCoords;
    if (!layout.isPresent(attribute) || (is_tex_coords && !is_textured)) continue;
    corners[i] += is_tex_coords ? 3 * counts.triangles : sum;
  }
}

LossWatch::Corners LossWatch::count_all(const NodePtr& scene) {
  Corners corners{};
  for (const NodePtr& node : geometry_nodes(scene)) count(node, Elements::all, corners);
  return corners;
}

LossWatch::LossWatch(const NodePtr& scene) {
  std::vector<NodePtr> taken;
  osg::getGeometryNodes(scene, taken, false);
  for (const NodePtr& node : taken) count(node, Elements::usable, corners_);
  all_corners_ = count_all(scene)[0];
  left_out_ = count_left_out(scene);
  unusable_ = count_unusable(scene);
}

std::vector<std::string> LossWatch::losses(const NodePtr& result) const {
  std::vector<std::string> texts;
  if (const std::uint64_t beside = count_left_out(result); beside < left_out_)
    texts.push_back(grouped(left_out_ - beside) +
                    " geometry nodes take no part and are left out: hidden, below a switch or "
                    "levels of detail, or of a material with a choice or a cube map");
  if (const std::uint64_t kept = count_unusable(result); kept < unusable_)
    texts.push_back(grouped(unusable_ - kept) +
                    " unusable triangles are left out; morlu info --help tells which are");
  const auto elements = lost_elements(result);
  texts.insert(texts.end(), elements.begin(), elements.end());
  return texts;
}

std::vector<std::string> LossWatch::lost_elements(const NodePtr& result) const {
  std::vector<std::string> texts;
  const Corners now = count_all(result);
  for (::osg::UInt32 i = 0; i < watched_attributes; ++i)
    if (now[i] < corners_[i])
      texts.push_back(std::string(attribute_names[i]) + " are lost at " +
                      grouped(corners_[i] - now[i]) + " of " + grouped(corners_[i]) + " corners");
  return texts;
}

bool LossWatch::is_incomplete(const NodePtr& result) const {
  return count_all(result)[0] < corners_[0];
}

bool LossWatch::is_nothing_left(const NodePtr& result) const {
  return all_corners_ > 0 && count_all(result)[0] == 0;
}

}  // namespace morlu::program
