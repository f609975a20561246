#include "osg/scene_file_handler.h"

#include <algorithm>
#include <deque>
#include <exception>
#include <mutex>
#include <new>

#include "osb/osb_format.h"

namespace osg {
namespace {

std::string lower_case_suffix(std::string_view file) {
  const std::size_t dot = file.find_last_of("./");
  if (dot == std::string_view::npos || file[dot] != '.') return {};
  std::string suffix(file.substr(dot + 1));
  for (char& c : suffix)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return suffix;
}

std::string no_format(const std::string& file, const char* what) {
  const std::string suffix = lower_case_suffix(file);
  if (suffix.empty()) return file + ": the name has no suffix to tell the format by";
  return file + ": files of suffix '" + suffix + "' can't be " + what;
}

/// Runs a format's function; what it throws in spite of its contract becomes the error.
template <class Result, class Function>
Result guarded(const std::string& file, Function function) {
  try {
    return function();
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& failure) {
    Result result;
    result.error = file + ": " + failure.what();
    return result;
  }
}

}  // namespace

struct SceneFileHandler::Registry {
  mutable std::mutex mutex;
  std::deque<SceneFileFormat> formats;  // never moved, so that pointers to them stay valid
};

SceneFileHandler& SceneFileHandler::the() {
  static auto* handler = new SceneFileHandler;
  return *handler;
}

SceneFileHandler::SceneFileHandler() : registry_(new Registry) {
  registerFormat({"OSB", {"osb"}, osb::read_file, osb::write_file});
}

void SceneFileHandler::registerFormat(SceneFileFormat format) {
  const std::lock_guard lock(registry_->mutex);
  registry_->formats.push_back(std::move(format));
}

const SceneFileFormat* SceneFileHandler::findFormat(std::string_view file) const {
  const std::string suffix = lower_case_suffix(file);
  const std::lock_guard lock(registry_->mutex);
  const auto& formats = registry_->formats;
  for (auto format = formats.rbegin(); format != formats.rend(); ++format)
    if (std::ranges::find(format->suffixes, suffix) != format->suffixes.end()) return &*format;
  return nullptr;
}

std::vector<const SceneFileFormat*> SceneFileHandler::getFormats() const {
  const std::lock_guard lock(registry_->mutex);
  std::vector<const SceneFileFormat*> formats;
  for (const SceneFileFormat& format : registry_->formats) formats.push_back(&format);
  return formats;
}

SceneReadResult SceneFileHandler::read(const std::string& file) const {
  SceneReadResult result;
  const SceneFileFormat* format = findFormat(file);
  if (format && format->read)
    return guarded<SceneReadResult>(file, [&] { return format->read(file); });
  result.error = no_format(file, "read");
  return result;
}

SceneWriteResult SceneFileHandler::writeScene(const NodePtr& root, const std::string& file) const {
  SceneWriteResult result;
  const SceneFileFormat* format = findFormat(file);
  if (!root)
    result.error = file + ": there is no scene to write";
  else if (!format || !format->write)
    result.error = no_format(file, "written");
  else
    return guarded<SceneWriteResult>(file, [&] { return format->write(root, file); });
  return result;
}

bool SceneFileHandler::write(const NodePtr& root, const char* file, bool) const {
  if (!file) return false;
  try {
    return writeScene(root, file).written;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace osg
