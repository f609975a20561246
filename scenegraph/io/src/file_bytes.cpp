#include "file_bytes.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "report.h"

namespace osg::io {
namespace {

int hex_value(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

constexpr std::array<signed char, 256> base64_values() {
  constexpr std::string_view digits =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::array<signed char, 256> values{};
  values.fill(-1);
  for (std::size_t i = 0; i < digits.size(); ++i)
    values[static_cast<unsigned char>(digits[i])] = static_cast<signed char>(i);
  values['-'] = 62;  // the alphabet for URLs
  values['_'] = 63;
  return values;
}

std::vector<UInt8> decode_base64(std::string_view text, const std::string& place) {
  static constexpr std::array<signed char, 256> values = base64_values();
  while (!text.empty() && text.back() == '=') text.remove_suffix(1);
  std::vector<UInt8> bytes;
  bytes.reserve(text.size() / 4 * 3 + 2);
  UInt32 bits = 0;
  int count = 0;
  for (const char c : text) {
    const int value = values[static_cast<unsigned char>(c)];
    if (value < 0) throw ReadError{place, "the data URI holds a character that is not base64"};
    bits = bits << 6 | static_cast<UInt32>(value);
    if ((count += 6) < 8) continue;
    count -= 8;
    bytes.push_back(static_cast<UInt8>(bits >> count));
  }
  if (count == 6) throw ReadError{place, "the base64 text of the data URI is cut off"};
  return bytes;
}

}  // namespace

FileBytes read_file(const std::string& file, const std::string& place, std::size_t limit) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(file, error))
    throw ReadError{place, error ? "can't be opened: " + error.message() : "is no regular file"};
  errno = 0;
  std::ifstream in(file, std::ios::binary | std::ios::ate);
  if (!in) throw ReadError{place, std::string("can't be opened: ") + std::strerror(errno)};
  const std::streamoff end = in.tellg();
  FileBytes bytes;
  bytes.size = std::min(limit, static_cast<std::size_t>(std::max<std::streamoff>(end, 0)));
  bytes.data = std::make_unique_for_overwrite<std::byte[]>(std::max<std::size_t>(bytes.size, 1));
  in.seekg(0);
  in.read(reinterpret_cast<char*>(bytes.data.get()), static_cast<std::streamsize>(bytes.size));
  if (!in && bytes.size > 0) throw ReadError{place, "can't be read to its end"};
  return bytes;
}

std::string percent_decoded(std::string_view text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool escape = text[i] == '%' && i + 2 < text.size() && hex_value(text[i + 1]) >= 0 &&
                        hex_value(text[i + 2]) >= 0;
    if (!escape) {
      decoded += text[i];
      continue;
    }
    decoded += static_cast<char>(hex_value(text[i + 1]) * 16 + hex_value(text[i + 2]));
    i += 2;
  }
  return decoded;
}

std::string percent_encoded(std::string_view name) {
  constexpr std::string_view plain = "-_.~!$'()*+,;=@";
  constexpr char digits[] = "0123456789ABCDEF";
  std::string encoded;
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    const bool letter = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    if (letter || plain.find(c) != plain.npos)
      encoded += c;
    else
      (encoded += '%').append({digits[byte / 16], digits[byte % 16]});
  }
  return encoded;
}

bool is_data_uri(std::string_view uri) {
  return uri.substr(0, 5) == "data:";
}

DataUri decode_data_uri(std::string_view uri, const std::string& place) {
  const std::size_t comma = uri.find(',');
  if (comma == uri.npos) throw ReadError{place, "the data URI has no data"};
  std::string_view head = uri.substr(5, comma - 5);
  const std::string_view data = uri.substr(comma + 1);
  constexpr std::string_view marker = ";base64";
  const bool base64 = head.size() >= marker.size() && head.ends_with(marker);
  DataUri decoded;
  decoded.mime_type = head.substr(0, std::min(head.find(';'), head.size()));
  if (base64) {
    decoded.bytes = decode_base64(data, place);
  } else {
    const std::string bytes = percent_decoded(data);
    decoded.bytes.assign(bytes.begin(), bytes.end());
  }
  return decoded;
}

std::string file_of_uri(std::string_view uri, const std::string& base_dir,
                        const std::string& place) {
  const std::string path = percent_decoded(uri);
  // A scheme is letters before a colon; a single one may be a drive, which is absolute as well.
  const std::size_t colon = path.find_first_of(":/?#");
  const bool absolute = path.empty() || path[0] == '/' || path.find('\0') != path.npos ||
                        (colon != path.npos && path[colon] == ':');
  if (absolute) throw ReadError{place, "'" + path + "' is no relative path"};
  if (base_dir.empty())
    throw ReadError{place, "'" + path + "' can't be looked for without a directory"};
  return (std::filesystem::path(base_dir) / path).string();
}

}  // namespace osg::io
