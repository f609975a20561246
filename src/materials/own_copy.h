#pragma once

#include <osg/handle.h>

/// Containers that are to be written, and may stand in other places too.
namespace morlu::osg {

/// What `held` holds if nothing else does, else a copy of it, which shares what it refers to.
template <class T>
::osg::FCPtr<T> own_copy(const ::osg::FCPtr<T>& held) {
  return held->getReferenceCount() == 1 ? held : T::dcast(held->shallowCopy());
}

}  // namespace morlu::osg
