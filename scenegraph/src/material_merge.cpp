#include "osg/material_merge.h"

#include <unordered_map>
#include <vector>

#include "osg/cores.h"
#include "osg/geometry.h"
#include "osg/material.h"

namespace osg {

namespace {

/// Knows of every material which one stands for it. The tables are only asked for single entries,
/// never walked, so that the result depends on nothing but the order of the questions.
class MaterialMerger {
 public:
  MaterialPtr merged(const MaterialPtr& material) {
    if (!material) return NullFC;
    // Until it is known better a material stands for itself: a switch within itself ends here.
    const auto [known, is_new] = merged_.try_emplace(material, material);
    if (!is_new) return known->second;
    if (const auto choices = SwitchMaterial::dcast(material)) {
      for (MaterialPtr& choice : choices->getMaterials()) choice = merged(choice);
    }
    const auto first = first_of_value_.try_emplace(valueKey(*material), material).first->second;
    return merged_[material] = first;
  }

  void merge_core(const NodeCorePtr& core) {
    if (const auto geometry = Geometry::dcast(core)) merge_in(*geometry);
    if (const auto group = MaterialGroup::dcast(core)) merge_in(*group);
  }

 private:
  template <class Core>
  void merge_in(Core& core) {
    const MaterialPtr first = merged(core.getMaterial());
    if (first != core.getMaterial()) core.setMaterial(first);
  }

  std::unordered_map<MaterialPtr, MaterialPtr> merged_;
  std::unordered_map<std::string, MaterialPtr> first_of_value_;
};

}  // namespace

bool MaterialMergeGraphOp::traverse(const NodePtr& root) const {
  if (!root) return false;
  MaterialMerger merger;
  std::vector<const Node*> waiting{root.get()};
  while (!waiting.empty()) {
    const Node& node = *waiting.back();
    waiting.pop_back();
    merger.merge_core(node.getCore());
    const auto children = node.getChildren();
    for (auto child = children.rbegin(); child != children.rend(); ++child)
      if (*child) waiting.push_back(child->get());
  }
  return true;
}

}  // namespace osg
