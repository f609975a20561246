#include <new>

#include "osb/byte_sink.h"
#include "osb/failure.h"
#include "osb/files.h"
#include "osb/format.h"
#include "osb/osb_format.h"
#include "osb/scene_order.h"
#include "osg/osb.h"

namespace osg::osb {
namespace {

class Writer {
 public:
  Writer(ByteSink& sink, const SceneOrder& order) : sink_(sink), order_(order) {}

  void write_scene() {
    sink_.write(kMagic.data(), kMagic.size());
    sink_.put(kVersion);
    sink_.put(static_cast<UInt16>(order_.classes().size()));
    for (const KnownClass* known : order_.classes()) write_class(*known);
    sink_.put(static_cast<UInt32>(order_.objects().size()));
    for (const SceneOrder::Entry& entry : order_.objects()) write_object(entry);
    sink_.flush();
  }

  // What `visit_fields` calls.

  template <class T, class Set>
  void field(const char*, const T& value, Set&&) {
    put(value);
  }
  void entries(const char*, const GeoProperty& property) {
    sink_.put(UInt64{property.size()});
    sink_.write(property.getData(), property.size() * property.getStride());
  }
  /// Of a derived class only what its base lists, which comes first.
  void values(const ValueContainer& container) {
    std::size_t i = 0;
    readFields(container, [&](const char* name, const auto& value) {
      if (i == written_as_->fields.size()) return;
      const FieldSpec& spec = written_as_->fields[i++];
      if (spec.name != name || spec.type != wire_type<std::decay_t<decltype(value)>>())
        throw Failure{"class '" + container.getType().getName() +
                      "' does not list the fields of '" + written_as_->type->getName() + "' first"};
      put(value);
    });
  }

 private:
  void write_class(const KnownClass& known) {
    put(known.type->getName());
    sink_.put(static_cast<UInt16>(known.fields.size()));
    for (const FieldSpec& field : known.fields) {
      put(field.name);
      sink_.put(static_cast<UInt8>(field.type.scalar));
      sink_.put(field.type.components);
      sink_.put(field.type.is_list);
    }
  }

  void write_object(const SceneOrder::Entry& entry) {
    written_as_ = entry.known;
    sink_.put(order_.number_of(*entry.known));
    if (entry.known->list != FieldList::AttributeMap) write_attachments(*entry.object);
    visit_fields(entry.known->list, *entry.object, *this);
  }

  void write_attachments(const FieldContainer& object) {
    UInt16 count = 0;
    for (const auto& entry : attachments_of(object)) count += kind_to_write(entry).has_value();
    sink_.put(count);
    for (const auto& entry : attachments_of(object))
      if (const auto kind = kind_to_write(entry))
        write_attachment(static_cast<const AttachmentContainer&>(object), entry, *kind);
  }

  void write_attachment(const AttachmentContainer& owner, const AttachmentContainer::Entry& entry,
                        AttachmentKind kind) {
    sink_.put(static_cast<UInt8>(kind));
    if (kind == AttachmentKind::Name) return put(std::string_view(getName(owner)));
    if (kind == AttachmentKind::Fields) {
      const std::vector<TextPair> fields = owner.getAttachmentFields();
      sink_.put(length_of(fields.size()));
      for (const TextPair& field : fields) put(field);
      return;
    }
    sink_.put(entry.binding);
    put(entry.attachment);
  }

  template <Number T>
  void put(T value) {
    sink_.put(value);
  }
  template <Row T>
  void put(const T& value) {
    sink_.write(value.getValues(), sizeof value);
  }
  template <Handle T>
  void put(const T& handle) {
    sink_.put(handle ? order_.number_of(handle.getContainer()) : UInt32{0});
  }
  void put(std::string_view text) {
    sink_.put(length_of(text.size()));
    sink_.write(text.data(), text.size());
  }
  void put(const std::string& text) { put(std::string_view(text)); }
  void put(const TextPair& texts) {
    put(texts.first);
    put(texts.second);
  }
  template <List T>
  void put(const T& list) {
    sink_.put(UInt64{list.size()});
    if constexpr (Number<ElementOf<T>>)
      sink_.write(list.data(), list.size() * sizeof(ElementOf<T>));
    else
      for (const auto& value : list) put(value);
  }

  static UInt32 length_of(std::size_t count) {
    if (count > 0xffffffffu) throw Failure{"a text or list is longer than 4 GiB"};
    return static_cast<UInt32>(count);
  }

  ByteSink& sink_;
  const SceneOrder& order_;
  const KnownClass* written_as_ = nullptr;
};

/// `make_sink` gives the sink; `finish` is called when all bytes are in it.
template <class MakeSink, class Finish>
SceneWriteResult write_to(const NodePtr& root, std::string_view name, MakeSink make_sink,
                          Finish finish) {
  SceneWriteResult result;
  try {
    if (!root) throw Failure{"there is no scene to write"};
    const SceneOrder order(root);
    auto sink = make_sink();
    Writer(sink, order).write_scene();
    finish(sink);
    result.warnings = order.warnings();
    result.written = true;
  } catch (const Failure& failure) {
    result.error = message_of(failure, name);
  } catch (const std::bad_alloc&) {
    result.error = std::string(name) + ": there is not enough memory to write it";
  }
  return result;
}

}  // namespace

SceneWriteResult write_file(const NodePtr& root, const std::string& file) {
  return write_to(
      root, file, [&] { return FileSink(file); }, [](FileSink& sink) { sink.finish(); });
}

}  // namespace osg::osb

namespace osg {

SceneWriteResult writeOsb(const NodePtr& root, std::vector<std::byte>& bytes) {
  bytes.clear();
  SceneWriteResult result = osb::write_to(
      root, "scene", [&] { return osb::MemorySink(bytes); }, [](osb::MemorySink&) {});
  if (!result) bytes.clear();
  return result;
}

}  // namespace osg
