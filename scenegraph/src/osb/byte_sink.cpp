#include "osb/byte_sink.h"

namespace osg::osb {

ByteSink::~ByteSink() = default;

}  // namespace osg::osb
