#include "osg/action.h"

namespace osg {

Action::~Action() = default;

}  // namespace osg
