// SPDX-License-Identifier: Apache-2.0
// The last stage: what the line as a whole means.
#include <array>
#include <cstddef>

#include "KFLBashCharacters.h"
#include "KFLBashJudge.h"
#include "KFLBashScanner.h"

namespace KFL {

namespace {

using Kind = KFLBashLine::Kind;
using Reason = KFLBashLine::Reason;

// In the order of KFLBashLine::Reason.
constexpr std::array<const char*, 27> kReasonTexts = {
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
    "no such expansion: ${NAME} is wanted",
    "a read-only variable of bash",
    "bash parses this in one way and expands it in another: put it between single quotes",
};

KFLBashHead readHead(std::string_view line) {
  KFLBashCursor at(line);
  at.skipBlanks();
  std::size_t name = at.position();
  at.skipName();
  if (isBlank(at.peek()) && at.since(name) == "export") {
    at.skipBlanks();
    name = at.position();
    at.skipName();
  }
  const std::size_t end = at.position();
  if (end == name) return {};
  if (at.peek() == '=') return {name, end, Reason::None};
  if (at.peek() == '[') return {name, end, Reason::Array};
  if (at.startsWith("+=")) return {name, end, Reason::Append};
  return {};
}

void note(KFLBashLine& result, Kind kind, Reason reason, std::size_t where) {
  result.kind = kind;
  result.reason = reason;
  result.column = static_cast<unsigned int>(where) + 1;
}

bool joinsNextLine(Reason reason) {
  return reason >= Reason::OpenSingleQuote && reason <= Reason::OpenLine &&
         reason != Reason::OpenParenthesis && reason != Reason::OpenCompound &&
         reason != Reason::OpenOperator;
}

// An assignment that bash reads: is the name one that it also sets?
void judgeName(KFLBashLine& result, std::size_t where) {
  if (isReadOnlyBashName(result.name)) return note(result, Kind::Malformed, Reason::ReadOnlyName, where);
  if (isIgnoredBashName(result.name)) return note(result, Kind::Nothing, Reason::IgnoredName, where);
  result.kind = Kind::Assignment;
}

// The line begins with an assignment, and the scanner has read all of it.
void judgeScanned(KFLBashLine& result, const KFLBashHead& head, const KFLBashScanner& scanner) {
  if (scanner.failure() != Reason::None) {
    return note(result, Kind::Malformed, scanner.failure(), scanner.failureAt());
  }
  const Reason form = scanner.isArray() ? Reason::Array : head.form;
  if (form != Reason::None) return note(result, Kind::Nothing, form, head.name);
  if (scanner.firstCommand() != Reason::None) {
    return note(result, Kind::Nothing, scanner.firstCommand(), scanner.firstCommandAt());
  }
  judgeName(result, head.name);
  const KFLBashScanner::Doubt& doubt = scanner.doubt();
  if (result.kind == Kind::Assignment && doubt.reason != Reason::None)
    note(result, Kind::Malformed, doubt.reason, doubt.where);
}

// A[0]=1 is known as an assignment only once the scanner has found the bracket's end.
bool isAssignment(const KFLBashHead& head, const KFLBashScanner& scanner) {
  return head.isThere() && (head.form != Reason::Array || scanner.isArray());
}

void setValue(KFLBashLine& result, std::string_view value) {
  result.value = value;
  result.endsWithCarriageReturn = value.ends_with('\r');
}

void judgeOtherLine(KFLBashLine& result, std::string_view line, const KFLBashScanner& scanner) {
  KFLBashCursor at(line);
  at.skipBlanks();
  const std::size_t first = at.position();
  if (scanner.isOtherAssigner()) return note(result, Kind::Nothing, Reason::OtherAssigner, first);
  at.skipName();
  const std::size_t nameEnd = at.position();
  at.skipBlanks();
  if (nameEnd != first && at.position() != nameEnd && at.peek() == '=' && at.peek(1) != '=') {
    return note(result, Kind::Nothing, Reason::SpacedEquals, at.position());
  }
  KFLBashCursor equals = at.at(first);
  while (isNameCharacter(equals.peek()) || isOneOf(equals.peek(), "-."))
    equals.advance();
  if (equals.position() != first && equals.peek() == '=')
    note(result, Kind::Nothing, Reason::InvalidName, first);
}

}  // namespace

KFLBashJudgement judgeBashLine(std::string_view line) {
  line = line.substr(0, line.find('\0'));
  const KFLBashHead head = readHead(line);
  KFLBashScanner scanner(line, head);
  scanner.run();
  KFLBashJudgement judged{{}, scanner.pieces()};
  KFLBashLine& result = judged.line;
  result.continues = joinsNextLine(scanner.failure()) || scanner.hasHereDocument();
  result.token = scanner.unexpected();
  if (!isAssignment(head, scanner)) {
    judgeOtherLine(result, line, scanner);
    return judged;
  }
  result.name = line.substr(head.name, head.nameEnd - head.name);
  if (scanner.hasValue() && head.form == Reason::None) {
    setValue(result, line.substr(judged.pieces.begin(), judged.pieces.end() - judged.pieces.begin()));
  }
  judgeScanned(result, head, scanner);
  return judged;
}

KFLBashLine examineBashLine(std::string_view line) {
  KFLBashPlainLine plain;
  if (!readPlainBashLine(line, plain) || plain.length != line.size()) return judgeBashLine(line).line;
  KFLBashLine result;
  if (plain.name.empty()) return result;
  result.kind = Kind::Assignment;
  result.name = plain.name;
  setValue(result, line.substr(plain.first, plain.end - plain.first));
  return result;
}

std::string KFLBashLine::describe() const {
  if (reason == Reason::None) return {};
  std::string text =
      "column " + std::to_string(column) + ": " + kReasonTexts[static_cast<std::size_t>(reason)];
  if (reason != Reason::UnexpectedToken) return text;
  if (token.empty() || token == "\n") return text + "end of the line";
  return text.append("\"").append(token).append("\"");
}

}  // namespace KFL
