// SPDX-License-Identifier: Apache-2.0
// A builtin for the bash of the machine: `judge` answers, with bash's own parser, what a line assigns.
//
// A line is only ever parsed. What is expanded is the text of one value from which every expansion was cut out, and a
// single ${...} without any command in it, to learn whether bash knows such a form. Before the first line is read, bash
// gives up every system call but reading, memory and writing to the answers, so nothing can be run, opened or sent.
#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <initializer_list>
#include <iterator>
#include <string>
#include <string_view>

#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

extern "C" {
#include <bash/config.h>

#include <bash/builtins.h>
#include <bash/shell.h>

#include <bash/bashjmp.h>
#include <bash/builtins/common.h>
#include <bash/y.tab.h>
}

// Not declared by the headers. The last: an error within a subscript makes no jump that would undo what runs around the
// builtin.
extern "C" int last_command_exit_value;
extern "C" int parser_state;
extern "C" int no_longjmp_on_fatal_error;

#include "BashVerdict.h"

namespace {

using kfl_fuzz::Verdict;

constexpr int kRequests = 3;
constexpr int kAnswers = 4;
constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kMarker = "QzJ";
constexpr std::string_view kNameCharacters =
    "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ_abcdefghijklmnopqrstuvwxyz";

// ---- no way out of this process ----

bool giveUpSystemCalls() {
#if defined(__x86_64__)
  constexpr unsigned int kArchitecture = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
  constexpr unsigned int kArchitecture = AUDIT_ARCH_AARCH64;
#endif
  std::basic_string<sock_filter> filter;
  filter += {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, arch)),
             BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kArchitecture, 1, 0),
             BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
             BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
  for (const long call : {SYS_read, SYS_brk, SYS_mmap, SYS_munmap, SYS_mremap, SYS_rt_sigaction,
                          SYS_rt_sigprocmask, SYS_rt_sigreturn, SYS_exit_group})
    filter += {BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned int>(call), 0, 1),
               BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
  filter += {BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_write, 1, 0),
             BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | 1),
             BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args)),
             BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kAnswers, 0, 1),
             BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
             BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | 1)};
  const sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

// ---- what bash says on its standard error ----

std::string complaints;

ssize_t hearComplaint(void* /*cookie*/, const char* text, std::size_t size) {
  complaints.append(text, size);
  return static_cast<ssize_t>(size);
}

void listenToComplaints() {
  stderr = fopencookie(nullptr, "w", {nullptr, hearComplaint, nullptr, nullptr});
  if (stderr == nullptr) std::abort();
  std::setvbuf(stderr, nullptr, _IONBF, 0);
}

// ---- bash's parser and expander ----

// A parsed text; bash parses a line at a time and this is its last command, null where it refuses.
class Parsed {
 public:
  explicit Parsed(std::string text) {
    complaints.clear();
    text += '\n';
    char name[] = "line";
    const int flags = SEVAL_NOFREE | SEVAL_NOHIST | SEVAL_NOHISTEXP | SEVAL_NOLONGJMP;
    // Some errors make bash give up the whole script.
    procenv_t outer;
    std::memcpy(&outer, &top_level, sizeof outer);
    const int state = parser_state;
    reset_parser();
    if (sigsetjmp(top_level, 0) == 0) parse_string(text.data(), name, flags, &command_, nullptr);
    std::memcpy(&top_level, &outer, sizeof outer);
    parser_state = state;
  }
  ~Parsed() { dispose_command(command_); }
  Parsed(const Parsed&) = delete;
  Parsed& operator=(const Parsed&) = delete;

  COMMAND* command() const { return command_; }
  std::string print() const { return command_ == nullptr ? std::string() : make_command_string(command_); }

 private:
  COMMAND* command_ = nullptr;
};

bool isAssignment(const WORD_LIST* word) {
  return word != nullptr && (word->word->flags & W_ASSIGNMENT) != 0;
}

const SIMPLE_COM* simple(const COMMAND* command) {
  return command != nullptr && command->type == cm_simple ? command->value.Simple : nullptr;
}

// The word, when bash sees nothing in the text but one assignment.
const char* singleAssignment(const Parsed& parsed) {
  const SIMPLE_COM* const command = simple(parsed.command());
  if (command == nullptr || command->redirects != nullptr || !isAssignment(command->words)) return nullptr;
  return command->words->next == nullptr ? command->words->word->word : nullptr;
}

bool isOneWord(const std::string& value) {
  // An odd backslash at the end would take the newline in.
  const std::size_t backslashes = value.size() - (value.find_last_not_of('\\') + 1);
  return backslashes % 2 == 0 && singleAssignment(Parsed("A=" + value)) != nullptr;
}

// What bash makes of the value of a word; false when it gives up with an error.
bool expand(const char* word, std::string& value) {
  procenv_t outer;
  std::memcpy(&outer, &top_level, sizeof outer);
  char* expanded = nullptr;
  no_longjmp_on_fatal_error = 1;
  const bool isDone = sigsetjmp(top_level, 0) == 0;
  if (isDone) expanded = expand_assignment_string_to_string(const_cast<char*>(std::strchr(word, '=') + 1), 0);
  no_longjmp_on_fatal_error = 0;
  std::memcpy(&top_level, &outer, sizeof outer);
  if (!isDone) return false;
  value = expanded == nullptr ? "" : expanded;
  xfree(expanded);
  return true;
}

// ---- expansions in a text ----

bool isIn(char c, std::string_view set) {
  return set.find(c) != std::string_view::npos;
}

// Where an expansion that opens at `at` ends, by bash's parser: behind the first closing character at which it takes what
// came so far as a whole. npos when it never ends.
std::size_t endOfExpansion(const std::string& text, std::size_t at, bool isQuoted) {
  const char open = text[at] == '`' ? '`' : text[at + 1];
  const char close = open == '(' ? ')' : open == '{' ? '}' : open == '[' ? ']' : '`';
  const std::string quote = isQuoted ? "\"" : "";
  for (std::size_t end = at + 1; (end = text.find(close, end)) != std::string::npos; ++end) {
    std::string word = quote;
    word.append(text, at, end + 1 - at).append(quote);
    if (isOneWord(word)) return end + 1;
  }
  return std::string::npos;
}

bool opensExpansion(const std::string& text, std::size_t at, bool isQuoted) {
  const char next = at + 1 < text.size() ? text[at + 1] : '\0';
  if (text[at] == '`') return true;
  return text[at] == '$' ? isIn(next, std::string_view("({["))
                         : !isQuoted && isIn(text[at], "<>") && next == '(';
}

// Sets what every script has set, and what an indirect expansion goes through: without it bash looks no further.
void setWhatIsAsked(const std::string& expansion) {
  static char script[] = "bash", other[] = "QzV";
  last_command_exit_value = 0;
  dollar_vars[0] = script;
  dollar_vars[1] = expansion.starts_with("${!") ? other : nullptr;
  bind_variable("_", other, 0);
  if (!expansion.starts_with("${!")) return;
  const std::size_t end = std::min(expansion.find_first_not_of(kNameCharacters, 3), expansion.size());
  const std::string name = expansion.substr(3, end - 3);
  if (!name.empty() && std::isdigit(static_cast<unsigned char>(name[0])) == 0 &&
      find_variable(name.c_str()) == nullptr)
    bind_variable(name.c_str(), other, 0);
}

// Forgets what that and ${x:=y} set.
void unsetWhatWasSet(const std::string& expansion) {
  std::string name;
  for (const char c : expansion + " QzV bash ") {
    if (std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_') {
      name += c;
    } else if (!name.empty()) {
      const SHELL_VAR* const variable = find_variable(name.c_str());
      if (variable != nullptr && (variable->attributes & (att_exported | att_readonly | att_noassign)) == 0)
        unbind_variable(name.c_str());
      name.clear();
    }
  }
}

enum class Certainty { No, Unknown, Yes };

// Whether bash calls a ${...} a bad substitution, its commands left out.
Certainty isBadSubstitution(std::string expansion) {
  const std::size_t subscript = expansion.find('[');
  for (std::size_t i = 0; i < expansion.size(); ++i) {
    if (expansion[i] == '`' || (expansion[i] == '(' && i > 0 && isIn(expansion[i - 1], "$<>")))
      expansion[i] = i < subscript ? '.' : '_';
  }
  const Parsed parsed("A=" + expansion);
  const char* const word = singleAssignment(parsed);
  std::string ignored;
  if (word == nullptr) return Certainty::Unknown;
  setWhatIsAsked(expansion);
  expand(word, ignored);
  unsetWhatWasSet(expansion);
  if (complaints.find("bad substitution") == std::string::npos) return Certainty::No;
  // Its parser may find another end than its expander.
  const bool isSure =
      complaints.find("no closing") == std::string::npos && expansion.find("$[") == std::string::npos;
  return isSure ? Certainty::Yes : Certainty::Unknown;
}

bool mayHaveBadSubstitution(const std::string& text) {
  for (std::size_t at = 0; (at = text.find("${", at)) != std::string::npos; ++at) {
    const std::size_t end = endOfExpansion(text, at, false);
    if (end != std::string::npos && isBadSubstitution(text.substr(at, end - at)) != Certainty::No)
      return true;
  }
  return false;
}

// ---- the value of an assignment ----

// The text of a value with a marker for each expansion, so that what is left only has to be unquoted.
struct Unexpanded {
  std::string text;
  std::string expansions[64];
  std::size_t count = 0;
  bool isBad = false;        // holds an expansion that bash does not know
  bool isClear = true;       // false where there are too many
  bool isAmbiguous = false;  // its parser and its expander read it in two ways

  void cut(const std::string& expansion) {
    text += kMarker;
    if (count == std::size(expansions))
      isClear = false;
    else
      expansions[count++] = expansion;
  }
};

// Steps over what stands at `at` outside single quotes; sets isQuoted at double quotes.
std::size_t takePiece(const std::string& value, std::size_t at, bool& isQuoted, Unexpanded& result) {
  const char c = value[at];
  const char next = at + 1 < value.size() ? value[at + 1] : '\0';
  std::size_t end = at + 1;
  if (c == '\\' && next != '\0') {
    end = at + 2;
  } else if (c == '"') {
    isQuoted = !isQuoted;
  } else if (opensExpansion(value, at, isQuoted)) {
    end = std::min(endOfExpansion(value, at, isQuoted), value.size());
    const std::string expansion = value.substr(at, end - at);
    // Whether bash gets to one that stands within another depends on the variables.
    const bool isAsked = c == '$' && next == '{' && expansion.find("${", 1) == std::string::npos;
    const Certainty bad = isAsked ? isBadSubstitution(expansion) : Certainty::No;
    result.isBad |= bad == Certainty::Yes;
    result.isAmbiguous |= bad == Certainty::Unknown;
    result.cut(expansion);
    return end;
  } else if (c == '$' && next == '$') {
    result.isAmbiguous |= isQuoted && at + 2 < value.size() && isIn(value[at + 2], "({");
    result.cut("$$");
    return at + 2;
  } else if ((c == '$' && (isQuoted || !isIn(next, "'\""))) || (c == '~' && !isQuoted)) {
    result.cut(std::string(1, c));
    return end;
  }
  result.text.append(value, at, end - at);
  return end;
}

// The end of single quotes, plain or behind a dollar, that open at `at`.
std::size_t endOfQuotes(const std::string& value, std::size_t at) {
  for (std::size_t end = value.find('\'', at) + 1; (end = value.find('\'', end)) != std::string::npos;
       ++end) {
    if (isOneWord(value.substr(at, end + 1 - at))) return end + 1;
  }
  return value.size();
}

void cutExpansions(const std::string& value, Unexpanded& result) {
  bool isQuoted = false;
  for (std::size_t at = 0; at < value.size();) {
    const bool isAnsi = value.compare(at, 2, "$'") == 0;
    if (!isQuoted && (isAnsi || value[at] == '\'')) {
      const std::size_t end = endOfQuotes(value, at);
      result.text.append(value, at, end - at);
      at = end;
    } else {
      at = takePiece(value, at, isQuoted, result);
    }
  }
}

void setValue(const std::string& value, Verdict& verdict) {
  Unexpanded unexpanded;
  cutExpansions(value, unexpanded);
  // Bash marks its own quotes with these two characters.
  bool isMarked =
      value.find("$'") != std::string::npos && value.find_first_of("\x01\x7f") != std::string::npos;
  for (const char* const mark : {"\\\x01", "\\\x7f", "$\x01", "$\x7f"})
    isMarked |= value.find(mark) != std::string::npos;
  if (isMarked || unexpanded.isAmbiguous) verdict.allowed |= Verdict::kMalformed;
  if (unexpanded.isBad && !isMarked)
    verdict.allowed = Verdict::kMalformed | (verdict.allowed & Verdict::kNothing);
  const Parsed parsed("A=" + unexpanded.text);
  const char* const word = singleAssignment(parsed);
  if (!unexpanded.isClear || unexpanded.isAmbiguous || word == nullptr || !expand(word, verdict.value))
    return;
  verdict.isValueKnown = true;
  std::size_t at = 0;
  for (std::size_t i = 0; i < unexpanded.count; ++i) {
    at = verdict.value.find(kMarker, at);
    if (at == std::string::npos) {
      // Behind a NUL, which ends a value.
      return;
    }
    verdict.value.replace(at, kMarker.size(), unexpanded.expansions[i]);
    at += unexpanded.expansions[i].size();
  }
}

// ---- the line ----

// How a line begins: NAME=, with an optional export before it.
struct Head {
  std::string name;
  std::size_t value = 0;  // where the value begins
  bool isExported = false;
  enum class Form { None, Plain, Append, Element } form = Form::None;
};

bool isNameCharacter(char c, bool isFirst) {
  return c == '_' || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (!isFirst && c >= '0' && c <= '9');
}

Head readHead(const std::string& line) {
  Head head;
  std::size_t at = std::min(line.find_first_not_of(kBlanks), line.size());
  if (line.compare(at, 6, "export") == 0 && at + 6 < line.size() && isIn(line[at + 6], kBlanks)) {
    head.isExported = true;
    at = std::min(line.find_first_not_of(kBlanks, at + 6), line.size());
  }
  while (at < line.size() && isNameCharacter(line[at], head.name.empty()))
    head.name += line[at++];
  if (head.name.empty() || at == line.size()) return head;
  if (line[at] == '=') head.form = Head::Form::Plain;
  if (line.compare(at, 2, "+=") == 0) head.form = Head::Form::Append;
  if (line[at] == '[') head.form = Head::Form::Element;
  head.value = at + 1;
  return head;
}

// The command that a sourcing shell runs first, by itself; null when it is part of a pipeline or of the background.
COMMAND* firstCommand(COMMAND* command) {
  while (command != nullptr && command->type == cm_connection) {
    const int connector = command->value.Connection->connector;
    if (connector == '|' || connector == '&') return nullptr;
    command = command->value.Connection->first;
  }
  return command;
}

bool isDeclaration(const char* word) {
  for (const char* const builtin : {"declare", "typeset", "local", "readonly", "export"}) {
    if (std::strcmp(word, builtin) == 0) return true;
  }
  return false;
}

// How sure it is that a command assigns to a variable of the shell itself.
enum class Assigns { No, Perhaps, Yes };

Assigns assigns(const SIMPLE_COM* command) {
  const WORD_LIST* word = command->words;
  if (word == nullptr) return Assigns::No;
  bool isAny = false;
  for (const WORD_LIST* other = word; other != nullptr; other = other->next)
    isAny |= isAssignment(other);
  while (isAssignment(word))
    word = word->next;
  if (word == nullptr) return Assigns::Yes;
  if (isAny && word == command->words && isDeclaration(word->word->word)) return Assigns::Yes;
  // A builtin may assign whatever its arguments look like.
  for (const char* const builtin :
       {"declare", "typeset", "local", "readonly", "export", "let", "eval", "alias", "builtin", "command"}) {
    if (std::strcmp(word->word->word, builtin) == 0 && word->next != nullptr) return Assigns::Perhaps;
  }
  return Assigns::No;
}

Assigns assigns(const COMMAND* command);

Assigns both(const COMMAND* first, const COMMAND* second) {
  return std::max(assigns(first), assigns(second));
}

Assigns atMostPerhaps(Assigns assigns) {
  return std::min(assigns, Assigns::Perhaps);
}

Assigns assigns(const COMMAND* command) {
  if (command == nullptr) return Assigns::No;
  switch (command->type) {
    case cm_simple:
      return assigns(command->value.Simple);
    case cm_connection: {
      const CONNECTION* const pair = command->value.Connection;
      if (pair->connector == '|') return Assigns::No;
      return pair->connector == '&' ? assigns(pair->second) : both(pair->first, pair->second);
    }
    case cm_group:
      return assigns(command->value.Group->command);
    case cm_if:
      return atMostPerhaps(std::max(assigns(command->value.If->test),
                                    both(command->value.If->true_case, command->value.If->false_case)));
    case cm_while:
    case cm_until:
      return atMostPerhaps(both(command->value.While->test, command->value.While->action));
    case cm_for:
    case cm_select:
      return atMostPerhaps(assigns(command->value.For->action));
    case cm_arith_for:
      return atMostPerhaps(assigns(command->value.ArithFor->action));
    case cm_case: {
      Assigns any = Assigns::No;
      for (const PATTERN_LIST* clause = command->value.Case->clauses; clause != nullptr;
           clause = clause->next)
        any = std::max(any, assigns(clause->action));
      return atMostPerhaps(any);
    }
    default:
      return Assigns::No;
  }
}

// What stands behind the first command of a line.
Assigns restAssigns(const COMMAND* command) {
  Assigns any = Assigns::No;
  for (; command != nullptr && command->type == cm_connection; command = command->value.Connection->first)
    any = std::max(any, assigns(command->value.Connection->second));
  return any;
}

// The end of the value that begins at `from`: put another value in the place of the stretch, and bash sees the same line
// but for that word.
std::size_t endOfValue(const std::string& line, std::size_t from, WORD_DESC* word, const Parsed& parsed) {
  const std::string fresh = "\"Z\"";
  std::string freshWord = std::string(word->word, std::strchr(word->word, '=') + 1) + fresh;
  char* const own = word->word;
  word->word = freshWord.data();
  const std::string wanted = parsed.print();
  word->word = own;
  for (std::size_t end = from; end <= line.size(); ++end) {
    if (end < line.size() && !isIn(line[end], " \t;&|<>()")) continue;
    if (!isOneWord(line.substr(from, end - from))) continue;
    if (Parsed(line.substr(0, from) + fresh + line.substr(end)).print() == wanted) return end;
  }
  return std::string::npos;
}

// A backslash at the end joins the next line to this one, unless it stands in a comment or is quoted itself.
bool joinsNextLine(const std::string& line) {
  if (!line.ends_with('\\')) return false;
  const std::string marker(kMarker);
  const std::string next = Parsed(line + "\n" + marker).print();
  return next == Parsed(line.substr(0, line.size() - 1) + marker).print();
}

// After for NAME; { bash waits for a word in, wherever it stands.
bool awaitsIn(const std::string& line) {
  const std::size_t loop = std::min(line.find("for"), line.find("select"));
  return complaints.find("unexpected token `in'") != std::string::npos &&
         line.find('{', loop) != std::string::npos;
}

// Read-only, or computed by bash whatever is assigned.
int attributesOf(const std::string& name) {
  for (const char* const computed :
       {"_", "BASHPID", "BASH_COMMAND", "BASH_SUBSHELL", "DIRSTACK", "EPOCHREALTIME", "EPOCHSECONDS",
        "HISTCMD", "LINENO", "PIPESTATUS", "RANDOM", "SRANDOM"}) {
    if (name == computed) return att_noassign;
  }
  const SHELL_VAR* const variable = find_variable(name.c_str());
  return variable == nullptr ? 0 : variable->attributes;
}

void judgeCommand(const std::string& line, const Head& head, const Parsed& parsed, Verdict& verdict) {
  verdict.allowed = Verdict::kNothing;
  const SIMPLE_COM* const first = simple(firstCommand(parsed.command()));
  if (first == nullptr || first->words == nullptr) return;
  const WORD_LIST* const word = head.isExported ? first->words->next : first->words;
  if (!isAssignment(word) || (word->word->flags & W_COMPASSIGN) != 0) return;
  Assigns others = restAssigns(parsed.command());
  for (const WORD_LIST* other = word->next; other != nullptr; other = other->next) {
    if (!head.isExported) return;
    const bool mayAssign = std::strchr(other->word->word, '=') != nullptr;
    others = std::max(others, isAssignment(other) ? Assigns::Yes
                              : mayAssign         ? Assigns::Perhaps
                                                  : Assigns::No);
  }
  if (others == Assigns::Yes) return;
  const int attributes = attributesOf(head.name);
  if ((attributes & att_noassign) != 0) return;
  const std::uint32_t perhaps = others == Assigns::Perhaps ? Verdict::kNothing : 0;
  verdict.allowed = perhaps | Verdict::kMalformed;
  if ((attributes & att_readonly) != 0) return;
  verdict.allowed = perhaps | Verdict::kAssigns;
  // In an array in a substitution a backslash takes other characters when bash parses than when it expands.
  const std::size_t array = std::min(line.find("=(", head.value), line.size());
  if (line.find('\\', array) != std::string::npos) verdict.allowed |= Verdict::kMalformed;
  verdict.first = static_cast<std::uint32_t>(head.value);
  const std::size_t end = endOfValue(line, head.value, word->word, parsed);
  verdict.end = static_cast<std::uint32_t>(end);
  if (end != std::string::npos) setValue(line.substr(head.value, end - head.value), verdict);
}

bool hasBrokenCharacter(const std::string& line) {
  std::mbstate_t state{};
  for (std::size_t at = 0, size = 0; at < line.size(); at += size) {
    size = std::mbrlen(&line[at], line.size() - at, &state);
    if (size == 0 || size > line.size()) return true;
  }
  return false;
}

Verdict judge(const std::string& line) {
  Verdict verdict;
  const Head head = readHead(line);
  verdict.allowed = Verdict::kNothing;
  if (head.form == Head::Form::None) return verdict;
  const Parsed parsed(line);
  if (parsed.command() == nullptr || joinsNextLine(line)) {
    verdict.allowed =
        head.form == Head::Form::Element ? Verdict::kMalformed | Verdict::kNothing : Verdict::kMalformed;
    verdict.why = complaints;
    if (awaitsIn(line)) verdict.allowed |= Verdict::kNothing | Verdict::kAssigns;
    verdict.first = static_cast<std::uint32_t>(head.value);
    verdict.end = UINT32_MAX;
    return verdict;
  }
  verdict.why = parsed.print();
  if (head.form == Head::Form::Plain) judgeCommand(line, head, parsed, verdict);
  if (verdict.allowed != Verdict::kMalformed && mayHaveBadSubstitution(line))
    verdict.allowed |= Verdict::kMalformed;
  // Of a byte that is no character bash takes what it likes behind the parenthesis of a sum.
  if (line.find("((") != std::string::npos && hasBrokenCharacter(line))
    verdict.allowed |= Verdict::kMalformed;
  // The next line may be a here-document's as well, and bash expands what it takes for a subscript while it parses.
  const std::size_t subscript = std::min(line.find('['), line.size());
  const bool isExpanded = line.find("$$(", subscript) != std::string::npos;
  if (isExpanded || (line.ends_with('\\') && line.find("<<") != std::string::npos))
    verdict.allowed |= Verdict::kMalformed;
  return verdict;
}

// ---- requests and answers ----

bool readExactly(char* to, std::size_t size) {
  for (ssize_t n = 0; size > 0; to += n, size -= static_cast<std::size_t>(n)) {
    if ((n = read(kRequests, to, size)) <= 0) return false;
  }
  return true;
}

bool writeExactly(std::string_view text) {
  while (!text.empty()) {
    const ssize_t n = write(kAnswers, text.data(), text.size());
    if (n <= 0) return false;
    text.remove_prefix(static_cast<std::size_t>(n));
  }
  return true;
}

int judgeLines(WORD_LIST* /*arguments*/) {
  listenToComplaints();
  if (!giveUpSystemCalls()) return EXECUTION_FAILURE;
  std::uint32_t size = 0;
  while (readExactly(reinterpret_cast<char*>(&size), sizeof size)) {
    std::string lines(size, '\0');
    if (!readExactly(lines.data(), size)) return EXECUTION_FAILURE;
    std::string answers(sizeof size, '\0');
    for (std::size_t at = 0, end = 0; at < lines.size(); at = end + 1) {
      end = lines.find('\0', at);
      judge(lines.substr(at, end - at)).append(answers);
    }
    size = static_cast<std::uint32_t>(answers.size() - sizeof size);
    std::memcpy(answers.data(), &size, sizeof size);
    if (!writeExactly(answers)) return EXECUTION_FAILURE;
  }
  return EXECUTION_SUCCESS;
}

const char* const kHelp[] = {"Answers what lines assign.", nullptr};

}  // namespace

extern "C" {
// bash looks for NAME_struct.
extern struct builtin judge_struct;
struct builtin judge_struct = {const_cast<char*>("judge"),      judgeLines, BUILTIN_ENABLED,
                               const_cast<char* const*>(kHelp), "judge",    nullptr};
}
