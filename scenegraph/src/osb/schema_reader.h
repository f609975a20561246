#pragma once

#include <string>
#include <vector>

#include "osb/byte_source.h"
#include "osb/classes.h"

namespace osg::osb {

/// A text after its length.
std::string read_text(ByteSource& source);

/// A class as the file has it, beside the same class as this program knows it.
struct FileClass {
  const KnownClass* known = nullptr;
  std::vector<FieldSpec> fields;    // of the file's objects
  bool is_as_known = false;         // the same fields in the same order
  std::vector<Int32> place_of_own;  // of each field that the program knows; -1: not in the file
};

/// Reads the table of classes. A field that this program doesn't know gives a warning. Classes that
/// it doesn't know, fields of another type than its own and names that stand twice are a `Failure`.
std::vector<FileClass> read_classes(ByteSource& source, std::vector<std::string>& warnings);

/// Passes over one field of that type.
void skip_field(ByteSource& source, const WireType& type);

}  // namespace osg::osb
