#include "KFLBashScanner.h"

#include <KFLCommon/KFLText.h>

namespace KFL {

namespace {

// Whether ${ can begin an expansion with this text; only what no bash takes is refused.
bool isParameter(const char* at) {
  if (*at == '\0' || *at == '\n' || *at == '\\') return true;
  const bool length = *at == '#';
  const bool indirect = *at == '!';
  if ((length || indirect) && (endOfName(at + 1) != at + 1 || isDigit(at[1]))) ++at;
  const bool prefixed = (length || indirect) && *at != '#' && *at != '!';
  const char* end = endOfName(at);
  if (end == at && isDigit(*at)) {
    while (isDigit(*end))
      ++end;
  }
  // The special parameters: what may stand behind them is left to bash.
  if (end == at) return std::string_view("@*#?$!-").find(*at) != std::string_view::npos;
  if (*end == '\0' || *end == '}' || *end == '[' || *end == '\\') return true;
  if (prefixed && length) return false;
  if (*end == '*') return prefixed;
  if (*end == ':') return end[1] != '}';
  return std::string_view("-+=?#%/^,~@").find(*end) != std::string_view::npos;
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
                (!frames_.empty() && top().expect == Expect::Compound);
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
      if (frame.expect == Expect::Required) return fail(Reason::OpenOperator, frame.opened);
      if (frame.expect == Expect::Compound || frame.expect == Expect::FunctionName) {
        return fail(Reason::OpenCompound, at_);
      }
      endCommand(End::Line);
      done_ = true;
      return;
    case Context::Command:
      return fail(Reason::OpenCommand, frame.opened);
    case Context::Subshell:
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
      if (close == ']' && c == '[') ++top().depth;
      if (close == ']' && c == ']') --top().depth;
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
    if (isBashMeta(c)) {
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
  return list.expect != Expect::Simple || list.words == 0 || (list.assigner && mark == '=');
}

}  // namespace KFL
