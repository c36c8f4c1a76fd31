// SPDX-License-Identifier: Apache-2.0
// What a record keeps of a message: it is read, written again, and both messages are compared.
#ifndef KFACTL_MESSAGECHECK_H
#define KFACTL_MESSAGECHECK_H

#include <cstddef>
#include <string>
#include <vector>

#include <KFLMessage/KFLMessageCheck.h>

#include "terminal/Input.h"

namespace kfactl {

struct MessageFinding {
  std::size_t line;
  std::string element;  // its path
  std::string text;
};

struct MessageCheck {
  std::vector<MessageFinding> findings;  // in the order of the lines
  KFL::KFLMessage written;
};

// Parses the text; failures are thrown, with the file's name.
void parseMessage(const Input& input, KFL::KFLMessage& message);

// "FILE:LINE: element PATH: TEXT", as all messages about elements begin.
std::string elementText(const std::string& file, std::size_t line, const std::string& path,
                        const std::string& text);

// Throws what is wrong with an element, with file, line and path.
[[noreturn]] void refuseElement(const Input& input, const KFL::KFLMessageFinding& finding);

// Reads the message as the record with this class name, or, when it is empty, as the one of those with its type tag, or
// else with its root's name, that keeps most of it. Throws when there is no such record, or when it cannot be read.
MessageCheck checkMessage(const Input& input, const std::string& recordName);

}  // namespace kfactl

#endif
