#include "atlas_mix_ups.h"

#include "cli.h"
#include "morlu/materials.h"

namespace morlu::program {

void warn_of_mix_ups(const ::osg::NodePtr& scene, const std::string& file, unsigned max_size,
                     unsigned coordinate_limit) {
  for (const auto& [shown, lost] : osg::findAtlasMixUps(scene, max_size, coordinate_limit))
    say("warning: " + file + ": the image '" + lost->getName() + "' begins as '" +
        shown->getName() + "' does, which is shown in its place");
}

}  // namespace morlu::program
