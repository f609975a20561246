#include "sample/sample_assembly.h"

#include "sample/assemblies.h"

namespace morlu::sample {
namespace {

constexpr unsigned units_an_area = 6;
constexpr unsigned assemblies_a_unit = 4;
constexpr float cell = 11.0f;  // metres between assemblies

using Build = void (*)(PlantBuilder&, const ::osg::NodePtr&, const Matrix&);

// Rather many pipe runs; the rest in turn.
constexpr Build builds[] = {build_tank,       build_pipe_run,  build_platform, build_pipe_run,
                            build_cable_tray, build_pump_skid, build_pipe_run};

// Every fourth assembly mirrored, the others turned by quarters.
Matrix orientation(Random& random) {
  return random.one_in(4) ? stretch(-1.0f, 1.0f, 1.0f) : quarter_turns(random.below(4));
}

// Areas grow outwards from a corner in square layers, so that the plant stays compact.
Matrix place_of_area(unsigned index) {
  unsigned layer = 0;
  while ((layer + 1) * (layer + 1) <= index) ++layer;
  const unsigned step = index - layer * layer;
  const unsigned column = step <= layer ? layer : 2 * layer - step;
  const unsigned row = step <= layer ? step : layer;
  return move(static_cast<float>(column) * (hall_length + 20.0f),
              static_cast<float>(row) * (hall_width + 20.0f), 0.0f);
}

Matrix place_in_area(unsigned unit, unsigned index) {
  return move((static_cast<float>(unit) - 0.5f * (units_an_area - 1)) * cell,
              (static_cast<float>(index) - 0.5f * (assemblies_a_unit - 1)) * cell, 0.0f);
}

void build_area(PlantBuilder& builder, const ::osg::NodePtr& plant, unsigned index) {
  const std::string number = std::to_string(index + 1);
  const ::osg::NodePtr area = builder.add_group(plant, "Area " + number);
  const Matrix corner = place_of_area(index);
  build_hall(builder, area, corner);
  for (unsigned u = 0; u < units_an_area && !builder.is_complete(); ++u) {
    const auto unit = builder.add_group(area, "Unit " + number + "-" + std::to_string(u + 1));
    for (unsigned i = 0; i < assemblies_a_unit; ++i) {
      const Build build = builds[builder.random().below(std::size(builds))];
      const Matrix turned = orientation(builder.random());
      build(builder, unit, corner * place_in_area(u, i) * turned);
    }
  }
}

}  // namespace

::osg::NodePtr make_sample_assembly(const SampleOptions& options) {
  PlantBuilder builder(options);
  const ::osg::NodePtr plant = builder.add_group(::osg::NullFC, "Plant");
  for (unsigned area = 0; !builder.is_complete(); ++area) build_area(builder, plant, area);
  return plant;
}

}  // namespace morlu::sample
