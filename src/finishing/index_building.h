#pragma once

#include <osg/geometry.h>

#include <span>

#include "morlu/finishing.h"

namespace morlu::osg {

/// A new property of the one kind that finished geometry has for the attribute: three floats an
/// entry, of texture coordinates two.
::osg::GeoPropertyPtr make_property(::osg::Attribute attribute);

/// `createSharedIndex` for any list of distinct attributes: columns in the order of the list.
void build_shared_index(::osg::Geometry& geometry, std::span<const ::osg::Attribute> attributes);

/// `createSingleIndex` for any list of distinct attributes.
void build_single_index(::osg::Geometry& geometry, std::span<const ::osg::Attribute> attributes);

}  // namespace morlu::osg
