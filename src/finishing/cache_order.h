#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <span>
#include <utility>
#include <vector>

#include "finishing/cache_hubs.h"

/// The order in which triangles or lines best go through a cache of transformed vertices.
///
/// After T. Forsyth, "Linear-speed vertex cache optimisation" (2006): a vertex counts by its place
/// in a simulated least-recently-used cache and by how few elements still need it; the next element
/// is the best one that uses a cached vertex.
namespace morlu::osg {

/// What elements of so many corners count by.
template <unsigned Corners>
class cache_scores {
 public:
  static constexpr std::uint32_t cache_size = 32;

  cache_scores() {
    for (std::uint32_t place = 0; place < cache_size; ++place) cached_[place] = cached(place);
    for (std::uint32_t live = 1; live < common_; ++live) valence_[live] = valence(live);
  }

  /// Of a vertex that `live` elements still need, beyond the cache or at a place in it.
  float of_vertex(std::uint32_t live) const { return live == 0 ? done : of_valence(live); }
  float of_vertex(std::uint32_t live, std::uint32_t place) const {
    return live == 0 ? done : cached_[place] + of_valence(live);
  }
  /// Of an element that is left: all its vertices count more than 0.
  static float of_element(const float* scores, const std::uint32_t* corners) {
    constexpr float all_needed = 3;
    float sum = scores[corners[0]];
    for (unsigned k = 1; k < Corners; ++k) sum += scores[corners[k]];
    return sum + all_needed;
  }

 private:
  static constexpr float done = -1;
  static constexpr std::uint32_t common_ = 64;

  /// The element emitted last counts the same whichever way round it lies.
  static float cached(std::uint32_t place) {
    if (place < Corners) return 0.75f;
    constexpr float fall = Corners == 3 ? 0.03448276f : 0.033333335f;  // over the other places
    return std::pow(1.0f - static_cast<float>(place - Corners) * fall, 1.5f);
  }
  static float valence(std::uint32_t live) {
    return 2.0f * std::pow(static_cast<float>(live), -0.5f);
  }
  float of_valence(std::uint32_t live) const {
    return live < common_ ? valence_[live] : valence(live);
  }

  std::array<float, cache_size> cached_;
  std::array<float, common_> valence_{};
};

/// Emits elements of `Corners` vertices. Memory about 8 bytes a corner and 16 a vertex. A step
/// looks at the elements that use at most 35 vertices; of a vertex that very many use, at few of
/// them.
template <unsigned Corners>
class cache_order {
 public:
  /// `corners`: the vertices of all elements, each below `vertices`; they must outlive this.
  cache_order(std::span<const std::uint32_t> corners, std::uint32_t vertices)
      : corners_(corners),
        elements_(corners, Corners, vertices),
        hubs_(corners, elements_),
        emitted_(corners.size() / Corners) {
    vertex_scores_.resize(vertices);
    for (std::uint32_t vertex = 0; vertex < vertices; ++vertex) score_uncached(vertex);
  }

  /// Calls `chunks.add(element)` once for each element. Before each `chunks.is_full()` is asked; if
  /// so, `chunks.open()` follows, the cache is emptied and the first element left is next.
  template <class Chunks>
  void run(Chunks& chunks) {
    std::uint32_t next = best_of_all();
    for (std::size_t left = emitted_.size(); left > 0; --left) {
      if (chunks.is_full()) {
        chunks.open();
        flush();
        next = first_left();
      }
      chunks.add(next);
      emit(next);
      next = select();
    }
  }

 private:
  static constexpr std::uint32_t cache_size = cache_scores<Corners>::cache_size;
  static constexpr std::uint32_t nobody = ~std::uint32_t{0};

  const std::uint32_t* corners_of(std::uint32_t element) const {
    return &corners_[std::size_t{element} * Corners];
  }
  float score(std::uint32_t element) const {
    return scores_.of_element(vertex_scores_.data(), corners_of(element));
  }
  void score_uncached(std::uint32_t vertex) {
    vertex_scores_[vertex] = scores_.of_vertex(elements_.live(vertex));
  }

  /// The best so far, the first of equals.
  struct choice {
    std::uint32_t element;
    float score;

    void offer(std::uint32_t other, float others) {
      if (!(others > score)) return;
      element = other;
      score = others;
    }
  };

  std::uint32_t best_of_all() const {
    choice best{0, 0};
    for (std::uint32_t element = 0; element < emitted_.size(); ++element)
      best.offer(element, score(element));
    return best.element;
  }

  void emit(std::uint32_t element) {
    emitted_[element] = true;
    if (hubs_.any()) hubs_.emit(element);
    for (unsigned k = 0; k < Corners; ++k) remove(corners_of(element)[k], element);
    move_to_front(corners_of(element));
    update_scores();
  }

  void remove(std::uint32_t vertex, std::uint32_t element) {
    if (hubs_.is_hub(vertex))
      elements_.count_down(vertex);
    else
      elements_.remove(vertex, element);
  }

  /// The last corner comes first.
  void move_to_front(const std::uint32_t* corners) {
    std::array<std::uint32_t, cache_size + Corners> before = cache_;
    const std::uint32_t* const end = before.data() + cached_;
    cached_ = 0;
    for (unsigned k = Corners; k-- > 0;)
      if (std::find(cache_.data(), cache_.data() + cached_, corners[k]) == cache_.data() + cached_)
        cache_[cached_++] = corners[k];
    for (const std::uint32_t* vertex = before.data(); vertex != end; ++vertex) {
      bool moved = false;
      for (unsigned k = 0; k < Corners; ++k) moved |= *vertex == corners[k];
      cache_[cached_] = *vertex;
      cached_ += !moved;
    }
  }

  /// Of all vertices in the cache and of those that fall out of it now.
  void update_scores() {
    const std::uint32_t kept = std::min(cached_, cache_size);
    for (std::uint32_t place = 0; place < kept; ++place)
      vertex_scores_[cache_[place]] = scores_.of_vertex(elements_.live(cache_[place]), place);
    for (std::uint32_t place = kept; place < cached_; ++place) {
      if (elements_.live(cache_[place]) > 0) last_evicted_ = cache_[place];
      leave_cache(cache_[place]);
    }
    cached_ = kept;
  }
  void leave_cache(std::uint32_t vertex) {
    score_uncached(vertex);
    if (hubs_.any()) hubs_.leave(vertex);
  }

  std::uint32_t select() {
    const std::span cached(cache_.data(), cached_);
    choice best = hubs_.any() ? best_beside_hubs(cached) : best_of(cached);
    if (Corners == 3 && best.element == nobody && last_evicted_ != nobody)
      best = best_beside_hubs({&last_evicted_, 1});
    if (best.element != nobody) return best.element;
    const std::uint32_t next = first_left();
    flush();
    return next;
  }

  /// The best of the elements that need one of the vertices, met vertex by vertex.
  choice best_of(std::span<const std::uint32_t> vertices) const {
    choice best{nobody, -2};
    for (const std::uint32_t vertex : vertices)
      for (const std::uint32_t element : elements_.of(vertex)) best.offer(element, score(element));
    return best;
  }

  /// The same. Elements of hubs are met out of turn, so it is asked which of equals came first.
  choice best_beside_hubs(std::span<const std::uint32_t> vertices) const {
    if (std::none_of(vertices.begin(), vertices.end(),
                     [this](std::uint32_t vertex) { return hubs_.is_hub(vertex); }))
      return best_of(vertices);
    choice best{nobody, -2};
    const auto offer = [&](std::uint32_t element) {
      const float others = score(element);
      if (others == best.score && turn_of(element) < turn_of(best.element)) best.element = element;
      best.offer(element, others);
    };
    for (const std::uint32_t vertex : vertices)
      if (hubs_.is_hub(vertex))
        hubs_.visit_firsts(vertex, offer);
      else
        for (const std::uint32_t element : elements_.of(vertex)) offer(element);
    return best;
  }
  /// By place in the cache of the vertex where an element is met first, then by number.
  std::pair<const std::uint32_t*, std::uint32_t> turn_of(std::uint32_t element) const {
    const auto* const end = cache_.data() + cached_;
    const auto* const corners = corners_of(element);
    return {std::find_first_of(cache_.data(), end, corners, corners + Corners), element};
  }

  /// In the order of numbers; 0 if none is left.
  std::uint32_t first_left() {
    while (scan_ < emitted_.size() && emitted_[scan_]) ++scan_;
    return scan_ < emitted_.size() ? scan_ : 0;
  }

  void flush() {
    for (std::uint32_t place = 0; place < cached_; ++place) leave_cache(cache_[place]);
    cached_ = 0;
  }

  std::span<const std::uint32_t> corners_;
  elements_of_vertices elements_;
  cache_hubs<Corners> hubs_;
  cache_scores<Corners> scores_;
  std::vector<float> vertex_scores_;
  std::vector<bool> emitted_;
  std::array<std::uint32_t, cache_size + Corners> cache_{};  // vertices, the latest first
  std::uint32_t cached_ = 0;
  std::uint32_t scan_ = 0;               // elements before this one are emitted
  std::uint32_t last_evicted_ = nobody;  // vertex that fell out while elements still needed it
};

}  // namespace morlu::osg
