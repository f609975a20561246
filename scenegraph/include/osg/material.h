#pragma once

#include <vector>

#include "osg/state_chunks.h"

namespace osg {

/// How a geometry looks. One material serves any number of geometries, also of several threads: it
/// has no list of its users, and reading it changes nothing.
class OSG_API Material : public AbstractContainerClass<"Material", Material, ValueContainer> {
 protected:
  Material() = default;
  Material(const Material&) = default;
  ~Material() override = default;
};
using MaterialPtr = FCPtr<Material>;

/// A material put together from chunks.
class OSG_API ChunkMaterial : public ValueContainerClass<"ChunkMaterial", ChunkMaterial, Material> {
 public:
  /// In the order in which they were added; no null among them.
  const std::vector<StateChunkPtr>& getChunks() const { return chunks_; }
  /// Appends; null adds nothing. A chunk may stand in the list more than once.
  void addChunk(const StateChunkPtr& chunk);
  /// Takes the chunk's first entry out of the list, the others keep their order; false if it has
  /// none.
  bool subChunk(const StateChunkPtr& chunk);
  void clearChunks() { chunks_.clear(); }

  /// The first chunk of that type or a type below it; null if there is none. O(chunks).
  template <class Chunk>
  FCPtr<Chunk> findFirstChunk() const {
    for (const StateChunkPtr& chunk : chunks_)
      if (auto found = Chunk::dcast(chunk)) return found;
    return NullFC;
  }
  /// The last one.
  template <class Chunk>
  FCPtr<Chunk> findLastChunk() const {
    for (auto chunk = chunks_.rbegin(); chunk != chunks_.rend(); ++chunk)
      if (auto found = Chunk::dcast(*chunk)) return found;
    return NullFC;
  }

  template <class Self, class Visitor>
  static void visitFields(Self& self, Visitor&& visit) {
    Material::visitFields(self, visit);
    visit("chunks", self.chunks_);
  }

 protected:
  friend ContainerClass<"ChunkMaterial", ChunkMaterial, Material>;
  ChunkMaterial() = default;
  /// Shares the chunks.
  ChunkMaterial(const ChunkMaterial&) = default;
  ~ChunkMaterial() override = default;

  bool accept_edited_fields() override;

 private:
  std::vector<StateChunkPtr> chunks_;
};
using ChunkMaterialPtr = FCPtr<ChunkMaterial>;
using ChunkMaterialBase = ChunkMaterial;

/// Four colours and a highlight. They are fields of the material; a MaterialChunk that is added to
/// its list is one more statement beside them.
class OSG_API SimpleMaterial
    : public ValueContainerClass<"SimpleMaterial", SimpleMaterial, ChunkMaterial> {
 public:
  const Color3f& getDiffuse() const { return diffuse_; }
  void setDiffuse(const Color3f& color) { diffuse_ = color; }
  const Color3f& getAmbient() const { return ambient_; }
  void setAmbient(const Color3f& color) { ambient_ = color; }
  const Color3f& getSpecular() const { return specular_; }
  void setSpecular(const Color3f& color) { specular_ = color; }
  const Color3f& getEmission() const { return emission_; }
  void setEmission(const Color3f& color) { emission_ = color; }
  /// Exponent of the highlight.
  Real32 getShininess() const { return shininess_; }
  void setShininess(Real32 shininess) { shininess_ = shininess; }

  template <class Self, class Visitor>
  static void visitFields(Self& self, Visitor&& visit) {
    ChunkMaterial::visitFields(self, visit);
    visit("diffuse", self.diffuse_);
    visit("ambient", self.ambient_);
    visit("specular", self.specular_);
    visit("emission", self.emission_);
    visit("shininess", self.shininess_);
  }

 protected:
  friend ContainerClass<"SimpleMaterial", SimpleMaterial, ChunkMaterial>;
  SimpleMaterial() = default;
  SimpleMaterial(const SimpleMaterial&) = default;
  ~SimpleMaterial() override = default;

 private:
  Color3f diffuse_{1.0f, 1.0f, 1.0f};
  Color3f ambient_{0.2f, 0.2f, 0.2f};
  Color3f specular_{0.0f, 0.0f, 0.0f};
  Color3f emission_{0.0f, 0.0f, 0.0f};
  Real32 shininess_ = 1.0f;
};
using SimpleMaterialPtr = FCPtr<SimpleMaterial>;
using SimpleMaterialBase = SimpleMaterial;

/// A simple material with an image on it, a field as well.
class OSG_API SimpleTexturedMaterial
    : public ValueContainerClass<"SimpleTexturedMaterial", SimpleTexturedMaterial, SimpleMaterial> {
 public:
  const ImagePtr& getImage() const { return image_; }
  void setImage(const ImagePtr& image) { image_ = image; }
  /// A `gl::` constant, `gl::kModulate` at first.
  UInt32 getEnvMode() const { return env_mode_; }
  void setEnvMode(UInt32 mode) { env_mode_ = mode; }

  template <class Self, class Visitor>
  static void visitFields(Self& self, Visitor&& visit) {
    SimpleMaterial::visitFields(self, visit);
    visit("image", self.image_);
    visit("envMode", self.env_mode_);
  }

 protected:
  friend ContainerClass<"SimpleTexturedMaterial", SimpleTexturedMaterial, SimpleMaterial>;
  SimpleTexturedMaterial() = default;
  SimpleTexturedMaterial(const SimpleTexturedMaterial&) = default;
  ~SimpleTexturedMaterial() override = default;

 private:
  ImagePtr image_;
  UInt32 env_mode_ = gl::kModulate;
};
using SimpleTexturedMaterialPtr = FCPtr<SimpleTexturedMaterial>;
using SimpleTexturedMaterialBase = SimpleTexturedMaterial;

/// One of several materials, by choice. Two of them are equal by value if they hold the same
/// materials, not equal ones.
class OSG_API SwitchMaterial
    : public ValueContainerClass<"SwitchMaterial", SwitchMaterial, Material> {
 public:
  std::vector<MaterialPtr>& getMaterials() { return materials_; }
  const std::vector<MaterialPtr>& getMaterials() const { return materials_; }
  void setMaterials(std::vector<MaterialPtr> materials) { materials_ = std::move(materials); }
  void addMaterial(const MaterialPtr& material) { materials_.push_back(material); }

  /// 0 at first; negative: none chosen.
  Int32 getChoice() const { return choice_; }
  void setChoice(Int32 choice) { choice_ = choice; }
  /// The chosen material; null if none is chosen or the choice lies past the end.
  MaterialPtr getChosenMaterial() const;

  template <class Self, class Visitor>
  static void visitFields(Self& self, Visitor&& visit) {
    Material::visitFields(self, visit);
    visit("materials", self.materials_);
    visit("choice", self.choice_);
  }

 protected:
  friend ContainerClass<"SwitchMaterial", SwitchMaterial, Material>;
  SwitchMaterial() = default;
  SwitchMaterial(const SwitchMaterial&) = default;
  ~SwitchMaterial() override = default;

 private:
  std::vector<MaterialPtr> materials_;
  Int32 choice_ = 0;
};
using SwitchMaterialPtr = FCPtr<SwitchMaterial>;
using SwitchMaterialBase = SwitchMaterial;

}  // namespace osg
