#include "support/scene_text.h"

#include <map>
#include <sstream>

#include "osg/cores.h"
#include "osg/geometry.h"
#include "osg/material.h"

namespace support {
namespace {

class Describer {
 public:
  std::string text() const { return out_.str(); }

  /// "#3" for an object that was described before, else its whole description.
  void describe(const osg::FieldContainerPtrBase& handle) {
    if (handle.isNull()) {
      out_ << "null\n";
      return;
    }
    const auto [known, is_new] = numbers_.try_emplace(handle.getSerial(), numbers_.size());
    out_ << '#' << known->second;
    if (is_new) describe_new(*handle.getContainer());
    out_ << '\n';
  }

 private:
  void describe_new(osg::FieldContainer& object) {
    const osg::FieldContainerPtr handle(&object);
    out_ << ' ' << object.getType().getCName() << " {\n";
    if (const auto container = osg::AttachmentContainer::dcast(handle)) attachments(*container);
    if (const auto node = osg::Node::dcast(handle)) describe_node(*node);
    if (const auto core = osg::NodeCore::dcast(handle)) describe_core(core);
    if (const auto property = osg::GeoProperty::dcast(handle)) {
      out_ << "entries " << property->size() << ' ';
      bytes(property->getData(), property->size() * property->getStride());
    }
    if (const auto value = osg::ValueContainer::dcast(handle)) {
      osg::readFields(*value, [this](const char* name, const auto& field) {
        out_ << name << ' ';
        describe_value(field);
      });
    }
    if (const auto map = osg::StringAttributeMap::dcast(handle)) pairs(map->getAttributes());
    out_ << '}';
  }

  void attachments(const osg::AttachmentContainer& container) {
    if (const char* name = osg::getName(container)) text_line("name", name);
    pairs(container.getAttachmentFields());
    for (const auto& entry : container.getAttachments()) {
      const std::string type = entry.attachment->getType().getCName();
      if (type == "Name" || type == "AttachmentFields") {
        out_ << type << '\n';
      } else {
        out_ << "binding " << entry.binding << ' ';
        describe(entry.attachment);
      }
    }
  }

  void describe_node(const osg::Node& node) {
    out_ << "mask " << node.getTravMask() << "\ncore ";
    describe(node.getCore());
    for (const osg::NodePtr& child : node.getChildren()) describe(child);
  }

  void describe_core(const osg::NodeCorePtr& core) {
    if (const auto transform = osg::Transform::dcast(core)) describe_value(transform->getMatrix());
    if (const auto group = osg::MaterialGroup::dcast(core)) describe(group->getMaterial());
    if (const auto choice = osg::Switch::dcast(core)) describe_value(choice->getChoice());
    if (const auto lod = osg::DistanceLOD::dcast(core)) {
      describe_value(lod->getCenter());
      describe_value(lod->getRange().getValues());
    }
    if (const auto geometry = osg::Geometry::dcast(core)) {
      describe(geometry->getTypes());
      describe(geometry->getLengths());
      describe(geometry->getIndices());
      describe_value(geometry->getIndexMapping().getValues());
      for (osg::UInt32 i = 0; i < osg::kAttributeCount; ++i)
        describe(osg::GeoPropertyPtr(geometry->getAttribute(osg::attributeAt(i))));
      describe(geometry->getMaterial());
    }
  }

  template <class T>
  void describe_value(const T& value) {
    if constexpr (std::is_base_of_v<osg::FieldContainerPtrBase, T>) {
      describe(value);
    } else if constexpr (std::is_same_v<T, std::string>) {
      text_line("text", value);
    } else {
      bytes(&value, sizeof value);
    }
  }
  template <class T>
  void describe_value(const std::vector<T>& values) {
    out_ << values.size() << " values\n";
    for (const T& value : values) describe_value(value);
  }

  void pairs(const std::vector<std::pair<std::string, std::string>>& texts) {
    for (const auto& [key, value] : texts) {
      text_line("key", key);
      text_line("value", value);
    }
  }
  void text_line(const char* what, const std::string& value) {
    out_ << what << ' ' << value.size() << ' ' << value << '\n';
  }
  void bytes(const void* data, std::size_t size) {
    constexpr char digits[] = "0123456789abcdef";
    const auto* byte = static_cast<const unsigned char*>(data);
    for (std::size_t i = 0; i < size; ++i) out_ << digits[byte[i] >> 4] << digits[byte[i] & 15];
    out_ << '\n';
  }

  std::ostringstream out_;
  std::map<osg::UInt64, std::size_t> numbers_;
};

}  // namespace

std::string scene_text(const osg::NodePtr& root) {
  Describer describer;
  describer.describe(root);
  return describer.text();
}

}  // namespace support
