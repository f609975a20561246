#include <algorithm>
#include <limits>
#include <new>
#include <stdexcept>

#include "osb/byte_source.h"
#include "osb/files.h"
#include "osb/format.h"
#include "osb/osb_format.h"
#include "osb/schema_reader.h"
#include "osg/osb.h"

namespace osg::osb {
namespace {

class Reader {
 public:
  explicit Reader(ByteSource& source) : source_(source) {}

  NodePtr read_scene() {
    read_header();
    classes_ = read_classes(source_, warnings_);
    const auto count = source_.get<UInt32>();
    source_.expect(count, sizeof(UInt16));
    objects_.reserve(count);
    for (UInt32 i = 0; i < count; ++i) read_object();
    if (source_.remaining() > 0)
      source_.fail(std::to_string(source_.remaining()) + " bytes follow behind the last object");
    check_all_used();
    return take_root();
  }
  std::vector<std::string> take_warnings() { return std::move(warnings_); }

  // What `visit_fields` calls. The fields come in the program's order.

  template <class T, class Set>
  void field(const char* name, const T&, Set&& set) {
    if (!begin_field()) return;
    const UInt64 offset = source_.offset();
    const auto value = get<Stored<T>>();
    if constexpr (std::is_same_v<decltype(set(value)), Refusal>) {
      if (const Refusal refusal = set(value))
        ByteSource::fail_at(offset, std::string("field '") + name + "': " + refusal);
    } else {
      set(value);
    }
  }
  void entries(const char*, GeoProperty& property) {
    if (!begin_field()) return;
    const auto count = source_.get<UInt64>();
    source_.expect(count, property.getStride());
    if (count > std::numeric_limits<UInt32>::max())
      source_.fail("a property can't hold " + std::to_string(count) + " entries");
    property.resize(static_cast<std::size_t>(count));
    source_.read(property.editData(), property.size() * property.getStride());
  }
  void values(ValueContainer& container) {
    const UInt64 offset = source_.offset();
    const bool accepted = editFields(container, [this]<class T>(const char*, T& value) {
      if (begin_field()) value = get<T>();
    });
    if (!accepted)
      ByteSource::fail_at(offset, "the fields of an object of class '" +
                                      container.getType().getName() + "' contradict each other");
  }

 private:
  /// What a value is read into: a vector where the visitor shows a span.
  template <class T>
  struct StoredType {
    using Type = T;
  };
  template <class T, std::size_t N>
  struct StoredType<std::span<T, N>> {
    using Type = std::vector<std::remove_const_t<T>>;
  };
  template <class T>
  using Stored = typename StoredType<T>::Type;

  // --- Objects ---

  void read_header() {
    auto magic = kMagic;
    magic.fill('\0');
    source_.read(magic.data(), std::min<UInt64>(magic.size(), source_.remaining()));
    if (magic != kMagic) ByteSource::fail_at(0, "this is not an .osb file");
    const UInt64 offset = source_.offset();
    const auto version = source_.get<UInt32>();
    if (version == 0 || version > kVersion)
      ByteSource::fail_at(offset, "the file has version " + std::to_string(version) +
                                      "; this program reads up to " + std::to_string(kVersion));
  }

  void read_object() {
    const UInt64 offset = source_.offset();
    const auto class_number = source_.get<UInt16>();
    if (class_number >= classes_.size())
      ByteSource::fail_at(offset, "there is no class " + std::to_string(class_number));
    file_class_ = &classes_[class_number];
    depth_ = 0;
    const FieldContainerPtr object = file_class_->known->type->createContainer();
    if (const auto owner = AttachmentContainer::dcast(object)) read_attachments(owner);
    read_fields(*object);
    if (++depth_ > kOsbMaxDepth)
      ByteSource::fail_at(offset,
                          "the scene is deeper than " + std::to_string(kOsbMaxDepth) + " levels");
    objects_.push_back({object, depth_, false});
  }

  void read_fields(FieldContainer& object) {
    own_field_ = 0;
    const bool is_as_known = file_class_->is_as_known;
    if (!is_as_known) find_fields();
    const UInt64 end = source_.offset();
    visit_fields(file_class_->known->list, object, *this);
    if (!is_as_known) source_.seek(end);
  }

  /// Notes where each of the file's fields begins and stops behind the last.
  void find_fields() {
    field_offsets_.clear();
    for (const FieldSpec& spec : file_class_->fields) {
      field_offsets_.push_back(source_.offset());
      skip_field(source_, spec.type);
    }
  }

  /// Goes to the next of the program's fields; false if the file lacks it.
  bool begin_field() {
    const std::size_t own = own_field_++;
    if (file_class_->is_as_known) return true;
    const Int32 place = file_class_->place_of_own[own];
    if (place < 0) return false;
    source_.seek(field_offsets_[static_cast<std::size_t>(place)]);
    return true;
  }

  void check_all_used() {
    for (std::size_t i = 0; i + 1 < objects_.size(); ++i)
      if (!objects_[i].is_used) source_.fail("nothing refers to object " + std::to_string(i + 1));
  }

  NodePtr take_root() {
    NodePtr root = objects_.empty() ? NodePtr() : Node::dcast(objects_.back().object);
    if (!root) source_.fail("the last object is no node");
    return root;
  }

  // --- Attachments ---

  void read_attachments(const AttachmentContainerPtr& owner) {
    const auto count = source_.get<UInt16>();
    if (count > kMaxAttachments)
      source_.fail("an object can't have " + std::to_string(count) + " attachments");
    for (UInt32 i = 0; i < count; ++i) {
      const UInt64 offset = source_.offset();
      const std::size_t before = owner->getAttachments().size();
      read_attachment(owner, static_cast<AttachmentKind>(source_.get<UInt8>()), offset);
      if (owner->getAttachments().size() == before)
        ByteSource::fail_at(offset, "two attachments have the same place");
    }
  }

  void read_attachment(const AttachmentContainerPtr& owner, AttachmentKind kind, UInt64 offset) {
    if (kind == AttachmentKind::Name) {
      const std::string name = get<std::string>();
      if (name.find('\0') != std::string::npos)
        ByteSource::fail_at(offset, "a name holds a zero byte");
      return setName(owner, name);
    }
    if (kind == AttachmentKind::Fields) {
      std::vector<TextPair> fields;
      get_values(fields, source_.get<UInt32>());
      return owner->setAttachmentFields(std::move(fields));
    }
    if (kind != AttachmentKind::Object)
      ByteSource::fail_at(offset, "there is no such kind of attachment");
    const auto binding = source_.get<UInt16>();
    const auto attachment = get<AttachmentPtr>();
    if (!attachment) ByteSource::fail_at(offset, "an attachment is null");
    owner->addAttachment(attachment, binding);
  }

  // --- Values ---

  template <class T>
  T get() {
    if constexpr (Number<T>) {
      return source_.get<T>();
    } else if constexpr (Row<T>) {
      T row;
      source_.read(row.getValues(), sizeof row);
      return row;
    } else if constexpr (Handle<T>) {
      return get_object<typename T::Object>();
    } else if constexpr (List<T>) {
      T list;
      get_values(list, source_.get<UInt64>());
      return list;
    } else if constexpr (std::is_same_v<T, TextPair>) {
      std::string first = read_text(source_);
      return {std::move(first), read_text(source_)};
    } else {
      static_assert(std::is_same_v<T, std::string>);
      return read_text(source_);
    }
  }

  template <class T>
  FCPtr<T> get_object() {
    const UInt64 offset = source_.offset();
    const auto number = source_.get<UInt32>();
    if (number == 0) return NullFC;
    if (number > objects_.size())
      ByteSource::fail_at(offset, "object " + std::to_string(number) + " does not stand before");
    Object& found = objects_[number - 1];
    FCPtr<T> object = T::dcast(found.object);
    if (!object)
      ByteSource::fail_at(offset, "object " + std::to_string(number) + " is a " +
                                      found.object->getType().getName() + " in the place of a " +
                                      T::getClassType().getName());
    found.is_used = true;
    depth_ = std::max(depth_, found.depth);
    return object;
  }

  template <class T>
  void get_values(std::vector<T>& list, UInt64 count) {
    constexpr WireType type = value_type<T>();
    source_.expect(count, UInt64{type.components} * scalar_bytes(type.scalar));
    const UInt64 offset = source_.offset();
    if constexpr (Number<T>) {
      list.resize(static_cast<std::size_t>(count));
      source_.read(list.data(), list.size() * sizeof(T));
    } else {
      list.reserve(static_cast<std::size_t>(count));
      for (UInt64 i = 0; i < count; ++i) list.push_back(get<T>());
    }
    if constexpr (std::is_same_v<T, TextPair>) check_keys_differ(list, offset);
  }

  static void check_keys_differ(const std::vector<TextPair>& texts, UInt64 offset) {
    std::vector<std::string_view> keys;
    keys.reserve(texts.size());
    for (const TextPair& text : texts) keys.push_back(text.first);
    std::ranges::sort(keys);
    const auto twice = std::ranges::adjacent_find(keys);
    if (twice != keys.end())
      ByteSource::fail_at(offset, "the key '" + std::string(*twice) + "' stands twice");
  }

  struct Object {
    FieldContainerPtr object;
    UInt32 depth;  // 1 if it refers to nothing, else one more than the deepest that it refers to
    bool is_used;
  };

  ByteSource& source_;
  std::vector<std::string> warnings_;
  std::vector<FileClass> classes_;
  std::vector<Object> objects_;
  // Of the object that is being read:
  const FileClass* file_class_ = nullptr;
  std::vector<UInt64> field_offsets_;  // unless its class is as known
  std::size_t own_field_ = 0;
  UInt32 depth_ = 0;  // of what it refers to
};

/// `make_source` gives the source.
template <class MakeSource>
SceneReadResult read_from(std::string_view name, MakeSource make_source) {
  SceneReadResult result;
  try {
    auto source = make_source();
    Reader reader(source);
    result.root = reader.read_scene();
    result.warnings = reader.take_warnings();
  } catch (const Failure& failure) {
    result.error = message_of(failure, name);
  } catch (const std::bad_alloc&) {
    result.error = std::string(name) + ": there is not enough memory to read it";
  } catch (const std::length_error&) {
    result.error = std::string(name) + ": there is not enough memory to read it";
  }
  return result;
}

}  // namespace

SceneReadResult read_file(const std::string& file) {
  return read_from(file, [&] { return FileSource(file); });
}

}  // namespace osg::osb

namespace osg {

SceneReadResult readOsb(std::span<const std::byte> bytes, std::string_view name) {
  return osb::read_from(name, [&] { return osb::MemorySource(bytes); });
}

}  // namespace osg
