// SPDX-License-Identifier: Apache-2.0
// The fourth stage: lists of simple commands, with their assignments, redirections and operators.
#include <array>
#include <string>

#include "KFLBashScanner.h"

namespace KFL {

namespace {

// From the dollar sign before a brace or parenthesis to the one that closes it.
void skipExpansion(KFLBashCursor& at) {
  const char open = at.peek(1);
  const char close = open == '(' ? ')' : '}';
  std::size_t depth = 1;
  for (at.advance(2); !at.isAtEnd(); at.advance()) {
    if (at.peek() == '\\') {
      at.advance();
    } else if (at.peek() == close) {
      if (--depth == 0) return;
    } else if (at.peek() == open && (open == '(' || at.previous() == '$')) {
      ++depth;
    }
  }
}

// Nobody writes a longer one; what stands in substitutions is looked at again for each that it stands in, and the limit
// keeps that linear.
constexpr std::size_t kLongestSubscript = 1024;

// Behind the bracket that closes the one under the cursor, quotes within it aside; false when none does.
bool skipBrackets(KFLBashCursor& from) {
  KFLBashCursor at(from.next(kLongestSubscript));
  std::size_t depth = 0;
  char quote = '\0';
  for (; !at.isAtEnd(); at.advance()) {
    const char c = at.peek();
    if (c == '\\' && quote != '\'') {
      at.advance();
    } else if (quote != '\0') {
      if (c == quote) quote = '\0';
    } else if (c == '$' && isOneOf(at.peek(1), "({")) {
      skipExpansion(at);
    } else if (isOneOf(c, "\"'`")) {
      quote = c;
    } else if (c == '[') {
      ++depth;
    } else if (c == ']' && --depth == 0) {
      from.advance(at.position() + 1);
      return true;
    }
  }
  return false;
}

// Whether the word is NAME=..., NAME+=... or NAME[...]=...; quotes within the name do not matter to export and its like.
bool isAssignment(std::string_view word) {
  KFLBashCursor at(word);
  at.skipName();
  if (at.position() == 0) return false;
  if (at.peek() == '[' && !skipBrackets(at)) return false;
  return at.startsWith("=") || at.startsWith("+=");
}

// The text of the $'' under the cursor, which stands on its closing quote afterwards.
std::string readAnsiQuote(KFLBashCursor& at) {
  const std::size_t begin = at.position() + 2;
  for (at.advance(2); !at.isAtEnd() && at.peek() != '\''; at.advance()) {
    if (at.peek() == '\\') at.advance();
  }
  std::string text(at.since(begin));
  KFLBashPieces pieces;
  pieces.add(KFLBashPiece::Kind::Ansi, text.size());
  text.resize(unquoteBashValue(text, pieces));
  return text;
}

// Whether more of the word would not tell more of what its text begins with; nameEnd goes to the end of the name.
bool isDecided(std::string_view text, std::size_t& nameEnd) {
  while (nameEnd < text.size() && isNameCharacter(text[nameEnd]))
    ++nameEnd;
  const std::string_view mark = text.substr(nameEnd);
  if (mark.empty() || mark == "+") return false;
  return nameEnd == 0 || mark.front() != '[' || mark.size() > kLongestSubscript;
}

// The like of a word whose quotes are taken away.
bool isQuotedAssignment(std::string_view word) {
  std::string bare;
  std::size_t nameEnd = 0;
  char quote = '\0';
  for (KFLBashCursor at(word); !at.isAtEnd() && !isDecided(bare, nameEnd); at.advance()) {
    const char c = at.peek();
    if (c == '$' && quote == '\0' && at.peek(1) == '\'') {
      bare += readAnsiQuote(at);
    } else if (quote == '\'' && c != quote) {
      bare += c;
    } else if (isOneOf(c, "\"'") && (quote == '\0' || quote == c)) {
      quote = quote == c ? '\0' : c;
    } else if (c == '\\' && (quote == '\0' || isOneOf(at.peek(1), "$`\"\\"))) {
      at.advance();
      bare += at.peek();
    } else if (c != '`' && (c != '$' || quote != '\0' || at.peek(1) != '"')) {
      bare += c;
    }
  }
  return isAssignment(bare);
}

// Commands whose arguments are assignments that the shell keeps.
bool isAssigner(std::string_view word) {
  constexpr std::array<std::string_view, 7> kAssigners = {"export", "declare", "typeset", "readonly",
                                                          "local",  "eval",    "let"};
  return std::ranges::find(kAssigners, word) != kAssigners.end();
}

// The name between the braces of {name} or {name[subscript]}.
bool isVariable(std::string_view text) {
  KFLBashCursor at(text);
  at.skipName();
  if (at.position() == 0) return false;
  if (at.peek() == '[' && (at.peek(1) == ']' || !skipBrackets(at))) return false;
  return at.isAtEnd();
}

// 2 or {name}, which directly before a redirection operator are part of it. A number is one that fits.
bool isDescriptor(std::string_view word) {
  if (word.size() > 2 && word.front() == '{' && word.back() == '}')
    return isVariable(word.substr(1, word.size() - 2));
  int number = 0;
  return isDigit(word.front()) && parseInteger(word, number) == 0;
}

// A redirection operator under the cursor: < > or &>.
struct Redirection {
  std::size_t length;
  bool isHereDocument = false;
  bool takesNumber = false;
  bool isWhole = false;  // >&-: nothing follows
};

Redirection readRedirection(const KFLBashCursor& at) {
  const char first = at.peek();
  const char second = at.peek(1);
  const char third = at.peek(2);
  if (first == '&') return {third == '>' ? 3U : 2U};
  if (first == '<' && second == '<') return {third == '<' || third == '-' ? 3U : 2U, third != '<'};
  if (second == '&') {
    KFLBashCursor minus = at.ahead(2);
    minus.skipBlanks();
    const bool isWhole = minus.peek() == '-';
    return {isWhole ? minus.position() + 1 - at.position() : 2U, false, true, isWhole};
  }
  return {isOneOf(second, first == '<' ? ">" : ">|") ? 2U : 1U};
}

}  // namespace

// A comment, up to the end of its line.
bool KFLBashScanner::comment() {
  if (at_.peek() != '#') return false;
  at_.advanceTo('\n');
  return true;
}

void KFLBashScanner::inList() {
  const char c = at_.peek();
  if (c == '\0') return finish();
  if (comment()) return;
  if (isBlank(c)) {
    at_.advance();
  } else if (c == '\\' && at_.peek(1) == '\n') {
    at_.advance(2);
  } else if (isBashMeta(c) && !isProcessSubstitution()) {
    oper();
  } else {
    // A word that begins with <( is an operator to bash at first.
    if (isBashMeta(c)) top().takesArrays = top().amongArrays = false;
    push(Context::Word, 0);
  }
}

void KFLBashScanner::inArray() {
  const char c = at_.peek();
  if (c == '\0') return finish();
  if (comment()) return;
  if (c == ')') {
    gap(KFLBashPiece::Kind::Mark);
    at_.advance();
    pop();
    if (isFirstValue() && frames_.size() == 2) hasParentheses_ = true;
  } else if (isBlank(c) || c == '\n') {
    at_.advance();
  } else if (isBashMeta(c) && !isProcessSubstitution()) {
    refuseHere(1);
  } else {
    gap(top().words++ == 0 ? KFLBashPiece::Kind::Mark : KFLBashPiece::Kind::Blanks);
    push(Context::Word, 0);
  }
}

void KFLBashScanner::wordEnded() {
  const Word word{at_.since(top().opened), top().opened};
  endText(at_.position());
  if (isFirstValue() && frames_.size() == 2) {
    hasValue_ = true;
    // A=(1)x is no array, but A=(1)$(x) is one: only the last character decides.
    array_ = array_ || (hasParentheses_ && word.text.back() == ')');
  }
  frames_.pop_back();
  if (top().context == Context::Array || redirectionWord(word)) return;
  if (top().context == Context::Conditional) return conditionalWord(word);
  if (headerWord(word)) return;
  switch (top().expect) {
    case Expect::FunctionName:
      top().expect = Expect::Compound;
      top().mayName = true;
      return;
    case Expect::Simple:
      return coprocessBody(word) ? void() : argument(word);
    case Expect::AfterCompound:
      return !top().redirected && reservedWord(word) ? void() : refuse(word);
    default:
      return commandWord(word);
  }
}

// The words of a redirection: its target, and what may stand directly before its operator.
bool KFLBashScanner::redirectionWord(const Word& word) {
  Frame& frame = top();
  const bool isBound = isOneOf(at_.peek(), "<>") && isDescriptor(word.text);
  if (!frame.wantsTarget && isBound && frame.context == Context::Conditional) {
    refuse(word);
    return true;
  }
  if (!frame.wantsTarget) return isBound;
  const bool assigns = frame.mayAssign && isAssignment(word.text);
  if (assigns || (isBound && !(frame.takesNumber && isDigit(word.text.front())))) {
    refuse(word);
    return true;
  }
  redirected();
  return true;
}

void KFLBashScanner::commandWord(const Word& word) {
  if (timeOption(word) || reservedWord(word)) return;
  const Frame& frame = top();
  if (frame.expect == Expect::Compound || wantsDo(frame)) {
    return refuse(word);
  }
  const bool isCoprocess = frame.expect == Expect::Coprocess;
  beginSimple();
  argument(word);
  top().mayName = top().words == 1 && !isCoprocess;
  top().mayTakeBody = top().words == 1 && isCoprocess;
}

void KFLBashScanner::beginSimple() {
  Frame& frame = top();
  if (frame.expect == Expect::Simple) return;
  frame.coprocess = frame.expect == Expect::Coprocess;
  frame.expect = Expect::Simple;
  frame.hasCommands = true;
  frame.assigner = false;
  frame.takesArrays = frame.amongArrays;
  frame.redirected = false;
  frame.led = false;
  frame.mayAssignMore = false;
  frame.words = 0;
  frame.assignments = 0;
}

void KFLBashScanner::argument(const Word& word) {
  Frame& frame = top();
  frame.mayName = false;
  frame.mayAssignMore = (frame.mayTakeBody || frame.mayAssignMore) && isAssignment(word.text);
  frame.mayTakeBody = false;
  if (frame.words == 0) {
    if (isAssignment(word.text)) {
      ++frame.assignments;
      frame.lastAssignment = word.begin;
      return;
    }
    // What stood before the command was for its environment only.
    frame.assigner = isAssigner(word.text);
    frame.takesArrays = frame.assigner || frame.amongArrays || word.text == "alias";
    frame.assignments = 0;
    frame.command = word.begin;
  } else if (frame.assigner && (isAssignment(word.text) || isQuotedAssignment(word.text))) {
    ++frame.assignments;
    frame.lastAssignment = word.begin;
  }
  ++frame.words;
}

void KFLBashScanner::endCommand(End end) {
  Frame& frame = top();
  frame.mayTakeBody = false;
  const bool outermost = frames_.size() == 1;
  if (frame.expect == Expect::Simple) {
    const bool assigns = frame.assignments > 0 && (frame.words == 0 || frame.assigner);
    if (outermost && !firstEnded_) {
      judgeFirst(frame, end);
    } else if (assigns && apart_ == 0 && !frame.coprocess) {
      further_.push_back(frame.lastAssignment);
    }
  }
  dropApart(frame, end);
  if (!outermost) return;
  firstEnded_ = true;
  if (inFirstList_ && end == End::Background) spoil(Reason::Background, at_.position());
  if (end != End::AndOr && end != End::Pipe) inFirstList_ = false;
}

// What a pipeline and what a list in the background assign is gone with the shells that run them.
void KFLBashScanner::dropApart(Frame& list, End end) {
  if (end == End::Pipe || list.piped) further_.resize(list.beforePipeline);
  list.piped = end == End::Pipe;
  if (end == End::Background) further_.resize(list.beforeList);
  if (end != End::Pipe) list.beforePipeline = further_.size();
  if (end != End::Pipe && end != End::AndOr) list.beforeList = further_.size();
}

void KFLBashScanner::judgeFirst(const Frame& command, End end) {
  if (!head_.isThere()) {
    otherAssigner_ = command.assigner && command.assignments > 0;
    return;
  }
  if (command.words > 0 && !exported_) return spoil(Reason::CommandEnvironment, command.command);
  if (end == End::Pipe) return spoil(Reason::Pipeline, at_.position());
  if (command.assignments > 1) spoil(Reason::TwoAssignments, command.lastAssignment);
}

// Why the line's first assignment is not made, or not the only one. Not being made weighs more.
void KFLBashScanner::spoil(Reason reason, std::size_t where) {
  if (firstReason_ != Reason::None && firstReason_ != Reason::TwoAssignments) return;
  if (firstReason_ == reason) return;
  firstReason_ = reason;
  firstReasonAt_ = where;
}

void KFLBashScanner::oper() {
  const char c = at_.peek();
  const char next = at_.peek(1);
  if (top().wantsTarget) return refuseHere(1);
  top().timed = Timed::No;
  top().amongArrays = false;
  if (headerOperator()) return;
  switch (c) {
    case '\n':
      return separator(End::Line, 1);
    case ';':
      if (next == ';' || next == '&') return caseSeparator(next == ';' && at_.peek(2) == '&' ? 3 : 2);
      return separator(End::Sequence, 1);
    case '&':
      if (next == '>') return redirection();
      return next == '&' ? connector(End::AndOr, 2) : separator(End::Background, 1);
    case '|':
      return next == '|' ? connector(End::AndOr, 2) : connector(End::Pipe, next == '&' ? 2 : 1);
    case '(':
      return openParenthesis();
    case ')':
      return closeParenthesis();
    default:
      return redirection();
  }
}

void KFLBashScanner::redirection() {
  Frame& frame = top();
  const Redirection read = readRedirection(at_);
  if (frame.expect == Expect::Compound || frame.expect == Expect::FunctionName || wantsDo(frame))
    return refuseHere(read.length);
  if (frame.expect != Expect::AfterCompound) beginSimple();
  const bool leads = frame.expect == Expect::Simple && frame.words == 0 && frame.assignments == 0;
  frame.mayAssign = leads && frame.led && at_.startsWith("&>>");
  frame.led = leads;
  frame.mayName = false;
  frame.mayTakeBody = false;
  frame.mayAssignMore = false;
  frame.wantsTarget = !read.isWhole;
  frame.hereDocument = read.isHereDocument;
  frame.takesNumber = read.takesNumber;
  at_.advance(read.length);
  if (read.isWhole) redirected();
}

// A redirection has ended. No array may follow it, nor a reserved word behind a compound command.
void KFLBashScanner::redirected() {
  Frame& frame = top();
  frame.wantsTarget = false;
  frame.redirected = frame.expect == Expect::AfterCompound || frame.assignments > 0 || frame.words > 0;
  hereDocument_ = hereDocument_ || frame.hereDocument;
}

void KFLBashScanner::separator(End end, std::size_t length) {
  Frame& frame = top();
  switch (frame.expect) {
    case Expect::AfterPrefix:
      if (end == End::Background) return refuseHere(length);
      [[fallthrough]];
    case Expect::Simple:
    case Expect::AfterCompound:
      endCommand(end);
      frame.expect = Expect::Optional;
      break;
    default:
      if (end != End::Line || frame.expect == Expect::FunctionName) return refuseHere(length);
  }
  at_.advance(length);
}

// Whether the word up to here is the name of an assignment (or name+, or with a subscript) in a place where one may stand.
bool KFLBashScanner::isHead(std::size_t end) const {
  const Frame& word = frames_.back();
  KFLBashCursor name = at_.at(word.opened);
  name.skipName();
  if (name.position() == word.opened) return false;
  if (word.hasBracket && name.peek() == '[' && !skipBrackets(name)) return false;
  if (name.peek() == '+') name.advance();
  return name.position() == end && frames_.size() > 1 && acceptsAssignment(below(), at_.peek());
}

// mark: the = of an array or the [ of a subscript; behind export and its like only the former means anything. Behind
// coproc NAME a command may begin, and its assignments.
bool KFLBashScanner::acceptsAssignment(const Frame& list, char mark) {
  if (list.context == Context::Array || list.context == Context::Conditional || isHeader(list)) return false;
  if (list.wantsTarget) return list.mayAssign;
  if (list.expect == Expect::AfterCompound || list.expect == Expect::FunctionName) return false;
  if (list.expect != Expect::Simple) return true;
  if (list.mayTakeBody || list.mayAssignMore) return true;
  return !list.redirected && (list.words == 0 || (list.takesArrays && mark == '='));
}

// Whether the list may end here without a separator.
bool KFLBashScanner::mayEnd(const Frame& list) {
  return list.expect == Expect::Optional || list.expect == Expect::Simple ||
         list.expect == Expect::AfterCompound;
}

void KFLBashScanner::connector(End end, std::size_t length) {
  Frame& frame = top();
  if (frame.expect != Expect::Simple && frame.expect != Expect::AfterCompound) return refuseHere(length);
  endCommand(end);
  frame.expect = end == End::Pipe ? Expect::Piped : Expect::Required;
  if (frame.context == Context::List) frame.opened = at_.position();
  at_.advance(length);
}

void KFLBashScanner::openParenthesis() {
  Frame& frame = top();
  KFLBashCursor close = at_.ahead(1);
  close.skipBlanks();
  const bool isNamed = frame.mayName && (frame.expect == Expect::Simple || frame.expect == Expect::Compound);
  if (isNamed && close.peek() == ')') {
    frame.mayName = false;
    frame.expect = Expect::Compound;
    at_ = close.ahead(1);
  } else if (wantsDo(frame) || (frame.expect == Expect::Simple && !frame.mayTakeBody) ||
             frame.expect == Expect::AfterCompound || frame.expect == Expect::FunctionName) {
    refuseHere(1);
  } else if (at_.peek(1) == '(') {
    push(Context::ArithmeticCommand, 2);
    top().depth = 1;
  } else {
    push(Context::Subshell, 1);
  }
}

void KFLBashScanner::closeParenthesis() {
  const Frame& frame = top();
  const bool command = frame.context == Context::Command;
  const bool complete = mayEnd(frame) && (command || frame.hasCommands);
  if ((!command && frame.context != Context::Subshell) || !complete) return refuseHere(1);
  endCommand(End::Line);
  at_.advance();
  return command ? pop() : compoundEnded();
}

}  // namespace KFL
