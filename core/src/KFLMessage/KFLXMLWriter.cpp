// SPDX-License-Identifier: Apache-2.0
#include <KFLMessage/KFLXMLWriter.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>
#include <KFLMessage/KFLXMLReader.h>

namespace KFL {

namespace {

// --- Characters -----------------------------------------------------------------------------------------------------

enum CharacterClass : std::uint8_t { kPlain = 0, kEscaped = 1, kForbidden = 2, kBeyondAscii = 4 };

constexpr std::array<std::uint8_t, 256> classesOf(std::string_view escaped) {
  std::array<std::uint8_t, 256> classes{};
  for (std::size_t i = 0; i < 0x20; ++i)
    classes[i] = kForbidden;
  for (std::size_t i = 0x80; i < 0x100; ++i)
    classes[i] = kBeyondAscii;
  for (const char c : std::string_view("\t\n\r"))
    classes[static_cast<unsigned char>(c)] = kPlain;
  for (const char c : escaped)
    classes[static_cast<unsigned char>(c)] = kEscaped;
  return classes;
}
constexpr auto kInText = classesOf("&<>\r");
constexpr auto kInAttribute = classesOf("&<>\r\n\t\"");

std::string_view referenceFor(char c) {
  switch (c) {
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    case '"':
      return "&quot;";
    case '\t':
      return "&#9;";
    case '\n':
      return "&#10;";
    default:
      return "&#13;";
  }
}

std::uint64_t eightBytes(const char* from) {
  std::uint64_t bytes = 0;
  std::memcpy(&bytes, from, sizeof bytes);
  return bytes;
}

// Whether none of eight bytes of a text needs a closer look: below a space, beyond ASCII, or one of & < >.
[[gnu::always_inline]] inline bool areAllPlain(std::uint64_t bytes) {
  constexpr std::uint64_t kOnes = 0x0101010101010101U;
  constexpr std::uint64_t kHigh = 0x8080808080808080U;
  static_assert(('<' | 2) == '>', "one comparison finds both");
  const std::uint64_t isLow = (bytes - kOnes * 0x20) & ~bytes;
  const std::uint64_t ampersands = bytes ^ (kOnes * '&');
  const std::uint64_t brackets = (bytes | (kOnes * 2)) ^ (kOnes * '>');
  const std::uint64_t isSpecial = ((ampersands - kOnes) & ~ampersands) | ((brackets - kOnes) & ~brackets);
  return ((bytes | isLow | isSpecial) & kHigh) == 0;
}

// The classes of all bytes of a text, taken together.
unsigned classesIn(std::string_view text, const std::array<std::uint8_t, 256>& classes) {
  unsigned found = kPlain;
  for (const char c : text)
    found |= classes[static_cast<unsigned char>(c)];
  return found;
}

// Copies a text of which nothing needs a closer look; null, with part of it copied, when something does.
char* copyPlain(char* to, std::string_view text) {
  const char* from = text.data();
  const char* const end = from + text.size();
  if (text.size() < 8) {
    for (; from != end; ++from, ++to) {
      if (kInText[static_cast<unsigned char>(*from)] != kPlain) return nullptr;
      *to = *from;
    }
    return to;
  }
  for (; end - from > 8; from += 8, to += 8) {
    if (!areAllPlain(eightBytes(from))) return nullptr;
    std::memcpy(to, from, 8);
  }
  if (!areAllPlain(eightBytes(end - 8))) return nullptr;
  to += end - from;
  std::memcpy(to - 8, end - 8, 8);
  return to;
}

// Copies a text that is likely short, as names are.
char* copyShort(char* to, std::string_view text) {
  if (text.size() < 8 || text.size() > 16) return std::copy(text.begin(), text.end(), to);
  std::memcpy(to, text.data(), 8);
  std::memcpy(to + text.size() - 8, text.data() + text.size() - 8, 8);
  return to + text.size();
}

// What keeps a text from standing in XML; null when nothing does.
const char* faultOf(std::string_view text, unsigned found) {
  if (found & kForbidden) return "holds a control character, which XML cannot carry";
  if (!(found & kBeyondAscii)) return nullptr;
  if (!isUtf8(text)) return "is not UTF-8; messages are";
  if (text.find("\xEF\xBF\xBE") != text.npos || text.find("\xEF\xBF\xBF") != text.npos) {
    return "holds U+FFFE or U+FFFF, which XML cannot carry";
  }
  return nullptr;
}

// --- Output ---------------------------------------------------------------------------------------------------------

// Collects small pieces and hands them on in large ones.
class Output {
 public:
  explicit Output(std::string& out) : out_(out) {}
  void reserve(std::size_t size) { out_.reserve(size); }
  void put(char c) {
    if (used_ == kSize) flush();
    buffer_[used_++] = c;
  }
  void put(std::string_view text) {
    if (text.size() > kSize - used_) {
      flush();
      if (text.size() > kSize / 2) {
        out_.append(text);
        return;
      }
    }
    text.copy(buffer_ + used_, text.size());
    used_ += text.size();
  }
  // A place for that many bytes, which fill() then tells to be written up to its end; null when they are too many.
  char* room(std::size_t size) {
    if (size > kSize - used_) flush();
    return size > kSize ? nullptr : buffer_ + used_;
  }
  void fill(const char* end) { used_ = static_cast<std::size_t>(end - buffer_); }
  void flush() {
    out_.append(buffer_, used_);
    used_ = 0;
  }

 private:
  static constexpr std::size_t kSize = 4096;
  std::string& out_;
  std::size_t used_ = 0;
  char buffer_[kSize];
};

// --- The tree -------------------------------------------------------------------------------------------------------

class Writer {
 public:
  Writer(const KFLMessageTree& tree, KFLNodeIndex top, KFLXMLLayout layout, std::string& out)
      : tree_(tree), top_(top), isIndented_(layout == KFLXMLLayout::Indented), out_(out) {}
  int write();

 private:
  using Node = KFLMessageNode;
  static constexpr KFLNodeIndex kNone = KFLMessageTree::kNone;

  // How the name of an element is written, a matter of the element alone.
  enum class Prefix {
    None,   // its namespace is the default one
    Xml,    // XML's own namespace, which can be no default
    Bound,  // its type has no namespace, which only an element without a default namespace can say
  };

  void survey();
  int writeSubtree();
  int open(KFLNodeIndex element);
  bool putPlainLeaf(const Node& node);
  void close(KFLNodeIndex element);
  void putName(std::uint32_t ns, Prefix prefix, std::string_view name);
  int declareNamespace(KFLNodeIndex element, std::uint32_t ns, Prefix prefix, std::uint32_t& defaultNs);
  int putDeclaration(KFLNodeIndex element, std::string_view prefix, std::uint32_t ns);
  int putType(KFLNodeIndex element, std::uint32_t defaultNs);
  int putAttributes(KFLNodeIndex element);
  int putPrefix(KFLNodeIndex element, std::uint32_t ns, std::uint32_t& declared);
  int putText(KFLNodeIndex element, std::string_view text, const std::array<std::uint8_t, 256>& classes);
  void putLineFor(KFLNodeIndex element, std::size_t depth);

  Prefix prefixOf(KFLNodeIndex element, std::uint32_t ns) const;
  bool needsXsi(KFLNodeIndex element) const;
  bool holdsElementsOnly(KFLNodeIndex element) const;
  int refuse(KFLNodeIndex element, const std::string& what);

  const KFLMessageTree& tree_;
  KFLNodeIndex top_;
  bool isIndented_;
  Output out_;
  std::uint32_t xmlNs_ = 0;
  std::uint32_t xsiNs_ = 0;
  bool needsXsi_ = false;
  // Default namespaces around the current element, the innermost last, and whether the elements that set them are
  // broken into lines.
  struct Level {
    std::uint32_t defaultNs;
    bool isBroken;
  };
  std::vector<Level> levels_{{0, false}};
  // By namespace: the element that declared a prefix for it last, and the prefix's number.
  std::vector<std::pair<KFLNodeIndex, std::uint32_t>> declared_;
};

int Writer::write() {
  xmlNs_ = tree_.findNamespace(kXmlNamespace);
  xsiNs_ = tree_.findNamespace(kXsiNamespace);
  survey();
  const int result = writeSubtree();
  if (result == 0 && isIndented_) out_.put('\n');
  out_.flush();
  return result;
}

// Learns what the whole subtree needs: the declaration of xsi, and room for the text, guessed from the first nodes.
void Writer::survey() {
  constexpr std::size_t kSample = 1000;
  constexpr std::size_t kTags = 5;  // the brackets of a start tag and an end tag
  const bool mayNeedXsi = tree_.hasTypes() || xsiNs_ != 0;
  std::size_t count = 0;
  std::size_t size = 0;
  for (KFLNodeIndex index = top_; count < kSample || (mayNeedXsi && !needsXsi_); ++count) {
    const Node& node = tree_.at(index);
    size += KFLMessageTree::textOf(node).size() + 2 * tree_.nameText(node.name).size() + kTags;
    if (mayNeedXsi && !needsXsi_) needsXsi_ = needsXsi(index);
    if (node.first != kNone) {
      index = node.first;
      continue;
    }
    while (index != top_ && tree_.at(index).next == kNone)
      index = tree_.at(index).parent;
    if (index == top_) break;
    index = tree_.at(index).next;
  }
  if (count < kSample) return;
  if (top_ == KFLMessageTree::kRoot) size = size / count * tree_.nodeCount();
  out_.reserve(size + size / 8);
}

bool Writer::needsXsi(KFLNodeIndex element) const {
  const Node& node = tree_.at(element);
  if (node.type != 0) return true;
  if (!node.hasAttributes) return false;
  const KFLMessageAttributes& attributes = *tree_.attributes(element);
  return std::any_of(attributes.begin(), attributes.end(),
                     [this](const auto& one) { return one.ns == xsiNs_ && one.ns != 0; });
}

int Writer::writeSubtree() {
  KFLNodeIndex index = top_;
  for (;;) {
    if (tree_.isText(index)) {
      if (putText(index, tree_.text(index), kInText) != 0) return -1;
    } else if (open(index) != 0) {
      return -1;
    }
    if (const KFLNodeIndex first = tree_.at(index).first; first != kNone) {
      index = first;
      continue;
    }
    while (index != top_ && tree_.at(index).next == kNone) {
      index = tree_.at(index).parent;
      close(index);
    }
    if (index == top_) return 0;
    index = tree_.at(index).next;
  }
}

// --- Elements -------------------------------------------------------------------------------------------------------

int Writer::open(KFLNodeIndex element) {
  const Node& node = tree_.at(element);
  if (putPlainLeaf(node)) return 0;
  const std::string_view name = tree_.effectiveName(element);
  if (node.name != 0 ? !tree_.isXmlName(node.name) : !isXmlName(name)) {
    return refuse(element, "its name is none in XML; letters, digits, '_', '-' and '.' make one");
  }
  const std::uint32_t ns = tree_.effectiveNamespace(element);
  const Prefix prefix = prefixOf(element, ns);
  std::uint32_t defaultNs = levels_.back().defaultNs;

  putLineFor(element, levels_.size() - 1);
  out_.put('<');
  putName(ns, prefix, name);
  if (declareNamespace(element, ns, prefix, defaultNs) != 0) return -1;
  if (element == top_ && needsXsi_) {
    out_.put(" xmlns:xsi=\"");
    out_.put(kXsiNamespace);
    out_.put('"');
  }
  if (node.type != 0 && putType(element, defaultNs) != 0) return -1;
  if (node.hasAttributes && putAttributes(element) != 0) return -1;

  if (node.first == kNone && node.textSize == 0) {
    out_.put("/>");
    return 0;
  }
  out_.put('>');
  if (node.textSize != 0 && putText(element, tree_.text(element), kInText) != 0) return -1;
  levels_.push_back({defaultNs, isIndented_ && holdsElementsOnly(element)});
  if (node.first == kNone) close(element);
  return 0;
}

// Writes most elements: those that hold a plain text and need no declaration. False when the element is none of them.
bool Writer::putPlainLeaf(const Node& node) {
  if (node.first != kNone || node.textSize == 0 || node.type != 0 || node.hasAttributes) return false;
  if (node.ns != levels_.back().defaultNs || levels_.back().isBroken || !tree_.isXmlName(node.name))
    return false;
  const std::string_view name = tree_.nameText(node.name);
  const std::string_view text = KFLMessageTree::textOf(node);
  char* at = out_.room(2 * name.size() + text.size() + 5);
  if (at == nullptr) return false;
  *at++ = '<';
  at = copyShort(at, name);
  *at++ = '>';
  at = copyPlain(at, text);
  if (at == nullptr) return false;
  *at++ = '<';
  *at++ = '/';
  at = copyShort(at, name);
  *at++ = '>';
  out_.fill(at);
  return true;
}

void Writer::close(KFLNodeIndex element) {
  const bool isBroken = levels_.back().isBroken;
  levels_.pop_back();
  if (isBroken) {
    out_.put('\n');
    for (std::size_t i = 1; i < levels_.size(); ++i)
      out_.put("  ");
  }
  const std::uint32_t ns = tree_.effectiveNamespace(element);
  out_.put("</");
  putName(ns, prefixOf(element, ns), tree_.effectiveName(element));
  out_.put('>');
}

void Writer::putName(std::uint32_t ns, Prefix prefix, std::string_view name) {
  if (prefix == Prefix::Xml && ns == xmlNs_) out_.put("xml:");
  if (prefix == Prefix::Bound) out_.put("n:");
  out_.put(name);
}

Writer::Prefix Writer::prefixOf(KFLNodeIndex element, std::uint32_t ns) const {
  if (ns == 0) return Prefix::None;
  if (ns == xmlNs_) return Prefix::Xml;
  const std::uint32_t type = tree_.at(element).type;
  return type != 0 && tree_.type(type).ns == 0 ? Prefix::Bound : Prefix::None;
}

// Declares what the element's name and type need, and tells the default namespace inside the element.
int Writer::declareNamespace(KFLNodeIndex element, std::uint32_t ns, Prefix prefix,
                             std::uint32_t& defaultNs) {
  const std::uint32_t type = tree_.at(element).type;
  std::uint32_t wanted = ns;
  if (prefix == Prefix::Bound && putDeclaration(element, ":n", ns) != 0) return -1;
  if (prefix != Prefix::None) wanted = type != 0 && tree_.type(type).ns == 0 ? 0 : defaultNs;
  if (wanted == defaultNs) return 0;
  defaultNs = wanted;
  return putDeclaration(element, "", wanted);
}

int Writer::putDeclaration(KFLNodeIndex element, std::string_view prefix, std::uint32_t ns) {
  const std::string_view uri = tree_.namespaceText(ns);
  if (uri == kXmlnsNamespace)
    return refuse(element, "its namespace is XML's own; another one may be declared");
  out_.put(" xmlns");
  out_.put(prefix);
  out_.put("=\"");
  if (putText(element, uri, kInAttribute) != 0) return -1;
  out_.put('"');
  return 0;
}

// --- Types and attributes -------------------------------------------------------------------------------------------

int Writer::putType(KFLNodeIndex element, std::uint32_t defaultNs) {
  const KFLMessageTree::Type type = tree_.type(tree_.at(element).type);
  if (!tree_.isXmlName(type.tag)) return refuse(element, "its type tag is no name in XML");
  std::string_view prefix;
  if (type.ns == xmlNs_ && type.ns != 0) {
    prefix = "xml:";
  } else if (type.ns != defaultNs) {
    if (putDeclaration(element, ":t", type.ns) != 0) return -1;
    prefix = "t:";
  }
  out_.put(" xsi:type=\"");
  out_.put(prefix);
  out_.put(tree_.nameText(type.tag));
  out_.put('"');
  return 0;
}

int Writer::putAttributes(KFLNodeIndex element) {
  std::uint32_t declared = 0;
  for (const KFLMessageAttribute& attribute : *tree_.attributes(element)) {
    if (!tree_.isXmlName(attribute.name)) return refuse(element, "an attribute's name is none in XML");
    if (attribute.ns != 0 && putPrefix(element, attribute.ns, declared) != 0) return -1;
    if (attribute.ns == 0) out_.put(' ');
    out_.put(tree_.nameText(attribute.name));
    out_.put("=\"");
    if (putText(element, attribute.value, kInAttribute) != 0) return -1;
    out_.put('"');
  }
  return 0;
}

// A space and the prefix of an attribute, declared on the element where it is not yet.
int Writer::putPrefix(KFLNodeIndex element, std::uint32_t ns, std::uint32_t& declared) {
  if (ns == xmlNs_ || ns == xsiNs_) {
    out_.put(ns == xmlNs_ ? " xml:" : " xsi:");
    return 0;
  }
  if (declared_.size() <= ns) declared_.resize(tree_.namespaceCount() + 1);
  if (declared_[ns].first != element) {
    declared_[ns] = {element, ++declared};
    if (putDeclaration(element, ":a" + std::to_string(declared), ns) != 0) return -1;
  }
  out_.put(" a");
  out_.put(std::to_string(declared_[ns].second));
  out_.put(':');
  return 0;
}

// --- Texts and lines ------------------------------------------------------------------------------------------------

int Writer::putText(KFLNodeIndex element, std::string_view text,
                    const std::array<std::uint8_t, 256>& classes) {
  const unsigned found = classesIn(text, classes);
  if (found == kPlain) {
    out_.put(text);
    return 0;
  }
  if (const char* const fault = faultOf(text, found); fault != nullptr) {
    return refuse(element, std::string("its text, namespace or attribute ") + fault);
  }
  std::size_t from = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (classes[static_cast<unsigned char>(text[i])] != kEscaped) continue;
    out_.put(text.substr(from, i - from));
    out_.put(referenceFor(text[i]));
    from = i + 1;
  }
  out_.put(text.substr(from));
  return 0;
}

void Writer::putLineFor(KFLNodeIndex element, std::size_t depth) {
  if (element == top_ || !levels_.back().isBroken) return;
  out_.put('\n');
  for (std::size_t i = 0; i < depth; ++i)
    out_.put("  ");
}

bool Writer::holdsElementsOnly(KFLNodeIndex element) const {
  const Node& node = tree_.at(element);
  if (node.first == kNone || node.textSize != 0) return false;
  for (KFLNodeIndex child = node.first; child != kNone; child = tree_.at(child).next) {
    if (tree_.isText(child)) return false;
  }
  return true;
}

int Writer::refuse(KFLNodeIndex element, const std::string& what) {
  setErrorMessage("%s: %s", tree_.path(element).c_str(), what.c_str());
  return -1;
}

}  // namespace

const char* faultOfXmlText(std::string_view text) {
  if (const std::size_t whole = text.size() & ~std::size_t{7}; whole != 0) {
    std::size_t at = 0;
    while (at < whole && areAllPlain(eightBytes(text.data() + at)))
      at += 8;
    text.remove_prefix(at);
  }
  return faultOf(text, classesIn(text, kInText));
}

int writeXml(const KFLMessageTree& tree, KFLNodeIndex element, KFLXMLLayout layout, std::string& out) {
  out.clear();
  try {
    const int result = Writer(tree, element, layout, out).write();
    if (result != 0) out.clear();
    return result;
  } catch (...) {
    out.clear();
    throw;
  }
}

}  // namespace KFL
