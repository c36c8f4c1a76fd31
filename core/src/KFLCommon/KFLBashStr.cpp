// SPDX-License-Identifier: Apache-2.0
#include <KFLCommon/KFLBashStr.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>

#include "KFLBashScanner.h"
#include "KFLBashUnquote.h"

namespace KFL {

namespace {

using Kind = KFLBashLine::Kind;
using Reason = KFLBashLine::Reason;

// In the order of KFLBashLine::Reason.
constexpr std::array<const char*, 24> kReasonTexts = {
    "",
    "another assignment on the same line: write each on a line of its own",
    "+= is not a plain assignment: write NAME=\"value\"",
    "an array, not a single value: write NAME=\"value\"",
    "a command, for which alone the assignment would hold: a value with blanks needs quotes",
    "the assignment would be made in the background only: a value with & needs quotes",
    "the assignment would be made within a pipeline only: a value with | needs quotes",
    "a blank before the equals sign: write NAME=\"value\"",
    "not a name: letters, digits and underscores are wanted, and no digit first",
    "assigned by a command: write NAME=\"value\"",
    "bash does not let this name be set",
    "the single quote is not closed",
    "the double quote is not closed",
    "the backquote is not closed",
    "the command substitution is not closed",
    "the ${ is not closed",
    "the arithmetic expansion is not closed",
    "the subscript is not closed",
    "the array is not closed",
    "the parenthesis is not closed",
    "the compound command is not finished",
    "a command must follow the operator",
    "the backslash joins the next line to this one",
    "unexpected ",
};
constexpr const char* kBadSubstitutionText = "no such expansion: ${NAME} is wanted";
constexpr const char* kReadOnlyText = "a read-only variable of bash";

constexpr std::array<std::string_view, 6> kReadOnlyNames = {"BASHOPTS", "BASH_VERSINFO", "EUID",
                                                            "PPID",     "SHELLOPTS",     "UID"};

// Names that bash computes; it takes an assignment to them without a word and does not keep its text.
constexpr std::array<std::string_view, 18> kIgnoredNames = {
    "BASHPID",       "BASH_ARGC", "BASH_ARGV",     "BASH_COMMAND", "BASH_LINENO", "BASH_SOURCE",
    "BASH_SUBSHELL", "DIRSTACK",  "EPOCHREALTIME", "EPOCHSECONDS", "FUNCNAME",    "GROUPS",
    "HISTCMD",       "LINENO",    "PIPESTATUS",    "RANDOM",       "SRANDOM",     "_"};

template <std::size_t N>
bool isOneOf(std::string_view name, const std::array<std::string_view, N>& names) {
  for (const std::string_view one : names) {
    if (name == one) return true;
  }
  return false;
}

// For the first letter of a special name, a bit for each length that one has.
constexpr std::array<std::uint32_t, 256> makeSpecialLengths() {
  std::array<std::uint32_t, 256> lengths{};
  for (const std::string_view name : kReadOnlyNames)
    lengths[static_cast<unsigned char>(name.front())] |= 1U << name.size();
  for (const std::string_view name : kIgnoredNames)
    lengths[static_cast<unsigned char>(name.front())] |= 1U << name.size();
  return lengths;
}

constexpr std::array<std::uint32_t, 256> kSpecialLengths = makeSpecialLengths();

// Whether the name is not one like any other to bash.
bool isSpecialName(std::string_view name) {
  const std::uint32_t lengths = kSpecialLengths[static_cast<unsigned char>(name.front())];
  if (name.size() >= 32 || ((lengths >> name.size()) & 1U) == 0) return false;
  return isOneOf(name, kReadOnlyNames) || isOneOf(name, kIgnoredNames);
}

// The assignment with which a line may begin.
struct Head {
  const char* name = nullptr;  // null when it does not begin with one
  const char* nameEnd = nullptr;
  Reason form = Reason::None;  // None for NAME=, Append for NAME+=, Array for NAME[
};

Head readHead(const char* line) {
  const char* name = skipBlanks(line);
  const char* end = endOfName(name);
  if (isBlank(*end) && std::string_view(name, static_cast<std::size_t>(end - name)) == "export") {
    name = skipBlanks(end);
    end = endOfName(name);
  }
  if (end == name) return {};
  if (*end == '=') return {name, end, Reason::None};
  if (*end == '[') return {name, end, Reason::Array};
  if (end[0] == '+' && end[1] == '=') return {name, end, Reason::Append};
  return {};
}

// What a character does to the reading of a value outside quotes, and within double quotes.
enum class Effect : unsigned char { Plain, End, Backslash, Single, Double, Dollar, Other };

constexpr std::array<Effect, 256> makeEffects(bool quoted) {
  std::array<Effect, 256> effects{};
  effects['\0'] = Effect::Other;
  effects['\\'] = Effect::Backslash;
  effects['"'] = Effect::Double;
  effects['$'] = Effect::Dollar;
  effects['`'] = Effect::Other;
  if (quoted) return effects;
  effects['\''] = Effect::Single;
  for (const char c : {'\0', ' ', '\t', '\n', ';', '&', '|', '(', ')', '<', '>'}) {
    effects[static_cast<unsigned char>(c)] = Effect::End;
  }
  return effects;
}

constexpr std::array<Effect, 256> kPlainEffects = makeEffects(false);
constexpr std::array<Effect, 256> kQuotedEffects = makeEffects(true);

// Behind a dollar sign: the end of $, $$, $name or ${name}; null for any other expansion or quote.
const char* skipDollar(const char* at, bool quoted) {
  ++at;
  if (*at == '$') return at[1] == '(' || at[1] == '{' ? nullptr : at + 1;
  if (*at == '(' || *at == '[') return nullptr;
  if (!quoted && (*at == '\'' || *at == '"')) return nullptr;
  if (*at != '{') return at;
  const char* const end = endOfName(at + 1);
  return end != at + 1 && *end == '}' ? end + 1 : nullptr;
}

// The end of the double-quoted text whose opening quote is before at; null when the scanner has to judge.
const char* skipDoubleQuoted(const char* at) {
  for (;;) {
    switch (kQuotedEffects[static_cast<unsigned char>(*at)]) {
      case Effect::Double:
        return at + 1;
      case Effect::Backslash:
        if (at[1] == '\0') return nullptr;
        at += 2;
        break;
      case Effect::Dollar:
        at = skipDollar(at, true);
        if (at == nullptr) return nullptr;
        break;
      case Effect::Other:
        return nullptr;
      default:
        ++at;
    }
  }
}

// The end of an ordinary value: text, quotes, $name and ${name}. Null when the scanner has to judge.
const char* skipValue(const char* at) {
  for (;;) {
    switch (kPlainEffects[static_cast<unsigned char>(*at)]) {
      case Effect::End:
        return at;
      case Effect::Backslash:
        if (at[1] == '\0') return nullptr;
        at += 2;
        break;
      case Effect::Single:
        at = std::strchr(at + 1, '\'');
        if (at == nullptr) return nullptr;
        ++at;
        break;
      case Effect::Double:
        at = skipDoubleQuoted(at + 1);
        if (at == nullptr) return nullptr;
        break;
      case Effect::Dollar:
        at = skipDollar(at, false);
        if (at == nullptr) return nullptr;
        break;
      case Effect::Other:
        return nullptr;
      default:
        ++at;
    }
  }
}

// Whether nothing but blanks and a comment follow the end of a value.
bool isPlainRest(const char* end) {
  if (*end == '\0') return true;
  const char* const rest = skipBlanks(end);
  if (*rest == '\0') return true;
  // A comment may reach over a newline that the buffer should not hold; the scanner knows what follows it.
  return rest != end && *rest == '#' && std::strchr(rest, '\n') == nullptr;
}

// The end of the value when nothing but blanks and a comment follow it; null when the scanner has to judge.
const char* plainValueEnd(const char* value) {
  const char* const end = skipValue(value);
  return end != nullptr && isPlainRest(end) ? end : nullptr;
}

void note(KFLBashLine& result, Kind kind, Reason reason, const char* line, const char* where) {
  result.kind = kind;
  result.reason = reason;
  result.column = static_cast<unsigned int>(where - line) + 1;
}

bool joinsNextLine(Reason reason) {
  return reason >= Reason::OpenSingleQuote && reason <= Reason::OpenLine &&
         reason != Reason::OpenParenthesis && reason != Reason::OpenCompound &&
         reason != Reason::OpenOperator;
}

// An assignment that bash reads: is the name one that it also sets?
void judgeName(KFLBashLine& result, const char* line) {
  if (isOneOf(result.name, kReadOnlyNames))
    return note(result, Kind::Malformed, Reason::ReadOnlyName, line, result.name.data());
  if (isOneOf(result.name, kIgnoredNames))
    return note(result, Kind::Nothing, Reason::IgnoredName, line, result.name.data());
  result.kind = Kind::Assignment;
}

// The line begins with an assignment, and the scanner has read all of it.
void judgeScanned(KFLBashLine& result, const char* line, const Head& head, const KFLBashScanner& scanner) {
  if (scanner.failure() != Reason::None) {
    return note(result, Kind::Malformed, scanner.failure(), line, scanner.failureAt());
  }
  const Reason form = scanner.isArray() ? Reason::Array : head.form;
  if (form != Reason::None) return note(result, Kind::Nothing, form, line, head.name);
  if (scanner.firstCommand() != Reason::None) {
    return note(result, Kind::Nothing, scanner.firstCommand(), line, scanner.firstCommandAt());
  }
  if (scanner.badSubstitution() != nullptr) {
    return note(result, Kind::Malformed, Reason::BadSubstitution, line, scanner.badSubstitution());
  }
  judgeName(result, line);
}

// A[0]=1 is known as an assignment only once the scanner has found the bracket's end.
bool isAssignment(const Head& head, const KFLBashScanner& scanner) {
  return head.name != nullptr && (head.form != Reason::Array || scanner.isArray());
}

void setValue(KFLBashLine& result, const Head& head, const char* end) {
  result.value = std::string_view(head.nameEnd + 1, static_cast<std::size_t>(end - head.nameEnd - 1));
  result.endsWithCarriageReturn = !result.value.empty() && result.value.back() == '\r';
}

void judgeOtherLine(KFLBashLine& result, const char* line, const KFLBashScanner& scanner) {
  const char* const first = skipBlanks(line);
  const char* const nameEnd = endOfName(first);
  const char* const second = skipBlanks(nameEnd);
  if (scanner.isOtherAssigner()) return note(result, Kind::Nothing, Reason::OtherAssigner, line, first);
  if (nameEnd != first && second != nameEnd && *second == '=' && second[1] != '=') {
    return note(result, Kind::Nothing, Reason::SpacedEquals, line, second);
  }
  const char* equals = first;
  while (isAlnum(*equals) || *equals == '_' || *equals == '-' || *equals == '.')
    ++equals;
  if (equals != first && *equals == '=') note(result, Kind::Nothing, Reason::InvalidName, line, first);
}

// The slow judgement of any line.
KFLBashLine judge(const char* line, const Head& head, KFLBashScanner& scanner) {
  KFLBashLine result;
  scanner.run();
  result.continues = joinsNextLine(scanner.failure()) || scanner.hasHereDocument();
  result.token = scanner.unexpected();
  if (!isAssignment(head, scanner)) {
    judgeOtherLine(result, line, scanner);
    return result;
  }
  result.name = std::string_view(head.name, static_cast<std::size_t>(head.nameEnd - head.name));
  if (scanner.valueEnd() != nullptr && head.form == Reason::None) setValue(result, head, scanner.valueEnd());
  judgeScanned(result, line, head, scanner);
  return result;
}

// The quick judgement; false when the scanner has to decide.
bool judgePlain(KFLBashLine& result, const char* line, const Head& head) {
  if (head.form != Reason::None) return false;
  const char* const end = plainValueEnd(head.nameEnd + 1);
  if (end == nullptr) return false;
  result.name = std::string_view(head.name, static_cast<std::size_t>(head.nameEnd - head.name));
  setValue(result, head, end);
  judgeName(result, line);
  return true;
}

// Where the results of parseBashStr go.
struct Destination {
  char* line;
  char** name;
  char** value;
  unsigned int* valueFirst;
  unsigned int* valueLast;
};

int deliver(const KFLBashLine& result, const std::vector<KFLBashScanner::Span>& expansions,
            const Destination& to) {
  if (result.kind == Kind::Nothing) return kBashNothing;
  if (result.kind == Kind::Malformed) {
    setErrorMessage("%s", result.describe().c_str());
    return kBashMalformed;
  }
  const auto first = static_cast<std::size_t>(result.value.data() - to.line);
  if (to.valueFirst != nullptr) *to.valueFirst = static_cast<unsigned int>(first);
  if (to.valueLast != nullptr) *to.valueLast = static_cast<unsigned int>(first + result.value.size()) - 1;
  *to.name = to.line + (result.name.data() - to.line);
  (*to.name)[result.name.size()] = '\0';
  *to.value = unquoteBashValue(to.line + first, result.value.size(), expansions);
  return kBashAssignment;
}

// NAME="value" with a value in which nothing quotes or expands: by far the most usual line, without a detour. False for
// any other, which is then as it was.
bool deliverUsual(const Head& head, const Destination& to) {
  if (head.form != Reason::None || head.nameEnd[1] != '"') return false;
  char* const name = to.line + (head.name - to.line);
  char* const nameEnd = to.line + (head.nameEnd - to.line);
  char* const text = nameEnd + 2;
  char* end = text;
  while (kQuotedEffects[static_cast<unsigned char>(*end)] == Effect::Plain)
    ++end;
  if (*end != '"' || !isPlainRest(end + 1)) return false;
  if (isSpecialName({name, static_cast<std::size_t>(nameEnd - name)})) return false;
  if (to.valueFirst != nullptr) *to.valueFirst = static_cast<unsigned int>(text - to.line) - 1;
  if (to.valueLast != nullptr) *to.valueLast = static_cast<unsigned int>(end - to.line);
  *nameEnd = '\0';
  *end = '\0';
  *to.name = name;
  *to.value = text;
  return true;
}

}  // namespace

std::string KFLBashLine::describe() const {
  if (reason == Reason::None) return {};
  std::string text = "column " + std::to_string(column) + ": ";
  if (reason == Reason::BadSubstitution) return text + kBadSubstitutionText;
  if (reason == Reason::ReadOnlyName) return text + kReadOnlyText;
  text += kReasonTexts[static_cast<std::size_t>(reason)];
  if (reason != Reason::UnexpectedToken) return text;
  if (token.empty() || token == "\n") return text + "end of the line";
  return text.append("\"").append(token).append("\"");
}

KFLBashLine examineBashLine(const char* line) {
  KFLBashLine result;
  const Head head = readHead(line);
  if (head.name != nullptr && judgePlain(result, line, head)) return result;
  KFLBashScanner scanner(line, head.name);
  return judge(line, head, scanner);
}

int parseBashStr(char* line, char** name, char** value, unsigned int* valueFirst, unsigned int* valueLast) {
  const Head head = readHead(line);
  if (head.name == nullptr) return kBashNothing;
  const Destination to{line, name, value, valueFirst, valueLast};
  if (deliverUsual(head, to)) return kBashAssignment;
  KFLBashLine result;
  if (judgePlain(result, line, head)) return deliver(result, {}, to);
  KFLBashScanner scanner(line, head.name);
  result = judge(line, head, scanner);
  return deliver(result, scanner.expansions(), to);
}

}  // namespace KFL
