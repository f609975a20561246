#include "osg/material.h"

#include <algorithm>

namespace osg {

void ChunkMaterial::addChunk(const StateChunkPtr& chunk) {
  if (chunk) chunks_.push_back(chunk);
}

bool ChunkMaterial::subChunk(const StateChunkPtr& chunk) {
  const auto found = std::ranges::find(chunks_, chunk);
  if (found == chunks_.end()) return false;
  chunks_.erase(found);
  return true;
}

bool ChunkMaterial::accept_edited_fields() {
  std::erase(chunks_, StateChunkPtr());
  return true;
}

MaterialPtr SwitchMaterial::getChosenMaterial() const {
  if (choice_ < 0 || static_cast<std::size_t>(choice_) >= materials_.size()) return NullFC;
  return materials_[static_cast<std::size_t>(choice_)];
}

}  // namespace osg
