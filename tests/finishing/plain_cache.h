#pragma once

#include <array>
#include <cmath>
#include <cstdint>
#include <list>
#include <set>
#include <vector>

/// The emission of triangles or lines through a simulated vertex cache, step by step with lists,
/// sets and stored scores: what the fast one is compared with.
namespace morlu::tests {

template <unsigned Corners>
struct plain_cache {
  static constexpr unsigned cache_size = 32;
  static constexpr std::uint64_t none = ~std::uint64_t{0};

  struct vertex {
    int live = 0;
    int place = -1;
    float score = -1;
    std::list<unsigned> elements;
  };
  struct element {
    float score = -1;
    bool emitted = false;
    std::vector<std::array<int, Corners>> columns;  // positions first
  };
  struct chunk {
    std::vector<unsigned> elements;
    std::vector<std::set<int>> entries;  // of each column
    std::set<std::vector<int>> corners;  // a row over all columns
  };

  std::vector<vertex> vertices;
  std::vector<element> table;
  unsigned limit = 0;
  bool multi_index = true;
  std::vector<chunk> chunks;

  std::list<unsigned> cache;
  std::size_t scan = 0;
  std::uint64_t last_evicted = none;

  void score_vertex(vertex& v) {
    v.score = -1;
    if (v.live == 0) return;
    float cached = 0;
    if (v.place >= 0) {
      constexpr float step = Corners == 3 ? 0.03448276f : 0.033333335f;
      const int beyond = v.place - static_cast<int>(Corners);
      cached = beyond < 0 ? 0.75f : std::pow(1.0f - static_cast<float>(beyond) * step, 1.5f);
    }
    v.score = cached + 2.0f * std::pow(static_cast<float>(v.live), -0.5f);
  }
  void score_element(unsigned number) {
    element& e = table[number];
    if (e.emitted) return;
    float sum = 0;
    unsigned needed = 0;
    for (const int corner : e.columns[0]) {
      sum += vertices[static_cast<unsigned>(corner)].score;
      needed += vertices[static_cast<unsigned>(corner)].score > 0;
    }
    const float bonus = needed == Corners ? 3.0f : needed == 2 ? 1.0f : 0.0f;
    e.score = sum + bonus;
  }
  void score_around(unsigned v) {
    score_vertex(vertices[v]);
    for (const unsigned number : vertices[v].elements) score_element(number);
  }

  bool is_full() const {
    const chunk& last = chunks.back();
    if (!multi_index) return last.corners.size() >= limit;
    for (const auto& entries : last.entries)
      if (entries.size() >= limit) return true;
    return false;
  }
  void open() {
    chunks.emplace_back();
    chunks.back().entries.resize(table.empty() ? 0 : table[0].columns.size());
  }
  void add(unsigned number) {
    element& e = table[number];
    chunk& last = chunks.back();
    last.elements.push_back(number);
    e.emitted = true;
    e.score = -1;
    for (unsigned k = 0; k < Corners; ++k) {
      std::vector<int> row;
      for (std::size_t c = 0; c < e.columns.size(); ++c) {
        last.entries[c].insert(e.columns[c][k]);
        row.push_back(e.columns[c][k]);
      }
      last.corners.insert(row);
    }
  }

  unsigned first_left() {
    while (scan < table.size() && table[scan].emitted) ++scan;
    return scan < table.size() ? static_cast<unsigned>(scan) : 0;
  }
  void flush() {
    for (const unsigned v : cache) {
      vertices[v].place = -1;
      score_around(v);
    }
    cache.clear();
  }

  void update(unsigned number) {
    for (const int corner : table[number].columns[0]) {
      vertex& v = vertices[static_cast<unsigned>(corner)];
      v.live -= 1;
      v.elements.remove(number);
    }
    for (const int corner : table[number].columns[0]) {
      cache.remove(static_cast<unsigned>(corner));
      cache.push_front(static_cast<unsigned>(corner));
    }
    unsigned counter = 0;
    for (const unsigned v : cache) {
      const bool kept = counter < cache_size;
      vertices[v].place = kept ? static_cast<int>(counter) : -1;
      if (!kept && Corners == 3 && vertices[v].live > 0) last_evicted = v;
      score_around(v);
      ++counter;
    }
    while (cache.size() > cache_size) cache.pop_back();
  }

  unsigned select() {
    float best = -2;
    std::uint64_t found = none;
    const auto offer = [&](unsigned v) {
      for (const unsigned number : vertices[v].elements)
        if (table[number].score > best) {
          best = table[number].score;
          found = number;
        }
    };
    for (const unsigned v : cache) offer(v);
    if (found == none && last_evicted != none && vertices[last_evicted].live > 0)
      offer(static_cast<unsigned>(last_evicted));
    if (found != none) return static_cast<unsigned>(found);
    const unsigned next = first_left();
    flush();
    return next;
  }

  void run() {
    for (unsigned number = 0; number < table.size(); ++number)
      for (const int corner : table[number].columns[0]) {
        vertex& v = vertices[static_cast<unsigned>(corner)];
        v.live += 1;
        v.elements.push_back(number);
      }
    for (vertex& v : vertices) score_vertex(v);
    unsigned next = 0;
    float best = 0;
    for (unsigned number = 0; number < table.size(); ++number) {
      score_element(number);
      if (table[number].score > best) {
        best = table[number].score;
        next = number;
      }
    }
    open();
    for (std::size_t emitted = 0; emitted < table.size(); ++emitted) {
      if (is_full()) {
        open();
        flush();
        next = first_left();
      }
      add(next);
      update(next);
      next = select();
    }
  }
};

}  // namespace morlu::tests
