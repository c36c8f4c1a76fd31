// SPDX-License-Identifier: Apache-2.0
// The address of an element: a number of the tag vocabulary, or a literal name.
//
// Converts from int, std::string, std::string_view and const char*. 0 and "" are the empty id, which stands for the
// current element. It refers to the text it was made from, so it serves as an argument and is not kept.
#ifndef KFLMESSAGE_KFLELEMENTID_H
#define KFLMESSAGE_KFLELEMENTID_H

#include <string>
#include <string_view>
#include <type_traits>

#include <KFLCommon/KFLLanguage.h>

namespace KFL {

class KFLElementID {
 public:
  constexpr KFLElementID() = default;
  constexpr KFLElementID(int number) : number_(number) {}         // NOLINT(google-explicit-constructor)
  constexpr KFLElementID(const char* name) : name_(name) {}       // NOLINT(google-explicit-constructor)
  constexpr KFLElementID(std::string_view name) : name_(name) {}  // NOLINT(google-explicit-constructor)
  KFLElementID(const std::string& name) : name_(name) {}          // NOLINT(google-explicit-constructor)

  constexpr bool isEmpty() const { return number_ == 0 && name_.empty(); }
  // 0 when the element is addressed by name.
  constexpr int number() const { return number_; }
  // Empty when the element is addressed by number.
  constexpr std::string_view name() const { return name_; }

 private:
  int number_ = 0;
  std::string_view name_;
};

// The type in which a combinator keeps an id of type T: int for numbers, std::string for any kind of text. A
// KFLElementID stays one, and the text it refers to must outlive the combinator.
template <class T>
using KFLStoredID =
    std::conditional_t<std::is_same_v<std::decay_t<T>, KFLElementID>, KFLElementID,
                       std::conditional_t<std::is_arithmetic_v<std::decay_t<T>>, int, std::string>>;

}  // namespace KFL

#endif
