#include <filesystem>

#include "gltf/feature_id_names.h"
#include "gltf/out_data.h"
#include "gltf/out_scene.h"
#include "image_codec.h"
#include "osg/io/model_files.h"
#include "out_files.h"

namespace osg::io {
namespace {

/// An image of the export: in the buffer, or a file beside.
struct OutImage {
  std::string name;
  EncodedImage encoded;
  std::size_t view = 0;
  std::string file;  // name without folder; empty: in the buffer
};

/// One export from the graph to the files.
class GltfWriter {
 public:
  GltfWriter(const std::string& file, Warnings& warnings)
      : path_(file), binary_(is_glb(path_)), warnings_(warnings), data_(warnings) {}

  void run(const NodePtr& root) {
    scene_ = collect_scene(root, materials_, warnings_);
    for (const PreparedGeometry& geometry : scene_.geometries)
      if (geometry.vertices > 0) data_.announce(geometry);
    write_document();
    if (binary_)
      write_glb();
    else
      write_text_and_files();
  }

 private:
  static bool is_glb(const std::filesystem::path& path) {
    std::string suffix = path.extension().string();
    for (char& c : suffix)
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return suffix == ".glb";
  }

  void write_document() {
    json_.begin_object();
    json_.key("asset").raw(R"({"generator":"morlu","version":"2.0"})");
    write_extensions();
    json_.member("scene", 0).key("scenes").begin_array();
    write_scene();
    json_.end_array();
    write_section("nodes", scene_.nodes, [&](const OutScene::Node& node) { write_node(node); });
    write_section("meshes", scene_.meshes, [&](const OutScene::Mesh& mesh) { write_mesh(mesh); });
    const auto raw = [&](const std::string& text) { json_.raw(text); };
    write_section("materials", materials_.materials(), raw);
    write_section("textures", materials_.textures(), raw);
    write_section("samplers", materials_.samplers(), raw);
    encode_images();
    write_section("images", images_, [&](const OutImage& image) { write_image(image); });
    if (data_.has_accessors()) {
      data_.write_accessors(json_.key("accessors").begin_array());
      json_.end_array();
    }
    if (data_.has_views()) {
      data_.write_views(json_.key("bufferViews").begin_array());
      json_.end_array();
      write_buffer();
    }
    json_.end_object();
  }

  template <class Entries, class Write>
  void write_section(const char* name, const Entries& entries, Write&& write) {
    if (entries.empty()) return;
    json_.key(name).begin_array();
    for (const auto& entry : entries) write(entry);
    json_.end_array();
  }

  void write_extensions() {
    std::set<std::string> names = materials_.extensions();
    for (const PreparedGeometry& geometry : scene_.geometries)
      if (geometry.feature_ids && geometry.vertices > 0) names.insert(kMeshFeatures);
    if (names.empty()) return;
    json_.key("extensionsUsed").begin_array();
    for (const std::string& name : names) json_.string(name);
    json_.end_array();
  }

  void write_name_and_extras(const std::string& name, const std::string& extras) {
    if (!name.empty()) json_.key("name").string(name);
    if (!extras.empty()) json_.key("extras").raw(extras);
  }

  void write_scene() {
    json_.begin_object();
    write_name_and_extras(scene_.name, scene_.extras);
    if (!scene_.roots.empty()) json_.key("nodes").numbers(scene_.roots);
    json_.end_object();
  }

  void write_node(const OutScene::Node& node) {
    json_.begin_object();
    write_name_and_extras(node.name, node.extras);
    if (node.mesh >= 0) json_.member("mesh", node.mesh);
    if (node.matrix) json_.key("matrix").numbers(std::span(node.matrix->getValues(), 16));
    if (!node.children.empty()) json_.key("children").numbers(node.children);
    json_.end_object();
  }

  void write_mesh(const OutScene::Mesh& mesh) {
    json_.begin_object();
    write_name_and_extras(mesh.name, mesh.extras);
    json_.key("primitives").begin_array();
    for (const OutScene::Primitive& primitive : mesh.primitives) {
      const PreparedGeometry& geometry = scene_.geometries[primitive.geometry];
      const OutPrimitive& part = geometry.primitives[primitive.part];
      json_.begin_object();
      data_.write_primitive(geometry, part, json_);
      if (primitive.material >= 0) json_.member("material", primitive.material);
      if (part.mode != kTriangles) json_.member("mode", part.mode);
      json_.end_object();
    }
    json_.end_array().end_object();
  }

  void encode_images() {
    for (const ImagePtr& source : materials_.images()) {
      OutImage& image = images_.emplace_back();
      const char* name = osg::getName(source);
      image.name = name && *name ? name : source->getName();
      image.encoded = encode_image(*source);
      if (binary_) {
        image.view = data_.add_bytes(image.encoded.bytes.data(), image.encoded.bytes.size());
        image.encoded.bytes.clear();
        continue;
      }
      const char* suffix = image.encoded.mime_type == "image/jpeg" ? ".jpg" : ".png";
      image.file = path_.stem().string() + "_" + std::to_string(images_.size() - 1) + suffix;
    }
  }

  void write_image(const OutImage& image) {
    json_.begin_object();
    json_.key("name").string(image.name);  // an empty one too: none would mean the file's
    if (binary_) {
      json_.key("mimeType").string(image.encoded.mime_type);
      json_.member("bufferView", image.view);
    } else {
      json_.key("uri").string(percent_encoded(image.file));
    }
    json_.end_object();
  }

  void write_buffer() {
    json_.key("buffers").begin_array().begin_object();
    json_.member("byteLength", data_.bytes().size());
    if (!binary_) json_.key("uri").string(percent_encoded(buffer_file()));
    json_.end_object().end_array();
  }

  std::string buffer_file() const { return path_.stem().string() + ".bin"; }
  std::string beside(const std::string& file) const {
    return (path_.parent_path() / file).string();
  }

  void write_glb() {
    const std::size_t json_size = (json_.text().size() + 3) / 4 * 4;
    const std::size_t data_size = (data_.bytes().size() + 3) / 4 * 4;
    const std::size_t total = 20 + json_size + (data_size > 0 ? 8 + data_size : 0);
    if (total > 0xffffffffu)
      throw WriteError{"", "the file would take " + std::to_string(total) +
                               " bytes, and a .glb holds 4294967295 at most; write a .gltf"};
    std::string head = "glTF";
    const auto word = [](std::string& text, std::size_t value) {
      for (int shift = 0; shift < 32; shift += 8) text += static_cast<char>(value >> shift & 0xff);
    };
    for (const std::size_t value : {std::size_t{2}, total, json_size}) word(head, value);
    head += "JSON";
    std::string between(json_size - json_.text().size(), ' ');
    const std::string end(data_size - data_.bytes().size(), '\0');
    if (data_size > 0) {
      word(between, data_size);
      between.append("BIN\0", 4);
    }
    OutFiles files;
    files.write(path_.string(), {bytes_of(head), bytes_of(json_.text()), bytes_of(between),
                                 data_.bytes(), bytes_of(end)});
    files.put_in_place();
  }

  void write_text_and_files() {
    OutFiles files;
    files.write(path_.string(), {bytes_of(json_.text()), bytes_of("\n")});
    if (data_.has_views()) files.write(beside(buffer_file()), {data_.bytes()});
    for (const OutImage& image : images_)
      files.write(beside(image.file), {std::as_bytes(std::span(image.encoded.bytes))});
    files.put_in_place();
  }

  const std::filesystem::path path_;
  const bool binary_;
  Warnings& warnings_;
  OutMaterials materials_;
  OutData data_;
  OutScene scene_;
  std::vector<OutImage> images_;
  JsonText json_;
};

}  // namespace

SceneWriteResult writeGltf(const NodePtr& root, const std::string& file) {
  SceneWriteResult result;
  Warnings warnings;
  try {
    if (!root) throw WriteError{"", "there is no scene to write"};
    GltfWriter(file, warnings).run(root);
    result.written = true;
    result.warnings = warnings.lines();
  } catch (const WriteError& error) {
    // the file itself, or one beside it
    const bool beside = error.place != "'" + file + "'";
    result.error = message(file, beside ? error.place : "", error.reason);
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& error) {
    result.error = message(file, "", error.what());
  }
  return result;
}

}  // namespace osg::io
