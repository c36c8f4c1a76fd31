// SPDX-License-Identifier: Apache-2.0
// Not installed: reads one line as bash's own parser does, far enough to know what the line would do to its first
// assignment.
//
// A pushdown automaton: one frame for each list of commands, word, quote and expansion that is open, so that nesting of any
// depth costs memory and no recursion, and every character is looked at once. Its stages are files of their own: words
// (KFLBashWords.cpp), expansions (KFLBashExpansions.cpp), commands (KFLBashCommands.cpp, with KFLBashCompounds.cpp and
// KFLBashConditional.cpp for what begins with a reserved word). Plain lines never come here.
#ifndef KFLBASH_KFLBASHSCANNER_H
#define KFLBASH_KFLBASHSCANNER_H

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include <KFLBash/KFLBashStr.h>

#include "KFLBashCharacters.h"
#include "KFLBashPieces.h"

#pragma GCC visibility push(hidden)

namespace KFL {

// The assignment with which a line may begin.
struct KFLBashHead {
  std::size_t name = 0;
  std::size_t nameEnd = 0;  // equal to name when the line does not begin with one
  KFLBashLine::Reason form = KFLBashLine::Reason::None;  // None for NAME=, Append for NAME+=, Array for NAME[

  bool isThere() const { return nameEnd != name; }
};

class KFLBashScanner {
 public:
  using Reason = KFLBashLine::Reason;

  // The line must hold no NUL.
  KFLBashScanner(std::string_view line, const KFLBashHead& head);

  // Reads the whole line, or up to where bash would refuse it.
  void run();

  // None, an Open... reason or UnexpectedToken, with the place.
  Reason failure() const { return failure_; }
  std::size_t failureAt() const { return failureAt_; }
  std::string_view unexpected() const { return unexpected_; }

  // Why the first command does not make the one assignment of the line, with the place; None when it does.
  Reason firstCommand() const { return firstReason_; }
  std::size_t firstCommandAt() const { return firstReasonAt_; }
  bool isOtherAssigner() const { return otherAssigner_; }
  bool isArray() const { return array_; }
  // What bash parses in the value's own text and cannot expand, or expands as something else: the first such place.
  struct Doubt {
    Reason reason = Reason::None;
    std::size_t where = 0;

    // The first one holds.
    void set(Reason why, std::size_t at) {
      if (reason == Reason::None) *this = {why, at};
    }
  };
  const Doubt& doubt() const { return doubt_; }
  bool hasHereDocument() const { return hereDocument_; }

  // The value of the assignment, once all of it is read.
  bool hasValue() const { return hasValue_; }
  const KFLBashPieces& pieces() const { return pieces_; }

 private:
  enum class Context : std::uint8_t {
    // Lists of commands.
    List,
    Command,  // $( <( >(
    Subshell,
    Group,
    If,
    Loop,
    For,
    Case,
    // Other things made of words.
    Conditional,  // [[
    Array,
    // Things made of characters.
    ArithmeticCommand,  // ((
    Word,
    DoubleQuote,
    Parameter,
    Arithmetic,  // $((
    SquareArithmetic,
    Subscript,
    Pattern,  // parentheses of a pattern within [[
  };

  // What may stand next in a list of commands.
  enum class Expect : std::uint8_t {
    Optional,       // a command, or the end of the list
    Required,       // a command
    Piped,          // a command without ! or time: behind |
    Coprocess,      // the like, which is no function either: behind coproc
    AfterPrefix,    // a command, or the end of this one: behind ! and time
    FunctionName,   // behind the word function
    Compound,       // a function's body
    Simple,         // more of a simple command
    AfterCompound,  // redirections, or the end of the command
  };

  // Whether time stands before the next word, or time -p.
  enum class Timed : std::uint8_t { No, Bare, WithOption };

  // How a simple command ends.
  enum class End : std::uint8_t { Line, Sequence, Background, AndOr, Pipe };

  // In what a substitution stands.
  enum class Around : std::uint8_t { Nothing, Word, Quotes };

  struct Frame {
    Context context;
    Around around = Around::Nothing;         // in which it stands, or which it is
    Around aroundCommand = Around::Nothing;  // the like of the substitution in which it stands
    std::size_t list = 0;                    // the innermost list of commands
    Expect expect = Expect::Optional;
    std::uint8_t phase = 0;
    bool hasCommands = false;
    bool wantsTarget = false;   // behind a redirection operator
    bool hereDocument = false;  // and that one is << or <<-
    bool takesNumber = false;   // or <& or >&
    bool mayAssign =
        false;         // or &>> behind other redirections that begin a command: there NAME= is an assignment
    bool led = false;  // of a simple command: by redirections
    bool headDone = false;     // of a word: its = or [ was seen
    bool hasBracket = false;   // the [ was, and a = may follow that opens an array
    bool assigner = false;     // of a simple command: export and its like
    bool takesArrays = false;  // they, and alias: NAME=( ) may be an argument
    bool amongArrays = false;  // of a substitution: it stands in such an argument, and no operator yet in it
    bool mayName = false;      // of a simple command: its one word may be a function's name
    bool mayTakeBody = false;  // or a coprocess's, and a compound command follow
    bool mayAssignMore = false;  // or nothing but assignments stand behind that name
    bool redirected = false;     // a redirection stands behind a word or a compound command
    Timed timed = Timed::No;
    bool apart = false;      // what it assigns stays in it: a subshell, a function's body
    bool coprocess = false;  // of a simple command: the like
    bool piped = false;      // behind a |
    unsigned int words = 0;
    unsigned int assignments = 0;
    std::size_t depth = 0;   // of parentheses or brackets
    std::size_t braces = 0;  // of the ${ in a for's sum
    std::size_t opened = 0;
    std::size_t command = 0;         // of a simple command: where its first word stands
    std::size_t lastAssignment = 0;  // and its last assignment
    // How many further assignments stood before the pipeline and before the list of pipelines that is being read.
    std::size_t beforePipeline = 0;
    std::size_t beforeList = 0;
  };

  struct Reserved;
  static const Reserved kReserved[];
  static const Reserved* findReserved(std::string_view word);

  // A word that has ended: its text, and where it begins.
  struct Word {
    std::string_view text;
    std::size_t begin;
  };

  Frame& top() { return frames_.back(); }
  const Frame& below() const { return frames_[frames_.size() - 2]; }
  void push(Context context, std::size_t length);
  void nest(Frame& frame);
  void pop();
  void fail(Reason reason, std::size_t where);
  void refuse(const Word& word);
  void refuseHere(std::size_t length) { refuse({at_.next(length), at_.position()}); }
  void step();
  void finish();
  Reason openReason() const;

  // Words.
  void inWord();
  bool headMark();
  bool isHead(std::size_t end) const;
  void subscriptEnded();
  void inQuoted(char close);
  bool quoteOrExpansion(bool quotes);
  void singleQuote();
  bool isProcessSubstitution() const;
  bool isFirstValue() const;
  bool isOwnText() const;
  void doubt(Reason reason);
  bool quotesNothing() const;
  void quoted(KFLBashPiece::Kind kind);
  void endText(std::size_t end);
  void gap(KFLBashPiece::Kind kind);
  void mark(std::size_t length);
  void expansion(std::size_t begin);

  // Expansions.
  void backquote();
  void dollar(bool quotes);
  void substitution();
  void ansiQuote();
  void inArithmetic(char open, char close);
  void closeArithmetic();

  // Commands: lists, words in their places, operators.
  void inList();
  void inArray();
  bool comment();
  void wordEnded();
  bool redirectionWord(const Word& word);
  void commandWord(const Word& word);
  void argument(const Word& word);
  static bool acceptsAssignment(const Frame& list, char mark);
  static bool mayEnd(const Frame& list);
  void beginSimple();
  void endCommand(End end);
  void judgeFirst(const Frame& command, End end);
  void dropApart(Frame& list, End end);
  void spoil(Reason reason, std::size_t where);
  void oper();
  void redirection();
  void redirected();
  void separator(End end, std::size_t length);
  void connector(End end, std::size_t length);
  void openParenthesis();
  void closeParenthesis();

  // Compound commands.
  static bool isHeader(const Frame& frame);
  bool headerWord(const Word& word);
  bool headerOperator();
  bool reservedWord(const Word& word);
  void closingWord(const Reserved& reserved, const Word& word);
  bool prefixWord(const Reserved& reserved, const Word& word);
  bool timeOption(const Word& word);
  bool coprocessBody(const Word& word);
  void caseSeparator(std::size_t length);
  void compoundEnded();
  static bool wantsDo(const Frame& frame);

  // Conditions.
  void inConditional();
  void conditionalOperator();
  void conditionalWord(const Word& word);
  bool isPattern() const;

  KFLBashCursor at_;
  const KFLBashHead head_;
  const bool exported_;
  std::vector<Frame> frames_;
  std::size_t apart_ = 0;

  Reason failure_ = Reason::None;
  std::size_t failureAt_ = 0;
  std::string_view unexpected_;
  bool done_ = false;

  Reason firstReason_ = Reason::None;
  std::size_t firstReasonAt_ = 0;
  bool firstEnded_ = false;
  bool inFirstList_ = true;
  std::vector<std::size_t>
      further_;  // where the assignments of further commands stand, by what the shell keeps
  bool otherAssigner_ = false;
  bool array_ = false;
  bool hasParentheses_ = false;  // the value begins with words in parentheses
  unsigned int readAnew_ = 0;    // how many (( were
  bool hereDocument_ = false;
  Doubt doubt_;
  bool hasValue_ = false;
  KFLBashPieces pieces_;
};

}  // namespace KFL

#pragma GCC visibility pop

#endif
