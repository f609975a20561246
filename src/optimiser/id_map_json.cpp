// The id map as a text file.
#include <osg/state_chunks.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string_view>

#include "optimiser/id_map_output.h"
#include "optimiser/scene_queries.h"
#include "primitives/number_text.h"
#include "primitives/say.h"

namespace morlu::osg {

namespace {

// --- Spelling ------------------------------------------------------------------------------------

using spell = std::string (*)(const std::string& text);

std::string quoted(const std::string& text) {
  return '"' + text + '"';
}

std::string escaped(const std::string& text) {
  std::string result = "\"";
  for (const char c : text) {
    if (c == '\\' || c == '"') result += '\\';
    result += c;
  }
  return result += '"';
}

std::string strict(const std::string& text) {
  return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

/// How texts are put between quotes.
struct spelling {
  spell name;   // names and keys
  spell value;  // values of attributes
};
constexpr spelling plain_spelling{quoted, escaped};
constexpr spelling strict_spelling{strict, strict};

// --- Appearances ---------------------------------------------------------------------------------

using color_keys = std::array<const char*, 6>;
constexpr color_keys front_keys{"diffuseColor",     "specularColor", "emissiveColor",
                                "ambientIntensity", "shininess",     "transparency"};
constexpr color_keys back_keys{"backDiffuseColor",     "backSpecularColor", "backEmissiveColor",
                               "backAmbientIntensity", "backShininess",     "backTransparency"};

/// Ambient as a share of diffuse, by the first channel that has enough to divide by.
double ambient_intensity(const material_colors& colors) {
  for (unsigned channel = 0; channel < 3; ++channel)
    if (const double diffuse = colors.diffuse[channel]; diffuse > 0.001)
      return colors.ambient[channel] / diffuse;
  return 0;
}

/// In the order of the keys.
std::array<std::string, 6> color_texts(const material_colors& colors) {
  constexpr double shininess_unit = 0.0078125;  // 1 / 128
  return {point_text(colors.diffuse),
          point_text(colors.specular),
          point_text(colors.emission),
          number_text({ambient_intensity(colors)}),
          number_text({colors.shininess * shininess_unit}),
          number_text({1 - colors.diffuse[3]})};
}

/// The chunk that tells the look of the back, null if the back looks like the front.
::osg::MaterialChunkPtr back_of(const ::osg::MaterialPtr& material) {
  const auto choice = ::osg::SwitchMaterial::dcast(material);
  const auto shown = ::osg::ChunkMaterial::dcast(choice ? choice->getChosenMaterial() : material);
  if (!shown) return ::osg::NullFC;
  const auto chunk = shown->findFirstChunk<::osg::MaterialChunk>();
  const ::osg::Color4f like_front(1, 1, 1, 0);
  return chunk && chunk->getBackDiffuse() != like_front ? chunk : ::osg::NullFC;
}

// --- The text ------------------------------------------------------------------------------------

/// Writes an id map front to back, a block at a time. Ends early when the stream fails.
class id_map_text {
 public:
  id_map_text(const id_map_handler& handler, const spelling& spelled, std::ostream& out)
      : handler_(handler), spelled_(spelled), out_(out) {}

  void write() {
    text_ = "{\n\"numberOfIDs\":" + std::to_string(handler_.mapping.size()) +
            ",\n\"maxGeoCount\":" + std::to_string(handler_.max_geo_count()) +
            ",\n\"appearance\": [ \n";
    write_list(handler_.appearances(), &id_map_text::add_appearance);
    text_ += "\"mapping\": [\n";
    write_list(handler_.mapping, &id_map_text::add_mapping);
    text_ += "\"tree\":\n{\n";
    write_tree();
    text_ += "}\n}\n\n";
    pass_on();
  }

 private:
  void pass_on() {
    out_.write(text_.data(), static_cast<std::streamsize>(text_.size()));
    text_.clear();
  }
  /// False once there is no point in going on.
  bool pass_on_if_long() {
    if (text_.size() > 65536) pass_on();
    return out_.good();
  }

  /// Blocks with commas between, and the end of their list.
  template <class Entries, class Block>
  void write_list(const Entries& entries, Block block) {
    const char* separator = "";
    for (const auto& entry : entries) {
      text_ += separator;
      (this->*block)(entry);
      separator = ",\n";
      if (!pass_on_if_long()) return;
    }
    text_ += "],\n";
  }

  void add_pair(const char* key, const std::string& quoted_value, const char* end = ",\n") {
    text_ += '"';
    text_.append(key) += "\": ";
    text_.append(quoted_value) += end;
  }

  void add_appearance(const std::pair<const ::osg::MaterialPtr, std::string>& appearance) {
    const auto& [material, name] = appearance;
    text_ += "{\n";
    add_pair("name", spelled_.name(name));
    text_ += "\"material\": { \n";
    material_colors colors;
    getMaterialColors(material, colors);
    add_colors(front_keys, colors);
    if (const auto back = back_of(material)) {
      text_ += ",\n";
      add_colors(back_keys,
                 {back->getBackDiffuse(), back->getBackSpecular(), back->getBackAmbient(),
                  back->getBackEmission(), back->getBackShininess()});
    }
    text_ += "\n}}";
  }

  /// No line break behind the last.
  void add_colors(const color_keys& keys, const material_colors& colors) {
    const auto texts = color_texts(colors);
    for (std::size_t i = 0; i < keys.size(); ++i)
      add_pair(keys[i], quoted(texts[i]), i + 1 < keys.size() ? ",\n" : "");
  }

  void add_mapping(const std::pair<const std::uint32_t, std::set<std::string>>& entry) {
    const auto& [id, geometries] = entry;
    text_ += "{\n";
    add_pair("name", spelled_.name(handler_.names().at(id)));
    add_pair("min", quoted(point_text(handler_.mins().at(id))));
    add_pair("max", quoted(point_text(handler_.maxs().at(id))));
    add_pair("appearance", spelled_.name(handler_.appearance_names().at(id)));
    text_ += "\"usage\": [";
    const char* separator = "";
    for (const std::string& geometry : geometries) {
      text_.append(separator) += spelled_.name(geometry);
      separator = ",";
    }
    text_ += "]\n}";
  }

  /// Children stand in their parent's list. The lists that are open are those of `pending`.
  void write_tree() {
    std::vector<std::uint32_t> pending;  // children still to come, by open list
    for (const source_node& node : handler_.tree) {
      if (!pending.empty()) {
        text_ += '\n';
        add_indented(node.level - 1, "{\n");
      }
      add_node(node);
      if (node.children > 0)
        pending.push_back(node.children);
      else
        close_lists(pending, node.level);
      if (!pass_on_if_long()) return;
    }
  }

  void add_node(const source_node& node) {
    const auto tight = [&](const char* key, const std::string& quoted_value) {
      add_indented(node.level, key);
      text_.append(quoted_value) += ",\n";
    };
    tight("\"name\":", spelled_.name(node.name));
    tight("\"type\":", spelled_.name(node.type));
    tight("\"render\":", node.rendered ? "\"true\"" : "\"false\"");
    add_indented(node.level, "\"meta\": {");
    const char* separator = "\n";
    for (const auto& [key, value] : node.attributes) {
      text_ += separator;
      add_indented(node.level, spelled_.name(key));
      text_.append(":") += spelled_.value(value);
      separator = ",\n";
    }
    text_ += node.children > 0 ? "},\n" : "}\n";
    if (node.children > 0) add_indented(node.level, "\"children\":[");
  }

  /// Ends a node without children, and all nodes above that have no more of them.
  void close_lists(std::vector<std::uint32_t>& pending, std::uint32_t level) {
    while (!pending.empty() && pass_on_if_long()) {
      add_indented(--level, "}");
      if (--pending.back() > 0) {
        text_ += ',';
        return;
      }
      text_ += "]\n";
      pending.pop_back();
    }
  }

  void add_indented(std::uint32_t level, std::string_view text) {
    text_.append(level, '\t') += text;
  }

  const id_map_handler& handler_;
  const spelling& spelled_;
  std::ostream& out_;
  std::string text_;  // not yet passed on
};

// --- The file ------------------------------------------------------------------------------------

/// A file that goes again unless it is finished; a device is not ours to remove.
class out_file {
 public:
  explicit out_file(const std::string& path) : path_(path), stream_(path) {}
  ~out_file() {
    std::error_code ignored;
    if (is_ours_ && std::filesystem::is_regular_file(path_, ignored))
      std::filesystem::remove(path_, ignored);
  }
  out_file(const out_file&) = delete;
  out_file& operator=(const out_file&) = delete;

  std::ostream& stream() { return stream_; }
  bool finish() {
    stream_.close();
    is_ours_ = is_ours_ && !stream_.good();
    return stream_.good();
  }

 private:
  std::string path_;
  std::ofstream stream_;
  bool is_ours_ = stream_.is_open();
};

bool is_empty(const id_map_handler& handler) {
  return handler.names().empty() || handler.mapping.empty();
}

bool write_file(const id_map_handler& handler, const spelling& spelled, const std::string& path) {
  out_file file(path);
  if (file.stream().good()) id_map_text(handler, spelled, file.stream()).write();
  return file.finish();
}

}  // namespace

void writeJson(const id_map_handler& handler, const std::string& name) {
  const std::string path = name + ".json";
  say("Write IDmap with " + std::to_string(handler.mapping.size()) + " names.\n");
  if (!is_empty(handler) && !write_file(handler, plain_spelling, path))
    say("Unable to open " + path + ". No IDmap/Json File created.\n");
}

bool writeStrictJson(const id_map_handler& handler, const std::string& name) {
  return is_empty(handler) || write_file(handler, strict_spelling, name + ".strict.json");
}

bool writeStrictIdMap(const std::string& name) {
  return writeStrictJson(getIdMapHandler(), name);
}

}  // namespace morlu::osg
