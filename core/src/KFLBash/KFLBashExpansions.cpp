// SPDX-License-Identifier: Apache-2.0
// The third stage: what begins with a dollar sign or a backquote. It is kept as text, so only its end matters, and whether
// bash could take it at all.
#include "KFLBashScanner.h"

namespace KFL {

namespace {

constexpr std::string_view kOperators = ":-+=?#%/@^,~";
constexpr std::string_view kSpecialOperators = kOperators.substr(0, 9);  // behind a special parameter
constexpr std::string_view kCountOperators = kOperators.substr(0, 8);    // behind $#

bool isJoinedLine(const KFLBashCursor& at) {
  return at.peek() == '\\' && at.peek(1) == '\n';
}

// An @ with the letter that it needs. Bash asks for one only where the parameter has a value, so this matters for those
// that always have one, and for the letters that tell about the parameter itself.
bool isTransformed(const KFLBashCursor& at) {
  return at.peek() != '@' || at.peek(1) == '\0' || (isOneOf(at.peek(1), "UuLQEPAKak") && at.peek(2) == '}');
}

// Whether this may stand behind a parameter's name: the brace, an operator, or the end of the line.
bool isOperator(const KFLBashCursor& at, std::string_view operators = kOperators) {
  if (at.peek() == ':' && at.peek(1) == '}') return false;
  if (at.peek() == '@' && isOneOf(at.peek(1), "aA") && !isTransformed(at)) return false;
  return at.isAtEnd() || at.peek() == '}' || isJoinedLine(at) || isOneOf(at.peek(), operators);
}

// From the dollar sign to the quote that closes.
void skipAnsiQuote(KFLBashCursor& at) {
  for (at.advance(2); !at.isAtEnd() && at.peek() != '\''; at.advance()) {
    if (at.peek() == '\\') at.advance();
  }
}

// Goes behind the bracket that closes a subscript; false when none does within the braces, or nothing stands in it.
bool skipSubscript(KFLBashCursor& at) {
  if (at.peek(1) == ']') return false;
  std::size_t brackets = 0;
  std::size_t braces = 1;
  char quote = '\0';
  for (; !at.isAtEnd() && braces > 0; at.advance()) {
    const char c = at.peek();
    if (c == '\\' && quote != '\'' && at.peek(1) != '\0') {
      at.advance();
    } else if (c == '$' && quote == '\0' && at.peek(1) == '\'') {
      skipAnsiQuote(at);
    } else if (quote != '\0' || c == '"' || c == '\'') {
      if (quote == '\0' || quote == c) quote = quote == '\0' ? c : '\0';
    } else if (c == '[') {
      ++brackets;
    } else if (c == ']' && --brackets == 0) {
      at.advance();
      return true;
    } else if (c == '$' && at.peek(1) == '{') {
      ++braces;
      at.advance();
    } else if (c == '}') {
      --braces;
    }
  }
  return false;
}

// ${!x@} and ${!x*}, a list of names; bash does not ask whether the beginning is one.
bool isNameList(KFLBashCursor at) {
  if (isDigit(at.peek()) || !isNameCharacter(at.peek())) return false;
  for (bool mayClose = true; !at.isAtEnd() && !isOneOf(at.peek(), "#%^,~:-=?+/@}");) {
    KFLBashCursor end = at;
    mayClose = mayClose && (at.peek() != '[' || skipSubscript(end));
    at = mayClose && at.peek() == '[' ? end : at.ahead(1);
  }
  return at.startsWith("@}") || (at.peek() == '}' && at.previous() == '*');
}

// Behind $#: an operator, and behind some of them an operand.
bool isCountOperator(const KFLBashCursor& at) {
  if (at.peek() == '@') return isTransformed(at);
  return isOperator(at, kCountOperators) && !(isOneOf(at.peek(), "+=/%") && at.peek(1) == '}');
}

// ${@} and its like; # and ! are parameters of their own where they mark no other as counted or indirect.
bool isSpecialParameter(char mark, const KFLBashCursor& at) {
  const char c = at.peek();
  const KFLBashCursor behind = at.ahead(1);
  if (isOneOf(c, "$?-#") && (mark == '\0' || (mark == '!' && isOneOf(c, "#?"))) && !isTransformed(behind))
    return false;
  if (mark == '!' && c == '*') return isOperator(behind) && !behind.startsWith("@}");
  if (mark == '\0' && isOneOf(c, "@*$")) return isOperator(behind);
  if (mark == '\0') return isOneOf(c, "?-") && isOperator(behind, kSpecialOperators);
  if (behind.peek() == '}' && isOneOf(c, mark == '#' ? "@*#?$!-" : "@*#?-")) return true;
  if (mark == '!' && isOneOf(c, "@#?")) return isOperator(behind, kSpecialOperators);
  return mark == '#' ? isCountOperator(at) : isOperator(at);
}

// Whether ${ can begin an expansion with this text; only what no bash takes is refused.
bool isParameter(KFLBashCursor at) {
  if (at.isAtEnd() || at.peek() == '\n' || isJoinedLine(at)) return true;
  const char mark = at.peek() == '#' || at.peek() == '!' ? at.peek() : '\0';
  if (mark != '\0') at.advance();
  const std::string_view operators = mark == '#' ? std::string_view() : kOperators;
  if (mark == '!' && isNameList(at)) return true;
  KFLBashCursor end = at;
  if (isDigit(end.peek())) {
    while (isDigit(end.peek()))
      end.advance();
    if (mark == '!' && end.startsWith("@}")) return false;
  } else {
    end.skipName();
    if (end.position() == at.position()) return isSpecialParameter(mark, at);
  }
  const std::string_view name = end.since(at.position());
  const bool hasValue = mark == '\0' && (name == "0" || name == "_");
  if (isNameCharacter(at.peek()) && !isDigit(at.peek()) && end.peek() == '[' && !skipSubscript(end))
    return false;
  return isOperator(end, operators) && (!hasValue || isTransformed(end));
}

// Whether nothing but a few plain words stand between the parenthesis or brace under the cursor and the one that closes it.
bool closesPlainly(KFLBashCursor at) {
  const char close = at.peek() == '(' ? ')' : '}';
  at.advance();
  while (isNameCharacter(at.peek()) || isOneOf(at.peek(), " ./,:-"))
    at.advance();
  return at.peek() == close;
}

}  // namespace

void KFLBashScanner::backquote() {
  const std::size_t opened = at_.position();
  for (at_.advance(); at_.peek() != '`'; at_.advance()) {
    if (at_.peek() == '\\') at_.advance();
    if (at_.isAtEnd()) return fail(Reason::OpenBackquote, opened);
  }
  at_.advance();
  expansion(opened);
}

void KFLBashScanner::dollar(bool quotes) {
  while (top().context != Context::Word && isBashMark(at_.peek(1))) {
    doubt(Reason::Ambiguous);
    at_.advance();
  }
  switch (at_.peek(1)) {
    case '(':
      return substitution();
    case '{':
      // What follows is looked at once, and not again within it.
      if (isOwnText() && !isParameter(at_.ahead(2))) doubt(Reason::BadSubstitution);
      return push(Context::Parameter, 2);
    case '[':
      return push(Context::SquareArithmetic, 2);
    case '\'':
      return quotes ? ansiQuote() : at_.advance();
    case '"':
      if (quotes) mark(1);
      return at_.advance();
    case '$':
      // The process number, whatever follows it; but within double quotes bash expands what looks like $( or ${.
      if (!quotes && isOneOf(at_.peek(2), "({") && !closesPlainly(at_.ahead(2))) doubt(Reason::Ambiguous);
      return at_.advance(2);
    default:
      at_.advance();
  }
}

// $( <( or >(: two parentheses begin a sum, or what bash looks at as little as at one.
void KFLBashScanner::substitution() {
  if (at_.peek(2) != '(') return push(Context::Command, 2);
  push(Context::Arithmetic, 3);
  top().depth = 1;
}

void KFLBashScanner::ansiQuote() {
  const std::size_t opened = at_.position();
  mark(2);
  for (at_.advance(2); at_.peek() != '\''; at_.advance()) {
    if (at_.peek() == '\\') at_.advance();
    if (isBashMark(at_.peek())) doubt(Reason::Ambiguous);
    if (at_.isAtEnd()) return fail(Reason::OpenSingleQuote, opened + 1);
  }
  quoted(KFLBashPiece::Kind::Ansi);
}

void KFLBashScanner::inArithmetic(char open, char close) {
  const bool isOfFor = top().context == Context::ArithmeticCommand && below().context == Context::For;
  for (;;) {
    const char c = at_.peek();
    if (c == '\0') return finish();
    if (c == '\\') {
      at_.advance(2);
    } else if (c == close) {
      if (top().depth == 0 || (top().depth == 1 && close == ')')) return closeArithmetic();
      --top().depth;
      at_.advance();
    } else if (c == open) {
      ++top().depth;
      at_.advance();
    } else if (c == ';') {
      if (top().braces == 0) ++top().words;
      at_.advance();
    } else if (c == '$' && isOneOf(at_.peek(1), "{[")) {
      // Bash looks for the end of the sum first, so these need no partner; then, in a for, for the parts that semicolons
      // outside of ${ } divide.
      if (isOfFor && at_.peek(1) == '{') ++top().braces;
      at_.advance();
    } else if (c == '}' && top().braces > 0) {
      --top().braces;
      at_.advance();
    } else if (quoteOrExpansion(true)) {
      return;
    } else {
      at_.advance();
    }
  }
}

// What began as (( and does not end with )) was a subshell: as a command it is read as one from its beginning; in a
// substitution bash looks no further than for the parenthesis that closes it.
void KFLBashScanner::closeArithmetic() {
  Frame& frame = top();
  const bool isCommand = frame.context == Context::ArithmeticCommand;
  at_.advance();
  if (frame.depth == 0) return pop();
  frame.depth = 0;
  if (at_.peek() == ')') {
    at_.advance();
    return isCommand ? compoundEnded() : pop();
  }
  if (!isCommand) return;
  frame.context = Context::Subshell;
  if (!frame.apart) ++apart_;
  frame.apart = true;
  frame.expect = Expect::AfterCompound;
  frame.hasCommands = true;
  // Nobody nests sums this deep; the limit keeps the walk linear.
  constexpr unsigned int kMostAnew = 16;
  if (readAnew_++ >= kMostAnew) return;
  frame.expect = Expect::Optional;
  frame.hasCommands = false;
  at_ = at_.at(frame.opened + 1);
}

}  // namespace KFL
