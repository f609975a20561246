// From the scene to the id map, and from there to attribute maps.
#include "optimiser/id_map_output.h"

#include <osg/geometry.h>

#include <algorithm>
#include <array>
#include <unordered_map>

#include "morlu/optimiser.h"
#include "optimiser/scene_queries.h"
#include "primitives/node_walk.h"
#include "primitives/number_text.h"

namespace morlu::osg {

namespace {

using ::osg::GeometryPtr;
using ::osg::NodePtr;
using attributes = std::vector<::osg::StringAttributeMap::Attribute>;

// --- Recording -----------------------------------------------------------------------------------

/// Null if there is none; an empty one names nothing.
template <class Container>
const char* given_name(const Container& container) {
  const char* name = getName(container);
  return name && *name ? name : nullptr;
}

std::string name_of(const ::osg::Node& node) {
  const char* name = given_name(node);
  if (!name) name = given_name(node.getCore());
  return name ? name : "none";
}

attributes attributes_of(const ::osg::AttachmentContainer& container, bool& found) {
  using ::osg::StringAttributeMap;
  const auto map =
      StringAttributeMap::dcast(container.findAttachment(StringAttributeMap::getClassType()));
  found = !map.isNull();
  return found ? map->getAttributes() : attributes();
}

attributes attributes_of(const ::osg::Node& node) {
  bool found = false;
  attributes own = attributes_of(node, found);
  return found || !node.getCore() ? own : attributes_of(*node.getCore(), found);
}

// --- Collecting ----------------------------------------------------------------------------------

/// The ids in a core, ascending, and where they stand now; no slot: where they stood.
struct id_channel {
  std::vector<std::uint32_t> ids;
  std::string slot;
};

std::vector<std::uint32_t> ids_in(const ::osg::GeoTexCoords& channel, std::size_t names) {
  std::vector<std::uint32_t> ids;
  const auto end = static_cast<double>(names);
  for (std::uint32_t entry = 0; entry < channel.size(); ++entry) {
    const double value = channel.getValue(entry)[0];
    if (!(value >= 0 && value < end)) continue;  // NaN goes here too
    const auto id = static_cast<std::uint32_t>(value);
    if (ids.empty() || ids.back() != id) ids.push_back(id);  // they come in long runs
  }
  std::sort(ids.begin(), ids.end());
  ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
  return ids;
}

/// Flags of the old set become flags of the new one. Nothing that the new set's flag stood for is
/// there: the first column that has it would win, so it goes first.
void move_flags(::osg::Geometry& geometry, std::uint32_t from, std::uint32_t to) {
  const unsigned old_flag = mappingFlag(::osg::texCoordsAttribute(from));
  const unsigned new_flag = mappingFlag(::osg::texCoordsAttribute(to));
  for (::osg::UInt16& entry : geometry.getIndexMapping()) {
    const bool has_channel = entry & old_flag;
    entry =
        static_cast<::osg::UInt16>((entry & ~old_flag & ~new_flag) | (has_channel ? new_flag : 0));
  }
}

bool is_free(const ::osg::GeoTexCoordsPtr& coords) {
  return !coords || coords->empty();
}

constexpr std::uint32_t id_set = 7;

/// The set they stand in now: where they stood, if all others are taken.
std::uint32_t move_channel(const GeometryPtr& geometry) {
  for (std::uint32_t set = 0; set < 4; ++set) {
    if (!is_free(geometry->getTexCoordsSet(set))) continue;
    beginEditCP(geometry);
    geometry->setTexCoordsSet(set, geometry->getTexCoordsSet(id_set));
    geometry->setTexCoordsSet(id_set, ::osg::NullFC);
    move_flags(*geometry, id_set, set);
    endEditCP(geometry);
    return set;
  }
  return id_set;
}

/// Collects from geometry nodes one by one. The first named node of a core moves its ids; those
/// that come later hold them just as well, so what was found is kept as long as the collector.
class id_collector {
 public:
  explicit id_collector(id_map_handler& handler) : handler_(handler) {}

  void collect(const ::osg::Node& node, const GeometryPtr& geometry) {
    const char* name = given_name(node);
    if (!name) return;
    if (const auto known = shared_.find(geometry); known != shared_.end())
      return credit(name, known->second);
    const auto& channel = geometry->getTexCoordsSet(id_set);
    if (is_free(channel)) return;
    id_channel found{ids_in(*channel, handler_.names().size()), {}};
    const std::uint32_t set = move_channel(geometry);
    if (set != id_set) found.slot = "TC" + std::to_string(set);
    note_set(geometry, set);
    credit(name, found);
    if (geometry->getNumParents() > 1) shared_.emplace(geometry, std::move(found));
  }

 private:
  void note_set(const GeometryPtr& geometry, std::uint32_t set) {
    const lock_holder held(handler_.lock());
    handler_.id_sets[geometry.getSerial()] = set;
  }

  void credit(const char* name, const id_channel& channel) {
    const lock_holder held(handler_.lock());
    for (const std::uint32_t id : channel.ids) handler_.mapping[id].insert(name);
    if (!channel.slot.empty()) handler_.texcoord_slots[name] = channel.slot;
  }

  id_map_handler& handler_;
  std::map<GeometryPtr, id_channel> shared_;  // cores on more than one node
};

// --- Attaching -----------------------------------------------------------------------------------

/// Diffuse colours by appearance name, as text.
std::unordered_map<std::string, std::string> diffuse_colors(const id_map_handler& handler) {
  std::unordered_map<std::string, std::string> texts;
  for (const auto& [material, name] : handler.appearances()) {
    material_colors colors;
    getMaterialColors(material, colors);
    const auto& c = colors.diffuse;
    texts[name] = number_text({c[0], c[1], c[2], c[3]});
  }
  return texts;
}

std::string joined(const std::set<std::string>& names) {
  std::string text;
  for (const std::string& name : names) {
    if (&name != &*names.begin()) text += ',';
    text += name;
  }
  return text;
}

}  // namespace

void recordTree(id_map_handler& handler, const NodePtr& node, std::uint32_t first_level) {
  walk_nodes(node, first_level, [&](const NodePtr& each, std::uint32_t& level) {
    const auto& core = each->getCore();
    handler.tree.push_back({level++, each->getNChildren(), name_of(*each),
                            core ? core->getType().getCName() : "none", each->getTravMask() != 0,
                            attributes_of(*each)});
    return true;
  });
}

void collectGeometry(id_map_handler& handler, const NodePtr& node) {
  id_collector collector(handler);
  walk_nodes(node, [&](const NodePtr& each) {
    if (!each->getCore()) return false;
    const auto geometry = ::osg::Geometry::dcast(each->getCore());
    if (geometry) collector.collect(*each, geometry);
    return geometry.isNull();
  });
}

std::int32_t getIdMapSet(const GeometryPtr& geometry) {
  const auto& sets = getIdMapHandler().id_sets;
  const auto found = sets.find(geometry.getSerial());
  return found == sets.end() ? -1 : static_cast<std::int32_t>(found->second);
}

void attachToRoot(const NodePtr& root) {
  if (!root) return;
  const id_map_handler& handler = getIdMapHandler();
  const auto colors = diffuse_colors(handler);
  attributes slots(handler.texcoord_slots.begin(), handler.texcoord_slots.end());
  attributes names, mins, maxs, diffuses, users;
  for (std::size_t id = 0; id < handler.names().size(); ++id) {
    const std::string key = std::to_string(id);
    names.emplace_back(key, handler.names()[id]);
    mins.emplace_back(key, point_text(handler.mins()[id]));
    maxs.emplace_back(key, point_text(handler.maxs()[id]));
    diffuses.emplace_back(key, colors.at(handler.appearance_names()[id]));
  }
  for (const auto& [id, geometries] : handler.mapping)
    users.emplace_back(handler.names().at(id), joined(geometries));

  ::osg::UInt16 binding = 1;
  for (attributes* each : {&slots, &names, &mins, &maxs, &diffuses, &users}) {
    const auto map = ::osg::StringAttributeMap::create();
    map->setAttributes(std::move(*each));
    root->addAttachment(map, binding++);
  }
}

}  // namespace morlu::osg
