#pragma once

#include <array>
#include <string>
#include <vector>

#include "sample/catalogue.h"
#include "sample/placement.h"
#include "sample/random.h"
#include "sample/sample_assembly.h"

namespace morlu::sample {

/// What a part is for, which decides its paint.
enum class Role { Body, Frame, Fastener, Cover, Label };
inline constexpr unsigned role_count = 5;

/// Puts parts together until there are as many as asked for; whatever comes later is left out.
class PlantBuilder {
 public:
  explicit PlantBuilder(const SampleOptions& options);

  bool is_complete() const { return parts_left_ == 0; }
  Random& random() { return random_; }

  /// A named group below `parent`.
  ::osg::NodePtr add_group(const ::osg::NodePtr& parent, const std::string& name);
  /// A new assembly of that kind below `parent`, where the following parts go; it gets a number,
  /// which stands in the names of its parts too, attributes and paints of its own. Nothing if the
  /// plant is complete.
  void begin_assembly(const ::osg::NodePtr& parent, const std::string& kind, const Matrix& place);
  /// A part in the current assembly.
  void add_part(const char* name, const Shape& shape, const Matrix& place, Role role);

  /// A line set or point set in the current assembly, if the options ask for it.
  void add_lines(const char* name, ::osg::PrimitiveType type, const std::vector<::osg::Pnt3f>& at);
  void add_points(const char* name, const std::vector<::osg::Pnt3f>& at);
  /// Random numbers of points, apart from all others.
  Random& point_random() { return point_random_; }
  bool with_points() const { return options_.with_points; }

 private:
  std::uint32_t choose_paint(Role role);
  void choose_paints();
  void attach_attributes(const std::string& kind);
  void add_to_assembly(const ::osg::GeometryPtr& core, const std::string& name,
                       const Matrix& place);

  const SampleOptions options_;
  std::uint32_t parts_left_;
  Random random_, point_random_;
  Catalogue catalogue_;
  std::vector<std::uint32_t> plain_, clear_, labels_;  // paints by use
  std::vector<bool> used_;
  std::uint32_t first_unused_ = 0, unused_count_;

  ::osg::NodePtr assembly_;  // null: parts are left out
  int assembly_number_ = 0, part_number_ = 0;
  std::array<std::uint32_t, role_count> paints_{};
};

}  // namespace morlu::sample
