#pragma once

#include <cstdio>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "osg/type.h"

namespace osg {

class Field;

/// What a field writes its values into as text, one after the other.
class OSG_API StringConversionState {
 public:
  virtual ~StringConversionState();
  virtual void beginField(const Field& field, std::string& out);
  virtual void addValue(const std::string& value, std::string& out) = 0;
  virtual void endField(const Field& field, std::string& out);
};

/// What a field needs to know of its values' type `T`. A specialisation gives, all static:
/// `getName()` of the data type, `getSingleName()`, `getMultiName()` and `getParentName()` of the
/// field types, `getDefault()`, `putToString(value, out)` which appends, and `getBinSize(value)`.
/// One with `getFromString(value, text)`, false for a text that can't be read, has a parser too.
template <class T>
struct FieldDataTraits;

/// A value, or a row of values, of a field container.
class OSG_API Field {
 public:
  virtual ~Field();
  virtual const FieldType& getFieldType() const = 0;
  virtual bool isEmpty() const = 0;
  virtual UInt32 getSize() const = 0;
  /// Takes in one value told as text; a type without parser ignores the text.
  virtual void pushValueByString(const char* text) = 0;
  /// Appends the text of the value at `index` to `out`; out of range: nothing.
  virtual void getValueByString(std::string& out, UInt32 index) const = 0;
  /// Hands the text of each value to `state`, between its begin and its end.
  virtual void getValuesByState(StringConversionState& state, std::string& out) const = 0;
  /// Appends all values, with ", " between them.
  virtual void getValuesByString(std::string& out) const = 0;
  /// Copies the values of a field of the same type; another type changes nothing.
  virtual void setFrom(const Field& other) = 0;
  /// Debugging aid on the standard output; the only place of the layer that prints, when asked to.
  virtual void dump() const = 0;
};

namespace detail {

template <class T>
concept parsed_value = requires(T& value, const char* text) {
  { FieldDataTraits<T>::getFromString(value, text) } -> std::same_as<bool>;
};

template <class T>
std::string text_of(const T& value) {
  std::string text;
  FieldDataTraits<T>::putToString(value, text);
  return text;
}

template <class T>
const FieldType& field_type(const char* name, FieldType::Cardinality cardinality) {
  if (auto* known = dynamic_cast<FieldType*>(TypeBase::find(name))) return *known;
  return *new FieldType(name, FieldDataTraits<T>::getParentName(), cardinality);
}

}  // namespace detail

/// One value. `Namespace` tells apart fields of one value type.
template <class T, int Namespace = 0>
class SField : public Field {
 public:
  SField() : value_(FieldDataTraits<T>::getDefault()) {}
  explicit SField(T value) : value_(std::move(value)) {}

  static const FieldType& getClassType() {
    static const FieldType& type =
        detail::field_type<T>(FieldDataTraits<T>::getSingleName(), FieldType::Cardinality::Single);
    return type;
  }

  T& getValue() { return value_; }
  const T& getValue() const { return value_; }
  void setValue(const T& value) { value_ = value; }

  const FieldType& getFieldType() const override { return getClassType(); }
  bool isEmpty() const override { return false; }
  UInt32 getSize() const override { return 1; }
  void pushValueByString(const char* text) override {
    if constexpr (detail::parsed_value<T>) {
      T value = FieldDataTraits<T>::getDefault();
      if (text && FieldDataTraits<T>::getFromString(value, text)) value_ = value;
    }
  }
  void getValueByString(std::string& out, UInt32 index) const override {
    if (index == 0) out += detail::text_of(value_);
  }
  void getValuesByState(StringConversionState& state, std::string& out) const override {
    state.beginField(*this, out);
    state.addValue(detail::text_of(value_), out);
    state.endField(*this, out);
  }
  void getValuesByString(std::string& out) const override { out += detail::text_of(value_); }
  void setFrom(const Field& other) override {
    if (other.getFieldType() == getFieldType()) value_ = static_cast<const SField&>(other).value_;
  }
  void dump() const override {}

 private:
  T value_;
};

/// A row of values with the access of a vector.
template <class T, int Namespace = 0>
class MField : public Field {
 public:
  using Values = std::vector<T>;

  static const FieldType& getClassType() {
    static const FieldType& type =
        detail::field_type<T>(FieldDataTraits<T>::getMultiName(), FieldType::Cardinality::Multi);
    return type;
  }

  std::size_t size() const { return values_.size(); }
  bool empty() const { return values_.empty(); }
  void clear() { values_.clear(); }
  void resize(std::size_t count) { values_.resize(count, FieldDataTraits<T>::getDefault()); }
  void push_back(const T& value) { values_.push_back(value); }
  T& operator[](std::size_t index) { return values_[index]; }
  const T& operator[](std::size_t index) const { return values_[index]; }
  auto begin() { return values_.begin(); }
  auto end() { return values_.end(); }
  auto begin() const { return values_.begin(); }
  auto end() const { return values_.end(); }
  Values& getValues() { return values_; }
  const Values& getValues() const { return values_; }

  const FieldType& getFieldType() const override { return getClassType(); }
  bool isEmpty() const override { return values_.empty(); }
  UInt32 getSize() const override { return static_cast<UInt32>(values_.size()); }
  void pushValueByString([[maybe_unused]] const char* text) override {
    T value = FieldDataTraits<T>::getDefault();
    if constexpr (detail::parsed_value<T>) {
      if (!text || !FieldDataTraits<T>::getFromString(value, text)) return;
    }
    values_.push_back(std::move(value));
  }
  void getValueByString(std::string& out, UInt32 index) const override {
    if (index < values_.size()) out += detail::text_of(values_[index]);
  }
  void getValuesByState(StringConversionState& state, std::string& out) const override {
    state.beginField(*this, out);
    for (const T& value : values_) state.addValue(detail::text_of(value), out);
    state.endField(*this, out);
  }
  void getValuesByString(std::string& out) const override {
    const char* separator = "";
    for (const T& value : values_) {
      out += separator;
      out += detail::text_of(value);
      separator = ", ";
    }
  }
  void setFrom(const Field& other) override {
    if (other.getFieldType() == getFieldType()) values_ = static_cast<const MField&>(other).values_;
  }
  void dump() const override {
    std::fputs("STMFST : \n", stdout);
    if constexpr (detail::parsed_value<T>) {
      std::string text;
      getValuesByString(text);
      std::fputs(text.c_str(), stdout);
    }
    std::fputs("\n", stdout);
  }

 private:
  Values values_;
};

/// Numbers: text in the default stream form.
template <class T>
requires std::is_arithmetic_v<T>
struct FieldDataTraits<T> {
  static constexpr const char* getName() {
    if constexpr (std::is_same_v<T, bool>) return "Bool";
    if constexpr (std::is_floating_point_v<T>) return sizeof(T) == 4 ? "Real32" : "Real64";
    constexpr const char* names[2][4] = {{"UInt8", "UInt16", "UInt32", "UInt64"},
                                         {"Int8", "Int16", "Int32", "Int64"}};
    constexpr int width = sizeof(T) == 1 ? 0 : sizeof(T) == 2 ? 1 : sizeof(T) == 4 ? 2 : 3;
    return names[std::is_signed_v<T>][width];
  }
  static const char* getSingleName() {
    static const std::string name = std::string("SF") + getName();
    return name.c_str();
  }
  static const char* getMultiName() {
    static const std::string name = std::string("MF") + getName();
    return name.c_str();
  }
  static constexpr const char* getParentName() { return "Field"; }
  static constexpr T getDefault() { return T{}; }
  static constexpr UInt64 getBinSize(const T&) { return sizeof(T); }
  static void putToString(const T& value, std::string& out) {
    std::ostringstream text;
    text << +value;
    out += text.str();
  }
  static bool getFromString(T& value, const char* text) {
    std::istringstream in(text);
    using Wide = std::conditional_t<sizeof(T) == 1, int, T>;
    Wide read{};
    if (!(in >> read)) return false;
    value = static_cast<T>(read);
    return true;
  }
};

}  // namespace osg
