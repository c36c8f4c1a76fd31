// SPDX-License-Identifier: Apache-2.0
#include "KFLBashScanner.h"

namespace KFL {

KFLBashScanner::KFLBashScanner(std::string_view line, const KFLBashHead& head)
    : at_(line),
      head_(head),
      exported_(line.find_first_not_of(" \t") != head.name),
      pieces_(head.nameEnd + 1) {}

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
  Frame frame{.context = context, .opened = at_.position()};
  frame.apart =
      context == Context::Command || context == Context::Subshell ||
      (!frames_.empty() && context != Context::Word &&
       (top().expect == Expect::Compound || top().expect == Expect::Coprocess || top().mayTakeBody));
  if (frame.apart) ++apart_;
  if (!frames_.empty()) nest(frame);
  frame.beforePipeline = frame.beforeList = further_.size();
  frames_.push_back(frame);
  at_.advance(length);
}

// What a frame takes over from the one that it stands in.
void KFLBashScanner::nest(Frame& frame) {
  const bool isCommand = frame.context == Context::Command;
  const bool isList = frame.context < Context::Conditional;
  frame.around = frame.context == Context::Word                ? Around::Word
                 : frame.context == Context::DoubleQuote       ? Around::Quotes
                 : frame.context == Context::ArithmeticCommand ? Around::Nothing
                                                               : top().around;
  frame.aroundCommand = isCommand ? top().around : top().aroundCommand;
  frame.list = isList ? frames_.size() : top().list;
  const Frame& list = frames_[top().list];
  frame.amongArrays = isCommand && list.takesArrays && !list.redirected && !list.wantsTarget;
}

void KFLBashScanner::pop() {
  const Frame ended = top();
  if (ended.apart) --apart_;
  frames_.pop_back();
  const bool isExpansion = ended.context == Context::Command || ended.context == Context::Parameter ||
                           ended.context == Context::Arithmetic || ended.context == Context::SquareArithmetic;
  if (isExpansion) expansion(ended.opened);
}

void KFLBashScanner::fail(Reason reason, std::size_t where) {
  failure_ = reason;
  failureAt_ = where;
  // Within A[ there is no other way to go on than as an assignment.
  if (isFirstValue() && frames_.size() > 2 && frames_[2].context == Context::Subscript) array_ = true;
  done_ = true;
}

void KFLBashScanner::refuse(const Word& word) {
  unexpected_ = word.text;
  fail(Reason::UnexpectedToken, word.begin);
}

// The end of the line.
void KFLBashScanner::finish() {
  const Frame& frame = top();
  if (frame.wantsTarget) return refuseHere(0);
  if (frame.context != Context::List) return fail(openReason(), frame.opened);
  switch (frame.expect) {
    case Expect::Required:
    case Expect::Piped:
      return fail(Reason::OpenOperator, frame.opened);
    case Expect::Coprocess:
      return refuseHere(0);
    case Expect::Compound:
    case Expect::FunctionName:
      return fail(Reason::OpenCompound, at_.position());
    default:
      endCommand(End::Line);
      if (!further_.empty()) spoil(Reason::TwoAssignments, further_.front());
      done_ = true;
  }
}

// What the innermost frame leaves open.
KFLBashScanner::Reason KFLBashScanner::openReason() const {
  switch (frames_.back().context) {
    case Context::Command:
      return Reason::OpenCommand;
    case Context::Subshell:
    case Context::Pattern:
      return Reason::OpenParenthesis;
    case Context::Array:
      return Reason::OpenArray;
    case Context::DoubleQuote:
      return Reason::OpenDoubleQuote;
    case Context::Parameter:
      return Reason::OpenParameter;
    case Context::Subscript:
      return Reason::OpenSubscript;
    case Context::Arithmetic:
    case Context::ArithmeticCommand:
    case Context::SquareArithmetic:
      return Reason::OpenArithmetic;
    default:
      return Reason::OpenCompound;
  }
}

}  // namespace KFL
