#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include <osg/attribute.h>
#include <osg/node.h>

namespace morlu::program {

/// For people, in the order of attributes.
inline constexpr std::array attribute_names = {"positions",
                                               "normals",
                                               "colours",
                                               "secondary colours",
                                               "texture coordinates",
                                               "texture coordinates 1",
                                               "texture coordinates 2",
                                               "texture coordinates 3",
                                               "texture coordinates 4",
                                               "texture coordinates 5",
                                               "texture coordinates 6",
                                               "texture coordinates 7"};

/// Counts a scene before an optimisation, to tell afterwards what it has lost. Optimising cuts
/// triangles and fills attributes up, so that no count gets smaller without a loss.
class LossWatch {
 public:
  /// O(corners drawn + nodes).
  explicit LossWatch(const ::osg::NodePtr& scene);

  /// What the result no longer has, a sentence each: geometry that takes no part, unusable
  /// triangles, elements, attributes of elements.
  std::vector<std::string> losses(const ::osg::NodePtr& result) const;
  /// The same without geometry that takes no part: where all stays in its place.
  std::vector<std::string> lost_elements(const ::osg::NodePtr& result) const;
  /// Whether elements that take part are missing: the optimisation has not come to its end.
  bool is_incomplete(const ::osg::NodePtr& result) const;
  /// Whether the result has no element at all, though the scene had.
  bool is_nothing_left(const ::osg::NodePtr& result) const;

 private:
  /// Corners of triangles, lines and points that have each of the attributes.
  using Corners = std::array<std::uint64_t, ::osg::kAttributeCount>;
  enum class Elements { usable, all };

  static void count(const ::osg::NodePtr& node, Elements which, Corners& corners);
  static Corners count_all(const ::osg::NodePtr& scene);

  Corners corners_{};
  std::uint64_t all_corners_ = 0;  // of what takes no part and of unusable elements too
  std::uint64_t unusable_ = 0;     // triangles that take part
  std::uint64_t left_out_ = 0;     // nodes with geometry, the hidden too
};

}  // namespace morlu::program
