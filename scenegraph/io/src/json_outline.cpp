#include "json_outline.h"

#include <array>

#include "report.h"

namespace osg::io {
namespace {

constexpr int kMaxDepth = 64;

/// Types of values; those with a row of their own in the table below are `Object`s.
enum class Kind {
  Any,
  Index,
  Unsigned,
  Number,
  Bool,
  String,
  Array,
  Indices,
  Numbers,
  Strings,
  Object,
  Objects,
  IndexMap
};

/// Objects whose members are checked.
enum class Context {
  None,
  Root,
  Asset,
  Node,
  Scene,
  Mesh,
  Primitive,
  Accessor,
  Sparse,
  SparsePart,
  BufferView,
  Buffer,
  Image,
  Texture,
  Sampler,
  Material,
  Pbr,
  TextureInfo,
  IndexMembers
};

struct Rule {
  Context in;
  std::string_view member;
  Kind kind;
  Context inside = Context::None;  // of the object or of each of the objects
};

using enum Kind;
constexpr auto kRules = std::to_array<Rule>({
    {Context::Root, "asset", Object, Context::Asset},
    {Context::Root, "scene", Index},
    {Context::Root, "scenes", Objects, Context::Scene},
    {Context::Root, "nodes", Objects, Context::Node},
    {Context::Root, "meshes", Objects, Context::Mesh},
    {Context::Root, "accessors", Objects, Context::Accessor},
    {Context::Root, "bufferViews", Objects, Context::BufferView},
    {Context::Root, "buffers", Objects, Context::Buffer},
    {Context::Root, "images", Objects, Context::Image},
    {Context::Root, "textures", Objects, Context::Texture},
    {Context::Root, "samplers", Objects, Context::Sampler},
    {Context::Root, "materials", Objects, Context::Material},
    {Context::Root, "animations", Objects},
    {Context::Root, "skins", Objects},
    {Context::Root, "cameras", Objects},
    {Context::Root, "extensionsUsed", Strings},
    {Context::Root, "extensionsRequired", Strings},
    {Context::Root, "extensions", Object},
    {Context::Asset, "version", String},
    {Context::Node, "name", String},
    {Context::Node, "mesh", Index},
    {Context::Node, "skin", Index},
    {Context::Node, "camera", Index},
    {Context::Node, "children", Indices},
    {Context::Node, "matrix", Numbers},
    {Context::Node, "translation", Numbers},
    {Context::Node, "rotation", Numbers},
    {Context::Node, "scale", Numbers},
    {Context::Node, "extensions", Object},
    {Context::Scene, "name", String},
    {Context::Scene, "nodes", Indices},
    {Context::Mesh, "name", String},
    {Context::Mesh, "primitives", Objects, Context::Primitive},
    {Context::Primitive, "attributes", IndexMap, Context::IndexMembers},
    {Context::Primitive, "indices", Index},
    {Context::Primitive, "material", Index},
    {Context::Primitive, "mode", Index},
    {Context::Primitive, "targets", Objects},
    {Context::Primitive, "extensions", Object},
    {Context::Accessor, "bufferView", Index},
    {Context::Accessor, "byteOffset", Unsigned},
    {Context::Accessor, "componentType", Index},
    {Context::Accessor, "normalized", Bool},
    {Context::Accessor, "count", Unsigned},
    {Context::Accessor, "type", String},
    {Context::Accessor, "sparse", Object, Context::Sparse},
    {Context::Sparse, "count", Index},
    {Context::Sparse, "indices", Object, Context::SparsePart},
    {Context::Sparse, "values", Object, Context::SparsePart},
    {Context::SparsePart, "bufferView", Index},
    {Context::SparsePart, "byteOffset", Index},
    {Context::SparsePart, "componentType", Index},
    {Context::BufferView, "buffer", Index},
    {Context::BufferView, "byteOffset", Unsigned},
    {Context::BufferView, "byteLength", Unsigned},
    {Context::BufferView, "byteStride", Unsigned},
    {Context::Buffer, "byteLength", Unsigned},
    {Context::Buffer, "uri", String},
    {Context::Image, "uri", String},
    {Context::Image, "mimeType", String},
    {Context::Image, "bufferView", Index},
    {Context::Image, "name", String},
    {Context::Texture, "source", Index},
    {Context::Texture, "sampler", Index},
    {Context::Sampler, "magFilter", Index},
    {Context::Sampler, "minFilter", Index},
    {Context::Sampler, "wrapS", Index},
    {Context::Sampler, "wrapT", Index},
    {Context::Material, "name", String},
    {Context::Material, "pbrMetallicRoughness", Object, Context::Pbr},
    {Context::Material, "normalTexture", Object, Context::TextureInfo},
    {Context::Material, "occlusionTexture", Object, Context::TextureInfo},
    {Context::Material, "emissiveTexture", Object, Context::TextureInfo},
    {Context::Material, "emissiveFactor", Numbers},
    {Context::Material, "alphaMode", String},
    {Context::Material, "alphaCutoff", Number},
    {Context::Material, "doubleSided", Bool},
    {Context::Material, "extensions", Object},
    {Context::Pbr, "baseColorFactor", Numbers},
    {Context::Pbr, "metallicFactor", Number},
    {Context::Pbr, "roughnessFactor", Number},
    {Context::Pbr, "baseColorTexture", Object, Context::TextureInfo},
    {Context::Pbr, "metallicRoughnessTexture", Object, Context::TextureInfo},
    {Context::TextureInfo, "index", Index},
    {Context::TextureInfo, "texCoord", Index},
    {Context::TextureInfo, "scale", Number},
    {Context::TextureInfo, "strength", Number},
    {Context::TextureInfo, "extensions", Object},
});

constexpr Rule kAnything{Context::None, "", Any};
constexpr Rule kIndexMember{Context::IndexMembers, "", Index};

const Rule& rule_of(Context in, std::string_view member) {
  if (in == Context::None) return kAnything;
  if (in == Context::IndexMembers) return kIndexMember;
  for (const Rule& rule : kRules)
    if (rule.in == in && rule.member == member) return rule;
  return kAnything;
}

const char* kind_text(Kind kind) {
  switch (kind) {
    case Index:
      return "an integer from 0 to 2147483647";
    case Unsigned:
      return "an integer, 0 or above";
    case Number:
      return "a number";
    case Bool:
      return "true or false";
    case String:
      return "a string";
    case Array:
      return "an array";
    case Indices:
      return "an array of integers";
    case Numbers:
      return "an array of numbers";
    case Strings:
      return "an array of strings";
    case Objects:
      return "an array of objects";
    default:
      return "an object";
  }
}

Kind element_kind(Kind array) {
  switch (array) {
    case Indices:
      return Index;
    case Numbers:
      return Number;
    case Strings:
      return String;
    case Objects:
      return Object;
    default:
      return Any;
  }
}

constexpr std::array<bool, 256> make_word_ends() {
  std::array<bool, 256> ends{};
  for (const char c : std::string_view(",]} \t\r\n\0", 8))
    ends[static_cast<unsigned char>(c)] = true;
  return ends;
}
constexpr std::array<bool, 256> kEndsWord = make_word_ends();

class Outliner {
 public:
  explicit Outliner(std::string_view text) : text_(text) { outline_.text = text; }

  JsonOutline run() {
    if (text_.substr(0, 3) == "\xEF\xBB\xBF") at_ = 3;  // byte order mark
    skip_blanks();
    if (peek() != '{') fail("is no glTF: the JSON text does not begin with an object");
    object(Context::Root, 1);
    return std::move(outline_);
  }

 private:
  /// A step of the way to the value at hand; only made into text when something is wrong.
  struct Step {
    std::string_view member;
    std::size_t index = 0;
    bool is_index = false;
  };

  [[noreturn]] void fail(const std::string& reason) const {
    throw ReadError{"JSON at byte " + std::to_string(at_), reason};
  }
  [[noreturn]] void fail_kind(Kind kind, int depth) const {
    std::string place;
    for (int i = 1; i < depth; ++i) {
      const Step& step = path_[static_cast<std::size_t>(i)];
      if (step.is_index) {
        place.append("[").append(std::to_string(step.index)).append("]");
      } else {
        if (!place.empty()) place += '.';
        place += step.member;
      }
    }
    throw ReadError{place, std::string("should be ") + kind_text(kind)};
  }

  char peek() const { return at_ < text_.size() ? text_[at_] : '\0'; }
  void skip_blanks() {
    while (at_ < text_.size() &&
           (text_[at_] == ' ' || text_[at_] == '\n' || text_[at_] == '\r' || text_[at_] == '\t'))
      ++at_;
  }

  std::string_view string() {
    const std::size_t begin = ++at_;
    for (; at_ < text_.size(); ++at_) {
      if (text_[at_] == '\\')
        ++at_;
      else if (text_[at_] == '"')
        return text_.substr(begin, at_++ - begin);
    }
    at_ = text_.size();
    fail("the text ends within a string");
  }

  std::string_view word() {
    const std::size_t begin = at_;
    while (at_ < text_.size() && !kEndsWord[static_cast<unsigned char>(text_[at_])]) ++at_;
    if (at_ == begin) fail("a value is missing");
    const std::string_view word = text_.substr(begin, at_ - begin);
    const bool number = word[0] == '-' || (word[0] >= '0' && word[0] <= '9');
    if (!number && word != "true" && word != "false" && word != "null")
      fail(std::string("'").append(word.substr(0, 40)).append("' is no value"));
    return word;
  }

  static bool is_integer(std::string_view word, bool index) {
    for (const char c : word)
      if (c < '0' || c > '9') return false;
    if (!index) return word.size() < 20;
    return word.size() < 10 || (word.size() == 10 && word <= "2147483647");
  }

  void value(const Rule& rule, int depth) {
    if (depth > kMaxDepth) fail("values nest deeper than " + std::to_string(kMaxDepth) + " levels");
    const Kind kind = rule.kind;
    skip_blanks();
    switch (peek()) {
      case '{':
        if (kind != Any && kind != Object && kind != IndexMap) fail_kind(kind, depth);
        return object(rule.inside, depth);
      case '[':
        if (kind != Any && kind != Array && element_kind(kind) == Any) fail_kind(kind, depth);
        return array(rule, depth);
      case '"':
        if (kind != Any && kind != String) fail_kind(kind, depth);
        string();
        return;
      default:
        scalar(word(), kind, depth);
    }
  }

  void scalar(std::string_view word, Kind kind, int depth) const {
    const bool number = word[0] == '-' || (word[0] >= '0' && word[0] <= '9');
    const bool boolean = word == "true" || word == "false";
    const bool right = kind == Any || (kind == Number && number) || (kind == Bool && boolean) ||
                       (kind == Index && is_integer(word, true)) ||
                       (kind == Unsigned && is_integer(word, false));
    if (!right) fail_kind(kind, depth);
  }

  void array(const Rule& rule, int depth) {
    const Rule element{Context::None, "", element_kind(rule.kind), rule.inside};
    count_ = 0;
    std::size_t count = 0;
    ++at_;
    for (skip_blanks(); peek() != ']'; skip_blanks(), ++count) {
      if (count > 0) expect(',');
      path_[static_cast<std::size_t>(depth)] = {{}, count, true};
      value(element, depth + 1);
    }
    ++at_;
    count_ = count;
  }

  void object(Context in, int depth) {
    std::size_t count = 0;
    ++at_;
    for (skip_blanks(); peek() != '}'; skip_blanks(), ++count) {
      if (count > 0) expect(',');
      skip_blanks();
      if (peek() != '"') fail("the name of a member is missing");
      const std::string_view name = string();
      skip_blanks();
      expect(':');
      path_[static_cast<std::size_t>(depth)] = {name, 0, false};
      if (depth == 1)
        section(name);
      else
        value(rule_of(in, name), depth + 1);
    }
    ++at_;
    count_ = count;
  }

  void section(std::string_view name) {
    // Sections are cut out of the text by name, so that a name must be what it looks like.
    if (name.find('\\') != name.npos) fail("the name of a section is written with escapes");
    skip_blanks();
    const std::size_t begin = at_;
    count_ = 0;
    value(rule_of(Context::Root, name), 2);
    outline_.sections.push_back({name, begin, at_, count_});
  }

  void expect(char c) {
    if (peek() != c)
      fail(at_ < text_.size() ? std::string("'").append(1, c).append("' is missing")
                              : std::string("the text ends too early"));
    ++at_;
  }

  std::string_view text_;
  std::size_t at_ = 0;
  std::size_t count_ = 0;  // entries of the array or object that was passed last
  std::array<Step, kMaxDepth + 2> path_{};
  JsonOutline outline_;
};

}  // namespace

const JsonSection* JsonOutline::find(std::string_view name) const {
  const JsonSection* found = nullptr;
  for (const JsonSection& section : sections)
    if (section.name == name) found = &section;
  return found;
}

std::string_view JsonOutline::text_of(std::string_view name) const {
  const JsonSection* section = find(name);
  return section ? text.substr(section->begin, section->end - section->begin) : std::string_view();
}

std::size_t JsonOutline::entries_of(std::string_view name) const {
  const JsonSection* section = find(name);
  return section ? section->entries : 0;
}

JsonOutline outline_gltf(std::string_view text) {
  return Outliner(text).run();
}

}  // namespace osg::io
