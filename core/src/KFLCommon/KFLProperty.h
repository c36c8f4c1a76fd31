// SPDX-License-Identifier: Apache-2.0
// Holders of one value: KFLProperty, and KFLOptionalProperty, which also knows whether its value is
// specified.
//
// Plain values. The trap: value() gives access to the value and leaves the specified bit alone; only
// setValue, assignment and construction from a value specify it.
#ifndef KFLCOMMON_KFLPROPERTY_H
#define KFLCOMMON_KFLPROPERTY_H

#include <type_traits>
#include <utility>

#include <KFLCommon/KFLLanguage.h>

namespace KFL {

template <class T>
class KFLProperty;

namespace detail {

template <class T>
void asProperty(const KFLProperty<T>*);

// A property passed as a value is copied as a property; a text is never taken for a bool.
template <class U, class T>
concept PropertyValue = !requires(std::remove_cvref_t<U> * p) {
  asProperty(p);
}
&&std::is_convertible_v<U, T> && !(std::is_same_v<T, bool> && std::is_pointer_v<std::decay_t<U>>);

}  // namespace detail

template <class T>
class KFLProperty {
 public:
  KFLProperty() : value_() {}
  template <detail::PropertyValue<T> U = T>
  KFLProperty(U&& value)
      : value_(static_cast<T>(std::forward<U>(value))) {}  // NOLINT(google-explicit-constructor)

  const T& getValue() const { return value_; }
  void setValue(const T& value) { value_ = value; }
  void setValue(T&& value) { value_ = std::move(value); }
  T& value() { return value_; }

  friend bool operator==(const KFLProperty& a, const KFLProperty& b) { return a.value_ == b.value_; }

 private:
  T value_;
};

template <class T>
class KFLOptionalProperty : public KFLProperty<T> {
 public:
  KFLOptionalProperty() = default;
  template <detail::PropertyValue<T> U = T>
  KFLOptionalProperty(U&& value)  // NOLINT(google-explicit-constructor)
      : KFLProperty<T>(std::forward<U>(value)), specified_(true) {}

  bool isSpecified() const { return specified_; }
  // Leaves the value as it is.
  void setSpecified(bool specified) { specified_ = specified; }

  void setValue(const T& value) {
    KFLProperty<T>::setValue(value);
    specified_ = true;
  }
  void setValue(T&& value) {
    KFLProperty<T>::setValue(std::move(value));
    specified_ = true;
  }
  // Unspecified, with a default value.
  void reset() { *this = KFLOptionalProperty(); }

  // Unspecified ones are equal whatever values they hold.
  friend bool operator==(const KFLOptionalProperty& a, const KFLOptionalProperty& b) {
    return a.specified_ == b.specified_ && (!a.specified_ || a.getValue() == b.getValue());
  }

 private:
  bool specified_ = false;
};

}  // namespace KFL

#endif
