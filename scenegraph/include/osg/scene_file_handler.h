#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "osg/node.h"

namespace osg {

/// What became of reading a file.
struct SceneReadResult {
  NodePtr root;                       // null if and only if the file could not be read
  std::vector<std::string> warnings;  // one line for each kind of content that was left out
  std::string error;                  // file, place and reason; empty on success

  explicit operator bool() const { return !root.isNull(); }
};

/// What became of writing a file.
struct SceneWriteResult {
  bool written = false;
  std::vector<std::string> warnings;
  std::string error;

  explicit operator bool() const { return written; }
};

/// A file format, known by its suffixes. Neither function throws but `std::bad_alloc`.
struct SceneFileFormat {
  using Reader = std::function<SceneReadResult(const std::string& file)>;
  using Writer = std::function<SceneWriteResult(const NodePtr& root, const std::string& file)>;

  std::string name;                   // for messages: "glTF 2.0"
  std::vector<std::string> suffixes;  // lower case, without the dot
  Reader read;                        // empty: can't be read
  Writer write;                       // empty: can't be written
};

/// Reads and writes scene files by their suffix. The layer brings its own format, "osb"; other
/// libraries register theirs. Safe from any thread.
class OSG_API SceneFileHandler {
 public:
  static SceneFileHandler& the();

  /// Adds a format; for a suffix that is taken the later one counts.
  void registerFormat(SceneFileFormat format);
  /// The format of the file's suffix, whatever its case; null if none is registered. Valid for
  /// ever.
  const SceneFileFormat* findFormat(std::string_view file) const;
  /// All formats, in the order of their registration.
  std::vector<const SceneFileFormat*> getFormats() const;

  SceneReadResult read(const std::string& file) const;
  /// Writes the subgraph at `root`. A file that could not be written whole is removed.
  SceneWriteResult writeScene(const NodePtr& root, const std::string& file) const;
  /// The same in short; nothing of the layer's own format is ever compressed.
  bool write(const NodePtr& root, const char* file, bool compress = false) const;

 private:
  SceneFileHandler();
  ~SceneFileHandler() = delete;

  struct Registry;
  Registry* registry_;
};

}  // namespace osg
