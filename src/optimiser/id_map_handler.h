#pragma once

#include <osg/material.h>
#include <osg/threads.h>
#include <osg/vector.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace morlu::osg {

/// Holds a named lock while it lives.
class lock_holder {
 public:
  explicit lock_holder(::osg::Lock& lock) : lock_(lock) { lock_.aquire(); }
  ~lock_holder() { lock_.release(); }
  lock_holder(const lock_holder&) = delete;
  lock_holder& operator=(const lock_holder&) = delete;

 private:
  ::osg::Lock& lock_;
};

/// What is kept of a node of the source scene. As fields, not as text: in a text that indents each
/// level, a long chain of nodes takes the square of its length.
struct source_node {
  std::uint32_t level = 0;     // of indentation
  std::uint32_t children = 0;  // they and what is below them follow
  std::string name;
  std::string type;  // of the core
  bool rendered = false;
  std::vector<std::pair<std::string, std::string>> attributes;
};

/// Numbers the named source nodes of an optimisation, keeps what is written out about them, and
/// gives new geometry its names. One for the process; reached by `getIdMapHandler`.
///
/// The three operations that hand something out may be called from any thread. All else is for the
/// time when no worker runs; who changes a public field while workers run takes `lock()`.
class id_map_handler {
 public:
  using point = ::osg::Point<float, 3>;

  id_map_handler() = default;
  id_map_handler(const id_map_handler&) = delete;
  id_map_handler& operator=(const id_map_handler&) = delete;

  /// Forgets all but the two name counters, which run on for the life of the process so that names
  /// stay unique.
  void reset();

  /// The id of `name`, from 0 in the order of first calls. A known name keeps its appearance, and
  /// its box grows to hold both points; a coordinate that is NaN gives way to any number. The first
  /// use of a material, null among them, gives it the next appearance name. Near constant time; as
  /// before if memory runs out.
  std::uint32_t addName(const std::string& name, const point& min, const point& max,
                        const ::osg::MaterialPtr& material);

  /// `prefix`, "_G_" and a number, 1 at first.
  std::string nextGeometryName();
  /// "MG_" and a number, 0 at first.
  std::string nextMergedName();

  // Of each id.
  const std::vector<std::string>& names() const { return names_; }
  const std::vector<point>& mins() const { return mins_; }
  const std::vector<point>& maxs() const { return maxs_; }
  const std::vector<std::string>& appearance_names() const { return appearance_names_; }

  /// By serial of the material, null first.
  const std::map<::osg::MaterialPtr, std::string>& appearances() const { return appearances_; }
  /// The number in the last `nextGeometryName`.
  std::uint32_t max_geo_count() const { return max_geo_count_; }
  ::osg::Lock& lock() const { return lock_; }

  std::map<std::uint32_t, std::set<std::string>> mapping;  // geometries by id, below names()
  std::vector<source_node> tree;  // the recorded source, parents before their children
  bool merged = false;            // the merge is done: extraction registers no names
  std::string prefix;             // of geometry names
  std::map<std::string, std::string> texcoord_slots;  // "TC0" to "TC3" of a final geometry
  std::map<std::uint64_t, std::uint32_t> id_sets;     // where ids stand now, by serial of the core

 private:
  void append(const std::string& name, const point& min, const point& max,
              const std::string& appearance);

  std::vector<std::string> names_;
  std::vector<point> mins_;
  std::vector<point> maxs_;
  std::vector<std::string> appearance_names_;
  std::unordered_map<std::string, std::uint32_t> id_of_name_;
  std::map<::osg::MaterialPtr, std::string> appearances_;
  std::uint32_t max_geo_count_ = 0;
  std::uint32_t merged_name_count_ = 0;
  ::osg::Lock& lock_ = *::osg::Lock::get("MORLU_IDMAPHANDLER_LOCK");
};

/// Made on first use, kept until the process ends.
id_map_handler& getIdMapHandler();

}  // namespace morlu::osg
