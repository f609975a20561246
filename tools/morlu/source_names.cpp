#include "source_names.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include <osg/io/feature_ids.h>
#include <nlohmann/json.hpp>

#include "cli.h"
#include "morlu/primitives.h"
#include "scene_nodes.h"

namespace morlu::program {
namespace {

using nlohmann::json;
using ::osg::Int32;

std::ifstream opened(const std::string& file) {
  std::error_code error;
  if (std::filesystem::is_directory(file, error))
    throw Failure(unreadable_input, file + ": is a directory, not an id map");
  std::ifstream in(file, std::ios::binary);
  if (!in) throw Failure(unreadable_input, file + ": " + std::strerror(errno));
  return in;
}

json parsed(const std::string& file) {
  std::ifstream in = opened(file);
  try {
    // The tree of the source is the larger part by far, and not needed.
    return json::parse(in, [](int depth, json::parse_event_t event, json& value) {
      return depth != 1 || event != json::parse_event_t::key || value != "tree";
    });
  } catch (const json::exception& problem) {
    const auto* broken = dynamic_cast<const json::parse_error*>(&problem);
    const std::string where = broken ? "at byte " + std::to_string(broken->byte) : "by a number";
    throw Failure(unreadable_input,
                  file + ": is broken JSON, " + where +
                      "; the strict form of the id map helps where names break it");
  }
}

std::vector<std::string> names_in(const json& map, const std::string& file) {
  const Failure no_map(unreadable_input, file + ": is no id map: it has no list of named sources");
  if (!map.is_object() || !map.contains("mapping") || !map["mapping"].is_array()) throw no_map;
  std::vector<std::string> names;
  for (const json& source : map["mapping"]) {
    if (!source.is_object() || !source.contains("name") || !source["name"].is_string())
      throw no_map;
    names.push_back(source["name"]);
  }
  return names;
}

/// The ids of one geometry, with few repeats.
void append_ids(const ::osg::Geometry& geometry, std::vector<Int32>& ids) {
  const Int32 set = ::osg::io::getFeatureIdSet(geometry);
  if (set < 0) return;
  const auto& channel = geometry.getTexCoordsSet(static_cast<::osg::UInt32>(set));
  if (!channel) return;
  const std::size_t begin = ids.size();
  for (::osg::UInt32 entry = 0; entry < channel->size(); ++entry) {
    const Int32 id = ::osg::io::featureIdOf(channel->getValue(entry)[0]);
    if (id >= 0 && (ids.size() == begin || ids.back() != id)) ids.push_back(id);
  }
}

std::vector<Int32> ids_below(const ::osg::NodePtr& root) {
  std::vector<Int32> ids;
  for (const ::osg::NodePtr& node : geometry_nodes(root))
    append_ids(*::osg::Geometry::dcast(node->getCore()), ids);
  std::sort(ids.begin(), ids.end());
  ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
  return ids;
}

using Triangle = ::osg::TriangleIterator;

bool is_usable(const Triangle& at) {
  return !osg::is_rogue(at.getPosition(0), at.getPosition(1), at.getPosition(2));
}

::osg::UInt32 nearest_corner(const Triangle& at, const ::osg::Matrix& to_world,
                             const ::osg::Pnt3f& point) {
  const auto distance = [&](::osg::UInt32 corner) {
    return (to_world.transformPoint(at.getPosition(corner)) - point).length();
  };
  ::osg::UInt32 nearest = 0;
  for (const ::osg::UInt32 corner : {1u, 2u})
    if (distance(corner) < distance(nearest)) nearest = corner;
  return nearest;
}

}  // namespace

SourceNames::SourceNames(const std::string& file)
    : file_(file), names_(names_in(parsed(file), file)) {}

void SourceNames::match(const ::osg::NodePtr& root, const std::string& scene) {
  ids_ = ids_below(root);
  if (ids_.size() == names_.size()) return;
  throw Failure(unreadable_input, file_ + ": is not the id map of " + scene + ": it names " +
                                      grouped(names_.size()) + " sources, and there are ids of " +
                                      grouped(ids_.size()));
}

std::optional<std::string> SourceNames::name_of(Int32 id) const {
  const auto found = std::lower_bound(ids_.begin(), ids_.end(), id);
  if (found == ids_.end() || *found != id) return std::nullopt;
  return names_[static_cast<std::size_t>(found - ids_.begin())];
}

Int32 id_near(const ::osg::NodePtr& node, Int32 number, const ::osg::Pnt3f& point) {
  const auto geometry = ::osg::Geometry::dcast(node ? node->getCore() : ::osg::NullFC);
  const Int32 set = geometry ? ::osg::io::getFeatureIdSet(*geometry) : -1;
  if (set < 0) return -1;
  const auto attribute = ::osg::texCoordsAttribute(static_cast<::osg::UInt32>(set));
  for (Triangle at = geometry->beginTriangles(); !at.isAtEnd(); ++at) {
    if (!is_usable(at) || number-- > 0) continue;
    const auto corner = nearest_corner(at, node->getToWorld(), point);
    if (at.getAttributeIndex(attribute, corner) < 0) return -1;
    return ::osg::io::featureIdOf(at.getValue<::osg::Vec2f>(attribute, corner)[0]);
  }
  return -1;
}

}  // namespace morlu::program
