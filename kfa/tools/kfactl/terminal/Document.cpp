// SPDX-License-Identifier: Apache-2.0
#include "terminal/Document.h"

#include <nlohmann/json.hpp>

#include <KFLMessage/KFLMessage.h>

#include "terminal/Session.h"
#include "terminal/Trouble.h"

namespace kfactl {

namespace {

std::string toText(const Document& value) {
  if (value.is_null()) return {};
  return value.is_string() ? value.get<std::string>() : value.dump();
}

void putMember(KFL::KFLMessageIterator& it, const std::string& name, const Document& value);

void putContent(KFL::KFLMessageIterator& it, const char* item, const Document& value) {
  if (value.is_object()) {
    for (const auto& [name, member] : value.items())
      putMember(it, name, member);
  } else if (value.is_array()) {
    for (const Document& member : value)
      putMember(it, item, member);
  } else if (!value.is_null()) {
    it.putValue(toText(value));
  }
}

// The documents of the commands are only a few levels deep, whatever they were made from.
void putMember(KFL::KFLMessageIterator& it, const std::string& name, const Document& value) {
  if (value.is_array()) return putContent(it, name.c_str(), value);
  it.addChild(name);
  putContent(it, "item", value);
  it.leaveChild();
}

std::string toXml(const Document& document, const char* root, const char* item) {
  KFL::KFLMessage message(root);
  KFL::KFLMessageIterator it = message.getIterator();
  putContent(it, item, document);
  std::string text = message.toPrettyString();
  if (text.empty()) throwLibraryError("cannot be shown as XML");
  return text;
}

// Names the member that is at fault, since the whole cannot be printed.
[[noreturn]] void refuse(const Session& session, const Document& document) {
  std::string member;
  for (const auto& [name, value] : document.items()) {
    try {
      static_cast<void>(value.dump());
    } catch (const nlohmann::json::exception&) {
      member = name;
      break;
    }
  }
  throw Trouble(session.argument(0) + ": the value of " + member +
                " is not UTF-8, so it cannot be shown as JSON; use --format table");
}

std::string toJson(const Session& session, const Document& document) {
  try {
    return document.dump(2);
  } catch (const nlohmann::json::exception&) {
    refuse(session, document);
  }
}

}  // namespace

void printDocument(Session& session, const Document& document, const char* root, const char* item) {
  const std::string text =
      session.format() == Format::Xml ? toXml(document, root, item) : toJson(session, document);
  session.out().add(text);
  if (text.back() != '\n') session.out().add("\n");
}

}  // namespace kfactl
