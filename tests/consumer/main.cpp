// A program of somebody else: uses one name of each library.
#include <morlu/primitives.h>
#include <osg/io/model_files.h>
#include <osg/node.h>

int main() {
  osg::io::registerModelFormats();
  const osg::NodePtr node = osg::Node::create();
  return node != osg::NullFC && morlu::get_ms() + 1 != 0 ? 0 : 1;
}
