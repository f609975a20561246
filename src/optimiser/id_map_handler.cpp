#include "optimiser/id_map_handler.h"

#include <cmath>

namespace morlu::osg {

namespace {

/// Room for one more, grown as `push_back` would, so that the next one can't fail for want of it.
template <class T>
void make_room(std::vector<T>& list) {
  if (list.size() == list.capacity()) list.reserve(list.size() * 2 + 16);
}

}  // namespace

id_map_handler& getIdMapHandler() {
  static id_map_handler& handler = *new id_map_handler;  // outlives whoever ends with the process
  return handler;
}

void id_map_handler::reset() {
  names_.clear();
  mins_.clear();
  maxs_.clear();
  appearance_names_.clear();
  id_of_name_.clear();
  appearances_.clear();
  mapping.clear();
  tree.clear();
  merged = false;
  prefix.clear();
  texcoord_slots.clear();
  id_sets.clear();
}

std::uint32_t id_map_handler::addName(const std::string& name, const point& min, const point& max,
                                      const ::osg::MaterialPtr& material) {
  const lock_holder held(lock_);
  if (const auto known = id_of_name_.find(name); known != id_of_name_.end()) {
    const std::uint32_t id = known->second;
    for (unsigned axis = 0; axis < 3; ++axis) {
      mins_[id][axis] = std::fmin(mins_[id][axis], std::fmin(min[axis], max[axis]));
      maxs_[id][axis] = std::fmax(maxs_[id][axis], std::fmax(min[axis], max[axis]));
    }
    return id;
  }
  const auto [appearance, fresh] =
      appearances_.try_emplace(material, "__App_" + std::to_string(appearances_.size()));
  try {
    append(name, min, max, appearance->second);
  } catch (...) {
    if (fresh) appearances_.erase(appearance);
    throw;
  }
  return static_cast<std::uint32_t>(names_.size() - 1);
}

/// All four lists grow, or none.
void id_map_handler::append(const std::string& name, const point& min, const point& max,
                            const std::string& appearance) {
  std::string own_name = name;
  std::string own_appearance = appearance;
  make_room(names_);
  make_room(mins_);
  make_room(maxs_);
  make_room(appearance_names_);
  id_of_name_.emplace(name, static_cast<std::uint32_t>(names_.size()));
  names_.push_back(std::move(own_name));
  mins_.push_back(min);
  maxs_.push_back(max);
  appearance_names_.push_back(std::move(own_appearance));
}

std::string id_map_handler::nextGeometryName() {
  const lock_holder held(lock_);
  return prefix + "_G_" + std::to_string(++max_geo_count_);
}

std::string id_map_handler::nextMergedName() {
  const lock_holder held(lock_);
  return "MG_" + std::to_string(merged_name_count_++);
}

}  // namespace morlu::osg
