#include "sample/assemblies.h"

namespace morlu::sample {
namespace {

using ::osg::Pnt3f;

const Vec3f x_axis(1.0f, 0.0f, 0.0f), y_axis(0.0f, 1.0f, 0.0f), z_axis(0.0f, 0.0f, 1.0f);

float metres(int millimetres) {
  return static_cast<float>(millimetres) / 1000.0f;
}
int rounded_up(int value, int step) {
  return (value + step - 1) / step * step;
}

// Profiles of 1 m along y as columns: y turned into z.
Matrix upright() {
  return axes(x_axis, z_axis, -y_axis);
}
// ... and as beams along x.
Matrix lengthwise() {
  return axes(-y_axis, x_axis, z_axis);
}

/// A ring of `count` bolts, heads on the plane through `centre`, shanks against `direction`.
void add_bolt_circle(PlantBuilder& builder, const Vec3f& centre, const Vec3f& direction, int radius,
                     int diameter, unsigned count) {
  const Matrix frame = move(centre) * along(direction);
  const Shape bolt{Kind::Bolt, {diameter, 3 * diameter}};
  for (const auto& at : circle(count)) {
    const float x = static_cast<float>(at[0]) * metres(radius);
    const float y = static_cast<float>(at[1]) * metres(radius);
    builder.add_part("Bolt", bolt, frame * move(x, y, 0.0f), Role::Fastener);
  }
}

/// A flange whose face is at `face` and looks along `direction`, with its bolts.
void add_flange(PlantBuilder& builder, const Vec3f& face, const Vec3f& direction, int radius) {
  const int rim = 2 * radius, thickness = rounded_up(radius / 5, 5);
  const Shape flange{Kind::Flange, {radius, rim, thickness}};
  builder.add_part("Flange", flange, move(face) * along(-direction), Role::Body);
  const Vec3f back = face - direction * metres(thickness);
  add_bolt_circle(builder, back, -direction, rounded_up(radius * 17 / 10, 5),
                  rounded_up(radius / 8, 4), radius < 100 ? 4 : 8);
}

void add_label(PlantBuilder& builder, const Vec3f& at) {
  builder.add_part("Label", {Kind::Box, {400, 10, 200}}, move(at), Role::Label);
  const Pnt3f corner(at);
  builder.add_lines("Leader", ::osg::kLineStrip,
                    {corner, corner + Vec3f(0.3f, -0.3f, 0.6f), corner + Vec3f(0.9f, -0.3f, 0.6f)});
}

void scan_floor(PlantBuilder& builder, float length, float width, unsigned count) {
  if (!builder.with_points()) return;
  std::vector<Pnt3f> points;
  Random& random = builder.point_random();
  for (unsigned i = 0; i < count; ++i) {
    const float x = (random.share() - 0.5f) * length, y = (random.share() - 0.5f) * width;
    points.emplace_back(x, y, 0.01f * random.share());
  }
  builder.add_points("Floor scan", points);
}

void scan_shell(PlantBuilder& builder, float radius, float low, float high, unsigned count) {
  if (!builder.with_points()) return;
  const auto around = circle(192);
  std::vector<Pnt3f> points;
  Random& random = builder.point_random();
  for (unsigned i = 0; i < count; ++i) {
    const auto& at = around[random.below(192)];
    const float r = radius + 0.01f * random.share();
    points.emplace_back(r * static_cast<float>(at[0]), r * static_cast<float>(at[1]),
                        low + (high - low) * random.share());
  }
  builder.add_points("Shell scan", points);
}

void add_ladder(PlantBuilder& builder, float x, float height) {
  const Shape rail{Kind::Rod, {25}}, rung{Kind::Rod, {12}};
  for (const float y : {-0.25f, 0.25f}) {
    builder.add_part("Rail", rail, move(x, y, 0.0f) * stretch(1.0f, 1.0f, height), Role::Frame);
  }
  for (float z = 0.3f; z < height; z += 0.3f) {
    builder.add_part("Rung", rung, move(x, -0.25f, z) * along(y_axis) * stretch(1.0f, 1.0f, 0.5f),
                     Role::Frame);
  }
}

/// The head of a pipe run: where it is and where it goes.
struct PipeHead {
  Vec3f at, direction;
};

void add_pipe(PlantBuilder& builder, PipeHead& head, int radius, float length) {
  const Shape pipe{Kind::Pipe, {radius, rounded_up(radius / 10, 2)}};
  builder.add_part("Pipe", pipe,
                   move(head.at) * along(head.direction) * stretch(1.0f, 1.0f, length), Role::Body);
  head.at += head.direction * length;
}

void add_elbow(PlantBuilder& builder, PipeHead& head, int radius, const Vec3f& towards) {
  const int bend = 3 * radius;
  const Matrix turned = axes(-towards, head.direction, head.direction.cross(towards));
  const Vec3f centre = head.at + towards * metres(bend);
  builder.add_part("Elbow", {Kind::Elbow, {radius, bend}}, move(centre) * turned, Role::Body);
  head.at = centre + head.direction * metres(bend);
  head.direction = towards;
}

void add_joint(PlantBuilder& builder, const PipeHead& head, int radius) {
  add_flange(builder, head.at, head.direction, radius);
  add_flange(builder, head.at, -head.direction, radius);
}

void add_valve(PlantBuilder& builder, PipeHead& head, int radius) {
  const int length = 6 * radius;
  const Matrix frame =
      move(head.at + head.direction * (metres(length) / 2)) * along(head.direction);
  builder.add_part("Valve", {Kind::Valve, {radius, length}}, frame, Role::Body);
  builder.add_part("Handwheel", {Kind::Wheel, {2 * radius}},
                   frame * move(metres(3 * radius), 0.0f, 0.0f) * along(x_axis), Role::Frame);
  head.at += head.direction * metres(length);
}

// A direction square to the present one that leads back towards the middle of the place.
Vec3f next_direction(Random& random, const PipeHead& head) {
  const Vec3f options[] = {x_axis, y_axis, z_axis};
  unsigned axis = random.below(3);
  if (head.direction[axis] != 0.0f) axis = (axis + 1) % 3;
  const float middle = axis == 2 ? 5.2f : 0.0f;  // under the roof, above the floor
  return head.at[axis] > middle ? -options[axis] : options[axis];
}

}  // namespace

void build_hall(PlantBuilder& builder, const ::osg::NodePtr& unit, const Matrix& place) {
  builder.begin_assembly(unit, "Hall", place);
  const int length = static_cast<int>(hall_length) * 1000,
            width = static_cast<int>(hall_width) * 1000;
  builder.add_part("Floor", {Kind::Box, {length, width, 200}}, move(0.0f, 0.0f, -0.2f), Role::Body);
  const Shape column{Kind::Beam, {300, 300, 20}};
  for (const float y : {-hall_width / 2, hall_width / 2}) {
    for (float x = -hall_length / 2; x <= hall_length / 2; x += 12.0f) {
      builder.add_part("Column", column, move(x, y, 0.0f) * upright() * stretch(1.0f, 9.0f, 1.0f),
                       Role::Frame);
    }
  }
  for (float x = -hall_length / 2; x <= hall_length / 2; x += 12.0f) {
    builder.add_part("Girder", {Kind::Beam, {500, 250, 20}},
                     move(x, -hall_width / 2, 9.25f) * stretch(1.0f, hall_width, 1.0f),
                     Role::Frame);
  }
  builder.add_part("Rooflight", {Kind::Box, {length, 3000, 30}}, move(0.0f, 0.0f, 9.5f),
                   Role::Cover);
  scan_floor(builder, hall_length, hall_width, 2000);
}

void build_tank(PlantBuilder& builder, const ::osg::NodePtr& unit, const Matrix& place) {
  builder.begin_assembly(unit, "Tank", place);
  Random& random = builder.random();
  const int radius = 10 * random.between(60, 220), height = 10 * random.between(150, 500);
  const float r = metres(radius), dome = metres(radius / 2), foot = dome + 0.5f;
  builder.add_part("Shell", {Kind::Tank, {radius, height, radius / 2}}, move(0.0f, 0.0f, foot),
                   Role::Body);
  const Shape leg{Kind::Pipe, {60, 8}}, base{Kind::Box, {250, 250, 20}};
  for (const auto& at : circle(4)) {
    const Vec3f spot(0.8f * r * static_cast<float>(at[0]), 0.8f * r * static_cast<float>(at[1]),
                     0.0f);
    builder.add_part("Leg", leg, move(spot) * stretch(1.0f, 1.0f, foot), Role::Frame);
    builder.add_part("Base plate", base, move(spot), Role::Frame);
    add_bolt_circle(builder, spot + z_axis * 0.02f, z_axis, 100, 16, 4);
  }
  PipeHead nozzle{Vec3f(0.0f, 0.0f, foot + metres(height) + 0.97f * dome), z_axis};
  add_pipe(builder, nozzle, 100, 0.3f);
  add_flange(builder, nozzle.at, nozzle.direction, 100);
  builder.add_part(
      "Sight glass", {Kind::Rod, {150}},
      move(0.0f, r - 0.05f, foot + metres(height) / 2) * along(y_axis) * stretch(1.0f, 1.0f, 0.15f),
      Role::Cover);
  add_label(builder, Vec3f(0.0f, -r - 0.02f, foot + metres(height) / 2));
  add_ladder(builder, r + 0.2f, foot + metres(height));
  scan_shell(builder, r, foot, foot + metres(height), 500);
}

void build_pipe_run(PlantBuilder& builder, const ::osg::NodePtr& unit, const Matrix& place) {
  builder.begin_assembly(unit, "Pipe run", place);
  Random& random = builder.random();
  constexpr int radii[] = {30, 45, 60, 85, 110, 160};
  const int radius = radii[random.below(std::size(radii))];
  const float side = metres(100 * random.between(-40, 40));
  PipeHead head{Vec3f(-4.0f, side, metres(100 * random.between(5, 40))), x_axis};
  std::vector<Pnt3f> centre_line{Pnt3f(head.at)};
  add_flange(builder, head.at, -head.direction, radius);
  for (int legs = random.between(3, 6); legs > 0; --legs) {
    add_pipe(builder, head, radius, metres(50 * random.between(10, 40)));
    if (random.one_in(3)) {
      add_joint(builder, head, radius);
    } else if (random.one_in(3)) {
      add_flange(builder, head.at, head.direction, radius);
      add_valve(builder, head, radius);
      add_flange(builder, head.at, -head.direction, radius);
    }
    add_pipe(builder, head, radius, metres(50 * random.between(4, 20)));
    centre_line.emplace_back(head.at);
    add_elbow(builder, head, radius, next_direction(random, head));
    centre_line.emplace_back(head.at);
  }
  const int narrow = rounded_up(radius * 2 / 3, 5);
  builder.add_part("Reducer", {Kind::Reducer, {radius, narrow, 4 * radius}},
                   move(head.at) * along(head.direction), Role::Body);
  builder.add_lines("Centre line", ::osg::kLineStrip, centre_line);
}

void build_platform(PlantBuilder& builder, const ::osg::NodePtr& unit, const Matrix& place) {
  builder.begin_assembly(unit, "Platform", place);
  Random& random = builder.random();
  const int bays = random.between(2, 4);
  const float bay = 2.0f, height = metres(500 * random.between(4, 9));
  const float length = bay * static_cast<float>(bays), half = length / 2;
  const Shape post{Kind::Beam, {160, 160, 12}}, bearer{Kind::Beam, {200, 100, 10}};
  const Shape brace{Kind::Angle, {60, 6}}, gusset{Kind::Box, {220, 12, 220}};
  for (const float y : {-1.5f, 1.5f}) {
    for (int i = 0; i <= bays; ++i) {
      const Vec3f foot(bay * static_cast<float>(i) - half, y, 0.0f);
      builder.add_part("Post", post, move(foot) * upright() * stretch(1.0f, height, 1.0f),
                       Role::Frame);
      builder.add_part("Gusset", gusset, move(foot + z_axis * (height - 0.3f)), Role::Frame);
      add_bolt_circle(builder, foot + Vec3f(0.0f, -0.006f, height - 0.2f), -y_axis, 70, 12, 4);
    }
    builder.add_part("Bearer", bearer,
                     move(-half, y, height) * lengthwise() * stretch(1.0f, length, 1.0f),
                     Role::Frame);
    // A brace of 5 m over 3 m by 4 m, shrunk to the bay: uneven on purpose.
    const Matrix slanted = axes({0.0f, 1.0f, 0.0f}, {0.6f, 0.0f, 0.8f}, {0.8f, 0.0f, -0.6f});
    builder.add_part("Brace", brace,
                     move(-half, y, 0.0f) * stretch(bay / 3.0f, 1.0f, height / 4.0f) * slanted *
                         stretch(1.0f, 5.0f, 1.0f),
                     Role::Frame);
  }
  builder.add_part("Grating", {Kind::Box, {1000, 3200, 30}},
                   move(0.0f, 0.0f, height + 0.1f) * stretch(length, 1.0f, 1.0f), Role::Cover);
  add_ladder(builder, half + 0.3f, height);
}

void build_cable_tray(PlantBuilder& builder, const ::osg::NodePtr& unit, const Matrix& place) {
  builder.begin_assembly(unit, "Cable tray", place);
  Random& random = builder.random();
  const int width = 100 * random.between(2, 6), sections = random.between(4, 9);
  const float level = metres(100 * random.between(25, 60));
  const int cable_radius = random.between(8, 20), cables = width / (4 * cable_radius);
  for (int i = 0; i < sections; ++i) {
    const float y = static_cast<float>(i) - static_cast<float>(sections) / 2;
    builder.add_part("Tray", {Kind::Channel, {width, 80, 3}}, move(0.0f, y, level), Role::Frame);
    builder.add_part("Bracket", {Kind::Box, {width + 80, 40, 40}}, move(0.0f, y, level - 0.04f),
                     Role::Frame);
    for (const float side : {-0.5f, 0.5f}) {
      const float x = side * (metres(width) + 0.05f);
      builder.add_part("Nut", {Kind::Nut, {12}}, move(x, y, level), Role::Fastener);
    }
  }
  const float start = -static_cast<float>(sections) / 2;
  for (int i = 0; i < cables; ++i) {
    const float x = metres((4 * i + 2) * cable_radius - 2 * cables * cable_radius);
    builder.add_part("Cable", {Kind::Rod, {cable_radius}},
                     move(x, start, level + 0.003f + metres(cable_radius)) * along(y_axis) *
                         stretch(1.0f, 1.0f, static_cast<float>(sections)),
                     Role::Body);
  }
}

void build_pump_skid(PlantBuilder& builder, const ::osg::NodePtr& unit, const Matrix& place) {
  builder.begin_assembly(unit, "Pump skid", place);
  Random& random = builder.random();
  const int size = 20 * random.between(8, 20);
  const float r = metres(size), axis_height = r + 0.3f;
  const Matrix shaft = move(0.0f, 0.0f, axis_height) * along(y_axis);
  for (const float x : {-1.3f * r, 1.3f * r}) {
    builder.add_part("Runner", {Kind::Beam, {200, 100, 10}},
                     move(x, -4.0f * r, 0.1f) * stretch(1.0f, 8.0f * r, 1.0f), Role::Frame);
    for (const float y : {-3.8f * r, 3.8f * r}) {
      builder.add_part("Anchor", {Kind::Bolt, {20, 120}}, move(x, y, 0.2f), Role::Fastener);
    }
  }
  builder.add_part("Base", {Kind::Box, {3 * size, 8 * size, 20}}, move(0.0f, 0.0f, 0.2f),
                   Role::Frame);
  builder.add_part("Pump", {Kind::Pump, {size}}, move(0.0f, 2.2f * r, axis_height) * along(-y_axis),
                   Role::Body);
  builder.add_part("Motor", {Kind::Motor, {size * 8 / 10, 3 * size}},
                   shaft * move(0.0f, 0.0f, -3.5f * r), Role::Body);
  builder.add_part("Shaft", {Kind::Rod, {size / 10}},
                   shaft * move(0.0f, 0.0f, -0.5f * r) * stretch(1.0f, 1.0f, 2.4f * r),
                   Role::Frame);
  builder.add_part("Guard", {Kind::Box, {size, size * 12 / 10, size}},
                   move(0.0f, 0.6f * r, axis_height - 0.5f * r), Role::Cover);
  builder.add_part("Terminal box", {Kind::Box, {size / 2, size / 2, size / 3}},
                   move(0.0f, -2.0f * r, axis_height + 0.9f * r), Role::Body);
  add_label(builder, Vec3f(0.0f, -4.0f * r, 0.4f));
  PipeHead inlet{Vec3f(0.0f, 2.6f * r, axis_height), y_axis};
  add_flange(builder, inlet.at, -inlet.direction, size / 4);
  add_pipe(builder, inlet, size / 4, 0.5f);
  add_flange(builder, inlet.at, inlet.direction, size / 4);
}

}  // namespace morlu::sample
