// SPDX-License-Identifier: Apache-2.0
#include <KFLMessage/KFLXMLReader.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>
#include <KFLMessage/KFLXMLParser.h>

namespace KFL {

namespace {

constexpr char kSeparator = KFLXMLParser::kSeparator;
// A parser that has read a longer text is not kept: it would keep the room that it took for it.
constexpr std::size_t kLongestOfKept = std::size_t{64} << 10U;
// The parser copies what it is given: an ordinary message goes in whole, which is fastest, a huge one in pieces.
constexpr std::size_t kPiece = std::size_t{16} << 20U;
// What stands for a line end or a reference comes in a passing buffer, never longer than one character.
constexpr std::size_t kLongestReference = 4;

constexpr const char* kNotUtf8 = "the text is not UTF-8; messages are";

bool isXmlSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// What is wrong and what would be right, for what people run into; empty for what the parser names well enough.
std::string_view explain(XML_Error error) {
  switch (error) {
    case XML_ERROR_NO_ELEMENTS:
      return "there is no root element, or it is not closed; a message is one element";
    case XML_ERROR_INVALID_TOKEN:
      return "this character cannot stand here; '<' and '&' in a text are written &lt; and &amp;";
    case XML_ERROR_UNCLOSED_TOKEN:
      return "a tag, comment or reference is not closed; it needs its closing characters";
    case XML_ERROR_PARTIAL_CHAR:
      return "the text ends within a character; UTF-8 is expected to its end";
    case XML_ERROR_TAG_MISMATCH:
      return "the end tag does not match; an element is closed under the name that opened it";
    case XML_ERROR_DUPLICATE_ATTRIBUTE:
      return "an attribute stands twice; each stands once in an element";
    case XML_ERROR_JUNK_AFTER_DOC_ELEMENT:
      return "something follows the root element; a message is one element";
    case XML_ERROR_UNDEFINED_ENTITY:
      return "an entity is not declared; &lt; &gt; &amp; &quot; &apos; and &#N; are understood";
    case XML_ERROR_BAD_CHAR_REF:
      return "a reference names no character of XML; a control character cannot be written";
    case XML_ERROR_MISPLACED_XML_PI:
      return "the XML declaration stands late; it is the first thing of a text, or is left out";
    case XML_ERROR_UNCLOSED_CDATA_SECTION:
      return "a CDATA section is not closed; it ends with ]]>";
    case XML_ERROR_UNBOUND_PREFIX:
      return "a prefix is not declared; xmlns:PREFIX=\"URI\" declares one";
    case XML_ERROR_UNDECLARING_PREFIX:
      return "a prefix is declared without a URI; only the default namespace can be taken back";
    case XML_ERROR_XML_DECL:
      return "the XML declaration is malformed; <?xml version=\"1.0\" encoding=\"UTF-8\"?> is right";
    case XML_ERROR_RESERVED_PREFIX_XML:
    case XML_ERROR_RESERVED_PREFIX_XMLNS:
    case XML_ERROR_RESERVED_NAMESPACE_URI:
      return "a prefix or namespace is XML's own; another one may be declared";
    default:
      return {};
  }
}

// The reading of one document: receives the parser's events and builds the tree.
class Reader {
 public:
  Reader(std::string_view xml, KFLMessageTree& tree);
  int read();

 private:
  // An element name as the parser spells it, with its numbers and the two that followed it last.
  struct Known {
    std::uint32_t name = 0;
    std::uint32_t ns = 0;
    std::uint32_t follower = 0;
    std::uint32_t otherFollower = 0;
  };

  static Reader& self(void* data) { return *static_cast<Reader*>(data); }
  // The parser is C code, which no exception may cross: it waits in caught_ until the parser has returned.
  template <auto Handler, class... Arguments>
  static void XMLCALL guarded(void* data, Arguments... arguments) {
    Reader& reader = self(data);
    if (reader.caught_) return;
    try {
      Handler(data, arguments...);
    } catch (...) {
      reader.caught_ = std::current_exception();
      XML_StopParser(reader.parser_.get(), XML_FALSE);
    }
  }
  static void XMLCALL onStart(void* data, const XML_Char* name, const XML_Char** attributes);
  static void XMLCALL onEnd(void* data, const XML_Char* name);
  static void XMLCALL onText(void* data, const XML_Char* text, int size);
  static void XMLCALL onPrefix(void* data, const XML_Char* prefix, const XML_Char* uri);
  static void XMLCALL onPrefixEnd(void* data, const XML_Char* prefix);
  static void XMLCALL onDeclaration(void* data, const XML_Char* version, const XML_Char* encoding,
                                    int standalone);
  static void XMLCALL onDoctype(void* data, const XML_Char*, const XML_Char*, const XML_Char*, int);

  void start(const XML_Char* name, const XML_Char** attributes);
  void readAttributes(KFLNodeIndex element, const XML_Char** attributes);
  void readType(KFLNodeIndex element, std::string_view value);
  const Known& known(const XML_Char* name);
  bool isSpelled(std::uint32_t number, const XML_Char* name) const;
  std::uint32_t numberOf(std::string_view spelling);
  std::pair<std::uint32_t, std::uint32_t> split(std::string_view spelling);
  std::vector<std::uint32_t>& bindingsOf(const XML_Char* prefix);

  void addText(const XML_Char* text, std::size_t size);
  std::string_view pendingText() const {
    return spilled_.empty() ? std::string_view(pending_, pendingSize_) : spilled_;
  }
  void spillText();
  void dropPending();
  void placeMixedText();

  void refuse(const char* what);
  int fail();

  std::string_view xml_;
  KFLMessageTree& tree_;
  KFLXMLParser parser_;
  KFLNodeIndex current_ = KFLMessageTree::kNone;
  std::size_t depth_ = 0;
  bool refused_ = false;
  std::exception_ptr caught_;

  // Text since the last tag: a stretch of the parser's own buffer, or a copy when it came in several.
  const char* pending_ = nullptr;
  std::size_t pendingSize_ = 0;
  std::string spilled_;

  KFLTextArena arena_;
  KFLNameTable spellings_{arena_};
  std::vector<Known> known_{1};  // by the numbers of the spellings
  std::uint32_t last_ = 0;

  // The namespaces that the default and each prefix have been bound to, the innermost last.
  std::vector<std::uint32_t> defaults_;
  KFLNameTable prefixes_{arena_};
  std::vector<std::vector<std::uint32_t>> bindings_{1};  // by the numbers of the prefixes
};

Reader::Reader(std::string_view xml, KFLMessageTree& tree) : xml_(xml), tree_(tree) {
  XML_Parser parser = parser_.get();
  XML_SetUserData(parser, this);
  using Text = const XML_Char*;
  XML_SetElementHandler(parser, &guarded<&onStart, Text, const XML_Char**>, &guarded<&onEnd, Text>);
  XML_SetCharacterDataHandler(parser, &guarded<&onText, Text, int>);
  XML_SetNamespaceDeclHandler(parser, &guarded<&onPrefix, Text, Text>, &guarded<&onPrefixEnd, Text>);
  XML_SetXmlDeclHandler(parser, &guarded<&onDeclaration, Text, Text, int>);
  XML_SetStartDoctypeDeclHandler(parser, &guarded<&onDoctype, Text, Text, Text, int>);
}

int Reader::read() {
  for (std::size_t done = 0;;) {
    const std::size_t size = std::min(kPiece, xml_.size() - done);
    const bool isLast = done + size == xml_.size();
    if (XML_Parse(parser_.get(), xml_.data() + done, static_cast<int>(size), isLast) != XML_STATUS_OK)
      return fail();
    if (isLast) break;
    spillText();
    done += size;
  }
  if (xml_.size() <= kLongestOfKept) parser_.keep();
  return 0;
}

// --- Elements -------------------------------------------------------------------------------------------------------

void Reader::onStart(void* data, const XML_Char* name, const XML_Char** attributes) {
  Reader& reader = self(data);
  if (!reader.refused_) reader.start(name, attributes);
}

void Reader::start(const XML_Char* name, const XML_Char** attributes) {
  if (++depth_ > kDeepestElement) return refuse("elements are nested too deeply; 256 levels are taken");
  const Known& names = known(name);
  if (current_ == KFLMessageTree::kNone) {
    current_ = KFLMessageTree::kRoot;
    tree_.at(current_).name = names.name & 0x7FFFFFFFU;
    tree_.at(current_).ns = names.ns;
  } else {
    placeMixedText();
    current_ = tree_.append(current_, names.name, names.ns);
  }
  if (*attributes != nullptr) readAttributes(current_, attributes);
}

void Reader::onEnd(void* data, const XML_Char*) {
  Reader& reader = self(data);
  if (reader.refused_) return;
  KFLMessageTree& tree = reader.tree_;
  if (tree.at(reader.current_).first != KFLMessageTree::kNone) {
    reader.placeMixedText();
  } else if (reader.pendingSize_ != 0) {
    tree.setText(reader.current_, reader.pendingText());
    reader.dropPending();
  }
  reader.current_ = tree.at(reader.current_).parent;
  --reader.depth_;
}

bool Reader::isSpelled(std::uint32_t number, const XML_Char* name) const {
  if (number == 0) return false;
  const std::string_view spelling = spellings_.text(number);
  return std::strncmp(name, spelling.data(), spelling.size()) == 0 && name[spelling.size()] == '\0';
}

// Elements mostly follow each other as they did before: a guess saves looking a long name up.
const Reader::Known& Reader::known(const XML_Char* name) {
  Known& last = known_[last_];
  if (!isSpelled(last.follower, name)) {
    std::swap(last.follower, last.otherFollower);
    if (!isSpelled(last.follower, name)) {
      const std::uint32_t number = numberOf(name);
      known_[last_].follower = number;
    }
  }
  last_ = known_[last_].follower;
  return known_[last_];
}

std::uint32_t Reader::numberOf(std::string_view spelling) {
  const std::uint32_t number = spellings_.intern(spelling);
  if (number == known_.size()) {
    const auto [ns, local] = split(spelling);
    known_.push_back({local, ns});
  }
  return number;
}

std::pair<std::uint32_t, std::uint32_t> Reader::split(std::string_view spelling) {
  const std::size_t separator = spelling.rfind(kSeparator);
  if (separator == std::string_view::npos) return {0, tree_.internName(spelling)};
  return {tree_.internNamespace(spelling.substr(0, separator)),
          tree_.internName(spelling.substr(separator + 1))};
}

// --- Attributes -----------------------------------------------------------------------------------------------------

void Reader::readAttributes(KFLNodeIndex element, const XML_Char** attributes) {
  KFLMessageAttributes others;
  for (; *attributes != nullptr; attributes += 2) {
    const std::string_view spelling = attributes[0];
    constexpr std::size_t kUri = kXsiNamespace.size();
    if (spelling.size() == kUri + 5 && spelling.ends_with("\x01type") &&
        spelling.starts_with(kXsiNamespace)) {
      readType(element, attributes[1]);
    } else {
      const auto [ns, name] = split(spelling);
      others.push_back({ns, name, attributes[1]});
    }
  }
  tree_.setAttributes(element, std::move(others));
}

void Reader::readType(KFLNodeIndex element, std::string_view value) {
  while (!value.empty() && isXmlSpace(value.front()))
    value.remove_prefix(1);
  while (!value.empty() && isXmlSpace(value.back()))
    value.remove_suffix(1);
  const std::size_t colon = value.find(':');
  const std::string_view tag = colon == std::string_view::npos ? value : value.substr(colon + 1);
  std::uint32_t ns = defaults_.empty() ? 0 : defaults_.back();
  if (colon != std::string_view::npos) {
    const std::string_view prefix = value.substr(0, colon);
    const std::vector<std::uint32_t>& bound = bindings_[prefixes_.find(prefix)];
    if (bound.empty() && prefix != "xml") {
      return refuse("the prefix of an xsi:type is not declared; xmlns:PREFIX=\"URI\" declares one");
    }
    ns = bound.empty() ? tree_.internNamespace(kXmlNamespace) : bound.back();
  }
  const std::uint32_t name = tree_.internName(tag);
  if (!tree_.isXmlName(name)) return refuse("an xsi:type is no name; TAG or PREFIX:TAG is right");
  tree_.at(element).type = tree_.internType({ns, name});
}

std::vector<std::uint32_t>& Reader::bindingsOf(const XML_Char* prefix) {
  if (prefix == nullptr) return defaults_;
  const std::uint32_t number = prefixes_.intern(prefix);
  if (number == bindings_.size()) bindings_.emplace_back();
  return bindings_[number];
}

void Reader::onPrefix(void* data, const XML_Char* prefix, const XML_Char* uri) {
  Reader& reader = self(data);
  reader.bindingsOf(prefix).push_back(reader.tree_.internNamespace(uri == nullptr ? "" : uri));
}

void Reader::onPrefixEnd(void* data, const XML_Char* prefix) {
  std::vector<std::uint32_t>& bindings = self(data).bindingsOf(prefix);
  if (!bindings.empty()) bindings.pop_back();
}

// --- Text -----------------------------------------------------------------------------------------------------------

void Reader::onText(void* data, const XML_Char* text, int size) {
  self(data).addText(text, static_cast<std::size_t>(size));
}

void Reader::addText(const XML_Char* text, std::size_t size) {
  if (pendingSize_ == 0 && size > kLongestReference) {
    pending_ = text;
  } else {
    spillText();
    spilled_.append(text, size);
  }
  pendingSize_ += size;
}

void Reader::spillText() {
  if (spilled_.empty() && pendingSize_ != 0) spilled_.assign(pending_, pendingSize_);
}

void Reader::dropPending() {
  pendingSize_ = 0;
  spilled_.clear();
}

void Reader::placeMixedText() {
  if (pendingSize_ == 0) return;
  if (!isBlankText(pendingText())) tree_.appendMixedText(current_, pendingText());
  dropPending();
}

// --- Refusals -------------------------------------------------------------------------------------------------------

void Reader::onDeclaration(void* data, const XML_Char*, const XML_Char* encoding, int) {
  if (encoding != nullptr && !equalsIgnoreCase(encoding, "UTF-8")) {
    self(data).refuse("another encoding is declared; messages are UTF-8");
  }
}

void Reader::onDoctype(void* data, const XML_Char*, const XML_Char*, const XML_Char*, int) {
  self(data).refuse("there is a document type declaration; messages have none");
}

void Reader::refuse(const char* what) {
  if (refused_) return;
  refused_ = true;
  setErrorMessage("line %llu, column %llu: %s",
                  static_cast<unsigned long long>(XML_GetCurrentLineNumber(parser_.get())),
                  static_cast<unsigned long long>(XML_GetCurrentColumnNumber(parser_.get())) + 1, what);
  XML_StopParser(parser_.get(), XML_FALSE);
}

int Reader::fail() {
  if (caught_) std::rethrow_exception(caught_);
  const XML_Error error = XML_GetErrorCode(parser_.get());
  if (error == XML_ERROR_NO_MEMORY) throw std::bad_alloc();
  if (refused_) return -1;
  if (error == XML_ERROR_INVALID_TOKEN) {
    const XML_Index at = XML_GetCurrentByteIndex(parser_.get());
    std::size_t bad = 0;
    if (at >= 0 && !isUtf8(xml_.substr(static_cast<std::size_t>(at), 4), &bad) && bad == 0) {
      refuse(kNotUtf8);
      return -1;
    }
  }
  const std::string_view what = explain(error);
  refuse(what.empty() ? (std::string(XML_ErrorString(error)) + "; well-formed XML is expected").c_str()
                      : what.data());
  return -1;
}

// The parser would take such a text for UTF-16, whatever encoding it was told.
bool beginsAsUtf16(std::string_view xml) {
  const std::string_view start = xml.substr(0, 2);
  return start == "\xFF\xFE" || start == "\xFE\xFF" || start.find('\0') != std::string_view::npos;
}

bool isAsciiNameStart(char c) {
  return isAlpha(c) || c == '_';
}
bool isAsciiNameCharacter(char c) {
  return isAlnum(c) || c == '_' || c == '-' || c == '.';
}

}  // namespace

int readXml(std::string_view xml, KFLMessageTree& tree) {
  if (beginsAsUtf16(xml)) {
    setErrorMessage("line 1, column 1: %s", kNotUtf8);
    return -1;
  }
  return Reader(xml, tree).read();
}

bool isBlankText(std::string_view text) {
  return std::all_of(text.begin(), text.end(), isXmlSpace);
}

bool isXmlName(std::string_view text) {
  if (text.empty()) return false;
  if (std::all_of(text.begin(), text.end(), isAsciiNameCharacter)) return isAsciiNameStart(text.front());
  const auto isPlain = [](char c) {
    return isAsciiNameCharacter(c) || static_cast<unsigned char>(c) >= 0x80;
  };
  if (!std::all_of(text.begin(), text.end(), isPlain)) return false;
  if (text.size() > std::numeric_limits<int>::max() - 3) return false;
  // Which other characters a name may hold is the parser's knowledge.
  KFLXMLParser parser;
  const std::string element = "<" + std::string(text) + "/>";
  return XML_Parse(parser.get(), element.data(), static_cast<int>(element.size()), XML_TRUE) == XML_STATUS_OK;
}

}  // namespace KFL
