// SPDX-License-Identifier: Apache-2.0
// Records of the update namespace from and to the text between the tags of a message's root.
#ifndef KFAFUNCTIONALITY_TESTS_UPDATES_UPDATEMESSAGES_H
#define KFAFUNCTIONALITY_TESTS_UPDATES_UPDATEMESSAGES_H

#include <string>

#include <KFLMessage/KFLMessage.h>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

template <class Record>
int readFrom(const std::string& content, Record& record) {
  KFLMessage message;
  if (message.parse("<r xmlns='" + std::string(kUp2dateURI) +
                    "' xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance'>" + content + "</r>") != 0)
    return -100;
  return message.getIterator().getObj(record);
}

// The elements that the writer wrote, or its result.
template <class Record>
std::string written(const Record& record) {
  KFLMessage message("r");
  KFLMessageIterator it = message.getIterator();
  it.setName("r", kUp2dateURI);
  const int result = it.putObj(record);
  if (result != 0) return "result " + std::to_string(result);
  const std::string text = message.toString();
  const std::size_t from = text.find('>') + 1;
  const std::size_t to = text.rfind('<');
  return to < from ? "" : text.substr(from, to - from);
}

}  // namespace KFA

#endif
