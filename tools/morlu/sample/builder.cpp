#include "sample/builder.h"

#include <algorithm>

#include <osg/cores.h>

namespace morlu::sample {
namespace {

constexpr std::uint32_t weathered_one_in = 12;

::osg::NodePtr make_node(const ::osg::NodePtr& parent, const ::osg::NodeCorePtr& core,
                         const std::string& name) {
  const auto node = ::osg::Node::create();
  node->setCore(core);
  if (!name.empty()) ::osg::setName(node, name);
  if (parent) parent->addChild(node);
  return node;
}

::osg::TransformPtr make_transform(const Matrix& matrix) {
  const auto transform = ::osg::Transform::create();
  transform->setMatrix(matrix);
  return transform;
}

::osg::GeometryPtr make_point_geometry(::osg::PrimitiveType type,
                                       const std::vector<::osg::Pnt3f>& at) {
  const auto geometry = ::osg::Geometry::create();
  const auto types = ::osg::GeoPTypesUI8::create();
  const auto lengths = ::osg::GeoPLengthsUI32::create();
  const auto positions = ::osg::GeoPositions3f::create();
  types->push_back(type);
  lengths->push_back(static_cast<::osg::UInt32>(at.size()));
  positions->resize(at.size());
  std::copy(at.begin(), at.end(), positions->values().begin());
  geometry->setTypes(types);
  geometry->setLengths(lengths);
  geometry->setPositions(positions);
  return geometry;
}

}  // namespace

PlantBuilder::PlantBuilder(const SampleOptions& options)
    : options_(options),
      parts_left_(options.parts),
      random_(options.seed),
      point_random_(options.seed, 2),
      catalogue_(make_palette(options.materials, options.textures, options.seed)),
      used_(options.materials),
      unused_count_(options.materials) {
  for (std::uint32_t i = 0; i < options.materials; ++i) {
    const Paint& paint = catalogue_.paints()[i];
    const bool is_label = paint.textured && !paint.tiled;
    if (is_label) labels_.push_back(i);
    if (paint.transparent) clear_.push_back(i);
    if (!is_label && !paint.transparent) plain_.push_back(i);
  }
  if (plain_.empty() && options.materials > 0) plain_.push_back(0);
}

::osg::NodePtr PlantBuilder::add_group(const ::osg::NodePtr& parent, const std::string& name) {
  return make_node(parent, ::osg::Group::create(), name);
}

void PlantBuilder::begin_assembly(const ::osg::NodePtr& parent, const std::string& kind,
                                  const Matrix& place) {
  assembly_ = ::osg::NullFC;
  if (is_complete()) return;
  ++assembly_number_;
  part_number_ = 0;
  assembly_ =
      make_node(parent, make_transform(place), kind + " " + std::to_string(assembly_number_));
  attach_attributes(kind);
  choose_paints();
}

void PlantBuilder::attach_attributes(const std::string& kind) {
  static const char* const ratings[] = {"PN 6", "PN 10", "PN 16", "PN 25", "PN 40"};
  static const char* const media[] = {"water", "steam", "condensate", "air", "brine"};
  const auto attributes = ::osg::StringAttributeMap::create();
  attributes->setAttribute("tag",
                           kind.substr(0, 1) + "-" + std::to_string(1000 + assembly_number_));
  attributes->setAttribute("pressure rating", ratings[random_.below(std::size(ratings))]);
  attributes->setAttribute("medium", media[random_.below(std::size(media))]);
  attributes->setAttribute("inspected", std::to_string(random_.between(2012, 2024)));
  assembly_->addAttachment(attributes);
}

void PlantBuilder::choose_paints() {
  if (catalogue_.paints().empty()) return;
  const auto any_of = [this](const std::vector<std::uint32_t>& paints) {
    return paints[random_.below(static_cast<std::uint32_t>(paints.size()))];
  };
  for (std::uint32_t& paint : paints_) paint = any_of(plain_);
  if (!clear_.empty()) paints_[static_cast<std::size_t>(Role::Cover)] = any_of(clear_);
  if (!labels_.empty()) paints_[static_cast<std::size_t>(Role::Label)] = any_of(labels_);
}

// The assembly's own paint for the role. The last parts of all use up what no part has used yet.
std::uint32_t PlantBuilder::choose_paint(Role role) {
  if (catalogue_.paints().empty()) return 0;
  std::uint32_t paint = paints_[static_cast<std::size_t>(role)];
  if (parts_left_ <= unused_count_) {
    while (used_[first_unused_]) ++first_unused_;
    paint = first_unused_;
  }
  if (!used_[paint]) --unused_count_;
  used_[paint] = true;
  return paint;
}

void PlantBuilder::add_part(const char* name, const Shape& shape, const Matrix& place, Role role) {
  if (!assembly_ || is_complete()) return;
  const Look look{choose_paint(role), role == Role::Body && random_.one_in(weathered_one_in)};
  --parts_left_;
  const std::string full_name = std::string(name) + " " + std::to_string(assembly_number_) + "-" +
                                std::to_string(++part_number_);
  add_to_assembly(catalogue_.core(shape, look), full_name, place);
}

void PlantBuilder::add_to_assembly(const ::osg::GeometryPtr& core, const std::string& name,
                                   const Matrix& place) {
  if (place == Matrix()) {
    make_node(assembly_, core, name);
  } else {
    make_node(make_node(assembly_, make_transform(place), ""), core, name);
  }
}

void PlantBuilder::add_lines(const char* name, ::osg::PrimitiveType type,
                             const std::vector<::osg::Pnt3f>& at) {
  if (!options_.with_lines || !assembly_) return;
  const std::string full_name = std::string(name) + " " + std::to_string(assembly_number_);
  add_to_assembly(make_point_geometry(type, at), full_name, Matrix());
}

void PlantBuilder::add_points(const char* name, const std::vector<::osg::Pnt3f>& at) {
  if (!options_.with_points || !assembly_) return;
  const std::string full_name = std::string(name) + " " + std::to_string(assembly_number_);
  add_to_assembly(make_point_geometry(::osg::kPoints, at), full_name, Matrix());
}

}  // namespace morlu::sample
