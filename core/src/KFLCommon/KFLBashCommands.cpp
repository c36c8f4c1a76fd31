// SPDX-License-Identifier: Apache-2.0
// The half of the scanner that deals in words and operators: simple and compound commands.

#include <array>

#include <KFLCommon/KFLText.h>

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

// Whether the word is NAME=..., NAME+=... or NAME[...]=...; quotes within the name do not matter to export and its like.
bool isAssignment(std::string_view word) {
  const char* at = word.data();
  const char* const end = at + word.size();
  const char* const nameEnd = endOfName(at);
  if (nameEnd == at || nameEnd >= end) return false;
  if (*nameEnd == '[') {
    const std::size_t close = word.find("]=");
    return close != std::string_view::npos || word.find("]+=") != std::string_view::npos;
  }
  return *nameEnd == '=' || (*nameEnd == '+' && nameEnd + 1 < end && nameEnd[1] == '=');
}

bool isQuotedAssignment(std::string_view word) {
  while (!word.empty() && (word.front() == '"' || word.front() == '\'' || word.front() == '\\'))
    word.remove_prefix(1);
  return !word.empty() && isAssignment(word);
}

// Commands whose arguments are assignments that the shell keeps.
bool isAssigner(std::string_view word) {
  constexpr std::array<std::string_view, 7> kAssigners = {"export", "declare", "typeset", "readonly",
                                                          "local",  "eval",    "let"};
  for (const std::string_view name : kAssigners) {
    if (word == name) return true;
  }
  return false;
}

// 2 or {name}, directly before a redirection operator.
bool isDescriptor(std::string_view word) {
  if (word.size() > 2 && word.front() == '{' && word.back() == '}')
    return endOfName(word.data() + 1) == &word.back();
  for (const char c : word) {
    if (!isDigit(c)) return false;
  }
  return true;
}

// Where a redirection's target begins, and whether it is a here-document's end mark; at stands on < > or &>.
std::size_t redirectionLength(const char* at, bool& hereDocument) {
  hereDocument = false;
  if (at[0] == '&') return at[2] == '>' ? 3 : 2;
  if (at[0] == '<' && at[1] == '<') {
    hereDocument = at[2] != '<';
    return at[2] == '<' || at[2] == '-' ? 3 : 2;
  }
  const std::string_view second = at[0] == '<' ? ">&" : ">&|";
  return at[1] != '\0' && second.find(at[1]) != std::string_view::npos ? 2 : 1;
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

void KFLBashScanner::inArray() {
  const char c = *at_;
  if (c == '\0') return finish();
  if (c == ')') {
    ++at_;
    pop();
    // A=(1)x is no array.
    if (isFirstValue() && frames_.size() == 2 && isBashMeta(*at_)) array_ = true;
    return;
  }
  if (isBlank(c) || c == '\n') {
    ++at_;
  } else if (c == '#') {
    while (*at_ != '\0' && *at_ != '\n')
      ++at_;
  } else if (isBashMeta(c) && !((c == '<' || c == '>') && at_[1] == '(')) {
    refuseHere(1);
  } else {
    push(Context::Word, 0);
  }
}

void KFLBashScanner::inList() {
  const char c = *at_;
  if (c == '\0') return finish();
  if (isBlank(c)) {
    ++at_;
  } else if (c == '#') {
    while (*at_ != '\0' && *at_ != '\n')
      ++at_;
  } else if (c == '\\' && at_[1] == '\n') {
    at_ += 2;
  } else if (isBashMeta(c) && !((c == '<' || c == '>') && at_[1] == '(')) {
    oper();
  } else {
    push(Context::Word, 0);
  }
}

void KFLBashScanner::wordEnded(const char* begin) {
  const std::string_view word(begin, static_cast<std::size_t>(at_ - begin));
  if (begin == assignment_) valueEnd_ = at_;
  Frame& frame = top();
  if (frame.context == Context::Array) return;
  if (frame.context == Context::Conditional) return conditionalWord(word);
  if (frame.wantsTarget) {
    frame.wantsTarget = false;
    frame.redirected = frame.expect == Expect::Simple && frame.assignments > 0;
    hereDocument_ = hereDocument_ || frame.hereDocument;
    return;
  }
  if ((*at_ == '<' || *at_ == '>') && isDescriptor(word)) return;
  if (headerWord(word)) return;
  switch (frame.expect) {
    case Expect::FunctionName:
      frame.expect = Expect::Compound;
      return;
    case Expect::Simple:
      return coprocessBody(word) ? void() : argument(word);
    case Expect::AfterCompound:
      return reservedWord(word) ? void() : refuse(word);
    default:
      return commandWord(word);
  }
}

// The words between for or case and the first list of commands; false elsewhere.
bool KFLBashScanner::headerWord(std::string_view word) {
  Frame& frame = top();
  if (frame.context == Context::For) {
    if (frame.phase == kForAfterName && word == "do") {
      frame.context = Context::Loop;
      frame.phase = kLoopBody;
    } else if (frame.phase == kForAfterName && word != "in") {
      refuse(word);
    } else if (frame.phase != kForWords) {
      ++frame.phase;
    }
    return true;
  }
  if (frame.context != Context::Case || frame.phase == kClause) return false;
  if (frame.phase == kPattern && word == "esac") {
    compoundEnded();
  } else if ((frame.phase == kIn && word != "in") || frame.phase == kAfterPattern) {
    refuse(word);
  } else {
    frame.phase = frame.phase >= kPattern ? kAfterPattern : static_cast<std::uint8_t>(frame.phase + 1);
  }
  return true;
}

void KFLBashScanner::commandWord(std::string_view word) {
  if (reservedWord(word)) return;
  const Frame& frame = top();
  if (frame.expect == Expect::Compound || (frame.context == Context::Loop && frame.phase == kWantsDo)) {
    return refuse(word);
  }
  const bool isCoprocess = frame.expect == Expect::Coprocess;
  beginSimple();
  argument(word);
  top().mayName = top().words == 1 && !isCoprocess;
  top().mayTakeBody = top().words == 1 && isCoprocess;
}

const KFLBashScanner::Reserved* KFLBashScanner::findReserved(std::string_view word) {
  for (const Reserved& row : kReserved) {
    if (row.word == word) return &row;
  }
  return nullptr;
}

bool KFLBashScanner::reservedWord(std::string_view word) {
  const Reserved* const reserved = findReserved(word);
  if (reserved == nullptr) return false;
  Frame& frame = top();
  const bool closing = reserved->role >= Reserved::Role::Continues;
  const bool wantsDo = frame.context == Context::Loop && frame.phase == kWantsDo;
  if (closing) {
    closingWord(*reserved, word);
  } else if (wantsDo && word == "{") {
    frame.context = Context::Group;
    frame.phase = 0;
    frame.expect = Expect::Optional;
  } else if (frame.expect == Expect::AfterCompound || wantsDo) {
    refuse(word);
  } else if (reserved->role == Reserved::Role::Opens) {
    push(reserved->context, 0);
    top().opened = word.data();
  } else {
    return prefixWord(*reserved, word);
  }
  return true;
}

// What begins a command without being one; false when it is an ordinary word here.
bool KFLBashScanner::prefixWord(const Reserved& reserved, std::string_view word) {
  using Role = Reserved::Role;
  Frame& frame = top();
  const bool bare = frame.expect == Expect::Piped || frame.expect == Expect::Coprocess;
  if (bare && word == "time") return false;
  if (frame.expect == Expect::Compound || (bare && reserved.role == Role::Prefix) ||
      (frame.expect == Expect::Coprocess && reserved.role != Role::Prefix)) {
    refuse(word);
    return true;
  }
  frame.hasCommands = true;
  frame.expect = reserved.role == Role::Prefix      ? Expect::AfterPrefix
                 : reserved.role == Role::Coprocess ? Expect::Coprocess
                                                    : Expect::FunctionName;
  return true;
}

// Behind coproc NAME: a compound command, or else NAME was the command.
bool KFLBashScanner::coprocessBody(std::string_view word) {
  const Reserved* const reserved = top().mayTakeBody ? findReserved(word) : nullptr;
  if (reserved == nullptr || word == "time") return false;
  if (reserved->role != Reserved::Role::Opens) {
    refuse(word);
  } else {
    push(reserved->context, 0);
    top().opened = word.data();
  }
  return true;
}

void KFLBashScanner::closingWord(const Reserved& reserved, std::string_view word) {
  Frame& frame = top();
  const bool wantsDo = frame.context == Context::Loop && frame.phase == kWantsDo;
  const bool mayBeEmpty = wantsDo || frame.context == Context::Case;
  const bool atEnd = frame.expect == Expect::AfterCompound ||
                     (frame.expect == Expect::Optional && (frame.hasCommands || mayBeEmpty)) ||
                     (frame.expect == Expect::AfterPrefix && wantsDo);
  if (frame.context != reserved.context || (in(frame.phase) & reserved.phases) == 0 || !atEnd)
    return refuse(word);
  if (reserved.role == Reserved::Role::Closes) return compoundEnded();
  frame.phase = reserved.next;
  frame.expect = Expect::Optional;
  frame.hasCommands = false;
}

void KFLBashScanner::beginSimple() {
  Frame& frame = top();
  if (frame.expect == Expect::Simple) return;
  frame.expect = Expect::Simple;
  frame.hasCommands = true;
  frame.assigner = false;
  frame.takesArrays = false;
  frame.redirected = false;
  frame.words = 0;
  frame.assignments = 0;
}

void KFLBashScanner::argument(std::string_view word) {
  Frame& frame = top();
  frame.mayName = false;
  frame.mayTakeBody = false;
  if (frame.words == 0) {
    if (isAssignment(word)) {
      ++frame.assignments;
      frame.lastAssignment = word.data();
      return;
    }
    // What stood before the command was for its environment only.
    frame.assigner = isAssigner(word);
    frame.takesArrays = frame.assigner || word == "alias";
    frame.assignments = 0;
    frame.command = word.data();
  } else if (frame.assigner && isQuotedAssignment(word)) {
    ++frame.assignments;
    frame.lastAssignment = word.data();
  }
  ++frame.words;
}

void KFLBashScanner::endCommand(End end) {
  const Frame& frame = top();
  const bool outermost = frames_.size() == 1;
  if (frame.expect == Expect::Simple) {
    const bool assigns = frame.assignments > 0 && (frame.words == 0 || frame.assigner);
    if (outermost && !firstEnded_) {
      judgeFirst(frame, end);
    } else if (assigns && apart_ == 0) {
      spoil(Reason::TwoAssignments, frame.lastAssignment);
    }
  }
  if (!outermost) return;
  firstEnded_ = true;
  if (inFirstList_ && end == End::Background) spoil(Reason::Background, at_);
  if (end != End::AndOr && end != End::Pipe) inFirstList_ = false;
}

void KFLBashScanner::judgeFirst(const Frame& command, End end) {
  if (assignment_ == nullptr) {
    otherAssigner_ = command.assigner && command.assignments > 0;
    return;
  }
  if (command.words > 0 && !exported_) return spoil(Reason::CommandEnvironment, command.command);
  if (end == End::Pipe) return spoil(Reason::Pipeline, at_);
  if (command.assignments > 1) spoil(Reason::TwoAssignments, command.lastAssignment);
}

// Why the line's first assignment is not made, or not the only one. Not being made weighs more.
void KFLBashScanner::spoil(Reason reason, const char* where) {
  if (firstReason_ != Reason::None && firstReason_ != Reason::TwoAssignments) return;
  if (firstReason_ == reason) return;
  firstReason_ = reason;
  firstReasonAt_ = where;
}

void KFLBashScanner::compoundEnded() {
  pop();
  Frame& frame = top();
  frame.hasCommands = true;
  frame.mayTakeBody = false;
  frame.expect = Expect::AfterCompound;
  if (frame.context != Context::For) return;
  // That was the (( )) of a for: a semicolon may follow, and then do.
  frame.context = Context::Loop;
  frame.phase = kWantsDo;
  frame.expect = Expect::AfterPrefix;
}

void KFLBashScanner::oper() {
  const char c = *at_;
  const char next = at_[1];
  if (top().wantsTarget) return refuseHere(1);
  if (headerOperator()) return;
  switch (c) {
    case '\n':
      return separator(End::Line, 1);
    case ';':
      if (next == ';' || next == '&') return caseSeparator(next == ';' && at_[2] == '&' ? 3 : 2);
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

// Operators between for or case and the first list of commands; false elsewhere.
bool KFLBashScanner::headerOperator() {
  Frame& frame = top();
  const char c = *at_;
  if (frame.context == Context::For) {
    if (c == '(' && at_[1] == '(' && frame.phase == kForName) {
      push(Context::ArithmeticCommand, 2);
      top().depth = 1;
    } else if ((c == ';' || c == '\n') && frame.phase != kForName) {
      frame.context = Context::Loop;
      frame.phase = kWantsDo;
      ++at_;
    } else {
      refuseHere(1);
    }
    return true;
  }
  if (frame.context != Context::Case || frame.phase == kClause) return false;
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
  ++at_;
  return true;
}

void KFLBashScanner::redirection() {
  Frame& frame = top();
  bool hereDocument = false;
  const std::size_t length = redirectionLength(at_, hereDocument);
  const bool wantsDo = frame.context == Context::Loop && frame.phase == kWantsDo;
  if (frame.expect == Expect::Compound || frame.expect == Expect::FunctionName || wantsDo)
    return refuseHere(length);
  if (frame.expect != Expect::AfterCompound) beginSimple();
  frame.mayName = false;
  frame.mayTakeBody = false;
  frame.wantsTarget = true;
  frame.hereDocument = hereDocument;
  at_ += length;
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
  at_ += length;
}

// Whether the list may end here without a separator.
bool KFLBashScanner::mayEnd(const Frame& list) {
  return list.expect == Expect::Optional || list.expect == Expect::Simple ||
         list.expect == Expect::AfterCompound;
}

void KFLBashScanner::caseSeparator(std::size_t length) {
  Frame& frame = top();
  if (frame.context != Context::Case || !mayEnd(frame)) return refuseHere(length);
  endCommand(End::Sequence);
  frame.phase = kPattern;
  frame.expect = Expect::Optional;
  at_ += length;
}

void KFLBashScanner::connector(End end, std::size_t length) {
  Frame& frame = top();
  if (frame.expect != Expect::Simple && frame.expect != Expect::AfterCompound) return refuseHere(length);
  endCommand(end);
  frame.expect = end == End::Pipe ? Expect::Piped : Expect::Required;
  if (frame.context == Context::List) frame.opened = at_;
  at_ += length;
}

void KFLBashScanner::openParenthesis() {
  Frame& frame = top();
  const char* const close = skipBlanks(at_ + 1);
  const bool named = frame.expect == Expect::Simple && frame.mayName;
  const bool wantsDo = frame.context == Context::Loop && frame.phase == kWantsDo;
  if ((named || frame.expect == Expect::Compound) && *close == ')') {
    frame.expect = Expect::Compound;
    at_ = close + 1;
  } else if (wantsDo || (frame.expect == Expect::Simple && !frame.mayTakeBody) ||
             frame.expect == Expect::AfterCompound || frame.expect == Expect::FunctionName) {
    refuseHere(1);
  } else if (at_[1] == '(') {
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
  ++at_;
  return command ? pop() : compoundEnded();
}

}  // namespace KFL
