#pragma once

#include "sample/builder.h"

namespace morlu::sample {

// Each builds one assembly below `unit`, within 10 m x 10 m around `place`. Mirrored by a placement
// that mirrors.

void build_hall(PlantBuilder& builder, const ::osg::NodePtr& unit, const Matrix& place);
void build_tank(PlantBuilder& builder, const ::osg::NodePtr& unit, const Matrix& place);
void build_pipe_run(PlantBuilder& builder, const ::osg::NodePtr& unit, const Matrix& place);
void build_platform(PlantBuilder& builder, const ::osg::NodePtr& unit, const Matrix& place);
void build_cable_tray(PlantBuilder& builder, const ::osg::NodePtr& unit, const Matrix& place);
void build_pump_skid(PlantBuilder& builder, const ::osg::NodePtr& unit, const Matrix& place);

/// The hall's footprint in metres.
inline constexpr float hall_length = 72.0f;
inline constexpr float hall_width = 48.0f;

}  // namespace morlu::sample
