#include "optimiser/parameters.h"

#include <algorithm>
#include <limits>
#include <locale>
#include <set>
#include <sstream>
#include <string_view>
#include <utility>
#include <variant>

#include "primitives/say.h"

namespace morlu::osg {

namespace {

// --- Values --------------------------------------------------------------------------------------

std::istringstream stream_of(const std::string& text) {
  std::istringstream in(text);
  in.imbue(std::locale::classic());
  return in;
}

/// How much of a text is the value that is looked for at its begin.
enum class extent { none, part, whole };

extent extent_before(std::istream& rest) {
  return (rest >> std::ws).eof() ? extent::whole : extent::part;
}

// One conversion a type. Where the text holds no value, `to` stays as it is, but a truth value is
// false then.

template <class Number>
extent convert(const std::string& text, Number& to) {
  std::istringstream in = stream_of(text);
  Number value{};
  if (!(in >> value)) return extent::none;
  to = value;
  return extent_before(in);
}
extent convert(const std::string& text, bool& to) {
  std::istringstream in = stream_of(text);
  if (in >> to) return extent_before(in);
  in.clear();  // the word stands where the number ended
  if (in >> std::boolalpha >> to) return extent_before(in);
  to = false;
  return extent::none;
}
extent convert(const std::string& text, std::string& to) {
  to = text;
  return extent::whole;
}
template <class Value>
extent convert(const std::string& text, std::optional<Value>& to) {
  Value value{};
  const extent found = convert(text, value);
  if (found != extent::none) to = std::move(value);
  return found;
}

// --- Options -------------------------------------------------------------------------------------

struct settings : tree_options, mergeGeo_setup {};

/// An option's name and where its value goes; its conversion follows from the type there, its
/// default is the member's own. Numbers beyond `least` and `most` work, but hardly as meant.
struct option {
  std::string_view name;
  std::variant<std::int32_t settings::*, std::uint32_t settings::*, bool settings::*,
               std::string settings::*, std::optional<std::string> settings::*,
               std::optional<float> settings::*>
      target;
  int least = std::numeric_limits<int>::min(), most = std::numeric_limits<int>::max();
};

constexpr option options[]{
    // What the whole run acts by.
    {"maxtris", &settings::maxtris, 0},
    {"maxtexturesize", &settings::maxtexturesize, 0},
    {"mostusedmaterial", &settings::mostusedmaterial},
    {"removelod", &settings::removelod},
    {"removeswitch", &settings::removeswitch},
    {"ambientocclusion", &settings::ambientocclusion, 0},
    {"ambientgutout", &settings::ambientgutout},
    {"buildhull", &settings::buildhull},
    {"buildhullwithcolors", &settings::buildhullwithcolors},
    {"idmapinroot", &settings::idmapinroot},
    {"onegeometry", &settings::onegeometry},
    {"help", &settings::help},
    {"prefix", &settings::prefix},
    {"centerbb", &settings::centerBB, 0},
    // What the merge takes along.
    {"vertexcolor", &settings::vertexcolor},
    {"texcoords", &settings::texcoords},
    {"optimizetc", &settings::optimizetc},
    {"opt", &settings::opt, 0, 3},
    {"numthreads", &settings::numthreads},
    {"silent", &settings::silent},
    {"storeondisk", &settings::storeondisk},
    {"toworld", &settings::toworld},
    {"idmap", &settings::idmap},
    {"flat", &settings::flat},
    {"cacheopt", &settings::cacheopt},
    {"calcnormals", &settings::calcnormals},
    {"addcolorstex", &settings::addcolorstex},
    {"deleteunusedtc", &settings::deleteunusedtc},
    {"mergesamename", &settings::mergesamename},
    {"mergehierarchy", &settings::mergehierarchy},
    {"ignorematerial", &settings::ignorematerial},
    {"alphageometry", &settings::alphageometry},
    {"keeprenderfalse", &settings::keeprenderfalse},
};

extent set(settings& to, const option& row, const std::string& value) {
  return std::visit([&](auto target) { return convert(value, to.*target); }, row.target);
}

settings read(const param_map& params) {
  settings result;
  for (const option& row : options)
    if (const auto given = params.find(std::string(row.name)); given != params.end())
      set(result, row, given->second);
  return result;
}

// --- Text ----------------------------------------------------------------------------------------

/// Calls `take` with all that stands between commas, empty tokens too.
template <class Take>
void for_each_token(const std::string& text, const Take& take) {
  std::istringstream tokens(text);
  for (std::string token; std::getline(tokens, token, ',');) take(token);
}

std::string in_lower_case(std::string name) {
  for (char& c : name)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return name;
}

/// Name and value of a token that has both brackets. A ")" that stands before the "(" leaves the
/// value empty; no option has such a name.
std::optional<std::pair<std::string, std::string>> parameter_of(const std::string& token) {
  const std::size_t open = token.find('('), close = token.find(')');
  if (open == token.npos || close == token.npos) return {};
  return {{in_lower_case(token.substr(0, open)),
           open < close ? token.substr(open + 1, close - open - 1) : ""}};
}

/// Why a token has no effect, or another one than it seems; empty if all is well. `given`: names of
/// the options before.
std::string problem_of(const std::string& token, std::set<std::string>& given) {
  const auto parameter = parameter_of(token);
  if (!parameter) return "is not of the form name(value)";
  const auto& [name, value] = *parameter;
  const auto row = std::ranges::find(options, name, &option::name);
  if (row == std::end(options)) return "is no option";
  if (!given.insert(name).second) return "was given before: the first counts";
  settings unused;
  const extent found = set(unused, *row, value);
  if (found == extent::none)
    return std::holds_alternative<bool settings::*>(row->target)
               ? "is neither true nor false: it counts as false"
               : "needs a number: the default stands";
  const bool goes_on = token.find(')') + 1 < token.size();
  if (found == extent::part || goes_on) return "goes on behind its value: the rest is passed over";
  double number = 0;
  convert(value, number);
  if (number < row->least) return "is below " + std::to_string(row->least);
  if (number > row->most) return "is above " + std::to_string(row->most);
  return "";
}

}  // namespace

param_map parseOptParams(const std::string& text) {
  param_map params;
  for_each_token(text, [&](const std::string& token) {
    if (auto parameter = parameter_of(token)) params.insert(std::move(*parameter));
  });
  return params;
}

std::vector<param_warning> checkOptParams(const std::string& text) {
  std::vector<param_warning> warnings;
  std::set<std::string> given;
  for_each_token(text, [&](const std::string& token) {
    if (std::string problem = token.empty() ? "" : problem_of(token, given); !problem.empty())
      warnings.push_back({token, std::move(problem)});
  });
  return warnings;
}

std::optional<std::string> findOptParam(const std::string& text, const std::string& name) {
  const param_map params = parseOptParams(text);
  const auto found = params.find(in_lower_case(name));
  if (found == params.end()) return {};
  return found->second;
}

std::int32_t paramToInt(const std::string& text, std::int32_t otherwise) {
  convert(text, otherwise);
  return otherwise;
}
std::uint32_t paramToUInt(const std::string& text, std::uint32_t otherwise) {
  convert(text, otherwise);
  return otherwise;
}
float paramToFloat(const std::string& text, float otherwise) {
  convert(text, otherwise);
  return otherwise;
}

bool paramToBool(const std::string& text) {
  bool value = false;
  convert(text, value);
  return value;
}

bool takesGeometryAway(const std::string& params) {
  const tree_options options = readTreeOptions(parseOptParams(params));
  return options.removelod || options.removeswitch || options.ambientgutout || options.buildhull ||
         options.buildhullwithcolors;
}

tree_options readTreeOptions(const param_map& params) {
  return read(params);
}
// NOLINTNEXTLINE(performance-unnecessary-value-param): the caller's map stays, whatever this does
mergeGeo_setup readMergeGeoSetup(param_map params) {
  return read(params);
}

void printMergeGeoSetup(const mergeGeo_setup& setup) {
  std::string text;
  const auto line = [&](const char* label, std::int32_t value) {
    text += label + std::to_string(value) + '\n';
  };
  line("Cacheopt:       ", setup.cacheopt);
  line("CalcNormals:    ", setup.calcnormals);
  line("Flat:           ", setup.flat);
  text += "IDMAP:          \"" + setup.idmap + "\"\n";
  line("OPT:            ", setup.opt);
  line("OptimizeTC:     ", setup.optimizetc);
  line("TexCoords:      ", setup.texcoords);
  line("ToWorld:        ", setup.toworld);
  line("VertexColor:    ", setup.vertexcolor);
  line("AddColorsTex:   ", setup.addcolorstex);
  line("deleteUnusedTC: ", setup.deleteunusedtc);
  line("mergeSameName:  ", setup.mergesamename);
  line("alphaGeometry:  ", setup.alphageometry);
  line("ignoreMaterial: ", setup.ignorematerial);
  line("keepRenderFalse:", setup.keeprenderfalse);
  say(text);
}

std::string optTreeDoc() {
  return R"(Type of parameter & parameter name : description [default value or "-" if not set]

int maxtris: Maximum Number of Triangles per GeometryCore [-]
int vertexcolor: Store MaterialColor in VertexColor if geometry has less triangles than threshold [-]
int texcoords: Ignore Geometry with TC greater than that value for texture atlas [2]
int optimizeTC: Try to optimize higher TC to this value by cutting triangles [2]
int opt: Output level of the geometry.(0:3 Vertices per Tris 1:Single Index 2:Shared Index 3:Optimized Primitives) [1]
int ambientOcclusion: Adds ambient occlusion to the model. Parameter is the number of shots per vertex. [0]
string idmap: Creating an IDmap(reference to original Geometry) with the given name [-]
string Prefix: When naming geometry use this prefix (e.g. the filename) [-]
bool toworld: Vertex positions are tranformed to world coordinates [true]
bool flat: Scenegraph as a flat graph(true), or as an hierarchy(false) [true]
bool cacheopt: Merges all Geometry with the same Material and create chunks with 65555 vertices [false]
bool calcnormals: False: Keep Normals True: Recreate normals after building a Geometry [false]
bool addColorsTex: Replaces the color of geometries with a colored texture in the TextureAtlas. [false]
bool removeLODParts: Removes all LODs and replaces them with the first child. [false]
bool removeSwitchParts: Removes all Switches and replaces them with the first child. [false]
Uint maxTextureSize: Maximum Texture Size for Texture Atlas.(Range: 32-8092) [-]
Float centerBB: Output Scene will be transformed to a centered BB with the given size [-]

Example: opt(1),maxtris(5000),flat(true),idmap(false)
Note: Depending on the operation, not all parameters are used! Boolean values work both 0/1 and false/true
)";
}

}  // namespace morlu::osg
