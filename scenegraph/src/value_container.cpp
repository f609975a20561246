#include "osg/value_container.h"

#include <bit>

#include "content_hash.h"
#include "osg/material.h"

namespace osg {

namespace {

/// Writes values as bytes that no two different values share: everything is of fixed size or comes
/// after its length.
class KeyWriter {
 public:
  void add_container(const ValueContainer& container) {
    add(container.getType().getName());
    readFields(container, [this](const char*, const auto& value) { add(value); });
  }
  std::string take_key() { return std::move(key_); }

 private:
  template <class Number>
  void add_bytes(const Number& number) {
    key_.append(reinterpret_cast<const char*>(&number), sizeof number);
  }
  void add(Int32 value) { add_bytes(value); }
  void add(UInt32 value) { add_bytes(value); }
  void add(UInt64 value) { add_bytes(value); }
  void add(Real32 value) { add_bytes(value == 0.0f ? 0u : std::bit_cast<UInt32>(value)); }
  template <class Row>
  void add_row(const Row& row, UInt32 count) {
    for (UInt32 i = 0; i < count; ++i) add(row[i]);
  }
  void add(const Color3f& color) { add_row(color, 3); }
  void add(const Color4f& color) { add_row(color, 4); }
  void add(const TransformationMatrix<Real32>& matrix) { add_row(matrix, 16); }
  void add(const std::string& text) {
    add(UInt64{text.size()});
    key_ += text;
  }
  void add(const std::vector<UInt8>& bytes) {
    add(UInt64{bytes.size()});
    key_.append(bytes.begin(), bytes.end());
  }
  void add(const ImagePtr& image) { add(image.getSerial()); }
  void add(const MaterialPtr& material) { add(material.getSerial()); }
  void add(const StateChunkPtr& chunk) {
    if (chunk)
      add_container(*chunk);
    else
      add(std::string());  // no type has an empty name
  }
  template <class T>
  void add(const std::vector<T>& values) {
    add(UInt64{values.size()});
    for (const T& value : values) add(value);
  }

  std::string key_;
};

}  // namespace

bool ValueContainer::accept_edited_fields() {
  return true;
}

std::string valueKey(const ValueContainer& container) {
  KeyWriter writer;
  writer.add_container(container);
  return writer.take_key();
}

bool equalByValue(const ValueContainerPtr& a, const ValueContainerPtr& b) {
  if (a == b) return true;
  return a && b && valueKey(*a) == valueKey(*b);
}

UInt64 hashByValue(const ValueContainerPtr& container) {
  if (!container) return 0;
  const std::string key = valueKey(*container);
  return detail::hash_bytes(key.data(), key.size());
}

}  // namespace osg
