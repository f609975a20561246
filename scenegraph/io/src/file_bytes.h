#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "osg/base_types.h"

namespace osg::io {

using ByteSpan = std::span<const std::byte>;

/// Bytes on the heap that nobody filled with zeros first.
struct FileBytes {
  std::unique_ptr<std::byte[]> data;
  std::size_t size = 0;

  ByteSpan span() const { return {data.get(), size}; }
};

/// The bytes of a regular file, at most `limit` of them. Throws `ReadError` with `place`.
FileBytes read_file(const std::string& file, const std::string& place,
                    std::size_t limit = ~std::size_t{0});

/// "a%20b" as "a b"; a percent sign that two hexadecimal digits don't follow stays.
std::string percent_decoded(std::string_view text);
/// What a URI needs to stand for the file name `name`.
std::string percent_encoded(std::string_view name);

bool is_data_uri(std::string_view uri);
struct DataUri {
  std::string mime_type;
  std::vector<UInt8> bytes;
};
/// Throws `ReadError` with `place` if the base64 text is broken.
DataUri decode_data_uri(std::string_view uri, const std::string& place);

/// The file that a relative URI names below `base_dir`. Throws `ReadError` with `place` for other
/// URIs and if there is no base directory.
std::string file_of_uri(std::string_view uri, const std::string& base_dir,
                        const std::string& place);

}  // namespace osg::io
