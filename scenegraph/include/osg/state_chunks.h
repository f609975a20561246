#pragma once

#include <string>
#include <vector>

#include "osg/gl_constants.h"
#include "osg/image.h"
#include "osg/value_container.h"

namespace osg {

/// A part of how a ChunkMaterial draws.
///
/// Like materials, chunks are shared freely between materials and between threads that read them:
/// they know nothing of who uses them.
class OSG_API StateChunk : public AbstractContainerClass<"StateChunk", StateChunk, ValueContainer> {
 protected:
  StateChunk() = default;
  StateChunk(const StateChunk&) = default;
  ~StateChunk() override = default;
};
using StateChunkPtr = FCPtr<StateChunk>;

/// Colours of a lit surface, for its front and for its back.
///
/// The back's diffuse colour of a new chunk, white with alpha 0, says that the back looks like the
/// front.
class OSG_API MaterialChunk
    : public ValueContainerClass<"MaterialChunk", MaterialChunk, StateChunk> {
 public:
  const Color4f& getDiffuse() const { return front_.diffuse; }
  void setDiffuse(const Color4f& color) { front_.diffuse = color; }
  const Color4f& getAmbient() const { return front_.ambient; }
  void setAmbient(const Color4f& color) { front_.ambient = color; }
  const Color4f& getSpecular() const { return front_.specular; }
  void setSpecular(const Color4f& color) { front_.specular = color; }
  const Color4f& getEmission() const { return front_.emission; }
  void setEmission(const Color4f& color) { front_.emission = color; }
  /// Exponent of the highlight.
  Real32 getShininess() const { return front_.shininess; }
  void setShininess(Real32 shininess) { front_.shininess = shininess; }

  const Color4f& getBackDiffuse() const { return back_.diffuse; }
  void setBackDiffuse(const Color4f& color) { back_.diffuse = color; }
  const Color4f& getBackAmbient() const { return back_.ambient; }
  void setBackAmbient(const Color4f& color) { back_.ambient = color; }
  const Color4f& getBackSpecular() const { return back_.specular; }
  void setBackSpecular(const Color4f& color) { back_.specular = color; }
  const Color4f& getBackEmission() const { return back_.emission; }
  void setBackEmission(const Color4f& color) { back_.emission = color; }
  Real32 getBackShininess() const { return back_.shininess; }
  void setBackShininess(Real32 shininess) { back_.shininess = shininess; }

  /// Which of the colours a vertex colour stands for, `gl::kAmbientAndDiffuse` for one; `gl::kNone`
  /// at first.
  UInt32 getColorMaterial() const { return color_material_; }
  void setColorMaterial(UInt32 mode) { color_material_ = mode; }

  template <class Self, class Visitor>
  static void visitFields(Self& self, Visitor&& visit) {
    StateChunk::visitFields(self, visit);
    visit("diffuse", self.front_.diffuse);
    visit("ambient", self.front_.ambient);
    visit("specular", self.front_.specular);
    visit("emission", self.front_.emission);
    visit("shininess", self.front_.shininess);
    visit("backDiffuse", self.back_.diffuse);
    visit("backAmbient", self.back_.ambient);
    visit("backSpecular", self.back_.specular);
    visit("backEmission", self.back_.emission);
    visit("backShininess", self.back_.shininess);
    visit("colorMaterial", self.color_material_);
  }

 protected:
  friend ContainerClass<"MaterialChunk", MaterialChunk, StateChunk>;
  MaterialChunk() = default;
  MaterialChunk(const MaterialChunk&) = default;
  ~MaterialChunk() override = default;

 private:
  struct Side {
    Color4f diffuse{1.0f, 1.0f, 1.0f, 1.0f};
    Color4f ambient{0.2f, 0.2f, 0.2f, 1.0f};
    Color4f specular{0.0f, 0.0f, 0.0f, 1.0f};
    Color4f emission{0.0f, 0.0f, 0.0f, 1.0f};
    Real32 shininess = 1.0f;
  };
  Side front_;
  Side back_{.diffuse = Color4f(1.0f, 1.0f, 1.0f, 0.0f)};
  UInt32 color_material_ = gl::kNone;
};
using MaterialChunkPtr = FCPtr<MaterialChunk>;
using MaterialChunkBase = MaterialChunk;

/// An image on the surface. Modes, filters and wraps are `gl::` constants.
class OSG_API TextureChunk : public ValueContainerClass<"TextureChunk", TextureChunk, StateChunk> {
 public:
  /// Null: no texture.
  const ImagePtr& getImage() const { return image_; }
  void setImage(const ImagePtr& image) { image_ = image; }
  UInt32 getMinFilter() const { return min_filter_; }
  void setMinFilter(UInt32 filter) { min_filter_ = filter; }
  UInt32 getMagFilter() const { return mag_filter_; }
  void setMagFilter(UInt32 filter) { mag_filter_ = filter; }
  UInt32 getWrapS() const { return wrap_s_; }
  void setWrapS(UInt32 wrap) { wrap_s_ = wrap; }
  UInt32 getWrapT() const { return wrap_t_; }
  void setWrapT(UInt32 wrap) { wrap_t_ = wrap; }
  UInt32 getEnvMode() const { return env_mode_; }
  void setEnvMode(UInt32 mode) { env_mode_ = mode; }
  /// What the mode `gl::kCombine` does with the colours.
  UInt32 getEnvCombineRGB() const { return env_combine_rgb_; }
  void setEnvCombineRGB(UInt32 mode) { env_combine_rgb_ = mode; }
  /// The geometry's set of texture coordinates that the image lies on.
  UInt32 getTexCoordSet() const { return tex_coord_set_; }
  void setTexCoordSet(UInt32 set) { tex_coord_set_ = set; }

  template <class Self, class Visitor>
  static void visitFields(Self& self, Visitor&& visit) {
    StateChunk::visitFields(self, visit);
    visit("image", self.image_);
    visit("minFilter", self.min_filter_);
    visit("magFilter", self.mag_filter_);
    visit("wrapS", self.wrap_s_);
    visit("wrapT", self.wrap_t_);
    visit("envMode", self.env_mode_);
    visit("envCombineRGB", self.env_combine_rgb_);
    visit("texCoordSet", self.tex_coord_set_);
  }

 protected:
  friend ContainerClass<"TextureChunk", TextureChunk, StateChunk>;
  TextureChunk() = default;
  TextureChunk(const TextureChunk&) = default;
  ~TextureChunk() override = default;

 private:
  ImagePtr image_;
  UInt32 min_filter_ = gl::kLinearMipmapLinear;
  UInt32 mag_filter_ = gl::kLinear;
  UInt32 wrap_s_ = gl::kRepeat;
  UInt32 wrap_t_ = gl::kRepeat;
  UInt32 env_mode_ = gl::kModulate;
  UInt32 env_combine_rgb_ = gl::kModulate;
  UInt32 tex_coord_set_ = 0;
};
using TextureChunkPtr = FCPtr<TextureChunk>;
using TextureChunkBase = TextureChunk;

/// A texture of the surroundings. Its image holds the six sides.
class OSG_API CubeTextureChunk
    : public ValueContainerClass<"CubeTextureChunk", CubeTextureChunk, TextureChunk> {
 protected:
  friend ContainerClass<"CubeTextureChunk", CubeTextureChunk, TextureChunk>;
  CubeTextureChunk() = default;
  CubeTextureChunk(const CubeTextureChunk&) = default;
  ~CubeTextureChunk() override = default;
};
using CubeTextureChunkPtr = FCPtr<CubeTextureChunk>;
using CubeTextureChunkBase = CubeTextureChunk;

/// Mixes the surface with what lies behind it. A new chunk has the factors that don't mix.
class OSG_API BlendChunk : public ValueContainerClass<"BlendChunk", BlendChunk, StateChunk> {
 public:
  UInt32 getSrcFactor() const { return src_factor_; }
  void setSrcFactor(UInt32 factor) { src_factor_ = factor; }
  UInt32 getDestFactor() const { return dest_factor_; }
  void setDestFactor(UInt32 factor) { dest_factor_ = factor; }

  template <class Self, class Visitor>
  static void visitFields(Self& self, Visitor&& visit) {
    StateChunk::visitFields(self, visit);
    visit("srcFactor", self.src_factor_);
    visit("destFactor", self.dest_factor_);
  }

 protected:
  friend ContainerClass<"BlendChunk", BlendChunk, StateChunk>;
  BlendChunk() = default;
  BlendChunk(const BlendChunk&) = default;
  ~BlendChunk() override = default;

 private:
  UInt32 src_factor_ = gl::kOne;
  UInt32 dest_factor_ = gl::kZero;
};
using BlendChunkPtr = FCPtr<BlendChunk>;
using BlendChunkBase = BlendChunk;

/// Places what is drawn with the material by a matrix.
class OSG_API TransformChunk
    : public ValueContainerClass<"TransformChunk", TransformChunk, StateChunk> {
 public:
  const TransformationMatrix<Real32>& getMatrix() const { return matrix_; }
  void setMatrix(const TransformationMatrix<Real32>& matrix) { matrix_ = matrix; }

  template <class Self, class Visitor>
  static void visitFields(Self& self, Visitor&& visit) {
    StateChunk::visitFields(self, visit);
    visit("matrix", self.matrix_);
  }

 protected:
  friend ContainerClass<"TransformChunk", TransformChunk, StateChunk>;
  TransformChunk() = default;
  TransformChunk(const TransformChunk&) = default;
  ~TransformChunk() override = default;

 private:
  TransformationMatrix<Real32> matrix_;
};
using TransformChunkPtr = FCPtr<TransformChunk>;
using TransformChunkBase = TransformChunk;

/// What a file format of physically based materials says beyond the other chunks.
///
/// The layer carries it as it is: for equality, copies and files it is a text and a row of images.
class OSG_API PBRChunk : public ValueContainerClass<"PBRChunk", PBRChunk, StateChunk> {
 public:
  /// The glTF material as JSON with sorted keys and without blanks; a texture's `source` is the
  /// number of its image in `getImages()`.
  const std::string& getDefinition() const { return definition_; }
  void setDefinition(std::string definition) { definition_ = std::move(definition); }
  std::vector<ImagePtr>& getImages() { return images_; }
  const std::vector<ImagePtr>& getImages() const { return images_; }
  void setImages(std::vector<ImagePtr> images) { images_ = std::move(images); }

  template <class Self, class Visitor>
  static void visitFields(Self& self, Visitor&& visit) {
    StateChunk::visitFields(self, visit);
    visit("definition", self.definition_);
    visit("images", self.images_);
  }

 protected:
  friend ContainerClass<"PBRChunk", PBRChunk, StateChunk>;
  PBRChunk() = default;
  PBRChunk(const PBRChunk&) = default;
  ~PBRChunk() override = default;

 private:
  std::string definition_;
  std::vector<ImagePtr> images_;
};
using PBRChunkPtr = FCPtr<PBRChunk>;
using PBRChunkBase = PBRChunk;

}  // namespace osg
