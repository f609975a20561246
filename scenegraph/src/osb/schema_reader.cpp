#include "osb/schema_reader.h"

#include <algorithm>

namespace osg::osb {
namespace {

WireType read_type(ByteSource& source) {
  const UInt64 offset = source.offset();
  const WireType type{static_cast<Scalar>(source.get<UInt8>()), source.get<UInt8>(),
                      source.get<UInt8>()};
  if (scalar_bytes(type.scalar) == 0 || type.components < 1 || type.components > 16 ||
      type.is_list > 1) {
    ByteSource::fail_at(offset, "there is no such type of field");
  }
  return type;
}

const KnownClass& read_class_name(ByteSource& source, const std::vector<FileClass>& others) {
  const UInt64 offset = source.offset();
  const std::string name = read_text(source);
  const KnownClass* known = find_known_class(name);
  if (!known) ByteSource::fail_at(offset, "class '" + name + "' is not known");
  for (const FileClass& other : others)
    if (other.known == known) ByteSource::fail_at(offset, "class '" + name + "' stands twice");
  return *known;
}

void check_names_differ(const FileClass& one, UInt64 offset) {
  std::vector<std::string_view> names;
  for (const FieldSpec& field : one.fields) names.push_back(field.name);
  std::ranges::sort(names);
  const auto twice = std::ranges::adjacent_find(names);
  if (twice != names.end())
    ByteSource::fail_at(offset, "field '" + std::string(*twice) + "' stands twice");
}

/// Finds the program's fields among the file's.
void match_fields(FileClass& one, UInt64 offset, std::vector<std::string>& warnings) {
  one.is_as_known = one.fields == one.known->fields;
  if (one.is_as_known) return;
  const std::string of_class = " of class '" + one.known->type->getName() + "'";
  std::vector<bool> is_known(one.fields.size());
  for (const FieldSpec& own : one.known->fields) {
    const auto found = std::ranges::find(one.fields, own.name, &FieldSpec::name);
    one.place_of_own.push_back(-1);
    if (found == one.fields.end()) continue;
    if (found->type != own.type)
      ByteSource::fail_at(offset, "field '" + own.name + "'" + of_class + " has another type");
    one.place_of_own.back() = static_cast<Int32>(found - one.fields.begin());
    is_known[static_cast<std::size_t>(found - one.fields.begin())] = true;
  }
  for (std::size_t i = 0; i < one.fields.size(); ++i)
    if (!is_known[i])
      warnings.push_back("field '" + one.fields[i].name + "'" + of_class +
                         " is not known and left out");
}

}  // namespace

std::string read_text(ByteSource& source) {
  const auto length = source.get<UInt32>();
  source.expect(length, 1);
  std::string text(length, '\0');
  source.read(text.data(), length);
  return text;
}

std::vector<FileClass> read_classes(ByteSource& source, std::vector<std::string>& warnings) {
  std::vector<FileClass> classes;
  const auto count = source.get<UInt16>();
  for (UInt32 i = 0; i < count; ++i) {
    const UInt64 offset = source.offset();
    FileClass one;
    one.known = &read_class_name(source, classes);
    const auto field_count = source.get<UInt16>();
    for (UInt32 k = 0; k < field_count; ++k) {
      std::string name = read_text(source);
      one.fields.push_back({std::move(name), read_type(source)});
    }
    check_names_differ(one, offset);
    match_fields(one, offset, warnings);
    classes.push_back(std::move(one));
  }
  return classes;
}

void skip_field(ByteSource& source, const WireType& type) {
  const UInt64 count = type.is_list ? source.get<UInt64>() : 1;
  const UInt64 bytes_each = UInt64{type.components} * scalar_bytes(type.scalar);
  source.expect(count, bytes_each);
  if (type.scalar != Scalar::kText) return source.skip(count * bytes_each);
  for (UInt64 i = 0; i < count * type.components; ++i) source.skip(source.get<UInt32>());
}

}  // namespace osg::osb
