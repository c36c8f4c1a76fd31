// SPDX-License-Identifier: Apache-2.0
// Conditions, [[ ]]: terms of one, two or three words, joined by && and ||, in parentheses.

#include "KFLBashScanner.h"

namespace KFL {

namespace {

// What may stand next.
constexpr std::uint8_t kTerm = 0;
constexpr std::uint8_t kAfterWord = 1;  // an operator, or the end of the term
constexpr std::uint8_t kOperand = 2;    // the word behind an operator
constexpr std::uint8_t kPattern = 3;    // the like, in which @(a|b) is a pattern
constexpr std::uint8_t kRegex = 4;      // the like, in which parentheses and | are text
constexpr std::uint8_t kAfterTerm = 5;

bool isUnary(std::string_view word) {
  return word.size() == 2 && word[0] == '-' &&
         std::string_view("abcdefghknoprstuvwxzGLNORS").find(word[1]) != std::string_view::npos;
}

// What the operator between two words wants behind it; kTerm when it is none.
std::uint8_t operandOf(std::string_view word) {
  if (word == "=" || word == "==" || word == "!=") return kPattern;
  if (word == "=~") return kRegex;
  for (const std::string_view one : {"-eq", "-ne", "-lt", "-le", "-gt", "-ge", "-nt", "-ot", "-ef"}) {
    if (word == one) return kOperand;
  }
  return kTerm;
}

}  // namespace

void KFLBashScanner::inConditional() {
  const char c = at_.peek();
  const bool regex = top().phase == kRegex && (c == '(' || c == '|');
  if (c == '\0') return finish();
  if (comment()) return;
  if (isBlank(c) || c == '\n') {
    at_.advance();
  } else if (!isBashMeta(c) || isProcessSubstitution() || regex) {
    push(Context::Word, 0);
  } else {
    conditionalOperator();
  }
}

void KFLBashScanner::conditionalOperator() {
  Frame& frame = top();
  const char c = at_.peek();
  const bool doubled = at_.peek(1) == c;
  const bool ended = frame.phase == kAfterWord || frame.phase == kAfterTerm;
  if ((c == '&' || c == '|') && doubled && ended) {
    frame.phase = kTerm;
    at_.advance();
  } else if (c == '(' && frame.phase == kTerm) {
    ++frame.depth;
  } else if (c == ')' && ended && frame.depth > 0) {
    --frame.depth;
    frame.phase = kAfterTerm;
  } else if ((c == '<' || c == '>') && frame.phase == kAfterWord && !isOneOf(at_.peek(1), "<>&|")) {
    frame.phase = kOperand;
  } else {
    return refuseHere(doubled ? 2 : 1);
  }
  at_.advance();
}

void KFLBashScanner::conditionalWord(const Word& word) {
  Frame& frame = top();
  const bool closes = word.text == "]]";
  switch (frame.phase) {
    case kTerm:
      if (closes) return refuse(word);
      if (word.text != "!") frame.phase = isUnary(word.text) ? kOperand : kAfterWord;
      return;
    case kAfterWord:
      frame.phase = operandOf(word.text);
      if (frame.phase != kTerm) return;
      [[fallthrough]];
    case kAfterTerm:
      return closes && frame.depth == 0 ? compoundEnded() : refuse(word);
    default:
      if (closes) return refuse(word);
      frame.phase = kAfterTerm;
  }
}

// Whether the parenthesis or bar that the automaton stands on belongs to the word before it.
bool KFLBashScanner::isPattern() const {
  if ((at_.peek() != '(' && at_.peek() != '|') || frames_.size() < 2) return false;
  const Frame& conditional = below();
  if (conditional.context != Context::Conditional) return false;
  if (conditional.phase == kRegex) return true;
  return conditional.phase == kPattern && at_.peek() == '(' && at_.position() != frames_.back().opened &&
         isOneOf(at_.previous(), "?*+@!");
}

}  // namespace KFL
