// SPDX-License-Identifier: Apache-2.0
// How an object stands in a cache: in its message form, so that the file does not depend on the layout of a class.
//
// The object's class has a Reader, a Writer, and the name of the root element as `static constexpr const char* kElement`.
// Any thread.
#ifndef KFLCORE_KFLOBJECTITEM_H
#define KFLCORE_KFLOBJECTITEM_H

#include <string>
#include <string_view>

#include <KFLMessage/KFLMessage.h>

namespace KFL {

template <class Object>
struct KFLObjectItem {
  using Type = Object;

  // The bytes of the object. 0, or -1 with an error text.
  static int write(const Object& object, std::string& text) {
    KFLMessage message(Object::kElement);
    KFLMessageIterator it = message.getIterator();
    if (const int result = it.putObject(object, typename Object::Writer()); result != 0) return result;
    return message.print(text);
  }

  // The object of the bytes. 0, or -1 with an error text where they are no message.
  static int read(std::string_view text, Object& object) {
    KFLMessage message;
    if (message.parse(std::string(text)) != 0) return -1;
    return typename Object::Reader()(message.getIterator(), object);
  }
};

}  // namespace KFL

#endif
