// A program of somebody else: uses each of the libraries.
#include <morlu/optimiser.h>
#include <osg/io/model_files.h>
#include <osg/scene_file_handler.h>

#include <iostream>

int main(int argc, char** argv) {
  osg::io::registerModelFormats();
  if (argc != 3) return 2;
  osg::SceneFileHandler& files = osg::SceneFileHandler::the();
  const osg::SceneReadResult read = files.read(argv[1]);
  if (!read) {
    std::cerr << read.error << '\n';
    return 3;
  }
  const osg::NodePtr few = morlu::osg::optTree(read.root, "opt(1),maxtris(5000)");
  return files.writeScene(few, argv[2]) ? 0 : 4;
}
