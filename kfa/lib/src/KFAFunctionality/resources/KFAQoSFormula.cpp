// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/resources/KFAQoSFormula.h>

#include <clocale>

#include <array>
#include <charconv>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <optional>
#include <vector>

#include <boost/container/small_vector.hpp>

#include <KFLCommon/KFLCheck.h>
#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/resources/KFAQoSOperators.h>
#include <KFAFunctionality/resources/KFAQoSProgram.h>

namespace KFA {

namespace {

constexpr const char* kUnit = "KFAQoSTune";

// A token as a piece of the formula.
struct Token {
  int kind = 0;
  int row = 0;  // of an operator
  std::string_view text;

  bool isOperator() const { return kind == KFAQVTermOperator; }
  bool isEnd() const { return isOperator() && row == kOperatorEnd; }
};

constexpr bool isWord(char c) {
  return isAlnum(c) || c == '.';
}

// The first row whose text begins with a character; 0 where there is none.
constexpr std::array<std::uint8_t, 256> makeFirstRows() {
  std::array<std::uint8_t, 256> rows{};
  for (std::size_t row = operators::kTable.size() - 1; row > kOperatorEnd; --row) {
    rows[static_cast<unsigned char>(operators::kTable[row].text[0])] = static_cast<std::uint8_t>(row);
  }
  return rows;
}
constexpr std::array<std::uint8_t, 256> kFirstRows = makeFirstRows();

// The row whose text stands at `at`; 0 where there is none.
int operatorAt(const char* at) {
  std::size_t row = kFirstRows[static_cast<unsigned char>(*at)];
  if (row == 0) return 0;
  for (; row < operators::kTable.size(); ++row) {
    const std::string_view text = operators::kTable[row].text;
    if (std::strncmp(at, text.data(), text.size()) == 0) return static_cast<int>(row);
  }
  return 0;
}

// Reads the token at the cursor and moves the cursor behind it; false, with the cursor on it and the token's
// text there, for a character that begins none.
bool nextToken(const char*& cursor, Token& token) {
  const char* at = cursor;
  while (isSpace(*at))
    ++at;
  const char* const first = at;
  token.row = kOperatorEnd;
  bool found = true;
  if (isAlnum(*at)) {
    token.kind = isAlpha(*at) ? KFAQVTermParameter : KFAQVTermNumber;
    while (isWord(*at))
      ++at;
  } else {
    token.kind = KFAQVTermOperator;
    if (*at != '\0') {
      token.row = operatorAt(at);
      found = token.row != 0;
      at += found ? operators::kTable[static_cast<std::size_t>(token.row)].text.size() : 0;
    }
  }
  token.text = {first, at};
  cursor = at;
  return found;
}

int priorityOf(int row) {
  return operators::kTable[static_cast<std::size_t>(row)].priority;
}

// The C locale in this thread for a scope, whatever the program has set.
class CLocale {
 public:
  CLocale() {
    static const locale_t c = newlocale(LC_ALL_MASK, "C", nullptr);
    if (c != nullptr) before_ = uselocale(c);
  }
  ~CLocale() {
    if (before_ != nullptr) uselocale(before_);
  }
  CLocale(const CLocale&) = delete;
  CLocale& operator=(const CLocale&) = delete;

 private:
  locale_t before_ = nullptr;
};

// What a suffix multiplies by; 0 for one that is not known.
float multiplierOf(std::string_view suffix) {
  if (suffix.empty()) return 1;
  if (equalsIgnoreCase(suffix, "kb")) return 1024;
  return equalsIgnoreCase(suffix, "mb") ? 1024 * 1024 : 0;
}

// The usual numbers: digits, perhaps a fraction, perhaps a suffix.
std::optional<float> plainNumber(std::string_view text) {
  std::size_t length = 0;
  while (length < text.size() && isDigit(text[length]))
    ++length;
  if (length < text.size() && text[length] == '.') ++length;
  while (length < text.size() && isDigit(text[length]))
    ++length;
  const float multiplier = multiplierOf(text.substr(length));
  float number = 0;
  if (multiplier == 0 || std::from_chars(text.data(), text.data() + length, number).ec != std::errc())
    return {};
  return number * multiplier;
}

// All numbers that %f takes: exponents, hexadecimal ones, any size.
std::optional<float> anyNumber(const std::string& text) {
  if (text.size() > INT_MAX) return {};
  const CLocale scope;
  const int length = static_cast<int>(text.size());
  float number = 0;
  int end = -1;
  if (std::sscanf(text.c_str(), "%f%n", &number, &end) == 1 && end == length) return number;
  char suffix[3] = "";
  end = -1;
  if (std::sscanf(text.c_str(), "%f%2s%n", &number, suffix, &end) != 2 || end != length) return {};
  const float multiplier = multiplierOf(suffix);
  if (multiplier == 0) return {};
  return number * multiplier;
}

// A number token, such as 12, 1.5 or 2mb, as the 32-bit value of its term.
bool numberOf(std::string_view text, int& value) {
  std::optional<float> number = plainNumber(text);
  if (!number) number = anyNumber(std::string(text));
  if (!number) return false;
  // There is no minus sign in a number, so only the upper limit can be passed.
  value = *number < 2147483648.0F ? static_cast<int>(*number) : std::numeric_limits<int>::min();
  return true;
}

// A piece of a formula in an error text.
std::string quote(std::string_view text) {
  constexpr std::size_t kShown = 60;
  return text.size() > kShown ? "'" + std::string(text.substr(0, kShown)) + "...'"
                              : "'" + std::string(text) + "'";
}

std::string describeCharacter(char c) {
  if (!isControl(c) && static_cast<unsigned char>(c) < 0x80) return quote({&c, 1});
  char text[16];
  std::snprintf(text, sizeof text, "the byte 0x%02X", static_cast<unsigned>(static_cast<unsigned char>(c)));
  return text;
}

// Why a formula of known tokens leaves no single value: the first place where values and operators do not
// take turns.
KFAQVFormulaError explainStructure(const char* formula) {
  const char* cursor = formula;
  Token before;
  before.kind = KFAQVTermOperator;
  for (Token token; nextToken(cursor, token) && !token.isEnd(); before = token) {
    const auto offset = static_cast<std::size_t>(token.text.data() - formula);
    if (token.isOperator() && (token.row == kOperatorOpen || token.row == kOperatorClose)) {
      return {offset, quote(token.text) +
                          "; formulas are written without parentheses, and bind * / before + - before "
                          "comparisons before &&"};
    }
    if (token.isOperator() && before.isOperator()) {
      return {offset,
              quote(token.text) + " without a value before it; a name or a number there would be right"};
    }
    if (!token.isOperator() && !before.isOperator()) {
      return {offset, quote(token.text) + " behind a value; an operator before it would be right"};
    }
  }
  const std::size_t end = std::strlen(formula);
  if (before.text.empty()) return {end, "no formula; values joined by operators would be one"};
  return {end, "the end behind " + quote(before.text) + "; a name or a number there would be right"};
}

// One conversion: the operator stack beside the notation being built.
class Compiler {
 public:
  Compiler(const char* formula, const KFAQVNames& names, KFAQVPolishNotation& out, KFAQVFormulaError* error)
      : formula_(formula), names_(names), out_(out), terms_(out.terms.change()), error_(error) {}

  bool run() {
    const char* cursor = formula_;
    while (true) {
      if (!nextToken(cursor, token_)) {
        return refuse([&] {
          return describeCharacter(*cursor) +
                 " begins no name, number or operator; operators are * / + - < <= > >= == &&";
        });
      }
      if (token_.isEnd()) return finish();
      if (!take()) return false;
    }
  }

 private:
  template <class Reason>
  bool refuse(const Reason& reason) {
    if (error_ != nullptr) *error_ = {static_cast<std::size_t>(token_.text.data() - formula_), reason()};
    return false;
  }
  bool refuseStructure() {
    if (error_ != nullptr) *error_ = explainStructure(formula_);
    return false;
  }

  bool take() {
    switch (token_.kind) {
      case KFAQVTermParameter:
        return takeName();
      case KFAQVTermNumber:
        return takeNumber();
      default:
        return takeOperator(token_.row);
    }
  }

  void emit(int kind, int value) { terms_.push_back({kind, value}); }

  // Emits the operators on the stack that bind at least as tightly.
  void popDownTo(int priority) {
    while (!stack_.empty() && priority <= priorityOf(stack_.back())) {
      emit(KFAQVTermOperator, stack_.back());
      stack_.pop_back();
    }
  }

  // A closing parenthesis takes its opening one off the stack, and then waits there itself like a binary
  // operator.
  bool takeOperator(int row) {
    if (row != kOperatorOpen) popDownTo(priorityOf(row));
    if (row == kOperatorClose) {
      if (stack_.empty()) return refuseStructure();
      KFL_CHECK(stack_.back() == kOperatorOpen, kModule, kUnit);
      stack_.pop_back();
    }
    stack_.push_back(row);
    return true;
  }

  bool takeNumber() {
    int value = 0;
    if (!numberOf(token_.text, value)) {
      return refuse(
          [&] { return quote(token_.text) + " is no number; one such as 12, 1.5, 64kb or 2mb would be"; });
    }
    emit(KFAQVTermNumber, value);
    return true;
  }

  // What people take for a part of a name; one that begins no token where it stands.
  bool endsInNameMark() const { return *(token_.text.data() + token_.text.size()) == '_'; }

  bool takeName() {
    if (endsInNameMark()) {
      token_.text = {token_.text.data() + token_.text.size(), 1};
      return refuse([&] { return "'_' cannot stand in a name; letters, digits and dots make up one"; });
    }
    bool hard = false;
    std::string_view name = token_.text;
    if (const std::size_t dot = name.rfind('.'); dot != std::string_view::npos) {
      const std::string_view side = name.substr(dot + 1);
      hard = side.find("soft") == std::string_view::npos;
      if (hard && side.find("hard") == std::string_view::npos) {
        return refuse(
            [&] { return quote(token_.text) + " is no value; a name that ends in .soft or .hard would be"; });
      }
      name = name.substr(0, dot);
    }
    const KFAQVParamIDList* multiple = nullptr;
    const int index = names_.find(name, multiple);
    if (index < 0) {
      return refuse(
          [&] { return "the unknown name " + quote(name) + "; that of a known parameter would be right"; });
    }
    if (multiple != nullptr && !repeatOver(multiple)) return false;
    emit(multiple != nullptr ? KFAQVTermMultiple : KFAQVTermParameter, hard ? index + kHardOffset : index);
    return true;
  }

  bool repeatOver(const KFAQVParamIDList* list) {
    if (out_.hasMultiple == 1 && out_.multipleList != list) {
      return refuse(
          [&] { return quote(token_.text) + ", a second list; a formula is repeated over one list"; });
    }
    out_.hasMultiple = 1;
    out_.multipleList = list;
    return true;
  }

  // The end marker: what is left on the stack follows, then the program must leave exactly one value. Every
  // operator counts as binary, the ones that cannot be evaluated too.
  bool finish() {
    popDownTo(priorityOf(kOperatorEnd));
    std::size_t depth = 0;
    for (const KFAQVTermType& term : terms_) {
      KFL_CHECK(term.kind <= KFAQVTermMultiple, kModule, kUnit);
      if (term.kind == KFAQVTermOperator) {
        if (term.value == kOperatorOpen || depth <= 1) return refuseStructure();
        --depth;
      } else if (term.kind > 0) {
        ++depth;
      }
      if (depth == 0) return refuseStructure();
    }
    if (depth != 1) return refuseStructure();
    out_.terms.setProgram(KFAQVProgram::make(terms_));
    return true;
  }

  const char* const formula_;
  const KFAQVNames& names_;
  KFAQVPolishNotation& out_;
  std::vector<KFAQVTermType>& terms_;
  KFAQVFormulaError* const error_;
  boost::container::small_vector<int, 16> stack_;
  Token token_;
};

}  // namespace

std::span<const KFAQVOperator> KFAQVOperator::table() {
  return operators::kTable;
}

int get_token(const char** cursor, KFAQVTermType* term, std::string& text) {
  Token token;
  if (!nextToken(*cursor, token)) return -1;
  term->kind = token.kind;
  if (!token.isOperator()) {
    text = token.text;
  } else {
    term->value = token.row;
    if (token.isEnd()) ++*cursor;
  }
  return 0;
}

int compileFormula(const std::string& formula, const KFAQVNames& names, KFAQVPolishNotation& out,
                   KFAQVFormulaError* error) {
  const std::size_t size = out.terms.size();
  const int hasMultiple = out.hasMultiple;
  const KFAQVParamIDList* const multipleList = out.multipleList;
  try {
    return Compiler(formula.c_str(), names, out, error).run() ? 0 : -1;
  } catch (...) {
    out.terms.change().resize(size);
    out.hasMultiple = hasMultiple;
    out.multipleList = multipleList;
    throw;
  }
}

bool applyOperator(int row, long long left, long long right, long long& result) {
  return operators::apply(row, left, right, result);
}

}  // namespace KFA
