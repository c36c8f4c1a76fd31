// SPDX-License-Identifier: Apache-2.0
// Not installed. The text of one XML schema as it is built up: elements, indentation, and what it imports.
#ifndef KFLMESSAGE_KFLSCHEMATEXT_H
#define KFLMESSAGE_KFLSCHEMATEXT_H

#include <cstddef>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace KFL {

// What a namespace is called in file names and prefixes: "kfatypes" for .../kfa/4.0.0/kfatypes, and "kfltypes" for
// .../kfl/4.0.0/types.
std::string schemaName(std::string_view uri);

// ` name="value"`, for the attributes of an element.
std::string attribute(const char* name, std::string_view value);

class KFLSchemaText {
 public:
  explicit KFLSchemaText(std::string_view uri) : uri_(uri) {}

  // A name of a namespace as this schema refers to it.
  std::string refer(std::string_view uri, const std::string& name);

  // Elements with attributes given as text; what is opened is closed by close().
  void open(const std::string& element, const std::string& attributes = {});
  void close(int levels = 1);
  void add(const std::string& element, const std::string& attributes) { line(element, attributes, "/>"); }

  // The whole document.
  std::string finish() const;

 private:
  std::size_t indent() const { return 2 + 2 * open_.size(); }
  void line(const std::string& element, const std::string& attributes, const char* end);

  std::string uri_;
  std::string body_;
  std::vector<std::string> open_;
  std::set<std::string, std::less<>> imported_;
};

}  // namespace KFL

#endif
