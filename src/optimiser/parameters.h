#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "morlu/optimiser.h"

namespace morlu::osg {

/// Raw values by option name in lower case; names are compared as bytes, shorter first.
using param_map = std::map<std::string, std::string>;

/// A token runs to the next comma and needs both brackets, else it is dropped; what follows its
/// first ")" is ignored. Of equal names the first stands. A blank belongs to its token.
param_map parseOptParams(const std::string& text);

// Values are read as by a stream in its default state: white space before is skipped, what can't
// continue a number is ignored, and a negative unsigned number counts down from 2^32.

/// `otherwise` for text that begins with no number or with one that doesn't fit.
std::int32_t paramToInt(const std::string& text, std::int32_t otherwise = 0);
std::uint32_t paramToUInt(const std::string& text, std::uint32_t otherwise = 0);
float paramToFloat(const std::string& text, float otherwise = 0);
/// The number 0 or 1, else the word "true" or "false" from where the number ended; else false.
bool paramToBool(const std::string& text);

/// What `optTree` itself acts by.
struct tree_options {
  std::uint32_t maxtris = 0;  // most triangles of a core; 0: no merge
  std::uint32_t maxtexturesize = 0;
  bool mostusedmaterial = false;
  bool removelod = false;
  bool removeswitch = false;
  std::uint32_t ambientocclusion = 0;  // shots a vertex
  bool ambientgutout = false;
  bool buildhull = false;
  bool buildhullwithcolors = false;
  bool idmapinroot = false;
  bool onegeometry = false;
  std::optional<std::string> help;  // asked for by its name, whatever the value
  std::optional<std::string> prefix;
  std::optional<float> centerBB;
};

/// Options that are absent, or no number where one is asked for, keep their defaults.
tree_options readTreeOptions(const param_map& params);
mergeGeo_setup readMergeGeoSetup(param_map params);

/// The settings as they stand, fifteen lines to the standard output whatever its state.
void printMergeGeoSetup(const mergeGeo_setup& setup);

}  // namespace morlu::osg
