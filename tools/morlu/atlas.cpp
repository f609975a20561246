// morlu atlas: the pages that the textures of a scene go into, as pictures.
#include <filesystem>
#include <memory>

#include "atlas_mix_ups.h"
#include "cli.h"
#include "morlu/materials.h"
#include "output_to_error.h"
#include "picture/png_file.h"
#include "result_json.h"

namespace morlu::program {
namespace {

namespace fs = std::filesystem;
using nlohmann::ordered_json;

// As `optimise` has them if they are not given.
constexpr unsigned coordinate_limit = 2, coordinate_bound = 2;

struct Options {
  std::string in, folder;
  unsigned max_size = 4096;
  bool json = false;
};

std::string page_name(std::size_t page) {
  return "page_" + std::to_string(page) + ".png";
}

void expect_folder(const std::string& folder) {
  std::error_code error;
  if (fs::is_directory(folder, error)) return;
  if (fs::exists(folder, error))
    throw Failure(unwritable_output, folder + ": is a file, not a directory");
  expect_folder_of(folder);
}

void make_folder(const std::string& folder) {
  std::error_code error;
  fs::create_directory(folder, error);
  if (error) throw Failure(unwritable_output, folder + ": cannot be made: " + error.message());
}

void write_page(const ::osg::Image& page, const std::string& file) {
  const Picture picture{{page.getWidth(), page.getHeight()},
                        static_cast<int>(page.getChannels()),
                        {page.getData(), page.getData() + page.getSize()}};
  write_png(picture, file);
  say_written(file);
}

ordered_json to_json(const std::string& file, const osg::scene_atlas& atlas) {
  auto pages = ordered_json::array(), tiles = ordered_json::array();
  for (std::size_t i = 0; i < atlas.pages.size(); ++i)
    pages.push_back({{"file", page_name(i)},
                     {"width", atlas.pages[i]->getWidth()},
                     {"height", atlas.pages[i]->getHeight()},
                     {"alpha", atlas.pages[i]->hasAlphaChannel()}});
  for (const osg::atlas_tile& tile : atlas.tiles)
    tiles.push_back({{"page", tile.page},
                     {"x", tile.x},
                     {"y", tile.y},
                     {"width", tile.width},
                     {"height", tile.height},
                     {"repeats", {tile.columns, tile.rows}},
                     {"image", tile.source->getName()}});
  return {{"schema", json_schema}, {"input", file}, {"pages", pages}, {"tiles", tiles}};
}

osg::scene_atlas make_atlas(const Options& options) {
  const ::osg::NodePtr scene = load_and_warn(options.in);
  warn_of_mix_ups(scene, options.in, options.max_size, coordinate_limit);
  const OutputToError messages_aside;
  return osg::createSceneAtlas(scene, options.max_size, coordinate_limit, coordinate_bound);
}

void write_atlas(const Options& options) {
  expect_folder(options.folder);
  const osg::scene_atlas atlas = make_atlas(options);
  make_folder(options.folder);
  for (std::size_t i = 0; i < atlas.pages.size(); ++i)
    write_page(*atlas.pages[i], (fs::path(options.folder) / page_name(i)).string());
  const ordered_json json = to_json(options.in, atlas);
  write_json(json, (fs::path(options.folder) / "tiles.json").string());
  if (options.json) print_json(json);
  say(options.in + ": " + grouped(atlas.tiles.size()) + " images on " +
      grouped(atlas.pages.size()) + " pages");
}

}  // namespace

void add_atlas_command(CLI::App& program) {
  auto options = std::make_shared<Options>();
  CLI::App* command =
      program.add_subcommand("atlas", "Put the textures of a scene into few large pictures");
  add_input(*command, "FILE", options->in);
  command
      ->add_option("-o,--output", options->folder,
                   "Directory for page_0.png, page_1.png, ... and tiles.json; made if it isn't "
                   "there")
      ->type_name("DIR")
      ->required();
  command
      ->add_option("--max-size", options->max_size,
                   "Longest side of a page in pixels, raised to a power of two; images of half as "
                   "much and more stay out (32 to 8192)")
      ->check(CLI::Range(32u, 8192u).description(""))
      ->type_name("N")
      ->capture_default_str();
  command->add_flag("--json", options->json, "Print what is in tiles.json");
  command->footer(
      "Opaque and transparent textures have pages of their own. An image that coordinates tile\n"
      "stands as often side by side; tiles.json tells where.\n"
      "Examples:\n"
      "  morlu atlas city.gltf -o city-atlas\n"
      "  morlu atlas city.gltf -o city-atlas --max-size 1024 --json");
  command->callback([options] { write_atlas(*options); });
}

}  // namespace morlu::program
