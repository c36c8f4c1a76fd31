// SPDX-License-Identifier: Apache-2.0
#include "KFLSchemaText.h"

#include <algorithm>
#include <utility>

namespace KFL {

std::string schemaName(std::string_view uri) {
  const std::size_t last = uri.rfind('/');
  if (last == std::string_view::npos) return std::string(uri);
  const std::string_view name = uri.substr(last + 1);
  const std::size_t version = uri.rfind('/', last - 1);
  const std::size_t owner = version == std::string_view::npos ? version : uri.rfind('/', version - 1);
  if (owner == std::string_view::npos) return std::string(name);
  const std::string_view ownerName = uri.substr(owner + 1, version - owner - 1);
  return name.starts_with(ownerName) ? std::string(name) : std::string(ownerName).append(name);
}

std::string attribute(const char* name, std::string_view value) {
  return std::string(" ").append(name).append("=\"").append(value).append("\"");
}

std::string KFLSchemaText::refer(std::string_view uri, const std::string& name) {
  if (uri != uri_) imported_.emplace(uri);
  return schemaName(uri) + ':' + name;
}

void KFLSchemaText::open(const std::string& element, const std::string& attributes) {
  line(element, attributes, ">");
  open_.push_back(element);
}

void KFLSchemaText::close(int levels) {
  for (; levels > 0; --levels) {
    const std::string element = std::move(open_.back());
    open_.pop_back();
    body_.append(indent(), ' ').append("</xs:" + element + ">\n");
  }
}

void KFLSchemaText::line(const std::string& element, const std::string& attributes, const char* end) {
  body_.append(indent(), ' ').append("<xs:" + element + attributes + end + '\n');
}

std::string KFLSchemaText::finish() const {
  std::string text =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<!-- Made by kfactl from the field tables of the records; a change is made there. -->\n"
      "<xs:schema xmlns:xs=\"http://www.w3.org/2001/XMLSchema\"\n";
  const auto declare = [&text](const std::string& uri) {
    text += "           xmlns:" + schemaName(uri) + "=\"" + uri + "\"\n";
  };
  declare(uri_);
  std::for_each(imported_.begin(), imported_.end(), declare);
  text += "           targetNamespace=\"" + uri_ + "\"\n           elementFormDefault=\"qualified\">\n";
  for (const std::string& uri : imported_)
    text += "  <xs:import namespace=\"" + uri + "\" schemaLocation=\"" + schemaName(uri) + ".xsd\"/>\n";
  return text + body_ + "</xs:schema>\n";
}

}  // namespace KFL
