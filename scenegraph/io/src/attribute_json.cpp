#include "attribute_json.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace osg::io {
namespace {

using nlohmann::json;

constexpr std::size_t kMaxDepth = 60;

std::string compact(const json& value) {
  return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

/// The value whose compact text this is; a discarded one if there is none.
json canonical_value(std::string_view text) {
  constexpr std::string_view starts = "{[\"-0123456789tfn";
  if (text.empty() || starts.find(text[0]) == starts.npos || nests_too_deep(text))
    return json(json::value_t::discarded);
  json value = json::parse(text, nullptr, false);
  if (!value.is_discarded() && compact(value) != text) return json(json::value_t::discarded);
  return value;
}

/// Whether a string has to be quoted: it is the text of another value, or of such a quoted string.
bool needs_quotes(std::string_view text) {
  const json value = canonical_value(text);
  if (value.is_discarded()) return false;
  return !value.is_string() || needs_quotes(value.get_ref<const std::string&>());
}

std::string attribute_of(const json& value) {
  if (!value.is_string()) return compact(value);
  const auto& text = value.get_ref<const std::string&>();
  return needs_quotes(text) ? compact(value) : text;
}

std::string json_of(std::string_view attribute) {
  const json value = canonical_value(attribute);
  const bool is_value = !value.is_discarded() &&
                        (!value.is_string() || needs_quotes(value.get_ref<const std::string&>()));
  return is_value ? std::string(attribute) : json_string(attribute);
}

StringAttributeMapPtr map_of(const AttachmentContainer& container) {
  return StringAttributeMap::dcast(container.findAttachment(StringAttributeMap::getClassType()));
}

}  // namespace

void attach_extras(const AttachmentContainerPtr& container, const std::string& json_text) {
  if (json_text.empty()) return;
  const json extras = json::parse(json_text, nullptr, false);
  if (extras.is_discarded() || (extras.is_object() && extras.empty())) return;
  std::vector<StringAttributeMap::Attribute> attributes;
  if (extras.is_object())
    for (const auto& [key, value] : extras.items())
      attributes.emplace_back(key, attribute_of(value));
  else
    attributes.emplace_back("", attribute_of(extras));
  const auto map = StringAttributeMap::create();
  map->setAttributes(std::move(attributes));
  container->addAttachment(map);
}

std::string extras_of(const AttachmentContainer& container) {
  const StringAttributeMapPtr map = map_of(container);
  if (!map || map->getAttributes().empty()) return {};
  const auto& attributes = map->getAttributes();
  if (attributes.size() == 1 && attributes[0].first.empty()) return json_of(attributes[0].second);
  std::string text;
  for (const auto& [key, value] : attributes) {
    text += text.empty() ? '{' : ',';
    text += json_string(key);
    text += ':';
    text += json_of(value);
  }
  return text += '}';
}

std::string json_string(std::string_view text) {
  return compact(json(text));
}

bool nests_too_deep(std::string_view text) {
  std::size_t depth = 0;
  bool in_string = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (in_string && c == '\\')
      ++i;
    else if (c == '"')
      in_string = !in_string;
    else if (!in_string && (c == '[' || c == '{') && ++depth > kMaxDepth)
      return true;
    else if (!in_string && (c == ']' || c == '}') && depth > 0)
      --depth;
  }
  return false;
}

}  // namespace osg::io
