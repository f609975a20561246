#pragma once

#include <cstdint>

#include <osg/material.h>

#include "morlu/geoset.h"

namespace morlu::osg {

/// Whether anything can be taken out of `geo`: it has types, lengths and positions, and none is
/// empty. Other attributes of it that sets carry, but for ids, are taken away where they are empty.
/// False for null.
bool checkGeometry(const ::osg::GeometryPtr& geo);

/// All that extractions write to a source: `checkGeometry` and, with `dropUnusedTexCoords`, texture
/// coordinates 0 to 3 that nobody sees are taken away as `extract` says. Whoever does it before may
/// then extract from several threads. False if nothing can be taken out.
bool cleanUpSource(const ::osg::NodePtr& node, bool dropUnusedTexCoords);

/// Registers the names of nodes as their extraction into one triangle, one line and one point set
/// would, in this order for each: whoever does it before may extract from several threads, and ids
/// are those of one.
class source_names {
 public:
  source_names(bool toWorld, bool useMaterialGroup, bool wantIds)
      : to_world_(toWorld), use_material_group_(useMaterialGroup), want_ids_(wantIds) {}

  void add(const ::osg::NodePtr& node);

 private:
  struct set_state {
    bool has_ids = false;
    ::osg::MaterialPtr material;
  };

  template <class Set>
  void add_to(set_state& set, const ::osg::NodePtr& node, const ::osg::GeometryPtr& source);

  const bool to_world_, use_material_group_, want_ids_;
  set_state sets_[3];
};

// Elements that types and lengths promise, unusable ones included, without a look at the data. 0
// for null and without types or lengths; more than fit an int count as the largest.

/// Quad strips promise nothing.
int countPrimitiveTriangles(const ::osg::GeometryPtr& geo);
int countPrimitiveLines(const ::osg::GeometryPtr& geo);
int countPrimitivePoints(const ::osg::GeometryPtr& geo);

/// The id as sets store it. The first that a float can't hold exactly says so on standard error.
float stored_id(std::uint32_t id);

}  // namespace morlu::osg
