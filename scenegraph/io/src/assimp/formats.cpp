#include "assimp/formats.h"

#include <algorithm>
#include <filesystem>

namespace osg::io {

std::span<const AssimpFormat> assimp_formats() {
  constexpr bool turns = true;
  static const std::vector<AssimpFormat> formats = {
      {"3D Manufacturing Format", {"3mf"}},
      {"3ds Max ASCII", {"ase", "ask"}, turns},
      {"3DS", {"3ds"}, turns},
      {"AC3D", {"ac", "ac3d", "acc"}},
      {"Additive Manufacturing", {"amf"}},
      {"BlitzBasic 3D", {"b3d"}},
      {"Blender", {"blend"}, turns},
      {"Collada", {"dae", "zae"}, turns},
      {"DirectX", {"x"}},
      {"Drawing Interchange", {"dxf"}},
      {"Extensible 3D", {"x3d", "x3db"}},
      {"FBX", {"fbx"}},
      {"Industry Foundation Classes", {"ifc", "ifczip"}},
      {"Inter-Quake", {"iqm"}},
      {"Irrlicht", {"irr", "irrmesh"}},
      {"LightWave", {"lwo", "lws", "lxo"}},
      {"MilkShape 3D", {"ms3d"}},
      {"MikuMikuDance", {"pmx"}},
      {"Nendo", {"ndo"}},
      {"Neutral File Format", {"enff", "nff"}},
      {"Object File Format", {"off"}},
      {"Ogre", {"mesh"}},
      {"OpenGEX", {"ogex"}},
      {"PLY", {"ply"}},
      {"Quake and its descendants", {"md2", "md3", "md5mesh", "mdc", "mdl", "smd"}, turns},
      {"Quick3D", {"q3o", "q3s"}},
      {"Raw triangles", {"raw"}},
      {"Silo", {"sib"}},
      {"STL", {"stl"}},
      {"Terragen", {"ter"}},
      {"trueSpace", {"cob"}},
      {"Wavefront OBJ", {"obj"}},
      {"XGL", {"xgl", "zgl"}},
  };
  return formats;
}

std::string suffix_of(std::string_view file) {
  std::string suffix = std::filesystem::path(file).extension().string();
  if (!suffix.empty()) suffix.erase(0, 1);
  for (char& c : suffix)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return suffix;
}

const AssimpFormat* assimp_format_of(std::string_view file) {
  const std::string suffix = suffix_of(file);
  for (const AssimpFormat& format : assimp_formats())
    if (std::find(format.suffixes.begin(), format.suffixes.end(), suffix) != format.suffixes.end())
      return &format;
  return nullptr;
}

}  // namespace osg::io
