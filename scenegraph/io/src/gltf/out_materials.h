#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "json_text.h"
#include "osg/material.h"
#include "report.h"

namespace osg::io {

/// Materials, textures, samplers and images to write, numbered in order of first use.
class OutMaterials {
 public:
  /// The number of the material; -1 for null.
  int index_of(const MaterialPtr& material);

  const std::vector<std::string>& materials() const { return materials_; }
  const std::vector<std::string>& textures() const { return textures_.texts; }
  const std::vector<std::string>& samplers() const { return samplers_.texts; }
  const std::vector<ImagePtr>& images() const { return images_; }
  /// Extensions that materials name, sorted.
  const std::set<std::string>& extensions() const { return extensions_; }

 private:
  /// JSON texts, each once.
  struct Table {
    std::vector<std::string> texts;
    std::map<std::string, std::size_t> index;
    std::size_t number_of(const std::string& text);
  };
  std::string material_text(const MaterialPtr& material);
  std::size_t texture_number(const ImagePtr& image, const std::string& sampler);
  std::size_t image_number(const ImagePtr& image);

  std::vector<std::string> materials_;
  std::map<MaterialPtr, int> index_;
  Table textures_;
  Table samplers_;
  std::vector<ImagePtr> images_;
  std::map<ImagePtr, std::size_t> image_index_;
  std::set<std::string> extensions_;
};

}  // namespace osg::io
