// SPDX-License-Identifier: Apache-2.0
// The second stage: where a word and its quotes end. What it meets in the value of the line's assignment is recorded as
// pieces.
#include "KFLBashScanner.h"

namespace KFL {

using Kind = KFLBashPiece::Kind;

void KFLBashScanner::inWord() {
  for (;;) {
    const char c = at_.peek();
    if (isProcessSubstitution()) return substitution();
    if (isPattern()) {
      if (c == '(') return push(Context::Pattern, 1);
    } else if (isBashMeta(c)) {
      return wordEnded();
    }
    if (c == '\\') {
      if (at_.peek(1) == '\0') return fail(Reason::OpenLine, at_.position());
      if (quotesNothing() && isFirstValue()) doubt_.set(Reason::Ambiguous, at_.position());
      at_.advance(quotesNothing() ? 1 : 2);
      continue;
    }
    if (quoteOrExpansion(true)) return;
    if ((c == '=' || c == '[') && !top().headDone && headMark()) return;
    at_.advance();
  }
}

// Whether the backslash that the automaton stands on takes no character: so it is among the words of an array within a
// substitution, but for what it takes in double quotes where the substitution stands in them.
bool KFLBashScanner::quotesNothing() const {
  if (below().context != Context::Array) return false;
  const Around around = frames_.back().aroundCommand;
  return around == Around::Word || (around == Around::Quotes && !isOneOf(at_.peek(1), "$`\"\\\n"));
}

// The first = or [ of a word; true when it opens an array or a subscript. A subscript that opens none may end in front of
// the array, behind export and its like.
bool KFLBashScanner::headMark() {
  const bool isSubscript = at_.peek() == '[';
  if (top().hasBracket && (isSubscript || at_.peek(1) != '(')) return false;
  top().headDone = true;
  if (isSubscript && below().context == Context::Array && at_.position() == top().opened) {
    push(Context::Subscript, 1);
    return true;
  }
  if (!isSubscript && at_.peek(1) != '(') return false;
  if (!isHead(at_.position())) {
    top().hasBracket = isSubscript && acceptsAssignment(below(), '=');
    top().headDone = !top().hasBracket;
    return false;
  }
  if (isSubscript && at_.previous() == '+') return false;
  if (!isSubscript) at_.advance();
  push(isSubscript ? Context::Subscript : Context::Array, 1);
  if (!isSubscript) endText(at_.position());
  return true;
}

void KFLBashScanner::subscriptEnded() {
  const KFLBashCursor equals = at_.ahead(at_.peek() == '+' ? 1 : 0);
  if (equals.peek() != '=' || below().context == Context::Array) return;
  if (isFirstValue() && frames_.size() == 2) array_ = true;
  at_ = equals.ahead(1);
  if (at_.peek() == '(') push(Context::Array, 1);
}

// Within double quotes, braces, brackets or a pattern's parentheses.
void KFLBashScanner::inQuoted(char close) {
  const bool quotes = close != '"';
  const bool substitutes = close == '}' || close == ']';
  const bool inPattern = close == ')';
  const char open = close == ']' ? '[' : close == ')' ? '(' : '\0';
  for (;;) {
    const char c = at_.peek();
    if (c == '\0') return finish();
    if (c == '\\') {
      if (isBashMark(at_.peek(1))) doubt(Reason::Ambiguous);
      at_.advance(2);
    } else if (c == close && top().depth == 0) {
      if (close == '"') mark(1);
      at_.advance();
      const bool isSubscript = top().context == Context::Subscript;
      pop();
      return isSubscript ? subscriptEnded() : void();
    } else if (substitutes && isOneOf(c, "<>")) {
      // Of two of them the second begins nothing. A mark behind one is nothing to bash here.
      while (isBashMark(at_.peek(1)))
        at_.advance();
      if (at_.peek(1) == '(') return substitution();
      at_.advance(isOneOf(at_.peek(1), "<>") ? 2 : 1);
    } else if (inPattern && c == '$' && isOneOf(at_.peek(1), "{[")) {
      at_.advance();
    } else if (quoteOrExpansion(quotes)) {
      return;
    } else {
      if (c == open) ++top().depth;
      if (c == close) --top().depth;
      at_.advance();
    }
  }
}

// Steps over or into whatever quotes or expands; false when the character does neither.
bool KFLBashScanner::quoteOrExpansion(bool quotes) {
  switch (at_.peek()) {
    case '`':
      backquote();
      return true;
    case '$':
      dollar(quotes);
      return true;
    case '\'':
      if (quotes) singleQuote();
      return quotes;
    case '"':
      if (!quotes) return false;
      mark(1);
      push(Context::DoubleQuote, 1);
      return true;
    default:
      return false;
  }
}

void KFLBashScanner::singleQuote() {
  const std::size_t opened = at_.position();
  mark(1);
  at_.advance();
  at_.advanceTo('\'');
  if (at_.isAtEnd()) return fail(Reason::OpenSingleQuote, opened);
  quoted(Kind::Single);
}

// The closing single quote, behind text of that kind.
void KFLBashScanner::quoted(Kind kind) {
  if (isOwnText()) pieces_.add(kind, at_.position());
  mark(1);
  at_.advance();
}

bool KFLBashScanner::isProcessSubstitution() const {
  return (at_.peek() == '<' || at_.peek() == '>') && at_.peek(1) == '(';
}

bool KFLBashScanner::isFirstValue() const {
  return head_.isThere() && frames_.size() >= 2 && frames_[1].context == Context::Word &&
         frames_[1].opened == head_.name;
}

// Whether the automaton stands in the value of the line's assignment, at most within its double quotes or among the words
// of its parentheses.
bool KFLBashScanner::isOwnText() const {
  if (!isFirstValue()) return false;
  for (std::size_t i = 2; i < frames_.size(); ++i) {
    const Context context = frames_[i].context;
    const bool isQuote = context == Context::DoubleQuote && i + 1 == frames_.size();
    if (context != Context::Array && context != Context::Word && !isQuote) return false;
  }
  return true;
}

// What begins here keeps bash from taking the value, if it is the value's own text.
void KFLBashScanner::doubt(Reason reason) {
  if (isOwnText()) doubt_.set(reason, at_.position());
}

// Text of the value that ends here: what no other piece has taken.
void KFLBashScanner::endText(std::size_t end) {
  if (isOwnText()) pieces_.add(top().context == Context::DoubleQuote ? Kind::Double : Kind::Literal, end);
}

// What has stood between the words in parentheses since the last piece.
void KFLBashScanner::gap(Kind kind) {
  if (isOwnText()) pieces_.add(kind, at_.position());
}

// A quote of the value that begins here, with the dollar sign that may stand before it.
void KFLBashScanner::mark(std::size_t length) {
  endText(at_.position());
  if (isOwnText()) pieces_.add(Kind::Mark, at_.position() + length);
}

// An expansion in the value that ends here.
void KFLBashScanner::expansion(std::size_t begin) {
  endText(begin);
  if (isOwnText()) pieces_.add(Kind::Expansion, at_.position());
}

}  // namespace KFL
