// SPDX-License-Identifier: Apache-2.0
#include "BashLines.h"

#include <array>
#include <functional>
#include <iterator>

namespace kfl_fuzz {

namespace {

constexpr int kDeepest = 5;

const char* const kTokens[] = {
    // Characters that mean something.
    " ", " ", "\t", "\r", "\"", "\"", "'", "'", "\\", "\\", "$", "$", "`", "#", " #", "~", "=", "+=", "!",
    "%", "@", "^", ",", ":", "*", "?", "-", "+", "/", "[", "]", "{", "}", "(", ")", ";", "&", "|", "<", ">",
    "1", "x", "A", "_",
    // Quotes and expansions.
    "$'", "$\"", "$$", "$$'", "$$\"", "\\'", "\\\"", "\\$", "\\\\", "\\`", "\"\"", "''", "$(", "${", "${#",
    "${!", "${x", "$((", "))", "$[", "<(", ">(", "$x", "$1", "$@", "$?", "$!", "$#", "$-", "$*", "${x}",
    "${x:-", "${x#", "${x%", "${x/", "${x^", "${x,", "${x@", "${x:", "${x[", "${#x}", "${!x}", "${!x@}",
    "$(x)", "`x`", "$((1))", "\\c", "\\x", "\\u", "\\U", "\\0", "\\x{", "\\n", "\\101", "\\cA", "\\c\\",
    "\\c'", "!!", "!x", "{a,b}", "{1..3}", "@(", "?(", "*(", "+(", "!(",
    // Operators and words of commands.
    "&&", "||", ";;", ";&", ";;&", "|&", "&>", "&>>", ">&", "<&", ">>", "<<", "<<-", "<<<", "<>", ">|", "2>",
    "2>&1", "{fd}>", "{x}<", "10<", "if ", "then ", "elif ", "else ", "fi", "while ", "until ", "do ", "done",
    "for ", "in ", "case ", "esac", "select ", "function ", "time ", "time -p ", "coproc ", "{ ", "; }",
    "[[ ", " ]]", "((", "! ", "x() ", "B=2", "B=", "A=", "A[0]=", "A=(", "A+=", "export ", "declare ",
    "readonly ", "local ", "let ", "eval ", "alias ", "-n ", "--", "=~", "==", "-f ", "-z ", "-eq ", "; ",
    " ;", "; x", "\xc3\xa9", "\xff", "\x01", "\x7f", "\xe2\x82", "\xf0\x9f\x98\x80"};

// What a row of tokens begins with, so that most are judged as assignments.
const char* const kHeads[] = {
    "A=",    "A=",        "A=",          "A=1",        "A=1 ",   "A=1; ", "A=\"x\" ", "A=x && ",
    " A=",   "export A=", "export A=1 ", "export\tA=", "\tA=",   "",      "A+=",      "A[",
    "A[0]=", "A=(",       "A",           "UID=",       "A=1 x ", "A=$",   "A=\"$",    "A=${"};

bool isBetween(int byte, int low, int high) {
  return byte >= low && byte <= high;
}

}  // namespace

std::vector<std::string> linesOf(std::string_view input) {
  std::vector<std::string> lines(1);
  for (const char c : input) {
    if (c == '\n')
      lines.emplace_back();
    else if (c != '\0')
      lines.back() += c;
  }
  return lines;
}

BashLines::BashLines(std::string_view input)
    : random_(static_cast<std::uint32_t>(std::hash<std::string_view>()(input))), own_(linesOf(input)) {}

template <class Choices>
std::string BashLines::oneOf(const Choices& choices) {
  return choices[below(std::size(choices))];
}

std::string BashLines::repeat(std::size_t limit, std::string (BashLines::*make)(), const char* between) {
  std::string text;
  for (std::size_t n = below(limit + 1); n > 0; --n)
    text += (this->*make)() + (n > 1 ? between : "");
  return text;
}

std::string BashLines::byte() {
  static const char* const usual = "abcxyzA019_ \t\"'\\$`{}()[]<>;&|#~!*?=+-/%@^,.:";
  if (!oneIn(4)) return {usual[below(std::string_view(usual).size())]};
  const int any = 1 + static_cast<int>(below(255));
  return {any == '\n' ? 'n' : static_cast<char>(any)};
}

std::string BashLines::token() {
  return oneIn(8) ? byte() : oneOf(kTokens);
}

std::string BashLines::soup() {
  return oneOf(kHeads) + repeat(1 + below(12), &BashLines::token);
}

std::string BashLines::changed(std::string line) {
  for (std::size_t n = 1 + below(3); n > 0; --n) {
    const std::size_t at = below(line.size() + 1);
    switch (below(5)) {
      case 0:
        line.insert(at, token());
        break;
      case 1:
        line.erase(at, 1 + below(3));
        break;
      case 2:
        line.replace(at, 1, token());
        break;
      case 3:
        line.insert(below(line.size() + 1), line.substr(at, 1 + below(8)));
        break;
      default:
        line = line.substr(0, at) + (oneIn(2) ? token() : "");
        break;
    }
  }
  return line;
}

// ---- words ----

std::string BashLines::name() {
  return oneOf(std::to_array<const char*>({"x", "A", "VEID", "_y9", "x", "abc"}));
}

std::string BashLines::plain() {
  static const char* const texts[] = {"a",     "yes",      "1",
                                      "web-1", "/vz/x",    "a.b:c",
                                      "x=y",   "50%",      "a,b",
                                      "#",     "a#b",      "*",
                                      "?x",    "[a-z]",    "{a,b}",
                                      "{",     "}",        "~",
                                      ":~",    "~x",       "!",
                                      "!!",    "^",        "@",
                                      "%",     "+",        "=",
                                      "]",     "\xc3\xa9", "\xff",
                                      "\x01",  "\x7f",     "\r",
                                      "if",    "in",       "!x",
                                      "in}",   "-",        "aaaaaaaaaaaaaaaa"};
  return oneOf(texts);
}

std::string BashLines::escape() {
  return "\\" + (oneIn(4) ? byte()
                          : oneOf(std::to_array<const char*>(
                                {"$", "\"", "'", "`", "\\", " ", "n", "x", "#", "(", "&", "~"})));
}

std::string BashLines::ansiPart() {
  static const char* const parts[] = {
      "a",           "\\n",     "\\t",   "\\a",  "\\b",   "\\e",     "\\E",     "\\f",     "\\r",
      "\\v",         "\\\\",    "\\'",   "\\\"", "\\?",   "\\0",     "\\1",     "\\12",    "\\101",
      "\\400",       "\\777",   "\\8",   "\\x",  "\\x4",  "\\x41",   "\\x411",  "\\x{",    "\\x{41}",
      "\\x{4142}",   "\\x{}",   "\\x{g", "\\u",  "\\u4",  "\\u00e9", "\\u20ac", "\\ud800", "\\U1f600",
      "\\U7fffffff", "\\U0",    "\\u0",  "\\cA", "\\ca",  "\\c?",    "\\c\\\\", "\\c\\'",  "\\c[",
      "\\c@",        "\\c\xc3", "\\c\"", "\\c$", "\\q",   "\"",      "$",       "`",       "$x",
      "(",           " ",       "\xff",  "\x01", "\\x7f", "\\001",   "\\x00",   "\\c",     "\\\xc3\xa9",
      "#",           "\\\x01"};
  return oneOf(parts);
}

std::string BashLines::doublePart() {
  static const char* const parts[] = {"a b",  "x",    "'",   "'x'", "#",   " #",  "$",        "$.",   "$'",
                                      "\\x",  "~",    "!",   "{",   "}",   "(",   ")",        ";",    "&",
                                      "\\\"", "\\\\", "\\$", "\\`", "\\'", "$$",  "\xc3\xa9", "\x01", "\x7f",
                                      "\xff", "\t",   "<(",  "[",   "$$(", "$${", "$\x01"};
  return oneIn(3) && depth_ < kDeepest ? expansion() : oneOf(parts);
}

std::string BashLines::parameter() {
  static const char* const names[] = {"x",   "x", "A",  "1",   "10",   "@",    "*",    "#",       "?",
                                      "-",   "$", "!",  "0",   "x[0]", "x[@]", "x[*]", "x[$y]",   "x[\"a]\"]",
                                      "x y", "",  "1x", "x.y", "x[",   "@[0]", "_",    "x[x[1]]", "x[]"};
  static const char* const operators[] = {"",   "",   "",    ":-",  "-",  ":=", "=",  ":?", "?", ":+", "+",
                                          "#",  "##", "%",   "%%",  "/",  "//", "/#", "/%", "^", "^^", ",",
                                          ",,", ":",  "@Q",  "@P",  "@a", "@",  "@z", "*",  "~", "~~", "!",
                                          ".",  ";",  ":1:", "[0]", "@U", "@k", "@a", "@A"};
  return "${" + oneOf(std::to_array<const char*>({"", "", "", "", "", "#", "!", "!#", "#!"})) + oneOf(names) +
         oneOf(operators) + (oneIn(2) ? repeat(2, &BashLines::operand) : "") + "}";
}

std::string BashLines::arithmetic() {
  static const char* const sums[] = {"1",       "1+2",   "x",   "(1)",  "x[1]", "x?1:2", "1<<2", "x=1",
                                     "\"1\"",   "1 | 2", "",    "'1'",  "$x",   "${x}",  "#",    "1#2",
                                     "(1)+(2)", "x++",   "`x`", "$(x)", "\\1",  "[",     "]"};
  return repeat(2, &BashLines::operand).substr(0, oneIn(3) ? std::string::npos : 0) + oneOf(sums);
}

std::string BashLines::operand() {
  static const char* const texts[] = {
      "y",      "'}'",  "\"}\"",  "\\}",      "<(x",   "<(x)", ">(x)", "'",   "\"a b\"", "{",
      "$'\\n'", "$'}'", "$\"x\"", "$$",       "a b",   "(",    ")",    "#",   " #",      "`x`",
      "/",      "~",    "$",      "\"$(x)\"", "\"'\"", "'\"'", "[",    "\\'", "$'\\'"};
  return depth_ < kDeepest && oneIn(2) ? part() : oneOf(texts);
}

std::string BashLines::expansion() {
  ++depth_;
  std::string text;
  switch (below(12)) {
    case 0:
      text = "$" + name();
      break;
    case 1:
      text = "${" + name() + "}";
      break;
    case 2:
      text = "$" +
             oneOf(std::to_array<const char*>({"$", "1", "@", "*", "#", "?", "-", "!", "0", "", ".", "%"}));
      break;
    case 3:
      text = "$(" + oneOf(std::to_array<const char*>({"", " ", "(", "#", "<"})) + block() + ")";
      break;
    case 4:
      text = "$((" + arithmetic() + "))";
      break;
    case 5:
      text = "$[" + arithmetic() + "]";
      break;
    case 6:
      text = "`" +
             oneOf(std::to_array<const char*>(
                 {"x", "x \"y\"", "x\\`y\\`", "\\\\", "'", "\"", "#", "$(x", "x 'a b'", "\\"})) +
             "`";
      break;
    case 7:
      text = oneOf(std::to_array<const char*>({"<(", ">("})) + block() + ")";
      break;
    default:
      text = parameter();
      break;
  }
  --depth_;
  return text;
}

std::string BashLines::part() {
  switch (below(9)) {
    case 0:
      return "\"" + repeat(4, &BashLines::doublePart) + "\"";
    case 1:
      return "'" +
             oneOf(std::to_array<const char*>(
                 {"", "a b", "\"", "\\", "$x", "`", "#", "a\\", "$(", "\x01\x7f", "}"})) +
             "'";
    case 2:
      return "$'" + repeat(4, &BashLines::ansiPart) + "'";
    case 3:
      return "$\"" + repeat(3, &BashLines::doublePart) + "\"";
    case 4:
      return escape();
    case 5:
      return oneOf(std::to_array<const char*>({"$$'", "$$'\\"})) +
             oneOf(std::to_array<const char*>({"", "a", "\\t"})) + "'";
    case 6:
      return depth_ < kDeepest ? expansion() : plain();
    default:
      return plain();
  }
}

std::string BashLines::word() {
  return part() + repeat(2, &BashLines::part);
}

std::string BashLines::value() {
  switch (below(8)) {
    case 0:
      return "";
    case 1:
      return plain();
    case 2:
      return "\"" + repeat(5, &BashLines::doublePart) + "\"";
    case 3:
      return std::string(below(300), 'a') + part();
    default:
      return repeat(4, &BashLines::part);
  }
}

// ---- commands ----

std::string BashLines::redirection() {
  static const char* const operators[] = {
      ">",  "<",      ">>",    "<>",    ">|",  ">&",  "<&",    "&>",     "&>>",  "<<<",      "<<",  "<<-",
      "2>", "2>&1 >", "{fd}>", "{fd}<", "10>", "2>&", "{x}>&", "{a b}>", "{1}>", "{fd[0]}>", "2<<<"};
  return oneOf(operators) + oneOf(std::to_array<const char*>({"", " ", ""})) +
         (oneIn(3) ? oneOf(std::to_array<const char*>({"f", "-", "1", "2>f", "1-", ">f", "{fd}>f", "<(x)"}))
                   : word());
}

std::string BashLines::argument() {
  switch (below(12)) {
    case 0:
      return redirection();
    case 1:
      return name() + oneOf(std::to_array<const char*>({"=", "+=", "[0]=", "=(", "["})) + value();
    case 2:
      return oneOf(kTokens);
    default:
      return word();
  }
}

std::string BashLines::simpleCommand() {
  static const char* const names[] = {"x",     "cmd",     "echo", "export", "declare", "readonly",
                                      "local", "let",     "eval", "alias",  ":",       "command",
                                      "unset", "typeset", "[",    "test",   "time",    "!",
                                      "exec",  "in",      "}",    "x\r"};
  return (oneIn(5) ? assignment() + " " : "") + oneOf(names) + " " + repeat(3, &BashLines::argument, " ");
}

std::string BashLines::condition() {
  switch (below(7)) {
    case 0:
      return oneOf(std::to_array<const char*>({"-f ", "-z ", "-n ", "! ", "-o ", "-v ", "-x "})) + word();
    case 1:
      return word() +
             oneOf(std::to_array<const char*>(
                 {" == ", " = ", " != ", " =~ ", " < ", " > ", " -eq ", " -nt ", " y "})) +
             word();
    case 2:
      return "x =~ " + oneOf(std::to_array<const char*>(
                           {"a|b", "(a|b)c", "^a$", "[[:x:]]", "a b", "(", "(a b)", "\\(", "@(x)"}));
    case 3:
      return depth_ > kDeepest
                 ? "x"
                 : condition() + oneOf(std::to_array<const char*>({" && ", " || ", " & ", " | "})) +
                       condition();
    case 4:
      return "( " + word() + " )";
    case 5:
      return "x == " +
             oneOf(std::to_array<const char*>({"@(a|b)", "?(x)*", "+(a;b)", "!(x)", "a(b)", "*(", "[!x]*"}));
    default:
      return word();
  }
}

std::string BashLines::caseClause() {
  return oneOf(std::to_array<const char*>({"", "(", "( "})) + word() +
         oneOf(std::to_array<const char*>({"", "|y", " | y", "|", " y"})) + ") " + (oneIn(4) ? "" : block()) +
         oneOf(std::to_array<const char*>({";; ", ";& ", ";;& ", "; ", " "}));
}

std::string BashLines::compound() {
  switch (below(14)) {
    case 0:
      return "if " + block() + "; then " + block() + (oneIn(2) ? "; elif x; then " + block() : "") +
             (oneIn(2) ? "; else " + block() : "") + "; fi";
    case 1:
      return oneOf(std::to_array<const char*>({"while ", "until "})) + block() + "; do " + block() + "; done";
    case 2:
      return oneOf(std::to_array<const char*>({"for ", "select "})) + name() +
             oneOf(std::to_array<const char*>({"", " in a b", " in", " in $x", ";", " ;", " in ;"})) +
             oneOf(std::to_array<const char*>({"; do ", " do ", ";do ", "; { "})) + block() +
             oneOf(std::to_array<const char*>({"; done", "; }"}));
    case 3:
      return "for ((" +
             oneOf(std::to_array<const char*>({"i=0;i<1;i++", ";;", "i", "i;j", "a;b;c;d", "(1);2;3"})) +
             "))" + oneOf(std::to_array<const char*>({"; do ", " do ", " { "})) + block() +
             oneOf(std::to_array<const char*>({"; done", "; }"}));
    case 4:
      return "case " + word() + oneOf(std::to_array<const char*>({" in ", "  in "})) +
             repeat(2, &BashLines::caseClause) + "esac";
    case 5:
      return "{ " + block() + "; }";
    case 6:
      return "(" + block() + ")";
    case 7:
      return "((" + arithmetic() + "))";
    case 8:
      return "[[ " + condition() + " ]]";
    case 9:
      return name() + oneOf(std::to_array<const char*>({"() ", " () ", "( ) "})) +
             (oneIn(4) ? block() : compound());
    case 10:
      return "function " + name() + oneOf(std::to_array<const char*>({" ", "() ", " () "})) + compound();
    case 11:
      return "coproc " + oneOf(std::to_array<const char*>({"", "N ", "N\t", "x y "})) +
             (oneIn(2) ? compound() : simpleCommand());
    case 12:
      return "{ " + block() + oneOf(std::to_array<const char*>({" }", ";}", "}", "; } x"}));
    default:
      return "x [0]=1";
  }
}

std::string BashLines::command() {
  if (++depth_ > kDeepest) {
    --depth_;
    return "x";
  }
  std::string text = oneOf(std::to_array<const char*>({"", "", "", "", "! ", "time ", "time -p ", "! ! "}));
  if (oneIn(3)) {
    text += compound();
    if (oneIn(4)) text += " " + redirection();
  } else {
    text += oneIn(5) ? assignment() : simpleCommand();
  }
  --depth_;
  return text;
}

std::string BashLines::list() {
  static const char* const operators[] = {"; ", ";",    " && ", "&&", " || ", " | ",
                                          "|",  " |& ", " & ",  "&",  " ; "};
  std::string text = command();
  while (oneIn(3))
    text += oneOf(operators) + command();
  return text + oneOf(std::to_array<const char*>({"", "", "", "", ";", " &", "&", " ", " # c"}));
}

std::string BashLines::block() {
  return oneIn(2) ? oneOf(std::to_array<const char*>({"x", "x y", "x \"y\"", "B=2", "x)", ":", "x; y",
                                                      "case x in x) y;; esac", "x #", "B=(\\) \\\" x)",
                                                      "((x) || (y))"}))
                  : list();
}

std::string BashLines::assignment() {
  return (oneIn(30) ? oneOf(std::to_array<const char*>(
                          {"UID",           "EUID",     "PPID",         "SHELLOPTS", "FUNCNAME",
                           "GROUPS",        "RANDOM",   "SRANDOM",      "LINENO",    "BASHPID",
                           "BASH_ARGV",     "DIRSTACK", "EPOCHSECONDS", "HISTCMD",   "PIPESTATUS",
                           "BASH_VERSINFO", "1A",       "A-B",          "_",         "\xc3\xa9"}))
                    : name()) +
         (oneIn(12)
              ? oneOf(std::to_array<const char*>({"+=", "[0]=", "[\"x\"]=", " =", "=(", "[x y]=", "[0]+="}))
              : "=") +
         value() + (oneIn(60) ? ")" : "");
}

std::string BashLines::line() {
  static const char* const befores[] = {
      "", "", "", "", "", "", " ", "\t", "  ", "export ", "export ", " export\t", "export -n ", "declare "};
  static const char* const comments[] = {" # c", " #\"", " # \\", "\t#", "#", " #'", " ;#", " # $("};
  std::string text = oneOf(befores) + assignment();
  switch (below(10)) {
    case 0:
      text += oneOf(comments);
      break;
    case 1:
      text += " " + redirection() + (oneIn(2) ? " " + redirection() : "");
      break;
    case 2:
      text +=
          oneOf(std::to_array<const char*>({"; ", ";", " && ", " || ", " & ", " | ", "&&", ";;", "|& "})) +
          list();
      break;
    case 3:
      text += oneOf(std::to_array<const char*>({";", " ;", " &", "&", "\r", " ", "\\", " \\", " |", " &&"}));
      break;
    case 4:
      text += " " + argument();
      break;
    case 5:
      text += "; " + list() + (oneIn(3) ? oneOf(comments) : "");
      break;
    default:
      break;
  }
  return text;
}

std::string BashLines::next() {
  depth_ = 0;
  switch (below(8)) {
    case 0:
    case 1:
      return soup();
    case 2:
      return changed(own_[below(own_.size())]);
    case 3:
      return changed(line());
    default:
      return line();
  }
}

std::string BashLines::safeValue() {
  std::string text;
  for (std::size_t n = below(20); n > 0; --n) {
    const int c = 1 + static_cast<int>(below(255));
    const bool isSafe =
        c == '\t' || (isBetween(c, ' ', 255) && c != 0x7f && c != '"' && c != '$' && c != '`' && c != '\\');
    text += isSafe ? static_cast<char>(c) : ' ';
  }
  return text;
}

}  // namespace kfl_fuzz
