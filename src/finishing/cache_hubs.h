#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <span>
#include <vector>

/// The tips of fans in cache order: so that a step need not look at all elements around a vertex
/// that very many need.
///
/// The score of such a hub changes with each step, and with it that of all its elements. But
/// elements whose other vertices are out of the cache score the same if these are needed by as many
/// elements each, whatever the hub's score: they form a group, and only the first of it can be
/// next. Elements with another vertex in the cache are met there.
namespace morlu::osg {

/// The elements that still need each vertex, in the order of their numbers.
class elements_of_vertices {
 public:
  elements_of_vertices(std::span<const std::uint32_t> corners, unsigned per_element,
                       std::uint32_t vertices)
      : begin_(vertices + 1), live_(vertices), elements_(corners.size()) {
    for (const std::uint32_t vertex : corners) ++live_[vertex];
    std::uint32_t place = 0;
    for (std::uint32_t vertex = 0; vertex < vertices; ++vertex) {
      begin_[vertex] = place;
      place += live_[vertex];
    }
    begin_[vertices] = place;
    std::vector<std::uint32_t> next(begin_);
    for (std::uint32_t corner = 0; corner < corners.size(); ++corner)
      elements_[next[corners[corner]]++] = corner / per_element;
  }

  std::uint32_t vertices() const { return static_cast<std::uint32_t>(live_.size()); }
  std::uint32_t live(std::uint32_t vertex) const { return live_[vertex]; }
  std::span<const std::uint32_t> of(std::uint32_t vertex) const {
    return {elements_.data() + begin_[vertex], live_[vertex]};
  }
  void remove(std::uint32_t vertex, std::uint32_t element) {
    const auto first = elements_.begin() + begin_[vertex];
    const auto end = first + live_[vertex];
    const auto found = std::find(first, end, element);
    std::copy(found + 1, end, found);
    --live_[vertex];
  }
  /// Counts one element less, and leaves `of` this vertex without meaning.
  void count_down(std::uint32_t vertex) { --live_[vertex]; }

 private:
  std::vector<std::uint32_t> begin_;  // one more than vertices
  std::vector<std::uint32_t> live_;
  std::vector<std::uint32_t> elements_;
};

/// The hubs among the vertices. Told of what enters and leaves the cache it is right at each step;
/// both take logarithmic time for each element of a vertex beside a hub. Memory about 50 bytes for
/// each element with a hub; none if there is no hub.
template <unsigned Corners>
class cache_hubs {
 public:
  static constexpr std::uint32_t least_elements = 128;  // below, to look at all of them is faster

  cache_hubs(std::span<const std::uint32_t> corners, const elements_of_vertices& elements)
      : corners_(corners), elements_(elements) {
    for (std::uint32_t vertex = 0; vertex < elements.vertices(); ++vertex)
      if (elements.live(vertex) >= least_elements) add_hub(vertex);
    if (!any()) return;
    for (std::uint32_t element = 0; element < corners.size() / Corners; ++element) put(element);
  }

  bool any() const { return !groups_.empty(); }
  bool is_hub(std::uint32_t vertex) const { return any() && states_[vertex].hub != none; }

  /// Before the counts of the element's vertices go down and they enter the cache.
  void emit(std::uint32_t element) {
    for (unsigned k = 0; k < Corners; ++k) enter(corners_of(element)[k]);
    if (is_grouped(element)) withdraw(element);
  }
  /// Once the vertex has left the cache.
  void leave(std::uint32_t vertex) {
    state& own = states_[vertex];
    if (!own.is_cached) return;
    own.is_cached = false;
    for (const std::uint32_t element : elements_.of(vertex)) put(element);
  }

  /// Calls `visit(element)` for the first of each group around a hub.
  template <class Visit>
  void visit_firsts(std::uint32_t hub, Visit visit) const {
    for (const auto& [key, group] : groups_[states_[hub].hub]) visit(*group.begin());
  }

 private:
  static constexpr std::uint32_t none = ~std::uint32_t{0};

  /// What the vertices of a group's elements agree on, corner by corner: which hub or, inverted,
  /// how many elements need it.
  using group_key = std::array<std::uint32_t, Corners>;
  using hub_groups = std::map<group_key, std::set<std::uint32_t>>;

  struct state {
    std::uint32_t hub = none;  // its number
    bool is_beside = false;    // shares an element with a hub, and is none
    bool is_cached = false;    // only of those beside
  };

  const std::uint32_t* corners_of(std::uint32_t element) const {
    return &corners_[std::size_t{element} * Corners];
  }

  void add_hub(std::uint32_t vertex) {
    states_.resize(elements_.vertices());
    states_[vertex].hub = static_cast<std::uint32_t>(groups_.size());
    groups_.emplace_back();
  }

  void enter(std::uint32_t vertex) {
    state& own = states_[vertex];
    if (!own.is_beside || own.is_cached) return;
    for (const std::uint32_t element : elements_.of(vertex))
      if (is_grouped(element)) withdraw(element);
    own.is_cached = true;
  }

  bool is_grouped(std::uint32_t element) const {
    bool has_hub = false, is_met = false;
    for (unsigned k = 0; k < Corners; ++k) {
      const state& corner = states_[corners_of(element)[k]];
      has_hub |= corner.hub != none;
      is_met |= corner.is_cached;
    }
    return has_hub && !is_met;
  }

  group_key key_of(std::uint32_t element) const {
    group_key key;
    for (unsigned k = 0; k < Corners; ++k) {
      const std::uint32_t vertex = corners_of(element)[k], hub = states_[vertex].hub;
      key[k] = hub != none ? hub : ~elements_.live(vertex);
    }
    return key;
  }

  void put(std::uint32_t element) {
    if (!is_grouped(element)) return;
    const group_key key = key_of(element);
    for (unsigned k = 0; k < Corners; ++k) {
      state& corner = states_[corners_of(element)[k]];
      corner.is_beside = corner.hub == none;
      if (corner.is_beside) continue;
      auto& group = groups_[corner.hub][key];
      group.insert(group.end(), element);
    }
  }

  void withdraw(std::uint32_t element) {
    const group_key key = key_of(element);
    for (unsigned k = 0; k < Corners; ++k) {
      const state& corner = states_[corners_of(element)[k]];
      if (corner.hub == none) continue;
      hub_groups& groups = groups_[corner.hub];
      const auto found = groups.find(key);
      if (found == groups.end()) continue;  // twice the same hub
      found->second.erase(element);
      if (found->second.empty()) groups.erase(found);
    }
  }

  std::span<const std::uint32_t> corners_;
  const elements_of_vertices& elements_;
  std::vector<state> states_;  // of each vertex, if there are hubs
  std::vector<hub_groups> groups_;
};

}  // namespace morlu::osg
