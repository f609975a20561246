// Pictures, pixel by pixel, beside colours that are known without any of the program's own code.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <random>

#include "read_picture.h"
#include "run_program.h"
#include "support/scene_parts.h"

namespace {

namespace fs = std::filesystem;
using osg::Color3f;
using osg::Matrix;
using osg::Matrix4d;
using osg::NodePtr;
using osg::Pnt3d;
using osg::Pnt3f;
using osg::Vec3d;

/// The byte that shows a share of full light, by the definition of sRGB.
int shown(double light) {
  const double value =
      light <= 0.0031308 ? 12.92 * light : 1.055 * std::pow(light, 1 / 2.4) - 0.055;
  return static_cast<int>(std::lround(value * 255));
}
Pixel shown(const Vec3d& light) {
  return {shown(light[0]), shown(light[1]), shown(light[2]), 255};
}

bool near(const Pixel& a, const Pixel& b, int tolerance = 1) {
  return std::abs(a.r - b.r) <= tolerance && std::abs(a.g - b.g) <= tolerance &&
         std::abs(a.b - b.b) <= tolerance && std::abs(a.a - b.a) <= tolerance;
}

/// Two triangles from -1 to 1 in x and y, seen from +z.
std::vector<Pnt3f> quad_corners(float z) {
  return {{-1, -1, z}, {1, -1, z}, {1, 1, z}, {-1, -1, z}, {1, 1, z}, {-1, 1, z}};
}

NodePtr quad(float z, const osg::MaterialPtr& material) {
  const auto geometry = triangles(quad_corners(z));
  geometry->setMaterial(material);
  return node_with(geometry);
}

NodePtr group(std::initializer_list<NodePtr> children) {
  return node_with(osg::Group::create(), children);
}

class Render : public ProgramTest {
 protected:
  Picture render(const NodePtr& root, const std::string& arguments) const {
    save(root, folder_ / "scene.osb");
    const Outcome outcome = run("render scene.osb -o picture.png " + arguments);
    EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err.find('%'), std::string::npos);  // no progress where no terminal is
    return read_picture(folder_ / "picture.png");
  }
};

// --- A whole picture against brute force ---------------------------------------------------------

struct Part {
  Matrix world_from_object;
  Color3f color;
};

std::vector<Part> random_parts(std::mt19937& random, int count) {
  std::uniform_real_distribution<float> any(-1.0f, 1.0f), share(0.0f, 1.0f), size(0.05f, 0.6f);
  std::vector<Part> parts;
  for (int i = 0; i < count; ++i) {
    const auto sign = [&] { return any(random) < 0 ? -1.0f : 1.0f; };
    const Matrix place = Matrix::translation(3 * any(random), 2 * any(random), 3 * any(random));
    const Matrix turn = Matrix::rotation({any(random), any(random), any(random)}, 3 * any(random));
    const Matrix scale = Matrix::scale(sign() * size(random), size(random), size(random));
    parts.push_back({place * turn * scale, {share(random), share(random), share(random)}});
  }
  return parts;
}

/// Distance along the ray to the triangle, whichever way it faces.
std::optional<double> meet(const Pnt3d& from, const Vec3d& along, const std::array<Pnt3d, 3>& p) {
  const Vec3d a = p[1] - p[0], b = p[2] - p[0], s = from - p[0];
  const Vec3d q = along.cross(b);
  const double det = a.dot(q);
  if (det == 0) return std::nullopt;
  const double u = s.dot(q) / det, v = along.dot(s.cross(a)) / det, t = b.dot(s.cross(a)) / det;
  if (u < 0 || v < 0 || u + v > 1 || t < 0) return std::nullopt;
  return t;
}

TEST_F(Render, ShowsTheNearestPartInEveryPixel) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const std::vector<Part> parts = random_parts(random, 60);

  struct Triangle {
    std::array<Pnt3d, 3> corners;
    const Part* part;
  };
  std::vector<Triangle> all;
  const NodePtr root = group({});
  const std::vector<Pnt3f> corners = box_corners();
  for (const Part& part : parts) {
    const auto box = triangles(corners);
    box->setMaterial(shining(part.color));
    root->addChild(node_with(transform(part.world_from_object), {node_with(box)}));
    for (std::size_t i = 0; i < corners.size(); ++i) {
      if (i % 3 == 0) all.push_back({{}, &part});
      const Pnt3f p = part.world_from_object * corners[i];
      all.back().corners[i % 3] = Pnt3d(p[0], p[1], p[2]);
    }
  }
  const int width = 120, height = 80;
  const Picture picture = render(
      root, "--size 120x80 --samples 1 --transparent --eye 9,4,7 --target 0,0.5,0 --threads 3");
  ASSERT_EQ(picture.width, width);
  ASSERT_EQ(picture.height, height);

  const Pnt3d eye(9, 4, 7);
  Vec3d forward = Pnt3d(0, 0.5, 0) - eye, right = forward.cross(Vec3d(0, 1, 0));
  forward.normalize();
  right.normalize();
  const Vec3d up = right.cross(forward);
  const double pixel = 2 * std::tan(35.0 / 2 * std::acos(-1.0) / 180) / height;
  int wrong = 0, covered = 0;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const Vec3d along = forward + right * ((x + 0.5 - width / 2.0) * pixel) +
                          up * ((height / 2.0 - y - 0.5) * pixel);
      double nearest = std::numeric_limits<double>::infinity();
      Pixel expected{0, 0, 0, 0};
      for (const Triangle& triangle : all) {
        const auto t = meet(eye, along, triangle.corners);
        if (!t || *t >= nearest) continue;
        nearest = *t;
        const Color3f& color = triangle.part->color;
        expected = shown(Vec3d(color[0], color[1], color[2]));
      }
      covered += expected.a > 0;
      wrong += !near(picture.at(x, y), expected);
    }
  }
  EXPECT_GT(covered, width * height / 10);
  EXPECT_LE(wrong, width * height / 400);  // rays that graze an edge
}

// --- Surfaces ------------------------------------------------------------------------------------

constexpr const char* from_front = "--eye 0,0,8 --target 0,0,0 --size 41x41 ";

TEST_F(Render, DrawsBothSidesAndOnlyWhatIsThere) {
  std::vector<Pnt3f> turned_round = quad_corners(0);
  std::reverse(turned_round.begin(), turned_round.end());
  const auto back = triangles(turned_round);
  back->setMaterial(shining({0.2f, 0.4f, 0.6f}));
  EXPECT_TRUE(near(render(node_with(back), from_front).middle(), shown(Vec3d(0.2, 0.4, 0.6))));

  // Masked nodes and what a switch or a level of distance doesn't show are in nobody's way; a
  // group's material serves what has none, the topmost one's.
  const NodePtr masked = quad(3, shining({1, 1, 1}));
  masked->setTravMask(0);
  const auto choice = osg::Switch::create();
  choice->setChoice(1);
  const auto inner = osg::MaterialGroup::create(), outer = osg::MaterialGroup::create();
  inner->setMaterial(shining({1, 0, 0}));
  outer->setMaterial(shining({0, 0.5f, 0}));
  const NodePtr shown_one = node_with(inner, {quad(-1, osg::NullFC)});
  const NodePtr scene = group(
      {masked, node_with(choice, {quad(2, shining({1, 1, 1})), node_with(outer, {shown_one})}),
       node_with(osg::Switch::create(), {quad(1, shining({1, 1, 1}))}),
       node_with(osg::DistanceLOD::create(), {group({}), quad(0, shining({1, 1, 1}))})});
  EXPECT_TRUE(near(render(scene, from_front).middle(), shown(Vec3d(0, 0.5, 0))));
}

TEST_F(Render, MixesWhatIsTransparent) {
  const auto front = shining({1.0f, 0.5f, 0.0f}, 0.25f);
  const NodePtr glass = quad(1, front);
  const Picture alone = render(glass, std::string(from_front) + "--transparent");
  EXPECT_EQ(alone.channels, 4);
  EXPECT_TRUE(near(alone.middle(), {255, shown(0.5), 0, 64})) << alone.middle();
  EXPECT_EQ(alone.at(0, 0), (Pixel{0, 0, 0, 0}));

  const NodePtr both = group({quad(1, front), quad(-1, shining({0.0f, 0.5f, 0.8f}))});
  const Picture mixed = render(both, from_front);
  EXPECT_EQ(mixed.channels, 3);
  EXPECT_TRUE(near(mixed.middle(), shown(Vec3d(0.25, 0.5, 0.6)))) << mixed.middle();
  // What isn't a picture of the materials lets nothing through.
  EXPECT_EQ(render(glass, std::string(from_front) + "--shade parts --transparent").middle().a, 255);
}

TEST_F(Render, CutsHolesWhereAMaskSaysSo) {
  for (const float alpha : {0.35f, 0.45f}) {
    const auto material = shining({1, 1, 1});
    const auto definition = osg::PBRChunk::create();
    definition->setDefinition(R"({"alphaCutoff":0.4,"alphaMode":"MASK"})");
    material->addChunk(definition);
    const NodePtr masked = quad(1, material);
    const auto colors = osg::GeoColors4f::create();
    colors->resize(6);
    for (osg::Color4f& color : colors->values()) color = {1, 1, 1, alpha};
    osg::Geometry::dcast(masked->getCore())->setColors(colors);
    const Picture picture = render(group({masked, quad(-1, shining({0, 0, 1}))}), from_front);
    const Vec3d expected = alpha < 0.4f ? Vec3d(0, 0, 1) : Vec3d(1, 1, 1);
    EXPECT_TRUE(near(picture.middle(), shown(expected))) << alpha << ": " << picture.middle();
  }
}

// A far wall seen through the near one, as in the picture of a glass box: rays go on from within.
TEST_F(Render, LosesNoFarWall) {
  const auto box = triangles(box_corners());
  box->setMaterial(shining({1, 1, 1}, 0.5f));
  const Matrix place =
      Matrix::translation(1000.3f, -200.7f, 50.1f) * Matrix::scale(3.3f, 2.9f, 3.1f);
  const Picture picture = render(node_with(transform(place), {node_with(box)}),
                                 "--transparent --size 150x150 --samples 1");
  int one_wall = 0, two_walls = 0;
  for (int y = 0; y < picture.height; ++y)
    for (int x = 0; x < picture.width; ++x) {
      one_wall += std::abs(picture.at(x, y).a - 128) <= 1;
      two_walls += std::abs(picture.at(x, y).a - 191) <= 1;
    }
  EXPECT_GT(two_walls, 5000);
  EXPECT_LE(one_wall, two_walls / 500);  // along the edges
}

TEST_F(Render, LaysImagesAsTheirCoordinatesSay) {
  const unsigned char pixels[] = {255, 0, 0, 0, 255, 0, 0, 0, 255, 255, 255, 255};  // 2 x 2
  const auto image = osg::Image::create();
  ASSERT_TRUE(image->set(osg::gl::kRGB, 2, 2, 1, 1, 1, 0.0f, pixels));
  const auto texture = osg::TextureChunk::create();
  texture->setImage(image);
  texture->setMagFilter(osg::gl::kNearest);
  texture->setWrapS(osg::gl::kClampToEdge);
  texture->setWrapT(osg::gl::kMirroredRepeat);
  const auto material = osg::ChunkMaterial::create();
  material->addChunk(osg::MaterialChunk::create());
  material->addChunk(texture);
  const NodePtr node = quad(0, material);
  const auto coords = osg::GeoTexCoords2f::create();  // the image's first row is at t = 0
  for (const Pnt3f& p : quad_corners(0)) coords->push_back({p[0] + 0.5f, 0.5f - p[1]});
  osg::Geometry::dcast(node->getCore())->setTexCoords(coords);
  const Picture picture = render(node, from_front);
  // The quad lies on pixels 12 to 28; a unit of the scene is 8 of them.
  const auto colors_at = [&](double x, double y) {
    const Pixel p = picture.at(20 + static_cast<int>(std::lround(8.1 * x)),
                               20 - static_cast<int>(std::lround(8.1 * y)));
    return std::array{p.r > 150, p.g > 150, p.b > 150};
  };
  const std::array red{true, false, false}, green{false, true, false}, blue{false, false, true},
      white{true, true, true};
  EXPECT_EQ(colors_at(-0.25, 0.25), red);
  EXPECT_EQ(colors_at(0.25, 0.25), green);
  EXPECT_EQ(colors_at(-0.25, -0.25), blue);
  EXPECT_EQ(colors_at(0.25, -0.25), white);
  EXPECT_EQ(colors_at(-0.75, 0.25), red);  // clamped in s
  EXPECT_EQ(colors_at(-0.25, 0.75), red);  // mirrored in t; a mere repetition would be blue
  EXPECT_EQ(colors_at(0.25, -0.75), white);

  // Far out there are no pixels to tell apart, yet there is a picture.
  for (osg::Vec2f& st : coords->values()) st *= 1e38f;
  texture->setWrapS(osg::gl::kRepeat);
  render(node, from_front);
}

// --- Views ---------------------------------------------------------------------------------------

TEST_F(Render, NamedViewsShowTheirSide) {
  const Vec3d sides[] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  const NodePtr box = node_with(triangles(box_corners()));
  const auto normal_seen = [&](const std::string& arguments) {
    const Pixel p = render(box, "--shade normals --size 31x31 " + arguments).middle();
    return Vec3d(p.r / 127.5 - 1, p.g / 127.5 - 1, p.b / 127.5 - 1);
  };
  struct Side {
    const char* view;
    Vec3d with_y_up, with_z_up;
  };
  const Vec3d &x = sides[0], &y = sides[1], &z = sides[2];
  for (const auto& [view, with_y_up, with_z_up] :
       {Side{"front", z, -y}, Side{"back", -z, y}, Side{"left", -x, -x}, Side{"right", x, x},
        Side{"top", y, z}, Side{"bottom", -y, -z}}) {
    const std::string name = std::string("--view ") + view;
    EXPECT_LT((normal_seen(name) - with_y_up).length(), 0.02) << view;
    EXPECT_LT((normal_seen(name + " --up 0,0,2") - with_z_up).length(), 0.02) << view;
    const Vec3d half_a_turn(with_y_up[0], -with_y_up[1], -with_y_up[2]);
    EXPECT_LT((normal_seen(name + " --up 0,-1,0") - half_a_turn).length(), 0.02) << view;
  }
}

TEST_F(Render, ViewsHoldTheWholeSceneInTheMiddle) {
  const auto wide = transform(Matrix::translation(50, 0, 0) * Matrix::scale(20, 1, 2));
  const NodePtr scene = group({node_with(wide, {node_with(triangles(box_corners()))}),
                               node_with(triangles(box_corners()))});
  for (const char* arguments : {"--view iso --size 90x40", "--view front --size 40x90",
                                "--view top --size 64x64", "--view left --size 80x60"}) {
    const Picture picture = render(scene, std::string("--transparent --samples 1 ") + arguments);
    int left = picture.width, right = -1, top = picture.height, bottom = -1;
    for (int y = 0; y < picture.height; ++y)
      for (int x = 0; x < picture.width; ++x)
        if (picture.at(x, y).a > 0) {
          left = std::min(left, x), right = std::max(right, x);
          top = std::min(top, y), bottom = std::max(bottom, y);
        }
    EXPECT_GE(std::min(left, top), 1) << arguments;
    EXPECT_LE(right, picture.width - 2) << arguments;
    EXPECT_LE(bottom, picture.height - 2) << arguments;
    const double filled =
        std::max((right - left + 1.0) / picture.width, (bottom - top + 1.0) / picture.height);
    EXPECT_GT(filled, 0.85) << arguments;
    EXPECT_NEAR(left + right, picture.width - 1, 0.1 * picture.width) << arguments;
    EXPECT_NEAR(top + bottom, picture.height - 1, 0.1 * picture.height) << arguments;
  }
}

TEST_F(Render, ThreadsChangeNoByte) {
  done("generate plant.osb --parts 100");
  for (const char* threads : {"1", "2", "5"})
    done(std::string("render plant.osb --size 97x61 --up 0,0,1 -o t") + threads +
         ".png --threads " + threads);
  const std::string one = content_of(folder_ / "t1.png");
  EXPECT_GT(one.size(), 1000u);
  EXPECT_EQ(one, content_of(folder_ / "t2.png"));
  EXPECT_EQ(one, content_of(folder_ / "t5.png"));
}

// --- Refusals ------------------------------------------------------------------------------------

TEST_F(Render, RefusesWhatMakesNoPicture) {
  save(quad(0, osg::NullFC), folder_ / "in.osb");
  const auto expect = [&](int exit_code, const std::string& arguments, const char* word = "") {
    const Outcome result = run("render " + arguments);
    EXPECT_EQ(result.exit_code, exit_code) << arguments << ": " << result.err;
    EXPECT_NE(result.err.find(word), std::string::npos) << arguments << ": " << result.err;
    EXPECT_FALSE(fs::exists(folder_ / "out.png")) << arguments;
  };
  for (const char* size : {"0x5", "5x0", "-5x5", "20000x10", "16384x16384", "99999999999x1", "800",
                           "800x", "x600", "8x6x4", "8*6"})
    expect(2, std::string("in.osb -o out.png --size '") + size + "'", "--size");
  for (const char* wrong :
       {"--view inside", "--eye 1,2", "--eye 1,2,3 --view top", "--target 1,2,3", "--samples 0",
        "--samples 9", "--threads 0", "--shade shiny", "--shade 0", "--eye 1,1,1 --target 1,1,1",
        "--eye 0,5,0 --target 0,0,0", "--up 0,0,0"})
    expect(2, std::string("in.osb -o out.png ") + wrong);
  expect(2, "in.osb");
  expect(3, "none.osb -o out.png", "none.osb");
  expect(4, "in.osb -o out.jpg", ".png");
  expect(4, "in.osb -o nowhere/out.png", "nowhere");
  if (fs::exists("/dev/full")) {
    fs::create_symlink("/dev/full", folder_ / "full.png");
    expect(4, "in.osb -o full.png", "full.png");
  }
}

TEST_F(Render, SaysWhatItCannotDraw) {
  const auto with_type = [](osg::UInt32 type) {
    const auto geometry = triangles(quad_corners(0));
    const auto types = osg::GeoPTypesUI8::create();
    types->push_back(type);
    geometry->setTypes(types);
    return node_with(geometry);
  };
  const auto expect = [&](const NodePtr& scene, int exit_code, const char* words) {
    save(scene, folder_ / "in.osb");
    const Outcome result = run("render in.osb -o out.png --size 8x8");
    EXPECT_EQ(result.exit_code, exit_code) << result.err;
    EXPECT_NE(result.err.find(words), std::string::npos) << result.err;
    EXPECT_EQ(fs::exists(folder_ / "out.png"), exit_code == 0);
  };
  expect(group({}), 1, "no triangles");
  expect(group({with_type(osg::kLines), with_type(osg::kPoints)}), 1, "3 lines and 6 points");
  const auto flat = transform(Matrix::scale(1, 1, 0));
  expect(node_with(flat, {node_with(triangles(box_corners()))}), 1, "1 parts are left out");
  const auto far_off = triangles(quad_corners(std::numeric_limits<float>::quiet_NaN()));
  expect(node_with(far_off), 1, "no triangles");
  expect(group({with_type(osg::kLines), quad(0, osg::NullFC)}), 0, "3 lines and 0 points");
}

}  // namespace
