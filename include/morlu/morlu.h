#pragma once

/// Everything that the library offers.

#include "morlu/finishing.h"
#include "morlu/geoset.h"
#include "morlu/kd.h"
#include "morlu/materials.h"
#include "morlu/occlusion.h"
#include "morlu/optimiser.h"
#include "morlu/primitives.h"
#include "morlu/ray.h"
