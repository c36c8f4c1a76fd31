// SPDX-License-Identifier: Apache-2.0
// One key of the environment file, one property of the record: the parsers that bind them, and the converters that they
// are built from.
//
// A parser object has no state; one serves all records and threads. A converter is constructed from what it converts
// and becomes what it converts to: std::string is one, and so is any value type made from a text.
//
//   KFABashParseBool<KFAEnvConfig, KFLOptionalProperty<bool>, &KFAEnvConfig::setOnBoot, &KFAEnvConfig::getOnBoot>
#ifndef KFAFUNCTIONALITY_FILES_KFABASHPARSE_H
#define KFAFUNCTIONALITY_FILES_KFABASHPARSE_H

#include <set>
#include <string>
#include <type_traits>
#include <utility>

#include <KFLCommon/KFLProperty.h>
#include <KFLCommon/KFLText.h>
#include <KFLFunctionality/KFLEnvConfig.h>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

class KFAVPSType;

class KFABashParse {
 public:
  virtual ~KFABashParse();

  // Converts the value and stores it in the record: the setter's result.
  virtual int operator()(const char* key, const char* value, KFL::KFLEnvConfig& record) = 0;
  // The value text of the record's property: 0, or another result when there is nothing to write.
  virtual int operator()(const char* key, const KFL::KFLEnvConfig& record, std::string& value) const = 0;
};

// --- Converters ---------------------------------------------------------------------------------------------------

// Text to an optional string, specified even when it is empty.
template <class Property>
class DefaultInputConverter {
 public:
  explicit DefaultInputConverter(const char* text) : text_(text) {}
  operator Property() const { return Property(std::string(text_)); }

 private:
  const char* text_;
};

// The string that a property holds.
template <class Property>
class FromAttrConverter {
 public:
  explicit FromAttrConverter(const Property& property) : property_(property) {}
  operator std::string() const { return property_.getValue(); }

 private:
  const Property& property_;
};

// "yes", in any case, is true; everything else is false.
template <class Property>
class ToBoolConverter {
 public:
  explicit ToBoolConverter(const char* text) : value_(KFL::equalsIgnoreCase(text, "yes")) {}
  operator Property() const { return Property(value_); }

 private:
  bool value_;
};

class FromBoolConverter {
 public:
  explicit FromBoolConverter(bool value) : value_(value) {}
  operator std::string() const { return value_ ? "yes" : "no"; }

 private:
  bool value_;
};

template <class T>
class FromStringConverter {
 public:
  explicit FromStringConverter(const std::string& text) { value_.fromString(text); }
  operator T() const { return value_; }

 private:
  T value_;
};

template <class T>
class ToStringConverter {
 public:
  explicit ToStringConverter(const T& value) : value_(value) {}
  operator std::string() const { return value_.toString(); }

 private:
  const T& value_;
};

// The environment type: "repair:101", "repaired:101", whatever names "temporary", else regular.
template <>
class FromStringConverter<KFL::KFLOptionalProperty<KFAVPSType>> {
 public:
  explicit FromStringConverter(const std::string& text) : text_(text) {}
  operator KFL::KFLOptionalProperty<KFAVPSType>() const;

 private:
  std::string text_;
};

// A temporary type has no text of its own and becomes "regular".
template <>
class ToStringConverter<KFL::KFLOptionalProperty<KFAVPSType>> {
 public:
  explicit ToStringConverter(const KFL::KFLOptionalProperty<KFAVPSType>& type) : type_(type) {}
  operator std::string() const;

 private:
  const KFL::KFLOptionalProperty<KFAVPSType>& type_;
};

template <class Property>
struct isPlainProperty : std::true_type {};
template <class T>
struct isPlainProperty<KFL::KFLOptionalProperty<T>> : std::false_type {};

// Property to text: -1 when there is no value.
template <class Property, class Converter, bool plain = isPlainProperty<Property>::value>
struct toStringer {
  static int convert(const Property& property, std::string& text) {
    if (!property.isSpecified()) return -1;
    if constexpr (std::is_constructible_v<Converter, const Property&>) {
      text = std::string(Converter(property));
    } else {
      text = std::string(Converter(property.getValue()));
    }
    return 0;
  }
};

template <class Property, class Converter>
struct toStringer<Property, Converter, true> {
  static int convert(const Property& property, std::string& text) {
    text = std::string(Converter(property));
    return 0;
  }
};

// Puts elements into a set; repetitions collapse.
template <class Set>
class insert_iterator_simple {
 public:
  explicit insert_iterator_simple(Set& set) : set_(&set) {}
  insert_iterator_simple& operator=(const typename Set::value_type& value) {
    set_->insert(value);
    return *this;
  }
  insert_iterator_simple& operator=(typename Set::value_type&& value) {
    set_->insert(std::move(value));
    return *this;
  }
  insert_iterator_simple& operator*() { return *this; }
  insert_iterator_simple& operator++() { return *this; }
  insert_iterator_simple operator++(int) { return *this; }

 private:
  Set* set_;
};

// What separates the elements of a list; the first one is written.
struct spaceDelimiterProvider {
  static constexpr const char* delimiterLine = " \t\n";
};
struct semicolonDelimiterProvider {
  static constexpr const char* delimiterLine = ";";
};

// --- Parsers made of converters -----------------------------------------------------------------------------------

template <class Record, class Property, auto setter, auto getter, class InputConverter, class OutputConverter>
class KFABashParseString : public KFABashParse {
 public:
  int operator()(const char*, const char* value, KFL::KFLEnvConfig& record) override {
    const Property property = static_cast<Property>(InputConverter(value));
    return (static_cast<Record&>(record).*setter)(property);
  }

  int operator()(const char*, const KFL::KFLEnvConfig& record, std::string& value) const override {
    Property property{};
    const int result = (static_cast<const Record&>(record).*getter)(property);
    if (result != 0) return result;
    return toStringer<Property, OutputConverter, isPlainProperty<Property>::value>::convert(property, value);
  }
};

template <class Record, class Property, auto setter, auto getter>
class KFABashParseBool : public KFABashParseString<Record, Property, setter, getter,
                                                   ToBoolConverter<Property>, FromBoolConverter> {};

// An empty text means unset.
template <class Record, class Property, auto setter, auto getter,
          class InputConverter = DefaultInputConverter<Property>,
          class OutputConverter = FromAttrConverter<Property>>
class KFABashParseStringNotEmpty : public KFABashParse {
 public:
  int operator()(const char*, const char* value, KFL::KFLEnvConfig& record) override {
    const Property property = *value == '\0' ? Property() : static_cast<Property>(InputConverter(value));
    return (static_cast<Record&>(record).*setter)(property);
  }

  int operator()(const char*, const KFL::KFLEnvConfig& record, std::string& value) const override {
    Property property{};
    const int result = (static_cast<const Record&>(record).*getter)(property);
    if (result != 0) return result;
    return toStringer<Property, OutputConverter, false>::convert(property, value);
  }
};

template <class Record, class Property, auto setter, auto getter, class Inserter, class InputConverter,
          class OutputConverter, class DelimiterProvider>
class KFABashParseGenericList : public KFABashParse {
 public:
  // The list that the text stands for, specified also when it is empty.
  static void split(const char* value, Property& property) {
    Inserter inserter(property.value());
    KFL::getToken tokens(value, DelimiterProvider::delimiterLine, 0);
    while (const char* token = tokens.get(nullptr))
      *inserter = InputConverter(token);
    property.setSpecified(true);
  }

  int operator()(const char*, const char* value, KFL::KFLEnvConfig& record) override {
    Property property;
    split(value, property);
    return (static_cast<Record&>(record).*setter)(property);
  }

  // Leading elements without a text leave no separator; later ones do.
  int operator()(const char*, const KFL::KFLEnvConfig& record, std::string& value) const override {
    Property property;
    if ((static_cast<const Record&>(record).*getter)(property) != 0 || !property.isSpecified()) return -1;
    std::string text;
    for (const auto& element : property.getValue()) {
      if (!text.empty()) text += *DelimiterProvider::delimiterLine;
      text += std::string(OutputConverter(element));
    }
    value = std::move(text);
    return 0;
  }
};

template <class Record, class Property, auto setter, auto getter>
class KFABashParseStringList
    : public KFABashParseGenericList<Record, Property, setter, getter,
                                     insert_iterator_simple<std::set<std::string>>, std::string, std::string,
                                     spaceDelimiterProvider> {};

// --- Parsers written by hand --------------------------------------------------------------------------------------

// The platform in the description of the operating system.
class KFABashParsePlatform : public KFABashParse {
 public:
  int operator()(const char* key, const char* value, KFL::KFLEnvConfig& record) override;
  int operator()(const char* key, const KFL::KFLEnvConfig& record, std::string& value) const override;
};

// The architecture; the record says "i386" where the file says "x86". Never overrides one that is already there.
class KFABashParseArch : public KFABashParse {
 public:
  int operator()(const char* key, const char* value, KFL::KFLEnvConfig& record) override;
  int operator()(const char* key, const KFL::KFLEnvConfig& record, std::string& value) const override;
};

// The first architecture among the words is the record's; the key is never written.
class KFABashParseTechnologies : public KFABashParse {
 public:
  int operator()(const char* key, const char* value, KFL::KFLEnvConfig& record) override;
  int operator()(const char* key, const KFL::KFLEnvConfig& record, std::string& value) const override;
};

}  // namespace KFA

#endif
