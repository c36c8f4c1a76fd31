// SPDX-License-Identifier: Apache-2.0
// Inner header, not installed: the loaded form of a vocabulary and the table of what a parameter may hold.
//
// KFLVocLoader.cpp fills a KFLVocData; afterwards it never changes, so any threads may read it.
#ifndef KFLFUNCTIONALITY_KFLVOCDATA_H
#define KFLFUNCTIONALITY_KFLVOCDATA_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include <KFLFunctionality/KFLVocIterator.h>

namespace KFL {

// Positions in a vocabulary are 32 bits wide; nothing real comes near this size.
inline constexpr std::size_t kMaxVocabularySize = std::size_t{16} << 20;

namespace voc {

enum class Place { XmlAttribute, ChildElement };
enum class Form { Name, Text, Number };

inline constexpr int kMinInt = std::numeric_limits<int>::min();
inline constexpr int kMaxInt = std::numeric_limits<int>::max();

// What a parameter may hold: the name in the file, the number (0: none) and the values it takes.
struct AttributeRow {
  std::string_view name;
  int number;
  Place place;
  Form form;
  int least;
  int most;
  const char* expected;
};

inline constexpr std::array kAttributes = {
    AttributeRow{"id", kVocID, Place::XmlAttribute, Form::Name, 0, 0,
                 "a letter followed by letters, digits, '_', '.' or '-'"},
    AttributeRow{"kind", kVocKind, Place::XmlAttribute, Form::Number, 1, 2,
                 "2 (barrier and limit) or 1 (single value)"},
    AttributeRow{"value_type", 0, Place::XmlAttribute, Form::Number, 0, 1, "1 (integer) or 0 (fractional)"},
    AttributeRow{"number", kVocFormulaIdentifier, Place::XmlAttribute, Form::Number, kMinInt, kMaxInt,
                 "a 32-bit whole number"},
    AttributeRow{"expression", kVocExpression, Place::ChildElement, Form::Text, 0, 0, ""},
    AttributeRow{"comment", kVocComment, Place::ChildElement, Form::Text, 0, 0, ""},
    AttributeRow{"description", 0, Place::ChildElement, Form::Text, 0, 0, ""},
    AttributeRow{"unit", 0, Place::XmlAttribute, Form::Text, 0, 0, ""},
};
inline constexpr std::size_t kAttributeCount = kAttributes.size();
inline constexpr std::size_t kIDAttribute = 0;
static_assert(kAttributes[kIDAttribute].number == kVocID);

constexpr std::size_t attributeByNumber(int number) {
  std::size_t i = 0;
  while (i < kAttributeCount && (number == 0 || kAttributes[i].number != number))
    ++i;
  return i;
}

constexpr std::size_t attributeByName(std::string_view name) {
  std::size_t i = 0;
  while (i < kAttributeCount && kAttributes[i].name != name)
    ++i;
  return i;
}

}  // namespace voc

// The loaded vocabulary: flat arrays of pieces of one text. Categories stand in the order in which they are
// looked through.
struct KFLVocData {
  static constexpr std::uint32_t kAbsent = std::numeric_limits<std::uint32_t>::max();

  // A stretch of the text; an attribute that a parameter lacks is absent.
  struct Piece {
    std::uint32_t at = kAbsent;
    std::uint32_t size = 0;
    bool isAbsent() const { return at == kAbsent; }
  };
  struct Category {
    std::uint32_t firstWord;
    std::uint32_t endWord;
    std::uint32_t firstParameter;
    std::uint32_t endParameter;
  };
  using Parameter = std::array<Piece, voc::kAttributeCount>;

  std::string text;
  std::vector<Piece> words;
  std::vector<Parameter> parameters;
  std::vector<Category> categories;

  std::string_view view(Piece piece) const { return {text.data() + piece.at, piece.size}; }

  Piece add(std::string_view value) {
    const Piece piece{static_cast<std::uint32_t>(text.size()), static_cast<std::uint32_t>(value.size())};
    text += value;
    return piece;
  }

  bool hasWord(const Category& category, std::string_view word) const {
    return std::any_of(words.begin() + category.firstWord, words.begin() + category.endWord,
                       [&](Piece piece) { return view(piece) == word; });
  }
};

// Reads an XML document into an empty KFLVocData. 0, or -1 with an error text that begins with the source's
// name, line and column.
int loadVocabulary(KFLVocData& data, std::string_view xml, const std::string& source);

}  // namespace KFL

#endif
