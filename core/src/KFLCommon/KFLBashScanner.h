// SPDX-License-Identifier: Apache-2.0
// Not installed: reads one line as bash's own parser does, far enough to know what the line would do to its first
// assignment.
//
// A pushdown automaton: one frame for each list of commands, word, quote and expansion that is open, so that nesting of any
// depth costs memory and no recursion, and every character is looked at once. It is the slow path; ordinary lines never
// come here.
#ifndef KFLCOMMON_KFLBASHSCANNER_H
#define KFLCOMMON_KFLBASHSCANNER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

#include <KFLCommon/KFLBashStr.h>
#include <KFLCommon/KFLText.h>

namespace KFL {

constexpr std::array<bool, 256> makeNameCharacters() {
  std::array<bool, 256> characters{};
  for (std::size_t c = 1; c < 128; ++c)
    characters[c] = isAlnum(static_cast<char>(c)) || c == '_';
  return characters;
}

inline constexpr std::array<bool, 256> kNameCharacters = makeNameCharacters();

// A letter or an underscore, then these and digits; the end of the longest such text that begins here.
inline const char* endOfName(const char* at) {
  if (isDigit(*at)) return at;
  while (kNameCharacters[static_cast<unsigned char>(*at)])
    ++at;
  return at;
}

inline const char* skipBlanks(const char* at) {
  while (isBlank(*at))
    ++at;
  return at;
}

// Characters that end a word unless they are quoted.
inline bool isBashMeta(char c) {
  switch (c) {
    case '\0':
    case ' ':
    case '\t':
    case '\n':
    case ';':
    case '&':
    case '|':
    case '(':
    case ')':
    case '<':
    case '>':
      return true;
    default:
      return false;
  }
}

class KFLBashScanner {
 public:
  using Reason = KFLBashLine::Reason;

  // assignment: where the name of the assignment stands with which the line begins; null when it begins otherwise.
  KFLBashScanner(const char* line, const char* assignment);

  // Reads the whole line, or up to where bash would refuse it.
  void run();

  // None, an Open... reason or UnexpectedToken, with the place.
  Reason failure() const { return failure_; }
  const char* failureAt() const { return failureAt_; }
  std::string_view unexpected() const { return unexpected_; }

  // Why the first command does not make the one assignment of the line, with the place; None when it does.
  Reason firstCommand() const { return firstReason_; }
  const char* firstCommandAt() const { return firstReasonAt_; }
  bool isOtherAssigner() const { return otherAssigner_; }
  bool isArray() const { return array_; }
  // The first ${...} in the value's own text that no bash can expand, or null.
  const char* badSubstitution() const { return badSubstitution_; }
  bool hasHereDocument() const { return hereDocument_; }
  const char* valueEnd() const { return valueEnd_; }

  // The expansions in the value's own text, in order; they are copied as they stand.
  using Span = std::pair<const char*, const char*>;
  const std::vector<Span>& expansions() const { return expansions_; }

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

  // How a simple command ends.
  enum class End : std::uint8_t { Line, Sequence, Background, AndOr, Pipe };

  struct Frame {
    Context context;
    Expect expect = Expect::Optional;
    std::uint8_t phase = 0;
    bool hasCommands = false;
    bool wantsTarget = false;   // behind a redirection operator
    bool hereDocument = false;  // and that one is << or <<-
    bool headDone = false;      // of a word: its = or [ was seen
    bool assigner = false;      // of a simple command: export and its like
    bool takesArrays = false;   // they, and alias: NAME=( ) may be an argument
    bool mayName = false;       // of a simple command: its one word may be a function's name
    bool mayTakeBody = false;   // or a coprocess's, and a compound command follow
    bool redirected = false;    // a redirection stands behind an assignment: NAME=( ) may not
    bool apart = false;         // what it assigns stays in it: a subshell, a function's body
    unsigned int words = 0;
    unsigned int assignments = 0;
    std::size_t depth = 0;  // of parentheses or brackets
    const char* opened;
    const char* command = nullptr;         // of a simple command: its first word
    const char* lastAssignment = nullptr;  // and its last assignment
  };

  struct Reserved;
  static const Reserved kReserved[];
  static const Reserved* findReserved(std::string_view word);

  Frame& top() { return frames_.back(); }
  void push(Context context, std::size_t length);
  void pop();
  void fail(Reason reason, const char* where);
  void refuse(std::string_view token);
  void refuseHere(std::size_t length) { refuse({at_, length}); }
  void step();
  void finish();

  // Characters.
  void inWord();
  void inQuoted(char close);
  void inArithmetic(char open, char close);
  void closeArithmetic();
  bool quoteOrExpansion(bool quotes);
  void skipTo(char close, bool escapes, Reason reason);
  void dollar(bool quotes);
  bool isHead(const char* end) const;
  void subscriptEnded();
  bool isOwnText() const;
  bool isFirstValue() const;
  bool isPattern() const;

  // Words and operators.
  void inArray();
  void inConditional();
  void conditionalOperator();
  void conditionalWord(std::string_view word);
  void inList();
  void wordEnded(const char* begin);
  void commandWord(std::string_view word);
  bool reservedWord(std::string_view word);
  void closingWord(const Reserved& reserved, std::string_view word);
  bool prefixWord(const Reserved& reserved, std::string_view word);
  bool coprocessBody(std::string_view word);
  void argument(std::string_view word);
  bool headerWord(std::string_view word);
  bool headerOperator();
  bool acceptsAssignment(const Frame& list, char mark) const;
  static bool mayEnd(const Frame& list);
  void beginSimple();
  void endCommand(End end);
  void judgeFirst(const Frame& command, End end);
  void spoil(Reason reason, const char* where);
  void compoundEnded();
  void oper();
  void redirection();
  void separator(End end, std::size_t length);
  void caseSeparator(std::size_t length);
  void connector(End end, std::size_t length);
  void openParenthesis();
  void closeParenthesis();

  const char* at_;
  const char* const assignment_;
  std::vector<Frame> frames_;
  std::size_t apart_ = 0;
  bool exported_ = false;

  Reason failure_ = Reason::None;
  const char* failureAt_ = nullptr;
  std::string_view unexpected_;
  bool done_ = false;

  Reason firstReason_ = Reason::None;
  const char* firstReasonAt_ = nullptr;
  bool firstEnded_ = false;
  bool inFirstList_ = true;
  bool otherAssigner_ = false;
  bool array_ = false;
  bool hereDocument_ = false;
  const char* badSubstitution_ = nullptr;
  const char* valueEnd_ = nullptr;
  std::vector<Span> expansions_;
};

}  // namespace KFL

#endif
