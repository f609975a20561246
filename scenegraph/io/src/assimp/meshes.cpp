#include "assimp/meshes.h"

#include <assimp/scene.h>
#include <cmath>

#include "assimp/node_names.h"
#include "assimp/polygons.h"
#include "assimp/vertex_join.h"

namespace osg::io {
namespace {

static_assert(sizeof(aiVector3D) == 12 && sizeof(aiColor4D) == 16, "read as arrays of floats");
static_assert(AI_MAX_NUMBER_OF_TEXTURECOORDS == kTexCoordSets);

// Cutting ears takes quadratic time: longer polygons than any tool makes stay whole.
constexpr std::size_t kMaxCutCorners = 2048;

/// The faces of a mesh as types, lengths and indices.
class FaceWriter {
 public:
  FaceWriter(const aiMesh& source, const GeometryPtr& core, const std::string& place,
             Warnings& warnings)
      : source_(source), place_(place), warnings_(warnings) {
    core->setTypes(types_);
    core->setLengths(lengths_);
  }

  /// One number a corner.
  std::vector<UInt32> run() {
    if (source_.mNumFaces == 0) add_loose_points();
    for (UInt32 i = 0; i < source_.mNumFaces; ++i) {
      const aiFace& face = source_.mFaces[i];
      for (UInt32 k = 0; k < face.mNumIndices; ++k)
        if (face.mIndices[k] >= source_.mNumVertices)
          throw ReadError{place_ + "." + place_of("faces", i),
                          "index " + std::to_string(face.mIndices[k]) + " reaches past the " +
                              std::to_string(source_.mNumVertices) + " vertices"};
      add_face({face.mIndices, face.mNumIndices});
    }
    finish_run();
    return std::move(indices_);
  }

 private:
  void add_face(std::span<const UInt32> corners) {
    switch (corners.size()) {
      case 0:
        return;
      case 1:
        return append(kPoints, corners);
      case 2:
        return append(kLines, corners);
      case 3:
        return append(kTriangles, corners);
      default:
        add_polygon(corners);
    }
  }

  void add_polygon(std::span<const UInt32> corners) {
    polygon_.clear();
    for (const UInt32 corner : corners) {
      const aiVector3D& p = source_.mVertices[corner];
      polygon_.emplace_back(p.x, p.y, p.z);
    }
    const bool whole = is_convex(polygon_);
    if (!whole && corners.size() <= kMaxCutCorners) {
      cut_.clear();
      for (const UInt32 corner : triangulate(polygon_)) cut_.push_back(corners[corner]);
      return append(kTriangles, cut_);
    }
    if (!whole)
      warnings_.count("polygons that aren't convex but too long to be cut stay as they are",
                      "polygon");
    if (corners.size() == 4) return append(kQuads, corners);
    finish_run();
    append(kPolygon, corners);
    finish_run();
  }

  void append(PrimitiveType type, std::span<const UInt32> corners) {
    if (type != type_) finish_run();
    type_ = type;
    indices_.insert(indices_.end(), corners.begin(), corners.end());
  }

  void finish_run() {
    if (indices_.size() > 0xffffffffu) throw ReadError{place_, "has more than 2^32 corners"};
    const auto end = static_cast<UInt32>(indices_.size());
    if (end > written_) {
      types_->push_back(type_);
      lengths_->push_back(end - written_);
    }
    written_ = end;
  }

  /// Vertices of a mesh without faces are points.
  void add_loose_points() {
    for (UInt32 i = 0; i < source_.mNumVertices; ++i) append(kPoints, {&i, 1});
  }

  const aiMesh& source_;
  const std::string& place_;
  Warnings& warnings_;
  GeoPTypesPtr types_ = GeoPTypesPtr(GeoPTypesUI8::create());
  GeoPLengthsPtr lengths_ = GeoPLengthsPtr(GeoPLengthsUI32::create());
  std::vector<UInt32> indices_;
  UInt32 written_ = 0;  // indices that have their type and length
  PrimitiveType type_ = kPoints;
  std::vector<Pnt3f> polygon_;
  std::vector<UInt32> cut_;
};

VertexStream stream_of(const void* data, std::size_t size) {
  return {static_cast<const std::byte*>(data), size};
}

std::vector<VertexStream> streams_of(const aiMesh& source) {
  std::vector<VertexStream> streams{stream_of(source.mVertices, sizeof(aiVector3D))};
  if (source.mNormals) streams.push_back(stream_of(source.mNormals, sizeof(aiVector3D)));
  for (const aiColor4D* colors : source.mColors)
    if (colors) streams.push_back(stream_of(colors, sizeof(aiColor4D)));
  for (const aiVector3D* coords : source.mTextureCoords)
    if (coords) streams.push_back(stream_of(coords, sizeof(aiVector3D)));
  return streams;
}

/// Whether every corner has a vertex of its own, which is how most importers hand over faces.
bool is_taken_apart(const aiMesh& source) {
  std::vector<bool> used(source.mNumVertices);
  std::size_t corners = 0;
  for (const aiFace& face : std::span(source.mFaces, source.mNumFaces))
    for (const UInt32 corner : std::span(face.mIndices, face.mNumIndices)) {
      if (used[corner]) return false;
      used[corner] = true;
      ++corners;
    }
  return corners == source.mNumVertices;
}

/// Which vertices to copy: all, or one of each kind.
struct Selection {
  UInt32 count;
  std::vector<UInt32> chosen = {};  // empty: all

  UInt32 operator[](UInt32 i) const { return chosen.empty() ? i : chosen[i]; }
};

template <class Property, class Value, class Convert>
GeoPropertyPtr copy(const Value* from, const Selection& selection, Convert&& convert) {
  const auto property = Property::create();
  property->resize(selection.count);
  const auto to = property->values();
  for (UInt32 i = 0; i < selection.count; ++i) to[i] = convert(from[selection[i]]);
  return property;
}

/// Turns, scales and moves as the material says, about the middle of the image; then v downwards,
/// so that the image's first row lies at 0.
Vec2f tex_coord(const aiVector3D& from, const aiUVTransform* transform) {
  Real32 u = from.x;
  Real32 v = from.y;
  if (transform) {
    const Real32 x = u * transform->mScaling.x - 0.5f;
    const Real32 y = v * transform->mScaling.y - 0.5f;
    const Real32 c = std::cos(transform->mRotation);
    const Real32 s = std::sin(transform->mRotation);
    u = c * x - s * y + 0.5f + transform->mTranslation.x;
    v = s * x + c * y + 0.5f + transform->mTranslation.y;
  }
  return {u, 1.0f - v};
}

void add_attributes(const aiMesh& source, const ModelMaterial& material, const Selection& selection,
                    const GeometryPtr& core) {
  const auto add = [&](Attribute attribute, const GeoPropertyPtr& property) {
    core->setAttribute(attribute, property);
  };
  const auto color = [](const aiColor4D& c) { return Color4f(c.r, c.g, c.b, c.a); };
  add(Attribute::Positions,
      copy<GeoPositions3f>(source.mVertices, selection,
                           [](const aiVector3D& p) { return Pnt3f(p.x, p.y, p.z); }));
  if (source.mNormals)
    add(Attribute::Normals, copy<GeoNormals3f>(source.mNormals, selection, [](const aiVector3D& n) {
          return Vec3f(n.x, n.y, n.z);
        }));
  if (source.mColors[0])
    add(Attribute::Colors, copy<GeoColors4f>(source.mColors[0], selection, color));
  if (source.mColors[1])
    add(Attribute::SecondaryColors, copy<GeoColors4f>(source.mColors[1], selection, color));
  for (UInt32 set = 0; set < kTexCoordSets; ++set) {
    if (!source.mTextureCoords[set]) continue;
    const bool moved = material.transform && material.set == set;
    const aiUVTransform* transform = moved ? &*material.transform : nullptr;
    add(texCoordsAttribute(set),
        copy<GeoTexCoords2f>(source.mTextureCoords[set], selection,
                             [&](const aiVector3D& t) { return tex_coord(t, transform); }));
  }
}

bool counts_up(const std::vector<UInt32>& indices) {
  for (std::size_t i = 0; i < indices.size(); ++i)
    if (indices[i] != i) return false;
  return true;
}

/// Corners that use the vertices one after the other need no indices.
void set_indices(const std::vector<UInt32>& corners, const GeometryPtr& core) {
  if (counts_up(corners)) return;
  const auto indices = GeoIndicesUI32::create();
  indices->resize(corners.size());
  std::copy(corners.begin(), corners.end(), indices->values().begin());
  core->setIndices(indices);
}

bool has_third_component(const aiMesh& source) {
  for (UInt32 set = 0; set < kTexCoordSets; ++set)
    if (source.mTextureCoords[set] && source.mNumUVComponents[set] > 2)
      for (UInt32 i = 0; i < source.mNumVertices; ++i)
        if (source.mTextureCoords[set][i].z != 0.0f) return true;
  return false;
}

}  // namespace

ModelMeshes::ModelMeshes(const aiScene& scene, ModelMaterials& materials, Warnings& warnings)
    : scene_(scene), materials_(materials), warnings_(warnings), meshes_(scene.mNumMeshes) {}

std::string ModelMeshes::name(UInt32 mesh) const {
  return mesh_name(scene_.mMeshes[mesh]->mName.C_Str(), mesh);
}

const GeometryPtr& ModelMeshes::core(UInt32 index, const std::string& place) {
  if (index >= meshes_.size() || !scene_.mMeshes[index])
    throw ReadError{place, "there is no mesh " + std::to_string(index)};
  Mesh& mesh = meshes_[index];
  if (mesh.built) return mesh.core;
  mesh.built = true;
  mesh.core = build(*scene_.mMeshes[index], place_of("meshes", index));
  if (const std::string called = name(index); mesh.core && !called.empty())
    osg::setName(mesh.core, called);
  return mesh.core;
}

GeometryPtr ModelMeshes::build(const aiMesh& source, const std::string& place) {
  if (!source.mVertices || source.mNumVertices == 0) {
    warnings_.count("meshes without vertices are left out", "mesh");
    return NullFC;
  }
  warn_of(source);
  const auto core = Geometry::create();
  const ModelMaterial& material = materials_.material(source.mMaterialIndex, place);
  core->setMaterial(material.material);
  std::vector<UInt32> corners = FaceWriter(source, core, place, warnings_).run();
  Selection selection{source.mNumVertices};
  const bool points_only = source.mPrimitiveTypes == aiPrimitiveType_POINT;
  if (!points_only && is_taken_apart(source)) {
    VertexJoin join = join_equal_vertices(streams_of(source), source.mNumVertices);
    for (UInt32& corner : corners) corner = join.new_from_old[corner];
    const auto count = static_cast<UInt32>(join.old_from_new.size());
    selection = {count, std::move(join.old_from_new)};
  }
  add_attributes(source, material, selection, core);
  set_indices(corners, core);
  return core;
}

void ModelMeshes::warn_of(const aiMesh& source) {
  const auto warn = [this](bool left_out, const char* text) {
    warnings_.count(text, "mesh", left_out ? 1 : 0);
  };
  warn(source.mNumBones > 0, "skins are left out");
  warn(source.mNumAnimMeshes > 0, "morph targets are left out");
  warn(source.mTangents || source.mBitangents, "tangents are left out");
  warn(source.GetNumColorChannels() > 2, "colours but the first two a vertex are left out");
  warn(has_third_component(source), "third components of texture coordinates are left out");
}

}  // namespace osg::io
