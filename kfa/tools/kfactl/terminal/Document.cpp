// SPDX-License-Identifier: Apache-2.0
#include "terminal/Document.h"

#include <boost/archive/iterators/base64_from_binary.hpp>
#include <boost/archive/iterators/transform_width.hpp>
#include <nlohmann/json.hpp>

#include <KFLCommon/KFLText.h>
#include <KFLMessage/KFLMessage.h>

#include "terminal/JsonLine.h"
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

std::string encodeBase64(const std::string& text) {
  using namespace boost::archive::iterators;
  using Digits = base64_from_binary<transform_width<std::string::const_iterator, 6, 8>>;
  std::string encoded(Digits(text.begin()), Digits(text.end()));
  return encoded.append((3 - text.size() % 3) % 3, '=');
}

// Texts that JSON cannot carry as such become objects that hold their bytes.
void encodeBytes(Document& document) {
  if (document.is_string()) {
    const std::string& text = document.get_ref<const std::string&>();
    if (!KFL::isUtf8(text)) document = {{"base64", encodeBase64(text)}};
  } else if (document.is_structured()) {
    for (Document& member : document)
      encodeBytes(member);
  }
}

// indent: negative for all in one line.
std::string toJson(const Document& document, int indent) {
  try {
    return document.dump(indent);
  } catch (const nlohmann::json::exception&) {
    Document encoded = document;
    encodeBytes(encoded);
    return encoded.dump(indent, ' ', false, Document::error_handler_t::replace);
  }
}

}  // namespace

std::string jsonLineOf(const Document& document) {
  return toJson(document, -1);
}

void printDocument(Session& session, const Document& document, const char* root, const char* item) {
  const std::string text =
      session.format() == Format::Xml ? toXml(document, root, item) : toJson(document, 2);
  session.out().add(text);
  if (text.back() != '\n') session.out().add("\n");
}

}  // namespace kfactl
