// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <set>
#include <type_traits>

#include <expat.h>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>
#include <KFLFunctionality/KFLVocData.h>

namespace KFL {

namespace {

using namespace voc;

bool isName(std::string_view text) {
  if (text.empty() || !isAlpha(text.front())) return false;
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return isAlnum(c) || c == '_' || c == '.' || c == '-'; });
}

bool accepts(const AttributeRow& row, std::string_view value) {
  if (row.form == Form::Text) return true;
  if (row.form == Form::Name) return isName(value);
  int number = 0;
  return parseInteger(value, number) == 0 && number >= row.least && number <= row.most;
}

bool isXmlSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// For error texts: on one line, and cut when it is long.
std::string quoted(std::string_view text) {
  constexpr std::size_t kMost = 60;
  std::size_t size = std::min(text.size(), kMost);
  while (size < text.size() && size > 0 && (static_cast<unsigned char>(text[size]) & 0xC0U) == 0x80U)
    --size;
  std::string result("'");
  for (const char c : text.substr(0, size))
    result += isControl(c) ? '?' : c;
  return result + (size < text.size() ? "...'" : "'");
}

std::string tag(std::string_view name) {
  return std::string("<").append(name).append(">");
}

// Reads one document into a KFLVocData. Elements stand at fixed depths, so the depth is the whole state, and
// a document that nests deeper is refused at its first element too deep.
class VocLoader {
 public:
  VocLoader(KFLVocData& data, const std::string& source) : data_(data), source_(source) {}

  int load(std::string_view xml);

 private:
  using Parser = std::unique_ptr<std::remove_pointer_t<XML_Parser>, decltype(&XML_ParserFree)>;
  enum Depth { kOutside, kInVocabulary, kInCategory, kInParameter, kInText };
  static constexpr std::array<std::string_view, 3> kElements = {"vocabulary", "category", "parameter"};

  // Expat is C code, which no exception may cross: it waits in caught_ until Expat has returned.
  template <auto Method, class... Args>
  static void forward(void* self, Args... args) {
    auto* const loader = static_cast<VocLoader*>(self);
    if (loader->stopped_) return;
    try {
      (loader->*Method)(args...);
    } catch (...) {
      loader->caught_ = std::current_exception();
      loader->stop();
    }
  }

  void onDeclaration(const char* version, const char* encoding, int standalone);
  void onDoctype(const char* name, const char* system, const char* publicID, int internal);
  void onStart(const char* name, const char** attributes);
  void onEnd(const char* name);
  void onText(const char* text, int length);

  void startVocabulary(const char** attributes);
  void startCategory(const char** attributes);
  void startParameter(const char** attributes);
  void startText(std::string_view name, const char** attributes);
  void nameCategory(std::vector<std::string_view>& words);

  const char* onlyAttribute(const char** attributes, std::string_view wanted, const char* example);
  void refuseElement(std::string_view name);
  void refuse(const std::string& text);
  void stop();
  int report(XML_Error error);

  KFLVocData& data_;
  const std::string& source_;
  XML_Parser parser_ = nullptr;
  int depth_ = kOutside;
  bool stopped_ = false;
  bool spacePending_ = false;
  std::size_t textAttribute_ = 0;
  std::set<std::string> categoryNames_;
  std::exception_ptr caught_;
};

int VocLoader::load(std::string_view xml) {
  const Parser parser(XML_ParserCreate("UTF-8"), &XML_ParserFree);
  if (!parser) throw std::bad_alloc();
  parser_ = parser.get();
  XML_SetUserData(parser_, this);
  XML_SetXmlDeclHandler(parser_, &forward<&VocLoader::onDeclaration, const char*, const char*, int>);
  XML_SetStartDoctypeDeclHandler(parser_,
                                 &forward<&VocLoader::onDoctype, const char*, const char*, const char*, int>);
  XML_SetElementHandler(parser_, &forward<&VocLoader::onStart, const char*, const char**>,
                        &forward<&VocLoader::onEnd, const char*>);
  XML_SetCharacterDataHandler(parser_, &forward<&VocLoader::onText, const char*, int>);

  const XML_Status status = XML_Parse(parser_, xml.data(), static_cast<int>(xml.size()), XML_TRUE);
  if (caught_) std::rethrow_exception(caught_);
  if (stopped_) return -1;
  if (status != XML_STATUS_OK) return report(XML_GetErrorCode(parser_));

  std::stable_sort(data_.categories.begin(), data_.categories.end(), [](const auto& a, const auto& b) {
    return a.endWord - a.firstWord < b.endWord - b.firstWord;
  });
  return 0;
}

int VocLoader::report(XML_Error error) {
  if (error == XML_ERROR_NO_MEMORY) throw std::bad_alloc();
  std::string text = std::string("the XML is faulty: ") + XML_ErrorString(error);
  if (depth_ != kOutside) {
    const auto open = static_cast<std::size_t>(depth_ - 1);
    text += " inside " + tag(open < kElements.size() ? kElements[open] : kAttributes[textAttribute_].name);
    if (error == XML_ERROR_INVALID_TOKEN) text += "; '<' is written &lt; and '&' is written &amp;";
  } else if (error == XML_ERROR_NO_ELEMENTS) {
    text += "; a vocabulary has one element <vocabulary version=\"1\">";
  }
  refuse(text);
  return -1;
}

// The parser is made for UTF-8 and would not look at what the declaration says.
void VocLoader::onDeclaration(const char*, const char* encoding, int) {
  if (encoding != nullptr && !equalsIgnoreCase(encoding, "UTF-8"))
    refuse("the encoding " + quoted(encoding) + " is not read; a vocabulary is written in UTF-8");
}

void VocLoader::onDoctype(const char*, const char*, const char*, int) {
  refuse("a document type declaration is not accepted; leave it out");
}

void VocLoader::onStart(const char* name, const char** attributes) {
  if (depth_ < kInParameter && name != kElements[static_cast<std::size_t>(depth_)])
    return refuseElement(name);
  switch (depth_++) {
    case kOutside:
      return startVocabulary(attributes);
    case kInVocabulary:
      return startCategory(attributes);
    case kInCategory:
      return startParameter(attributes);
    case kInParameter:
      return startText(name, attributes);
    default:
      return refuse(tag(name) + " stands inside " + tag(kAttributes[textAttribute_].name) +
                    ", which holds text only; '<' is written &lt;");
  }
}

void VocLoader::startVocabulary(const char** attributes) {
  const char* const version = onlyAttribute(attributes, "version", "version=\"1\"");
  if (version != nullptr && std::strcmp(version, "1") != 0)
    refuse("version " + quoted(version) + " of the vocabulary format is not known; this library reads 1");
}

void VocLoader::startCategory(const char** attributes) {
  const char* const text = onlyAttribute(attributes, "words", "words=\"kelvarium qos\"");
  if (text == nullptr) return;
  std::vector<std::string_view> words;
  getToken tokens(text, " \t\r\n");
  for (std::string_view word; tokens.next(word); words.push_back(word)) {
    if (!isName(word))
      return refuse("the word " + quoted(word) + " names no category; a word is " +
                    kAttributes[kIDAttribute].expected);
  }
  if (words.empty()) return refuse("words=\"\" names no category; give one word or more");
  nameCategory(words);
}

void VocLoader::nameCategory(std::vector<std::string_view>& words) {
  std::sort(words.begin(), words.end());
  words.erase(std::unique(words.begin(), words.end()), words.end());
  std::string joined;
  for (const std::string_view word : words)
    joined.append(joined.empty() ? "" : " ").append(word);
  if (!categoryNames_.insert(joined).second)
    return refuse("the category " + quoted(joined) + " stands twice; put its parameters into the first one");

  const auto firstWord = static_cast<std::uint32_t>(data_.words.size());
  for (const std::string_view word : words)
    data_.words.push_back(data_.add(word));
  const auto endWord = static_cast<std::uint32_t>(data_.words.size());
  const auto parameter = static_cast<std::uint32_t>(data_.parameters.size());
  data_.categories.push_back({firstWord, endWord, parameter, parameter});
}

void VocLoader::startParameter(const char** attributes) {
  KFLVocData::Parameter& parameter = data_.parameters.emplace_back();
  data_.categories.back().endParameter = static_cast<std::uint32_t>(data_.parameters.size());
  for (; *attributes != nullptr; attributes += 2) {
    const std::string_view name = attributes[0];
    const std::string_view value = attributes[1];
    const std::size_t i = attributeByName(name);
    if (i == kAttributeCount || kAttributes[i].place != Place::XmlAttribute)
      return refuse("a parameter has no attribute " + quoted(name) +
                    "; id, kind, value_type and number are known");
    if (!accepts(kAttributes[i], value))
      return refuse(std::string(name) + " cannot be " + quoted(value) + "; expected " +
                    kAttributes[i].expected);
    parameter[i] = data_.add(value);
  }
}

void VocLoader::startText(std::string_view name, const char** attributes) {
  const std::size_t i = attributeByName(name);
  if (i == kAttributeCount || kAttributes[i].place != Place::ChildElement) {
    --depth_;
    return refuseElement(name);
  }
  if (*attributes != nullptr)
    return refuse(tag(name) + " has no attribute " + quoted(*attributes) + "; it holds text only");
  KFLVocData::Piece& piece = data_.parameters.back()[i];
  if (!piece.isAbsent()) return refuse(tag(name) + " stands twice in one parameter; leave one of them out");
  piece = data_.add("");
  textAttribute_ = i;
  spacePending_ = false;
}

void VocLoader::onEnd(const char*) {
  if (depth_-- != kInText) return;
  KFLVocData::Piece& piece = data_.parameters.back()[textAttribute_];
  piece.size = static_cast<std::uint32_t>(data_.text.size()) - piece.at;
}

// White space is for the eye of whoever edits the file: a run of it is one blank, none at the ends.
void VocLoader::onText(const char* text, int length) {
  const char* const end = text + length;
  while (true) {
    const char* const word = std::find_if_not(text, end, isXmlSpace);
    if (depth_ != kInText) {
      if (word != end) refuse("text stands between elements; it belongs into an element such as <comment>");
      return;
    }
    spacePending_ = spacePending_ || word != text;
    if (word == end) return;
    const bool first = data_.text.size() == data_.parameters.back()[textAttribute_].at;
    if (spacePending_ && !first) data_.text += ' ';
    spacePending_ = false;
    text = std::find_if(word, end, isXmlSpace);
    data_.text.append(word, text);
  }
}

// The value of the one attribute that an element must have and may have.
const char* VocLoader::onlyAttribute(const char** attributes, std::string_view wanted, const char* example) {
  const std::string element = tag(kElements[static_cast<std::size_t>(depth_ - 1)]);
  const char* value = nullptr;
  for (; *attributes != nullptr; attributes += 2) {
    if (attributes[0] != wanted) {
      refuse(element + " has no attribute " + quoted(attributes[0]) + "; it takes " + example);
      return nullptr;
    }
    value = attributes[1];
  }
  if (value == nullptr)
    refuse(element + " lacks the attribute " + quoted(wanted) + "; it takes one such as " + example);
  return value;
}

void VocLoader::refuseElement(std::string_view name) {
  const auto at = static_cast<std::size_t>(depth_);
  if (depth_ == kOutside)
    refuse(tag(name) + " is no vocabulary; the outermost element is <vocabulary version=\"1\">");
  else
    refuse(tag(name) + " is not known inside " + tag(kElements[at - 1]) + "; expected " +
           (at < kElements.size() ? tag(kElements[at]) : "<expression>, <comment> or <description>"));
}

void VocLoader::refuse(const std::string& text) {
  if (stopped_) return;
  setErrorMessage("%s:%lu:%lu: %s", source_.c_str(),
                  static_cast<unsigned long>(XML_GetCurrentLineNumber(parser_)),
                  static_cast<unsigned long>(XML_GetCurrentColumnNumber(parser_)) + 1, text.c_str());
  stop();
}

void VocLoader::stop() {
  stopped_ = true;
  XML_StopParser(parser_, XML_FALSE);
}

}  // namespace

int loadVocabulary(KFLVocData& data, std::string_view xml, const std::string& source) {
  if (xml.size() > kMaxVocabularySize) {
    setErrorMessage("%s: a vocabulary is at most %zu bytes long", source.c_str(), kMaxVocabularySize);
    return -1;
  }
  // Expat turns to UTF-16 by itself when the first bytes look like it. Such a text has NUL bytes, XML in
  // UTF-8 has none.
  if (xml.find('\0') != std::string_view::npos) {
    setErrorMessage("%s:1:1: the file holds NUL bytes; a vocabulary is written in UTF-8", source.c_str());
    return -1;
  }
  data.text.reserve(xml.size());
  return VocLoader(data, source).load(xml);
}

}  // namespace KFL
