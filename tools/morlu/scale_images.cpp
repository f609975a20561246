// morlu scale-images: a scene with smaller textures.
#include <memory>

#include "cli.h"
#include "morlu/materials.h"
#include "output_to_error.h"
#include "scene_stats.h"

namespace morlu::program {
namespace {

struct Options {
  std::string in, out;
  unsigned factor = 2, min_side = 32;
};

/// Width and height.
using Sides = std::pair<::osg::Int32, ::osg::Int32>;

Sides sides_of(const ::osg::Image& image) {
  return {image.getWidth(), image.getHeight()};
}

/// Scales what the scene shows, and says what became of all its images.
void scale_and_tell(const ::osg::NodePtr& scene, const Options& options) {
  const std::vector<::osg::ImagePtr> images = find_images(scene);
  std::vector<Sides> before;
  std::uint64_t bytes_before = 0, bytes_after = 0, scaled = 0;
  for (const auto& image : images) {
    before.push_back(sides_of(*image));
    bytes_before += image->getSize();
  }
  {
    const OutputToError messages_aside;
    osg::ScaleImagesInTree(scene, options.factor, options.min_side);
  }
  for (std::size_t i = 0; i < images.size(); ++i) {
    scaled += sides_of(*images[i]) != before[i];
    bytes_after += images[i]->getSize();
  }
  say(options.in + ": " + grouped(scaled) + " of " + grouped(images.size()) +
      " images scaled, pixels from " + size_text(bytes_before) + " to " + size_text(bytes_after));
}

void scale_images(const Options& options) {
  expect_writable(options.out);
  const ::osg::NodePtr scene = load_and_warn(options.in);
  scale_and_tell(scene, options);
  save_scene(scene, options.out);
  say_written(options.out);
}

}  // namespace

void add_scale_images_command(CLI::App& program) {
  constexpr unsigned most = 0x7fffffff;
  auto options = std::make_shared<Options>();
  CLI::App* command = program.add_subcommand("scale-images", "Divide the sides of textures");
  command->add_option("IN", options->in, "File to read: " + readable_suffixes())
      ->type_name("")
      ->required();
  command->add_option("-o,--output", options->out, "File to write: " + writable_suffixes())
      ->type_name("OUT")
      ->required();
  command
      ->add_option("--factor", options->factor,
                   "Divides both sides, rounding down; an image with a side that is no longer than "
                   "this becomes a single pixel (1 to 2147483647; 1 changes nothing)")
      ->check(CLI::Range(1u, most).description(""))
      ->type_name("N")
      ->capture_default_str();
  command
      ->add_option("--min-side", options->min_side,
                   "Leaves images alone that have a side of this length or less (0 to 2147483647)")
      ->check(CLI::Range(0u, most).description(""))
      ->type_name("N")
      ->capture_default_str();
  command->footer(
      "An image that many materials share is scaled once. Left alone are images that no base\n"
      "colour shows, and those of geometry that is hidden or below switches and levels of detail.\n"
      "Examples:\n"
      "  morlu scale-images city.gltf -o light.glb\n"
      "  morlu scale-images city.gltf -o light.glb --factor 4 --min-side 256");
  command->callback([options] { scale_images(*options); });
}

}  // namespace morlu::program
