#include "sample/shapes.h"

#include "sample/placement.h"

namespace morlu::sample {
namespace {

/// Sizes in metres.
using Size = std::array<double, 3>;

constexpr unsigned dome_steps = 8;

unsigned segments_for(double radius) {
  if (radius < 0.02) return 12;
  if (radius < 0.06) return 16;
  if (radius < 0.15) return 24;
  if (radius < 0.4) return 32;
  return radius < 1.2 ? 48 : 64;
}

Outline rectangle(double left, double bottom, double right, double top) {
  return {{{left, bottom}, {right, bottom}, {right, top}, {left, top}}};
}

// A straight solid around the axis.
Outline solid(double radius, double bottom, double top) {
  return {{{0.0, bottom}, {radius, bottom}, {radius, top}, {0.0, top}}, false};
}

Outline ring(double centre, double radius, unsigned segments) {
  Outline outline;
  for (const auto& at : circle(segments)) {
    outline.corners.push_back({centre + radius * at[0], radius * at[1], true});
  }
  return outline;
}

Mesh box(const Size& s) {
  Mesh mesh;
  mesh.append(extrude(rectangle(-s[0] / 2, 0.0, s[0] / 2, s[2]), s[1]),
              move(0.0f, static_cast<float>(-s[1] / 2), 0.0f));
  return mesh;
}

Mesh beam(const Size& s) {
  const double h = s[0] / 2, w = s[1] / 2, t = s[2];
  return extrude({{{-w, -h},
                   {w, -h},
                   {w, t - h},
                   {t / 2, t - h},
                   {t / 2, h - t},
                   {w, h - t},
                   {w, h},
                   {-w, h},
                   {-w, h - t},
                   {-t / 2, h - t},
                   {-t / 2, t - h},
                   {-w, t - h}}},
                 1.0);
}

Mesh channel(const Size& s) {
  const double w = s[0] / 2, h = s[1], t = s[2];
  return extrude(
      {{{-w, 0.0}, {w, 0.0}, {w, h}, {w - t, h}, {w - t, t}, {t - w, t}, {t - w, h}, {-w, h}}},
      1.0);
}

Mesh angle(const Size& s) {
  const double leg = s[0], t = s[1];
  return extrude({{{0.0, 0.0}, {leg, 0.0}, {leg, t}, {t, t}, {t, leg}, {0.0, leg}}}, 1.0);
}

Mesh rod(const Size& s) {
  return revolve(solid(s[0], 0.0, 1.0), segments_for(s[0]));
}

Mesh pipe(const Size& s) {
  return revolve(rectangle(s[0] - s[1], 0.0, s[0], 1.0), segments_for(s[0]));
}

Mesh flange(const Size& s) {
  const double bore = s[0], radius = s[1], t = s[2], hub = bore + 0.3 * (radius - bore);
  return revolve({{{bore, 0.0}, {radius, 0.0}, {radius, t}, {hub, t}, {hub, 2 * t}, {bore, 2 * t}}},
                 segments_for(radius));
}

Mesh elbow(const Size& s) {
  return bend(ring(s[1], s[0], segments_for(s[0])), dome_steps);
}

Mesh reducer(const Size& s) {
  const double wall = 0.1 * s[1];
  return revolve({{{s[0] - wall, 0.0}, {s[0], 0.0}, {s[1], s[2]}, {s[1] - wall, s[2]}}},
                 segments_for(s[0]));
}

Mesh bolt(const Size& s) {
  const double d = s[0];
  Mesh mesh = revolve(solid(0.9 * d, 0.0, 0.65 * d), 6, Facets::Flat);
  mesh.append(revolve(solid(0.5 * d, -s[1], 0.0), segments_for(0.5 * d)));
  return mesh;
}

Mesh nut(const Size& s) {
  return revolve(rectangle(0.5 * s[0], 0.0, 0.9 * s[0], 0.8 * s[0]), 6, Facets::Flat);
}

Mesh tank(const Size& s) {
  const double radius = s[0], height = s[1], dome = s[2];
  const auto arc = circle(4 * dome_steps);
  Outline outline{{}, false};
  for (unsigned i = 0; i <= dome_steps; ++i) {  // from the pole below to the shell
    outline.corners.push_back({radius * arc[i][1], -dome * arc[i][0], true});
  }
  for (unsigned i = 0; i <= dome_steps; ++i) {
    outline.corners.push_back({radius * arc[i][0], height + dome * arc[i][1], true});
  }
  return revolve(outline, segments_for(radius));
}

Mesh valve(const Size& s) {
  const double r = s[0], half = s[1] / 2, collar = 1.7 * r, t = 0.15 * s[1];
  Outline body{{{0.0, -half}, {collar, -half}, {collar, t - half}, {r, t - half}}, false};
  for (const double v : {-0.35, 0.0, 0.35}) {  // the belly
    body.corners.push_back({(1.6 - 2.0 * v * v) * r, v * half, true});
  }
  body.corners.insert(body.corners.end(),
                      {{r, half - t}, {collar, half - t}, {collar, half}, {0.0, half}});
  Mesh mesh = revolve(body, segments_for(r));
  mesh.append(revolve(solid(0.6 * r, 0.0, 3.0 * r), segments_for(0.6 * r)),
              along({1.0f, 0.0f, 0.0f}));
  return mesh;
}

Mesh wheel(const Size& s) {
  const double r = s[0];
  Mesh mesh = revolve(ring(r, 0.08 * r, 8), segments_for(r));
  mesh.append(revolve(solid(0.2 * r, -0.1 * r, 0.1 * r), 12));
  const Mesh spokes = box({2.0 * r, 0.08 * r, 0.08 * r});
  mesh.append(spokes);
  mesh.append(spokes, quarter_turns(1));
  return mesh;
}

Mesh motor(const Size& s) {
  const double r = s[0], length = s[1];
  constexpr int fins = 6;
  const double step = length / (2 * fins + 1);
  Outline outline{{{0.0, 0.0}, {r, 0.0}}, false};
  for (int i = 0; i < fins; ++i) {
    const double low = (2 * i + 1) * step, high = low + step;
    outline.corners.insert(outline.corners.end(),
                           {{r, low}, {1.15 * r, low}, {1.15 * r, high}, {r, high}});
  }
  outline.corners.insert(outline.corners.end(), {{r, length}, {0.0, length}});
  return revolve(outline, segments_for(r));
}

Mesh pump(const Size& s) {
  const double r = s[0];
  Mesh mesh = revolve({{{0.0, -0.4 * r},
                        {0.5 * r, -0.4 * r},
                        {r, -0.2 * r, true},
                        {1.1 * r, 0.0, true},
                        {r, 0.2 * r, true},
                        {0.5 * r, 0.4 * r},
                        {0.0, 0.4 * r}},
                       false},
                      segments_for(r));
  mesh.append(revolve(solid(0.25 * r, 0.0, 1.6 * r), segments_for(0.25 * r)),
              along({1.0f, 0.0f, 0.0f}));
  return mesh;
}

using Maker = Mesh (*)(const Size&);
constexpr Maker makers[] = {box,     beam, channel, angle, rod,   pipe,  flange, elbow,
                            reducer, bolt, nut,     tank,  valve, wheel, motor,  pump};
static_assert(std::size(makers) == static_cast<std::size_t>(Kind::Pump) + 1);

}  // namespace

Mesh make_mesh(const Shape& shape) {
  Size metres;
  for (unsigned i = 0; i < metres.size(); ++i) metres[i] = shape.millimetres[i] / 1000.0;
  return makers[static_cast<std::size_t>(shape.kind)](metres);
}

}  // namespace morlu::sample
