// Smaller images: those of a scene by a factor, those of a table by halves until an atlas fits.

#include "materials/image_scaling.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <set>

#include "materials/image_copy.h"
#include "morlu/materials.h"
#include "morlu/optimiser.h"
#include "optimiser/scene_queries.h"
#include "primitives/number_text.h"
#include "primitives/say.h"

namespace morlu::osg {

namespace {

using ::osg::ImagePtr;
using ::osg::Int32;

std::set<ImagePtr> textures_in(const ::osg::NodePtr& node) {
  std::vector<::osg::NodePtr> nodes;
  getGeometryNodes(node, nodes, false);
  std::set<ImagePtr> images;
  for (const ::osg::NodePtr& each : nodes)
    if (const auto image = findMaterialImage(each)) images.insert(image);
  return images;
}

void divide(::osg::Image& image, Int32 factor, Int32 min_side) {
  const Int32 width = image.getWidth(), height = image.getHeight();
  if (std::min(width, height) <= min_side) return;
  if (std::min(width, height) > factor)
    image.scale(width / factor, height / factor);
  else
    image.scale(1, 1);
}

/// `percent`, or what takes its place.
double checked_share(double percent) {
  if (percent > 0.0 && percent <= 1.0) return percent;
  say("Morlu::osg::scaleImages() scalepercentvalue has to be in (0,1].\n");
  say("Reset from " + number_text({percent}) + " to 0.25\n");
  return 0.25;
}

void halve(atlas_image& record) {
  const auto smaller = copy_of_pixels(*record.pixels);
  smaller->scale(smaller->getWidth() / 2, smaller->getHeight() / 2);
  record.pixels = smaller;
  record.width /= 2;
  record.height /= 2;
}

}  // namespace

void ScaleImagesInTree(::osg::NodePtr node, unsigned int factor, unsigned int minSide) {
  if (factor < 2) return;
  say("Scaling Images by factor of " + std::to_string(factor) +
      ". Ignored if an Image has a smaller side than " + std::to_string(minSide) + '\n');
  if (!node) return;
  // a factor that is negative as a signed number asks for sides below 1, which images refuse
  for (const ImagePtr& image : textures_in(node))
    divide(*image, static_cast<Int32>(factor), static_cast<Int32>(minSide));
}

bool scaleImages(std::span<atlas_image> table, double percent, unsigned minSide) {
  const double share = static_cast<double>(table.size()) * checked_share(percent);
  const auto target = std::max<std::size_t>(static_cast<std::size_t>(share), 1);
  const std::uint32_t smallest = std::max(minSide, 1u);  // half a pixel is none
  std::multimap<double, std::size_t> waiting;
  for (std::size_t i = 0; i < table.size(); ++i) waiting.emplace(table[i].scale_key, i);
  std::size_t scaled = 0;
  for (std::size_t turn = 0; turn < table.size() && scaled < target; ++turn) {
    auto next = waiting.extract(std::prev(waiting.end()));
    atlas_image& record = table[next.mapped()];
    if (std::min(record.width, record.height) > smallest) {
      halve(record);
      ++scaled;
    }
    next.key() = record.scale_key -= 1.0;
    waiting.insert(std::move(next));  // after its equals
  }
  return scaled > 0;
}

}  // namespace morlu::osg
