// SPDX-License-Identifier: Apache-2.0
// Message texts, and packed ones: what parses prints, and the print parses again to an equal tree, compact, indented and
// packed. Taking such a tree apart and together again leaves it whole. A document that the input's bytes make, with its
// names, texts and references spelled in any way that XML knows, parses to the elements that were meant; cut or with a
// byte less, as a text or packed, it is a tree, or refused at a place that it has.
#include <algorithm>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <KFLCommon/KFLError.h>
#include <KFLMessage/KFLMessage.h>

#include "Fuzzing.h"

namespace {

using kfl_fuzz::Choices;
using kfl_fuzz::require;
using Names = std::vector<std::pair<std::string, std::string>>;  // by prefix, the innermost last

constexpr const char* kXsi = "http://www.w3.org/2001/XMLSchema-instance";
constexpr const char* kSpaces = "|urn:a|urn:b|http://kelvarium.internal/x&y";
constexpr const char* kTags = "a|b|item|long_name.of-an-element|\xc3\xa4|_1|a.b";

struct Attribute {
  std::string space, name, value;
};
struct Element {
  std::string space, name, typeSpace, type, text;
  std::vector<Attribute> attributes;
  std::vector<Element> children;
};

std::string textFrom(Choices& choices) {
  std::string text;
  for (std::size_t more = choices.below(5); more > 0; --more)
    text += choices.wordOf(
        "x|value |&|<|>|]]>|\"|'|\t|\n|\r|\r\n|\xc3\xa4|\xe2\x82\xac|\xf0\x9f\x98\x80| |a longer text of "
        "many words|--|&amp;");
  return text;
}

// A text of blanks alone stands for none where there are elements, and is a value where there are not.
Element elementFrom(Choices& choices, int depth) {
  Element made{choices.wordOf(kSpaces), choices.wordOf(kTags), "", "", "", {}, {}};
  if (choices.oneIn(4)) {
    made.typeSpace = choices.wordOf(kSpaces);
    made.type = choices.wordOf("recordType|t|a.b-c");
  }
  for (std::size_t more = choices.oneIn(4) ? choices.below(3) + 1 : 0; more > 0; --more) {
    const Attribute one{choices.wordOf(kSpaces), choices.wordOf("id|xmlish|a"), textFrom(choices)};
    const auto isSame = [&](const Attribute& other) {
      return other.space == one.space && other.name == one.name;
    };
    if (std::none_of(made.attributes.begin(), made.attributes.end(), isSame)) made.attributes.push_back(one);
  }
  if (depth > 0)
    for (std::size_t more = choices.below(4); more > 0; --more)
      made.children.push_back(elementFrom(choices, depth - 1));
  if (made.children.empty()) made.text = textFrom(choices);
  return made;
}

// Spells a document.
class Speller {
 public:
  explicit Speller(Choices& choices) : choices_(choices) {}

  std::string document(const Element& root) {
    const std::string begin = choices_.wordOf(
        "|<?xml version='1.0'?>|<?xml version=\"1.0\" encoding=\"utf-8\" standalone='yes' ?>\n");
    out_ = begin + aside();
    put(root, {{"", ""}});
    out_ += aside();
    return out_;
  }

 private:
  std::string aside() { return choices_.wordOf("|||\n|  |<!-- a <b> & -->|<?target data?>|\r\n"); }

  std::string reference(unsigned char c) {
    switch (c) {
      case '&':
        return choices_.wordOf("&amp;|&#38;|&#x26;");
      case '<':
        return choices_.wordOf("&lt;|&#60;|&#x3c;|&#x3C;");
      case '>':
        return choices_.wordOf("&gt;|&#62;");
      default:
        return "&#" + std::to_string(c) + ";";
    }
  }
  std::string spelled(const std::string& text, bool isAttribute) {
    std::string out;
    for (const char c : text) {
      const bool mustRefer = c == '&' || c == '<' || c == '>' || c == '\r' ||
                             (isAttribute && (c == '"' || c == '\n' || c == '\t'));
      const bool mayRefer = static_cast<unsigned char>(c) < 0x80 && choices_.oneIn(16);
      out += mustRefer || mayRefer ? reference(static_cast<unsigned char>(c)) : std::string(1, c);
    }
    return out;
  }
  // A text as pieces: escaped, or in sections that need no escapes, with what says nothing between them.
  std::string pieces(const std::string& text) {
    std::string out;
    for (std::size_t at = 0; at < text.size();) {
      std::size_t size = choices_.oneIn(4) ? 1 + choices_.below(text.size() - at) : text.size() - at;
      while (at + size < text.size() && (static_cast<unsigned char>(text[at + size]) & 0xC0U) == 0x80U)
        ++size;
      const std::string piece = text.substr(at, size);
      const bool isLiteral = piece.find("]]>") == std::string::npos &&
                             piece.find('\r') == std::string::npos && choices_.oneIn(3);
      out += isLiteral ? "<![CDATA[" + piece + "]]>" : spelled(piece, false);
      if (choices_.oneIn(8)) out += "<!--between-->";
      at += size;
    }
    return out;
  }

  // What the prefixes mean at an element, and which it uses already, so that it can declare them no more.
  struct Scope {
    Names names;
    std::set<std::string> used;
    std::string declarations;

    void declare(const std::string& prefix, const std::string& spelled, const std::string& space) {
      declarations += " xmlns" + (prefix.empty() ? "" : ":" + prefix) + "=\"" + spelled + "\"";
      names.emplace_back(prefix, space);
      used.insert(prefix);
    }
  };

  // A prefix that means the namespace, declared where there is none. Attributes have no use for the empty one.
  std::string prefixOf(const std::string& space, bool mayBeDefault, Scope& scope) {
    std::vector<std::string> fitting;
    for (auto name = scope.names.rbegin(); name != scope.names.rend(); ++name) {
      const bool isHidden = std::any_of(scope.names.rbegin(), name,
                                        [&](const auto& inner) { return inner.first == name->first; });
      if (name->second == space && !isHidden && (mayBeDefault || !name->first.empty()))
        fitting.push_back(name->first);
    }
    std::string prefix = choices_.wordOf("p|q|r|s|t");
    if (mayBeDefault && choices_.oneIn(2)) prefix = "";
    if (!fitting.empty() && !choices_.oneIn(4)) {
      prefix = fitting[choices_.below(fitting.size())];
      scope.used.insert(prefix);
      return prefix;
    }
    if (scope.used.count(prefix) != 0) prefix = "n" + std::to_string(++number_);
    scope.declare(prefix, spelled(space, true), space);
    return prefix;
  }

  // No prefix can mean no namespace, so that an element without one, or with such a type, needs the default to be none.
  void put(const Element& element, const Names& names) {
    Scope scope{names, {}, ""};
    std::string attributes;
    const bool needsNone = element.space.empty() || (!element.type.empty() && element.typeSpace.empty());
    if (needsNone) scope.declare("", "", "");
    const auto nameOf = [&](const std::string& space, const std::string& name, bool mayBeDefault) {
      const std::string prefix = space.empty() ? "" : prefixOf(space, mayBeDefault, scope);
      return prefix.empty() ? name : prefix + ":" + name;
    };
    const std::string name = nameOf(element.space, element.name, !needsNone);
    if (!element.type.empty()) {
      const std::string type = nameOf(element.typeSpace, element.type, !needsNone);
      attributes += " " + nameOf(kXsi, "type", false) + "=\"" + choices_.oneOf({"", " "}) + type + "\"";
    }
    for (const Attribute& one : element.attributes)
      attributes += " " + nameOf(one.space, one.name, false) + "=\"" + spelled(one.value, true) + "\"";
    const bool areFirst = choices_.oneIn(2);
    out_ += "<" + name + (areFirst ? attributes + scope.declarations : scope.declarations + attributes) +
            choices_.oneOf({"", " ", "\n"});
    if (element.children.empty() && element.text.empty() && choices_.oneIn(2)) {
      out_ += "/>";
      return;
    }
    out_ += ">" + pieces(element.text);
    for (const Element& child : element.children) {
      out_ += aside();
      put(child, scope.names);
    }
    if (!element.children.empty()) out_ += aside();
    out_ += "</" + name + choices_.oneOf({"", " "}) + ">";
  }

  Choices& choices_;
  std::string out_;
  int number_ = 0;
};

void requireElement(const KFL::KFLMessageIterator& it, const Element& element, const std::string& text) {
  require(it.getName() == element.name && it.getNamespace() == element.space, "an element has its name",
          text);
  require(
      it.getTypeTag() == element.type && (element.type.empty() || it.getTypeNamespace() == element.typeSpace),
      "an element has its type", text);
  require(!element.children.empty() || it.getText() == element.text, "an element has its text", text);
  std::string space, name, value;
  for (std::size_t i = 0; i < element.attributes.size(); ++i) {
    const Attribute& one = element.attributes[i];
    require(it.getAttribute(i, space, name, value) == 0 && space == one.space && name == one.name &&
                value == one.value,
            "an element has its attributes", text);
  }
  require(it.getAttribute(element.attributes.size(), space, name, value) != 0,
          "an element has no other attributes", text);
  require(it.countChildren() == element.children.size(), "an element has its children", text);
  int left = it.firstChild();
  for (const Element& child : element.children) {
    require(left == 0, "each child is walked over", text);
    requireElement(it, child, text);
    left = it.nextSibling();
  }
  if (!element.children.empty()) it.leaveChild();
}

long countIn(const std::string& text, char c) {
  return std::count(text.begin(), text.end(), c);
}

// A refusal names a line that the text has; each kind of line end is one.
void requirePlace(const std::string& text) {
  const std::string message = KFL::getErrorMessage();
  require(message.starts_with("line "), "a refusal names its place", text);
  const long line = std::strtol(message.c_str() + 5, nullptr, 10);
  require(line >= 1 && line <= 1 + countIn(text, '\n') + countIn(text, '\r'), "the place is in the text",
          text);
}

// A refusal of a packed message names a byte of it, or the one behind.
void requireByte(const std::string& packed) {
  const std::string message = KFL::getErrorMessage();
  require(message.starts_with("byte ") && std::stoul(message.substr(5)) <= packed.size() + 1,
          "the place is in the bytes");
}

bool hasAttribute(const KFL::KFLMessageIterator& it, const std::string& space, const std::string& name) {
  std::string otherSpace, otherName, value;
  for (std::size_t i = 0; it.getAttribute(i, otherSpace, otherName, value) == 0; ++i)
    if (otherSpace == space && otherName == name) return true;
  return false;
}

// Removes every other child of the root and copies the root into one of those that stay.
void change(KFL::KFLMessage& message) {
  KFL::KFLMessageIterator it = message.getIterator();
  for (int more = it.firstChild(); more == 0; more = it.nextSibling()) {
    KFL::KFLMessageIterator next = it;
    if (next.nextSibling() != 0) break;
    it.removeCurrent();
    it = next;
  }
  const KFL::KFLMessageIterator root = message.getIterator();
  const std::size_t children = it.countChildren() + root.countChildren();
  require(it.copyContent(root) == 0 && it.countChildren() == children,
          "a tree is copied into its own branch");
  std::string space, name, value;
  for (std::size_t i = 0; root.getAttribute(i, space, name, value) == 0; ++i)
    require(hasAttribute(it, space, name), "an attribute is copied where there is none", name);
}

// A text of blanks alone stands for none once there are elements beside it.
bool hasBlankText(const Element& element) {
  const bool isBlank =
      !element.text.empty() && element.text.find_first_not_of(" \t\r\n") == std::string::npos;
  return isBlank || std::any_of(element.children.begin(), element.children.end(), hasBlankText);
}

void checkChange(KFL::KFLMessage message, const std::string& text) {
  change(message);
  KFL::KFLMessage changed;
  std::string print;
  require(message.print(print) == 0 && changed.parse(print) == 0, "a changed tree is a text", text + print);
  require(changed.getIterator().isEqualTree(message.getIterator()), "a changed tree is printed whole",
          text + print);
}

// The packed form has the same elements; with another byte, or cut, it is a tree that prints, or refused.
void checkPacked(const KFL::KFLMessage& message, const Element& root, Choices& choices) {
  std::string packed, print;
  KFL::KFLMessage unpacked, damaged;
  require(message.pack(packed) == 0 && unpacked.unpack(packed) == 0, "what parses packs and unpacks",
          message.toString());
  requireElement(unpacked.getIterator(), root, message.toString());
  const std::size_t at = choices.below(std::min<std::size_t>(packed.size(), 65536));
  if (choices.oneIn(2))
    packed.resize(at);
  else
    packed[at] = static_cast<char>(choices.oneIn(2) ? packed[at] + 1 : static_cast<int>(choices.below(256)));
  if (damaged.unpack(packed) != 0) return requireByte(packed);
  KFL::KFLMessage again;
  require(damaged.print(print) == 0 && again.parse(print) == 0, "what unpacks prints as a text", print);
}

void checkModel(Choices choices) {
  const Element root = elementFrom(choices, 4);
  const std::string text = Speller(choices).document(root);
  KFL::KFLMessage message;
  require(message.parse(text) == 0, "a document parses", text);
  requireElement(message.getIterator(), root, text);
  checkPacked(message, root, choices);
  std::string damaged = text;
  const std::size_t at = choices.below(std::min<std::size_t>(text.size(), 65536));
  choices.oneIn(2) ? damaged.resize(at) : static_cast<void>(damaged.erase(at, 1));
  if (!hasBlankText(root)) checkChange(message, text);
  KFL::KFLMessage rest;
  if (rest.parse(damaged) != 0) requirePlace(damaged);
}

void requireEqual(const std::string& text, const KFL::KFLMessage& message, const char* law) {
  KFL::KFLMessage again;
  require(again.parse(text) == 0, law);
  require(again.getIterator().isEqualTree(message.getIterator()), law);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  checkModel(Choices(kfl_fuzz::viewOf(data, size)));
  KFL::KFLMessage message;
  const std::string input(kfl_fuzz::viewOf(data, size));
  const bool isPacked = KFL::KFLMessage::isPacked(input);
  if ((isPacked ? message.unpack(input) : message.parse(input)) != 0) {
    isPacked ? requireByte(input) : requirePlace(input);
    return 0;
  }
  std::string text;
  require(message.print(text) == 0, "what parses prints");
  requireEqual(text, message, "the print parses to an equal tree");
  requireEqual(message.toPrettyString(), message, "the indented print parses to an equal tree");
  KFL::KFLMessage unpacked;
  require(message.pack(text) == 0 && unpacked.unpack(text) == 0, "what prints packs and unpacks");
  require(unpacked.getIterator().isEqualTree(message.getIterator()), "the packed form is an equal tree");

  const KFL::KFLMessage copy = message;
  require(copy.getIterator().isEqualTree(message.getIterator()), "a copy is equal");
  change(message);
  KFL::KFLMessage changed;
  require(message.print(text) == 0, "a changed tree prints");
  // Copying adds levels, which a text may have only so many of.
  const int result = changed.parse(text);
  require(result == 0 || KFL::getErrorMessage().find("nested too deeply") != std::string::npos,
          "a changed tree is a text", text);
  require(result != 0 || changed.getIterator().isEqualTree(message.getIterator()),
          "a changed tree is printed whole", text);
  requireEqual(copy.toString(), copy, "a copy is independent");
  return 0;
}
