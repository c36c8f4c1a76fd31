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

// The result of the writer, and the elements that it wrote.
template <class Record>
int writeTo(std::string& content, const Record& record) {
  KFLMessage message("r");
  KFLMessageIterator it = message.getIterator();
  it.setName("r", kUp2dateURI);
  const int result = it.putObj(record);
  const std::string text = message.toString();
  const std::size_t from = text.find('>') + 1;
  const std::size_t to = text.rfind('<');
  content = to < from ? "" : text.substr(from, to - from);
  return result;
}

template <class Record>
std::string written(const Record& record) {
  std::string content;
  const int result = writeTo(content, record);
  return result == 0 ? content : "result " + std::to_string(result);
}

}  // namespace KFA

#endif
