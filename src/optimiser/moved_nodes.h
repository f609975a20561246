#pragma once

#include "primitives/node_moves.h"

/// How a node of the input goes over into a result, looking as it did.
namespace morlu::osg {

/// Gives the node's geometry its effective material. A core that other nodes show in another
/// material is copied first. Nothing for a node without geometry.
void giveEffectiveMaterial(const ::osg::NodePtr& node);

}  // namespace morlu::osg
