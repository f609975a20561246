#pragma once

#include <string>
#include <string_view>

#include "osg/attachment.h"

namespace osg::io {

/// `extras` and attribute maps. A string stands for itself, any other value for its compact JSON
/// text. Strings that look like the JSON of another value, "12" or "true", are kept in quotes, so
/// that both directions are one to one: every attribute text comes back as it was, and so does
/// every JSON value.

/// Makes the members of a JSON object the container's attribute map. A value that is no object gets
/// the empty key. Text that is no JSON changes nothing.
void attach_extras(const AttachmentContainerPtr& container, const std::string& json_text);

/// The container's attribute map as JSON text; empty if it has none or an empty one. Bytes that are
/// no UTF-8 become replacement characters.
std::string extras_of(const AttachmentContainer& container);

/// `text` as a JSON string with quotes.
std::string json_string(std::string_view text);

/// Whether JSON text nests deeper than 60 levels: what is parsed and written recursively must not.
bool nests_too_deep(std::string_view text);

}  // namespace osg::io
