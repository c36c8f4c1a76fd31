// SPDX-License-Identifier: Apache-2.0
// Several messages in one text, one behind the other, as `cache get` prints them.
#ifndef KFACTL_MESSAGESTREAM_H
#define KFACTL_MESSAGESTREAM_H

#include <functional>
#include <string>

#include "terminal/Input.h"

namespace kfactl {

// A message of the text, with the text's name and the text's numbers of lines; `where` is the name, or NAME:LINE when the
// text has several.
using MessagePart = std::function<void(const Input& message, const std::string& where)>;

// Calls `part` with each message of the text. What is no message goes to it too, with what stands before or behind, so that
// its parser says what is wrong.
void eachMessage(const Input& input, const MessagePart& part);

}  // namespace kfactl

#endif
