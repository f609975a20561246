// A program of somebody else: uses one name of each library.
#include <morlu/primitives.h>
#include <osg/node.h>

int main() {
  const osg::NodePtr node = osg::Node::create();
  return node != osg::NullFC && morlu::get_ms() + 1 != 0 ? 0 : 1;
}
