// SPDX-License-Identifier: Apache-2.0
#include "KFLBashScanner.h"

#include <KFLCommon/KFLText.h>

namespace KFL {

namespace {

constexpr std::string_view kOperators = ":-+=?#%/@^,~";
constexpr std::string_view kSpecialOperators = kOperators.substr(0, 9);  // behind a special parameter
constexpr std::string_view kCountOperators = kOperators.substr(0, 8);    // behind $#

bool isOneOf(char c, std::string_view characters) {
  return c != '\0' && characters.find(c) != std::string_view::npos;
}

// Whether this may stand behind a parameter's name: the brace, an operator, or the end of the line.
bool isOperator(const char* at, std::string_view operators = kOperators) {
  if (at[0] == ':' && at[1] == '}') return false;
  return *at == '\0' || *at == '}' || (at[0] == '\\' && at[1] == '\n') || isOneOf(*at, operators);
}

// Behind the bracket that closes a subscript; null when none does within the braces, or nothing stands in it.
const char* skipSubscript(const char* at) {
  if (at[1] == ']') return nullptr;
  std::size_t brackets = 0;
  std::size_t braces = 1;
  char quote = '\0';
  for (; *at != '\0' && braces > 0; ++at) {
    if (*at == '\\' && quote != '\'' && at[1] != '\0') {
      ++at;
    } else if (quote != '\0' || *at == '"' || *at == '\'') {
      if (quote == '\0' || quote == *at) quote = quote == '\0' ? *at : '\0';
    } else if (*at == '[') {
      ++brackets;
    } else if (*at == ']' && --brackets == 0) {
      return at + 1;
    } else if (*at == '{' || *at == '}') {
      braces += *at == '{' ? 1U : -1U;
    }
  }
  return nullptr;
}

// ${@} and its like; # and ! are parameters of their own where they mark no other as counted or indirect.
bool isSpecialParameter(char mark, const char* at) {
  if (mark == '\0' && isOneOf(*at, "@*$")) return isOperator(at + 1);
  if (mark == '\0') return isOneOf(*at, "?-") && isOperator(at + 1, kSpecialOperators);
  if (at[1] == '}' && isOneOf(*at, mark == '#' ? "@*#?$!-" : "@*#?-")) return true;
  if (mark == '!' && isOneOf(*at, "@*#?")) return isOperator(at + 1, kSpecialOperators);
  return isOperator(at, mark == '#' ? kCountOperators : kOperators);
}

// Whether ${ can begin an expansion with this text; only what no bash takes is refused.
bool isParameter(const char* at) {
  if (*at == '\0' || *at == '\n' || (at[0] == '\\' && at[1] == '\n')) return true;
  const char mark = *at == '#' || *at == '!' ? *at++ : '\0';
  const char* end = endOfName(at);
  if (end == at) {
    while (isDigit(*end))
      ++end;
    if (end == at) return isSpecialParameter(mark, at);
    return isOperator(end, mark == '#' ? "" : kOperators);
  }
  if (*end == '[') end = skipSubscript(end);
  if (end == nullptr) return false;
  return isOperator(end, mark == '#' ? "" : kOperators) || (mark == '!' && end[0] == '*' && end[1] == '}');
}

}  // namespace

KFLBashScanner::KFLBashScanner(const char* line, const char* assignment)
    : at_(line),
      assignment_(assignment),
      exported_(assignment != nullptr && skipBlanks(line) != assignment) {}

void KFLBashScanner::run() {
  frames_.reserve(8);
  push(Context::List, 0);
  while (!done_)
    step();
}

void KFLBashScanner::step() {
  switch (top().context) {
    case Context::Word:
      return inWord();
    case Context::DoubleQuote:
      return inQuoted('"');
    case Context::Parameter:
      return inQuoted('}');
    case Context::Subscript:
      return inQuoted(']');
    case Context::Pattern:
      return inQuoted(')');
    case Context::SquareArithmetic:
      return inArithmetic('[', ']');
    case Context::Arithmetic:
    case Context::ArithmeticCommand:
      return inArithmetic('(', ')');
    case Context::Array:
      return inArray();
    case Context::Conditional:
      return inConditional();
    default:
      return inList();
  }
}

void KFLBashScanner::push(Context context, std::size_t length) {
  Frame frame{.context = context, .opened = at_};
  frame.apart = context == Context::Command || context == Context::Subshell ||
                (!frames_.empty() && (top().expect == Expect::Compound || top().expect == Expect::Coprocess ||
                                      top().mayTakeBody));
  if (frame.apart) ++apart_;
  frames_.push_back(frame);
  at_ += length;
}

void KFLBashScanner::pop() {
  const Frame ended = top();
  if (ended.apart) --apart_;
  frames_.pop_back();
  const bool expansion = ended.context == Context::Command || ended.context == Context::Parameter ||
                         ended.context == Context::Arithmetic || ended.context == Context::SquareArithmetic;
  if (expansion && isOwnText()) expansions_.emplace_back(ended.opened, at_);
}

void KFLBashScanner::fail(Reason reason, const char* where) {
  failure_ = reason;
  failureAt_ = where;
  // Within A[ there is no other way to go on than as an assignment.
  if (isFirstValue() && frames_.size() > 2 && frames_[2].context == Context::Subscript) array_ = true;
  done_ = true;
}

void KFLBashScanner::refuse(std::string_view token) {
  unexpected_ = token;
  fail(Reason::UnexpectedToken, token.data());
}

void KFLBashScanner::finish() {
  const Frame& frame = top();
  if (frame.wantsTarget) return refuseHere(0);
  switch (frame.context) {
    case Context::List:
      if (frame.expect == Expect::Required || frame.expect == Expect::Piped)
        return fail(Reason::OpenOperator, frame.opened);
      if (frame.expect == Expect::Coprocess) return refuseHere(0);
      if (frame.expect == Expect::Compound || frame.expect == Expect::FunctionName) {
        return fail(Reason::OpenCompound, at_);
      }
      endCommand(End::Line);
      done_ = true;
      return;
    case Context::Command:
      return fail(Reason::OpenCommand, frame.opened);
    case Context::Subshell:
    case Context::Pattern:
      return fail(Reason::OpenParenthesis, frame.opened);
    case Context::Array:
      return fail(Reason::OpenArray, frame.opened);
    case Context::DoubleQuote:
      return fail(Reason::OpenDoubleQuote, frame.opened);
    case Context::Parameter:
      return fail(Reason::OpenParameter, frame.opened);
    case Context::Subscript:
      return fail(Reason::OpenSubscript, frame.opened);
    case Context::Arithmetic:
    case Context::ArithmeticCommand:
    case Context::SquareArithmetic:
      return fail(Reason::OpenArithmetic, frame.opened);
    default:
      return fail(Reason::OpenCompound, frame.opened);
  }
}

// Whether the automaton stands in the value of the line's assignment, at most within its double quotes.
bool KFLBashScanner::isOwnText() const {
  return isFirstValue() &&
         (frames_.size() == 2 || (frames_.size() == 3 && frames_[2].context == Context::DoubleQuote));
}

bool KFLBashScanner::isFirstValue() const {
  return frames_.size() >= 2 && frames_[1].context == Context::Word && frames_[1].opened == assignment_;
}

// Up to the closing character; with escapes, a backslash takes the next one with it.
void KFLBashScanner::skipTo(char close, bool escapes, Reason reason) {
  const char* const opened = at_;
  for (++at_; *at_ != close; ++at_) {
    if (escapes && *at_ == '\\' && at_[1] != '\0') ++at_;
    if (*at_ == '\0') return fail(reason, opened);
  }
  ++at_;
  if (close == '`' && isOwnText()) expansions_.emplace_back(opened, at_);
}

// Steps over or into whatever quotes or expands; false when the character does neither.
bool KFLBashScanner::quoteOrExpansion(bool quotes) {
  switch (*at_) {
    case '`':
      skipTo('`', true, Reason::OpenBackquote);
      return true;
    case '$':
      dollar(quotes);
      return true;
    case '\'':
      if (quotes) skipTo('\'', false, Reason::OpenSingleQuote);
      return quotes;
    case '"':
      if (quotes) push(Context::DoubleQuote, 1);
      return quotes;
    default:
      return false;
  }
}

void KFLBashScanner::dollar(bool quotes) {
  switch (at_[1]) {
    case '(':
      if (at_[2] != '(') return push(Context::Command, 2);
      push(Context::Arithmetic, 3);
      top().depth = 1;
      return;
    case '{':
      if (badSubstitution_ == nullptr && isOwnText() && !isParameter(at_ + 2)) badSubstitution_ = at_;
      return push(Context::Parameter, 2);
    case '[':
      return push(Context::SquareArithmetic, 2);
    case '\'':
      ++at_;
      if (quotes) skipTo('\'', true, Reason::OpenSingleQuote);
      return;
    case '$':
      // The process number, whatever follows it; but within double quotes bash wants what looks like $( or ${ closed.
      at_ += !quotes && (at_[2] == '(' || at_[2] == '{') ? 1 : 2;
      return;
    default:
      ++at_;
  }
}

void KFLBashScanner::inQuoted(char close) {
  const bool quotes = close != '"';
  const char open = close == ']' ? '[' : close == ')' ? '(' : '\0';
  for (;;) {
    const char c = *at_;
    if (c == '\0') return finish();
    if (c == '\\' && at_[1] != '\0') {
      at_ += 2;
    } else if (c == close && top().depth == 0) {
      ++at_;
      const bool subscript = top().context == Context::Subscript;
      pop();
      return subscript ? subscriptEnded() : void();
    } else if (quoteOrExpansion(quotes)) {
      return;
    } else {
      if (c == open) ++top().depth;
      if (c == close) --top().depth;
      ++at_;
    }
  }
}

void KFLBashScanner::inArithmetic(char open, char close) {
  for (;;) {
    const char c = *at_;
    if (c == '\0') return finish();
    if (c == '\\' && at_[1] != '\0') {
      at_ += 2;
    } else if (c == close) {
      if (top().depth == 0 || (top().depth == 1 && close == ')')) return closeArithmetic();
      --top().depth;
      ++at_;
    } else if (c == open) {
      ++top().depth;
      ++at_;
    } else if (quoteOrExpansion(true)) {
      return;
    } else {
      ++at_;
    }
  }
}

// What began as (( and does not end with )) was a subshell: as a command it goes on as one; in a substitution bash looks
// no further than for the parenthesis that closes it.
void KFLBashScanner::closeArithmetic() {
  Frame& frame = top();
  const bool command = frame.context == Context::ArithmeticCommand;
  ++at_;
  if (frame.depth == 0) return pop();
  frame.depth = 0;
  if (*at_ == ')') {
    ++at_;
    return command ? compoundEnded() : pop();
  }
  if (!command) return;
  frame.context = Context::Subshell;
  frame.expect = Expect::AfterCompound;
  frame.hasCommands = true;
  if (!frame.apart) ++apart_;
  frame.apart = true;
}

void KFLBashScanner::inWord() {
  for (;;) {
    const char c = *at_;
    const bool process = (c == '<' || c == '>') && at_[1] == '(';
    if (process) return push(Context::Command, 2);
    if (isPattern()) {
      if (c == '(') return push(Context::Pattern, 1);
    } else if (isBashMeta(c)) {
      const char* const begin = top().opened;
      frames_.pop_back();
      return wordEnded(begin);
    }
    if (c == '\\') {
      if (at_[1] == '\0') return fail(Reason::OpenLine, at_);
      at_ += 2;
      continue;
    }
    if (quoteOrExpansion(true)) return;
    ++at_;
    if ((c != '=' && c != '[') || top().headDone) continue;
    top().headDone = true;
    if (c == '=' && *at_ == '(' && isHead(at_ - 1)) return push(Context::Array, 1);
    if (c == '[' && endOfName(top().opened) == at_ - 1 && isHead(at_ - 1)) {
      --at_;
      return push(Context::Subscript, 1);
    }
  }
}

// Whether the word up to here is the name of an assignment (or name+) in a place where one may stand.
bool KFLBashScanner::isHead(const char* end) const {
  const char* const begin = frames_.back().opened;
  const char* const nameEnd = endOfName(begin);
  return nameEnd != begin && (nameEnd == end || (nameEnd + 1 == end && *nameEnd == '+')) &&
         frames_.size() > 1 && acceptsAssignment(frames_[frames_.size() - 2], *end);
}

void KFLBashScanner::subscriptEnded() {
  const char* const equals = *at_ == '+' ? at_ + 1 : at_;
  if (*equals != '=') return;
  if (isFirstValue() && frames_.size() == 2) array_ = true;
  at_ = equals + 1;
  if (*at_ == '(') push(Context::Array, 1);
}

// mark: the = of an array or the [ of a subscript; behind export and its like only the former means anything.
bool KFLBashScanner::acceptsAssignment(const Frame& list, char mark) const {
  if (list.context == Context::Array || list.context == Context::Conditional || list.wantsTarget)
    return false;
  if (list.expect == Expect::AfterCompound) return false;
  if (list.expect != Expect::Simple) return true;
  return list.words == 0 ? !list.redirected : list.takesArrays && mark == '=';
}

}  // namespace KFL
