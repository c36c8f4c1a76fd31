// SPDX-License-Identifier: Apache-2.0
// Compound commands: what reserved words begin, continue and end, and the heads of for and case.
#include <utility>

#include "KFLBashScanner.h"

namespace KFL {

namespace {

// Phases of the compound commands; other lists have the one phase 0.
constexpr std::uint8_t kCondition = 0, kThen = 1, kElif = 2, kElse = 3;  // if
constexpr std::uint8_t kLoopCondition = 0, kLoopBody = 1, kWantsDo = 2;  // while, until, for
constexpr std::uint8_t kForName = 0, kForAfterName = 1, kForWords = 2;   // for, select
constexpr std::uint8_t kIn = 1, kPattern = 2, kAlternative = 3;          // case; phase 0 is its subject
constexpr std::uint8_t kAfterPattern = 4, kClause = 5;

constexpr unsigned int in(std::uint8_t phase) {
  return 1U << phase;
}

}  // namespace

struct KFLBashScanner::Reserved {
  enum class Role : std::uint8_t { Opens, Prefix, Coprocess, Function, Continues, Closes };

  std::string_view word;
  Role role;
  Context context;
  // Of words that continue or close: the phases in which they may stand, and the next one.
  unsigned int phases = 0;
  std::uint8_t next = 0;
};

constexpr KFLBashScanner::Reserved KFLBashScanner::kReserved[] = {
    {"if", Reserved::Role::Opens, Context::If},
    {"then", Reserved::Role::Continues, Context::If, in(kCondition) | in(kElif), kThen},
    {"elif", Reserved::Role::Continues, Context::If, in(kThen), kElif},
    {"else", Reserved::Role::Continues, Context::If, in(kThen), kElse},
    {"fi", Reserved::Role::Closes, Context::If, in(kThen) | in(kElse)},
    {"while", Reserved::Role::Opens, Context::Loop},
    {"until", Reserved::Role::Opens, Context::Loop},
    {"for", Reserved::Role::Opens, Context::For},
    {"select", Reserved::Role::Opens, Context::For},
    {"do", Reserved::Role::Continues, Context::Loop, in(kLoopCondition) | in(kWantsDo), kLoopBody},
    {"done", Reserved::Role::Closes, Context::Loop, in(kLoopBody)},
    {"case", Reserved::Role::Opens, Context::Case},
    {"esac", Reserved::Role::Closes, Context::Case, in(kClause)},
    {"{", Reserved::Role::Opens, Context::Group},
    {"}", Reserved::Role::Closes, Context::Group, in(0)},
    {"[[", Reserved::Role::Opens, Context::Conditional},
    {"]]", Reserved::Role::Closes, Context::Conditional},
    {"in", Reserved::Role::Closes, Context::For},
    {"!", Reserved::Role::Prefix, Context::List},
    {"time", Reserved::Role::Prefix, Context::List},
    {"coproc", Reserved::Role::Coprocess, Context::List},
    {"function", Reserved::Role::Function, Context::List},
};

// Whether a loop's do must follow: behind the head of a for.
bool KFLBashScanner::wantsDo(const Frame& frame) {
  return frame.context == Context::Loop && frame.phase == kWantsDo;
}

// Whether words stand between for or case and the first list of commands, or are a clause's patterns: there none is an
// assignment, whatever it looks like.
bool KFLBashScanner::isHeader(const Frame& frame) {
  return frame.context == Context::For || (frame.context == Context::Case && frame.phase != kClause);
}

// A word of a header; false elsewhere.
bool KFLBashScanner::headerWord(const Word& word) {
  Frame& frame = top();
  if (!isHeader(frame)) return false;
  if (frame.context == Context::For) {
    if (frame.phase == kForAfterName && word.text == "do") {
      frame.context = Context::Loop;
      frame.phase = kLoopBody;
    } else if (frame.phase == kForAfterName && word.text != "in") {
      refuse(word);
    } else if (frame.phase != kForWords) {
      ++frame.phase;
    }
    return true;
  }
  if (frame.phase == kPattern && word.text == "esac") {
    compoundEnded();
  } else if ((frame.phase == kIn && word.text != "in") || frame.phase == kAfterPattern) {
    refuse(word);
  } else {
    frame.phase = frame.phase >= kPattern ? kAfterPattern : static_cast<std::uint8_t>(frame.phase + 1);
  }
  return true;
}

// An operator in a header; false elsewhere.
bool KFLBashScanner::headerOperator() {
  Frame& frame = top();
  if (!isHeader(frame)) return false;
  const char c = at_.peek();
  if (frame.context == Context::For) {
    if (c == '(' && at_.peek(1) == '(' && frame.phase == kForName) {
      push(Context::ArithmeticCommand, 2);
      top().depth = 1;
    } else if ((c == ';' || c == '\n') && frame.phase != kForName) {
      frame.context = Context::Loop;
      frame.phase = kWantsDo;
      at_.advance();
    } else {
      refuseHere(1);
    }
    return true;
  }
  if (c == '(' && frame.phase == kPattern) {
    frame.phase = kAlternative;
  } else if (c == '|' && frame.phase == kAfterPattern) {
    frame.phase = kAlternative;
  } else if (c == ')' && frame.phase == kAfterPattern) {
    frame.phase = kClause;
    frame.expect = Expect::Optional;
  } else if (c != '\n' || (frame.phase != kIn && frame.phase != kPattern)) {
    refuseHere(1);
  }
  at_.advance();
  return true;
}

const KFLBashScanner::Reserved* KFLBashScanner::findReserved(std::string_view word) {
  for (const Reserved& row : kReserved) {
    if (row.word == word) return &row;
  }
  return nullptr;
}

bool KFLBashScanner::reservedWord(const Word& word) {
  const Reserved* const reserved = findReserved(word.text);
  if (reserved == nullptr) return false;
  Frame& frame = top();
  const bool closing = reserved->role >= Reserved::Role::Continues;
  const bool isDoWanted = wantsDo(frame);
  if (closing) {
    closingWord(*reserved, word);
  } else if (isDoWanted && word.text == "{") {
    frame.context = Context::Group;
    frame.phase = 0;
    frame.hasCommands = false;
    frame.expect = Expect::Optional;
  } else if (frame.expect == Expect::AfterCompound || isDoWanted) {
    refuse(word);
  } else if (reserved->role == Reserved::Role::Opens) {
    push(reserved->context, 0);
    top().opened = word.begin;
  } else {
    return prefixWord(*reserved, word);
  }
  return true;
}

// What begins a command without being one; false when it is an ordinary word here.
bool KFLBashScanner::prefixWord(const Reserved& reserved, const Word& word) {
  using Role = Reserved::Role;
  Frame& frame = top();
  const bool bare = frame.expect == Expect::Piped || frame.expect == Expect::Coprocess;
  const bool isFirst = frame.expect == Expect::Optional && !frame.hasCommands;
  // Bash does not know it as such directly behind the parenthesis of a substitution either.
  if (word.text == "time" && (bare || (isFirst && frame.context == Context::Command))) return false;
  if (frame.expect == Expect::Compound || (bare && reserved.role == Role::Prefix) ||
      (frame.expect == Expect::Coprocess && reserved.role != Role::Prefix)) {
    refuse(word);
    return true;
  }
  frame.hasCommands = true;
  frame.timed = word.text == "time" ? Timed::Bare : Timed::No;
  frame.expect = reserved.role == Role::Prefix      ? Expect::AfterPrefix
                 : reserved.role == Role::Coprocess ? Expect::Coprocess
                                                    : Expect::FunctionName;
  return true;
}

// The options of time: what follows them begins a command as if they were not there.
bool KFLBashScanner::timeOption(const Word& word) {
  Frame& frame = top();
  const Timed timed = std::exchange(frame.timed, Timed::No);
  if (timed == Timed::No) return false;
  if (timed == Timed::Bare && word.text == "-p") frame.timed = Timed::WithOption;
  return frame.timed != Timed::No || word.text == "--";
}

// Behind coproc NAME: a compound command, or else NAME was the command; then a word that closes is known at once.
bool KFLBashScanner::coprocessBody(const Word& word) {
  const Reserved* const reserved = top().mayTakeBody ? findReserved(word.text) : nullptr;
  if (reserved == nullptr || word.text == "time") return false;
  if (reserved->role >= Reserved::Role::Continues) {
    endCommand(End::Line);
    top().expect = Expect::Optional;
    closingWord(*reserved, word);
  } else if (reserved->role != Reserved::Role::Opens) {
    refuse(word);
  } else {
    push(reserved->context, 0);
    top().opened = word.begin;
  }
  return true;
}

void KFLBashScanner::closingWord(const Reserved& reserved, const Word& word) {
  Frame& frame = top();
  const bool isDoWanted = wantsDo(frame);
  const bool mayBeEmpty = isDoWanted || frame.context == Context::Case;
  const bool atEnd = frame.expect == Expect::AfterCompound ||
                     (frame.expect == Expect::Optional && (frame.hasCommands || mayBeEmpty)) ||
                     (frame.expect == Expect::AfterPrefix && isDoWanted);
  if (frame.context != reserved.context || (in(frame.phase) & reserved.phases) == 0 || !atEnd)
    return refuse(word);
  if (reserved.role == Reserved::Role::Closes) return compoundEnded();
  frame.phase = reserved.next;
  frame.expect = Expect::Optional;
  frame.hasCommands = false;
}

void KFLBashScanner::caseSeparator(std::size_t length) {
  Frame& frame = top();
  if (frame.context != Context::Case || !mayEnd(frame)) return refuseHere(length);
  endCommand(End::Sequence);
  frame.phase = kPattern;
  frame.expect = Expect::Optional;
  at_.advance(length);
}

void KFLBashScanner::compoundEnded() {
  // The (( )) of a for has three parts.
  if (below().context == Context::For && top().words != 2)
    return refuse({at_.since(at_.position() - 1), at_.position() - 1});
  pop();
  Frame& frame = top();
  frame.hasCommands = true;
  frame.mayTakeBody = false;
  frame.redirected = false;
  frame.expect = Expect::AfterCompound;
  if (frame.context != Context::For) return;
  // That was the (( )) of a for: a semicolon may follow, and then do.
  frame.context = Context::Loop;
  frame.phase = kWantsDo;
  frame.expect = Expect::AfterPrefix;
}

}  // namespace KFL
