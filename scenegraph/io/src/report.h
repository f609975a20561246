#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "osg/scene_file_handler.h"

namespace osg::io {

/// Why a file can't be read: thrown inside of the importers and caught in one place,
/// `guarded_read`.
struct ReadError {
  std::string place;  // "accessors[3]", "JSON", "BIN chunk"; may be empty
  std::string reason;
};

/// Why a file can't be written.
struct WriteError {
  std::string place;
  std::string reason;
};

/// "nodes[3]"
std::string place_of(std::string_view section, std::size_t index);

/// Collects what an import or export leaves out: one line a kind, in order of first appearance.
class Warnings {
 public:
  /// A line of its own; the same text is kept once.
  void add(std::string text);
  /// One more of a kind: "TANGENT is left out (12 primitives)". `unit` is in the singular.
  void count(std::string text, std::string_view unit, std::size_t amount = 1);
  std::vector<std::string> lines() const;

 private:
  struct Entry {
    std::string text;
    std::string unit;
    std::size_t amount = 0;
  };
  Entry& entry(std::string text);

  std::vector<Entry> entries_;
  std::unordered_map<std::string, std::size_t> index_;
};

/// "file: place: reason"
std::string message(std::string_view file, std::string_view place, std::string_view reason);

/// Runs `read(warnings)`, which returns the root, and makes a result of whatever comes of it.
template <class Read>
SceneReadResult guarded_read(const std::string& file, Read&& read) {
  SceneReadResult result;
  Warnings warnings;
  try {
    result.root = read(warnings);
    result.warnings = warnings.lines();
  } catch (const ReadError& error) {
    result.error = message(file, error.place, error.reason);
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& error) {  // a library below us gave up
    result.error = message(file, "", error.what());
  }
  if (!result.error.empty()) result.root = NullFC;
  return result;
}

}  // namespace osg::io
