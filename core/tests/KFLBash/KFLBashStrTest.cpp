// SPDX-License-Identifier: Apache-2.0
#include <KFLBash/KFLBashStr.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <random>
#include <regex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>

#include <KFLBash/KFLBashJudge.h>
#include <KFLBash/KFLBashPieces.h>

#include "KFLBashTwin.h"

namespace KFL::test {

namespace {

using Kind = KFLBashLine::Kind;
using Reason = KFLBashLine::Reason;
using Lines = std::vector<std::string>;

struct Parsed {
  int result = 0;
  std::string name, value;
  unsigned int first = 0, last = 0;
  std::string buffer;
};

Parsed parse(const std::string& line) {
  Parsed parsed;
  parsed.buffer = line;
  char* name = nullptr;
  char* value = nullptr;
  parsed.result = parseBashStr(parsed.buffer.data(), &name, &value, &parsed.first, &parsed.last);
  if (parsed.result != kBashAssignment) return parsed;
  parsed.name = name;
  parsed.value = value;
  return parsed;
}

// The tables: "^" in a line marks where its value ends, if not with the line; or the place that the reason is about, and
// a second one the end of the token that stands there.
std::string unmarked(std::string line) {
  std::erase(line, '^');
  return line;
}

// Values that are read as they are written.
const char* const kPlain[] = {
    // The usual forms, and what may stand around them.
    "ONBOOT=yes", "A=", "A=^ ", "  A=1", "A=1^  ", "A=1^ #c\\", "A=^ #c", "A=#x", "A=1=2", "A==1", "A=a^;",
    "A=1^ ;#c", "\tA=1^\t\t#c", "export=1", "exportA=1", "A=x\r", "A=\r", "A=1^ #",
    // Expansions.
    "A=$VEID${VEID}", "A=a$", "A=$(cmd \"with ) quotes\")", "A=`x \"y`", "A=`x\\`y`", "A=${x:-\"a b\"}",
    "A=${x:-'}'}", "A=${#x}${x[1]}${x@Q}${!x*}${1}${@}${#-x}${!-x}${##}${-#}${x[\"a]\"]}", "A=$((1+2))",
    "A=$((1+(2)))b", "A=$((x) ; (y))", "A=$[1 + 2]", "A=~/x", "A={a,b}", "A=*[a-z]?!%", "A=<(x \"y\")z",
    "A=$(case x in a) y;; esac)", "A=$( (x) ; { y; } )", "A=$()",
    // Commands that may follow.
    "A=1^; cmd", "A=1^;cmd \"x;y\" 'z' &", "A=1^&&cmd", "A=1^ || cmd", "A=1^ && x | y", "A=1^ 2>&1 <<<x",
    "A=1^ &>f", "A=1^>f", "A=1^ {fd}>f", "A=1^ <<EOF", "A=1^; if x; then y; elif z; then :; else w; fi",
    "A=1^; while x; do y; done; z", "A=1^; for i in 1 2; do x; done", "A=1^; for i; { x; }",
    "A=1^; for ((i=0;i<1;i++)); do x; done", "A=1^; case x in (a|b) y;; c) esac", "A=1^; f() { B=2; }",
    "A=1^; function f { x; } >g", "A=1^; (B=2; x) | y", "A=1^; ((1+(2))) || ! x", "A=1^; ((x) | (y))",
    "A=1^; time", "A=1^; a[0 1]; echo a[0 1]", "A=1^; x\r", "A=1^; x | time",
    "A=1^; [[ ! -f x && ( y < z || x -eq 1 ) ]]", "A=1^; [[ x =~ a|(b c)|d && x == @(a;b) ]] || y",
    "A=1^; coproc N { B=2; }", "A=1^; coproc N ((1))", "A=1^; coproc time x", "A=1^; coproc x y {",
    "A=1^; alias x=(1)", "A=1^; x | coproc y",
    // What other shells assign is gone with them.
    "A=1^; B=2 &", "A=1^; B=2 && C=3 &", "A=1^; B=2 | x", "A=1^; x | B=2", "A=1^ && x |& B=2 || y",
    "A=1^; { B=2; x; } | y", "A=1^; { B=2 | x; B=2 & } | y", "A=1^; if x; then B=2 & fi", "A=1^; coproc B=2",
    "A=1^; coproc >f B=2",
    // export.
    "export A=1", "  export A=1^;", "export A=1^ B", "export A=^ B", "export A=1^ 1x -y", "export A={a,b}",
    "export A=1^ >f",
    // What may stand before a redirection, and what stands in braces.
    "A=1^ 2>&1>f", "A=1^ {a[0]}>f", "A=1^ {a[b[\"]\"]]}>f", "A=1^ >&2x>f", "A=${a:-<(x)}", "A=${a:-\"<(x\"}",
    "A=(1)x", "A=${#@k}", "A=${?@Q}${#+a}${_@Q}", "A=1^; time -p while x; do y; done",
    "A=1^; time -p -- { x; }", "A=1^ 2>&- >&-",
    // A sum ends where its parentheses do, whatever braces stand in it; a command that begins like one looks at braces. time
    // is a plain word directly behind the parenthesis of a substitution.
    "A=$((${x))", "A=$[${x]", "A=<((x);y)", "A=$(()[[ ${!x)", "A=1^; ((${x))", "A=1^; (((${x});y);z)",
    "A=$(time)", "A=<(time () { x; })", "A=$(x; time { x;})",
    // Bash asks for no name before @} and *}, and for no partner where two characters have taken each other.
    "A=${!x @}${!x]*}${!x[*}${!*~}${!_@}${!0@z}", "A=${x/<>(}", "A=1^; [[ x =~(${) ]]",
    "A=1^; coproc f A=(x)", "A=1^; if coproc e then x; fi", "A=1^; (($(B=(\\\")x)))",
    "A=1^; function f[ ((x))", "A=1^ &>>B="};

// Lines and their values, where quotes are taken away.
constexpr const char* kGives = " => ";
const char* const kQuoted[] = {
    // Double and single quotes, and backslashes.
    "OnBoot='yes' => yes", "A=\"\" => ", "A=\"x\"^ # comment \" => x", "A='x'^\t#c => x",
    "_a9=\"\303\251\" => \303\251", "export \tA=\"a b#c\"^ # c => a b#c", "A=\"x\"\r => x\r",
    "A=''\"x\"y'z' => xyz", "A='x'\\''y' => x'y", "A='say \"hi\"' => say \"hi\"", "A='a\\b' => a\\b",
    "A=\"a\\\"b\\\\c\\$d\\`e\\f\\'\" => a\"b\\c$d`e\\f\\'", "A=a\\ b\\\"c\\\\d\\$ => a b\"c\\d$",
    "A=$\"x\\$y\" => x$y", "A=\"$VEID/${VEID}\" => $VEID/${VEID}", "A=\"$ $. $% $'x'$\" => $ $. $% $'x'$",
    // What $'' knows.
    "A=$'a\\nb\\x41\\u00e9\\cA' => a\nbA\303\251\001",
    "A=$'\\a\\b\\e\\E\\f\\n\\r\\t\\v\\\\\\'\\\"\\?' => \007\010\033\033\014\n\r\t\013\\'\"?",
    "A=$'\\101\\60\\7\\x4\\x{4142}z\\xg' => A0\007\004Bz\\xg",
    "A=$'\\u20ac\\U1f600\\ug' => \342\202\254\360\237\230\200\\ug", "A=$'a\\0b'x => ax",
    "A=$'\\q\\c?\\c\\\\\\400z'y => \\q\177\034y",
    // Quotes within expansions.
    "A=\"$(echo \")\")\"^ # c => $(echo \")\")", "A=\"a$(echo \"b c\")d\"'e' => a$(echo \"b c\")de",
    "A=\"`echo \\\"x\\\"`\" => `echo \\\"x\\\"`", "A=\"${x:-\"a}b\"}c\" => ${x:-\"a}b\"}c",
    "A=\"${x#'}'}$[x[1]]\" => ${x#'}'}$[x[1]]", "A=\"$((${x))\" => $((${x))",
    // A dollar sign that another one has taken is none before a quote; what a backslash takes in $'' ends nothing.
    "A=$$'\\' => $$\\", "A=$$'a\\tb' => $$a\\tb", "A=$$\"x\" => $$x", "A=$$$'\\t' => $$\t",
    "A=$'\\c\\'' => \034'", "A=$'\\c' => \\c", "A=$'\\x' => \\x", "A=$'\\x{' => ", "A=$'\\u' => \\u",
    // Quotes in parentheses that are no array.
    "A=('a' \"b\" $'c\\td')x => (a b c\td)x", "A=( a  \t'b'  )x => (a b)x"};

// Lines that assign nothing, by the reason; "" for what does not even look like an assignment.
struct Group {
  const char* reason;
  std::vector<const char*> lines;
};
const Group kNothing[] = {
    {"",
     {// Neither a name nor an equals sign where they would have to be.
      "",           "   ",      "# A=1",      "  #A=\"1", "A",         "A cmd",   ": A=1",
      "\303\251=1", "\\A=1",    "\"A\"=1",    "A\"B\"=1", "+A=1",      "if A=1",  "! A=1",
      "{ A=1; }",   "time A=1", "(A=1)",      "then",     "[[ A=1 ]]", "((A=1))", "function A=1",
      "export",     "export A", "export A[0", "\r"}},
    {"a command, for which alone",
     {"A=1 ^cmd", "A= ^1", "A=1 ^2147483648>f", "A=1 ^{a[]}>f", "A=1 ^{a[0]b}>f", "A=1 ^{1}>f", "A=1 >&-^b",
      "A=\"$$(\" ^\")\"", "A= ^{d[${]}>f", "A=1 <& -^b", "A=1 ^cmd \"x\"", "A=1#no ^comment", "A=\"x\" ^\r"}},
    {"the assignment would be made in the background",
     {"A=1 ^&", "A=1^&", "A=1 && x ^&", "A=1 ^& B=2", "A=a^&b", "export A=1 ^&"}},
    {"the assignment would be made within a pipeline",
     {"A=1 ^| cmd", "A=1^|cmd", "A=1 ^|& cmd", "export A=1 ^| x"}},
    {"a blank before the equals sign", {"A ^=1", "A ^= 1"}},
    {"not a name", {"^1A=2", "^A-B=3", "^A.B=3"}},
    {"bash does not let this name be set",
     {"^FUNCNAME=x", "^_=x", "export ^PIPESTATUS=7", "^BASH_SUBSHELL=x"}},
    {"another assignment on the same line",
     {"A=1 ^B=2", "A=1 ^B+=2", "A=1; ^B=2", "A=1 && ^B=2", "A=1; { ^B=2; }", "A=1; declare ^B=2",
      "A=1; let ^x=(1)", "A=1; coproc x; ^B=2", "A=1; f() { x; }; ^B=2", "A=1; B=2 & ^C=3",
      "A=1; x | B=2; ^C=3", "A=1; ^B=2; C=3 &", "A=1; ^B=2 && x | y", "A=1; { x | B=2; ^C=3; }",
      "A=1; { B=2; } & ^C=3 || x", "export A=1 ^B=2", "export A=1 ^\"B=2\"", "export A=1 ^$'B=2'",
      "export A=1 ^B\"=\"2"}},
    {"+= is not a plain assignment", {"^A+=x"}},
    {"an array, not a single value",
     {"^A[0]=1", "^A[0 ]=\"x\"", "^A=(1 2)", "^A=(\"x)\" 'y' $(z)) # c", "^A=()", "^A=([)]=1)",
      "export ^A=(1)", "^A=()$(x)", "^A=(1)x\\)"}},
    {"assigned by a command", {"^declare A=1", "^export -n A=1", "^readonly A=1", "^let A=1"}},
};

// Lines that bash cannot end or refuses.
const Group kMalformed[] = {
    {"the double quote is not closed",
     {"A=^\"", "A=^\"x\\", "export A=^\"x", "A=\"a\" b^\"", "A=\"$(x^\"", "A=^\"$(x)", "A=(1 ^\"2",
      "A=\"${a#<(x}^\"", "A[0]=^\"x", "A=1 ^\"x"}},
    {"the single quote is not closed", {"A=^'x\\", "A=\"x\" ^'y", "A=$^'x\\'", "A=\"${x:-^'}\""}},
    {"bash parses this in one way",
     {"A=\"^$$(\"", "A=\"^$$(x)\"", "A=\"a^$${x}\"", "A=\"^\\\x01\"", "A=\"a^\\\x7f\"", "A=\"^$\x01\"",
      "A=$'\\c^\x01'", "A=\"$(B=(^\\))\"", "A=$'^\x7f'"}},
    {"the backquote is not closed", {"A=^`x", "A=\"^`x\""}},
    {"the command substitution is not closed", {"A=^$(x", "A=^<(x", "A=^$(x # )", "A=${a:-^<(x}"}},
    {"the ${ is not closed", {"A=^${x", "A=$$^${x", "A=^${#", "A=^${!"}},
    {"the arithmetic expansion is not closed", {"A=^$((1", "A=^$((1)", "A=^$[1"}},
    {"the array is not closed", {"A=^(1"}},
    {"the subscript is not closed", {"A^[0", "A^[1=2"}},
    {"the backslash joins the next line", {"A=^\\", "A=x^\\", "A=1 ^\\", "A=1; x ^\\", "export A=1 ^\\"}},
    {"a command must follow the operator", {"A=1 ^|", "A=1 ^&&"}},
    {"the compound command is not finished", {"A=1; ^if x", "A=1; ^{ x }", "A=1; f()^", "A=1; ^[[ x"}},
    {"the parenthesis is not closed", {"A=1; ^(x"}},
    {"unexpected ",
     {"A=x^(^1)", "A=\"\"^(^1)", "A=@^(^x)", "A=1 ^(^", "A=1 cmd ^(^x)", "A=1 f^(^) { x; }",
      "export A=a^(^b)",
      // Ends of lists, and separators.
      "A=1^)^", "A=1; (^)^", "A=$(if^)^", "A=$(x)^)^", "A=1; case x in a) y;; esac^)^", "A=(1^;^2)",
      "A=1; ^;^", "A=1 && ^;^ x", "A=1^;;^", "A=$(x^;;^)", "A=1; ^&^", "A=1; ! ^&^", "A=1 && ^&&^ x",
      "A=1 > ^>^f", "A=1 2>^2^>f", "A=x >^2^>y", "A=1 {a}>^{a}^>f", "A=1 >&^{a}^>f",
      // Reserved words.
      "A=1; ^then^", "A=1; ^}^", "A=1; ^fi^ x", "A=1; if x; then y; fi ^z^", "A=1; ^in^",
      "A=1; for i in 1; ^x^; done",
      // Conditions.
      "A=1; [[ ^]]^", "A=1; [[ x ^y^ ]]", "A=1; [[ -f ^]]^", "A=1; [[ x = ^]]^", "A=1; [[ ( ^)^ ]]",
      "A=1; [[ x ^|^ y ]]", "A=1; [[ x == a^(^b) ]]", "A=1; [[ x ^(^y) ]]", "A=1; [[ \"-f\" ^x^ ]]",
      "A=1; [[ -n = ^x^ ]]", "A=1; [[ x ^)^ ]]", "A=1; [[ ^2^>1 ]]", "A=${<(^}^ x", "A=1; time -p ^}^",
      "A=1; time -p ^&^", "A=1; ^fi^", "A=1; { case x in esac >f ^}^", "A=1; for ((i;j)^)^; do x; done",
      "A=1; for ((;;;)^)^; do x; done",
      // Coprocesses, redirections and pipes.
      "A=1; coproc x ^fi^", "A=1; coproc ^!^ x", "A=1; coproc N ^function^ f { x; }", "A=x >o H=^(^7)",
      "A=?,|&^!^", "A=$(time { x;^}^)", "A=<(time ^(^x))", "A=$((${x)})^)^",
      "A=1; for ((${x;y};)^)^ do z; done", "A=1; ((^)^ & y)", "A=1; for ((;;)){ ^}^", "export A= >f D=^(^x)",
      "A=1; <f &>>^B=^", "A=$(B=(\\))^)^"}},
    {"unexpected end of the line", {"A=1 >^"}},
    {"no such expansion",
     {"A=^${x y}",        "A=\"^${}\"", "A=^${1x}",   "A=^${x.y}",  "A=^${x[}",    "A=^${x[0]y}",
      "A=^${#x[0]y}",     "A=^${-x}",   "A=^${$x}",   "A=^${!x*y}", "A=^${#x:-y}", "A=^${#@x}",
      "A=^${!#x}",        "A=^${@[0]}", "A=^${$@}",   "A=^${?@x}",  "A=^${0@}",    "A=^${_@}",
      "A=^${!#@}",        "A=^${x@ab}", "A=^${@@aa}", "A=^${!1@}",  "A=^${!*@}",   "A=^${!x:}",
      "A=^${x[$'\\']#'}", "A=^${#+}",   "A=^${#=}",   "A=^${#/}",   "A=^${#%}"}},
    {"a read-only variable of bash", {"^UID=5", "export ^EUID=\"5\""}}};

const Lines& allLines() {
  static const Lines lines = [] {
    Lines all(std::begin(kPlain), std::end(kPlain));
    for (const std::string row : kQuoted)
      all.push_back(row.substr(0, row.find(kGives)));
    for (const auto groups : {std::span<const Group>(kNothing), std::span<const Group>(kMalformed)})
      for (const Group& group : groups)
        all.insert(all.end(), group.lines.begin(), group.lines.end());
    std::ranges::transform(all, all.begin(), unmarked);
    return all;
  }();
  return lines;
}

void expectAssignment(const std::string& marked, const std::optional<std::string>& value) {
  const std::string line = unmarked(marked);
  const std::size_t equals = line.find('=');
  const std::size_t end = std::min(marked.find('^'), line.size());
  const std::size_t name = line.find_last_of(" \t", equals) + 1;
  const Parsed parsed = parse(line);
  ASSERT_EQ(parsed.result, kBashAssignment) << line << ": " << getErrorMessage();
  EXPECT_EQ(parsed.name, line.substr(name, equals - name)) << line;
  EXPECT_EQ(parsed.first, equals + 1) << line;
  EXPECT_EQ(parsed.last + 1, end) << line;
  EXPECT_EQ(parsed.value, value.value_or(line.substr(equals + 1, end - equals - 1))) << line;
}

void expectReason(std::span<const Group> groups, int result) {
  for (const Group& group : groups) {
    for (const std::string marked : group.lines) {
      const std::string line = unmarked(marked);
      const std::size_t column = marked.find('^') + 1;
      const std::size_t end = marked.find('^', column);
      const std::string token =
          end == std::string::npos ? "" : '"' + marked.substr(column, end - column) + '"';
      const std::string head = *group.reason == '\0' ? "" : "column " + std::to_string(column) + ": ";
      setErrorMessage("%s", "");
      EXPECT_EQ(parse(line).result, result) << line;
      const std::string told = examineBashLine(line).describe();
      EXPECT_TRUE(told.starts_with(head + group.reason + token) && told.empty() == head.empty())
          << line << ": " << told;
      EXPECT_EQ(getErrorMessage(), result == kBashMalformed ? told : "") << line;
    }
  }
}

TEST(KFLBashStr, ReadsAssignments) {
  for (const char* const line : kPlain)
    expectAssignment(line, std::nullopt);
  for (const std::string row : kQuoted)
    expectAssignment(row.substr(0, row.find(kGives)), row.substr(row.find(kGives) + std::strlen(kGives)));
}

TEST(KFLBashStr, SaysWhyItReadsNone) {
  expectReason(kNothing, kBashNothing);
  expectReason(kMalformed, kBashMalformed);
}

// The law that rewriting a file rests on: put a fresh value over the old one, and nothing else changes. A refused line stays
// as it was.
void expectRewritable(const std::string& line) {
  const Parsed before = parse(line);
  const Kind kind = examineBashLine(line).kind;
  EXPECT_EQ(before.result == kBashAssignment, kind == Kind::Assignment) << line;
  EXPECT_EQ(before.result == kBashMalformed, kind == Kind::Malformed) << line;
  EXPECT_TRUE(before.result == kBashAssignment || before.buffer == line) << line;
  if (before.result != kBashAssignment) return;
  std::string rewritten = line;
  rewritten.replace(before.first, before.last - before.first + 1, "\"new value\"");
  const Parsed after = parse(rewritten);
  EXPECT_EQ(after.name + "=" + after.value, before.name + "=new value") << rewritten;
}

// What the short way takes, the grammar judges in the same way; it sees no byte behind the line's end.
void expectBothWaysAlike(const std::string& line) {
  std::vector<char> text(line.begin(), line.end());
  const std::string_view view(text.data(), text.size());
  const KFLBashJudgement judged = judgeBashLine(view);
  KFLBashPlainLine plain;
  if (!readPlainBashLine(view, plain)) return;
  EXPECT_EQ(plain.length, std::min(view.find('\n'), view.size())) << line;
  if (plain.length < view.size()) return;
  EXPECT_EQ(plain.name, judged.line.name) << line;
  EXPECT_EQ(judged.line.reason, Reason::None) << line;
  EXPECT_EQ(!plain.name.empty(), judged.line.kind == Kind::Assignment) << line;
  EXPECT_FALSE(judged.line.continues) << line;
  if (plain.name.empty()) return;
  EXPECT_EQ(plain.first, judged.pieces.begin()) << line;
  EXPECT_EQ(plain.end, judged.pieces.end()) << line;
  const std::string value(plain.value);
  EXPECT_EQ(value,
            std::string_view(text.data() + plain.first, unquoteBashValue(text, judged.pieces) - plain.first))
      << line;
}

TEST(KFLBashStr, KeepsTheLawsOnTheRows) {
  for (const std::string& line : allLines()) {
    expectRewritable(line);
    for (std::size_t size = 0; size <= line.size(); ++size)
      expectBothWaysAlike(line.substr(0, size));
  }
}

TEST(KFLBashStr, TellsWhatReachesIntoTheNextLine) {
  for (const char* const line :
       {"A=\"x", "echo \"x", "cmd \\", "\\", "x=$(", "A=(1", "A[0", "A=1 <<EOF", "cat <<-E", "echo `x"})
    EXPECT_TRUE(examineBashLine(line).continues) << line;
  for (const char* const line :
       {"cat <<<x", "# \"", "# \\", "if x; then", "x &&", "A=1", "A='x\\'", "fi", "(x", "A=\"x\"; y"})
    EXPECT_FALSE(examineBashLine(line).continues) << line;
}

TEST(KFLBashStr, TellsACarriageReturnInTheValue) {
  EXPECT_TRUE(examineBashLine("A=\"x\"\r").endsWithCarriageReturn);
  EXPECT_TRUE(examineBashLine("export A=\r").endsWithCarriageReturn);
  EXPECT_FALSE(examineBashLine("A=x # c\r").endsWithCarriageReturn);
}

// Nesting costs no stack, and no line costs more than linear time.
TEST(KFLBashStr, TakesAnyDepthAndLength) {
  const auto resultOf = [](const char* open, const char* middle, const char* close) {
    std::string line = "A=";
    std::string end = middle;
    for (int depth = 0; depth < 200000; ++depth) {
      line += open;
      end += close;
    }
    return parse(line + end).result;
  };
  EXPECT_EQ(resultOf("$(", "x", ")"), kBashAssignment);
  EXPECT_EQ(resultOf("${x:-", "x", "}"), kBashAssignment);
  EXPECT_EQ(resultOf("\"${x:-", "x", "}\""), kBashAssignment);
  EXPECT_EQ(resultOf("$((", "1", "))"), kBashAssignment);
  EXPECT_EQ(resultOf("$((", "1", ") )"), kBashAssignment);
  EXPECT_EQ(resultOf("1; { ", "", ""), kBashMalformed);
  EXPECT_EQ(resultOf("=(", "", ""), kBashMalformed);
}

// ---- bash on this machine as the judge ----

// Whether the value, as written, holds anything that bash would expand.
bool expands(const std::string& value, bool exported) {
  static const std::regex expansion("[`~]|\\$(?!['\"])|[<>]\\(");
  return std::regex_search(value, expansion) || (exported && value.find('{') != std::string::npos);
}

// Lines of whose fate the text alone does not decide: what stands in another's environment may expand to no command at
// all, arithmetic and parameters fail only when they are worked out, and bash joins a backslash at the end of a file.
bool dependsOnExpansion(const std::string& line, const KFLBashLine& judged) {
  if (judged.kind == Kind::Assignment) return std::regex_search(line, std::regex("\\$(\\(\\(|[[{])"));
  if (judged.reason == Reason::CommandEnvironment) return line.find_first_of("$`<") != std::string::npos;
  return judged.reason == Reason::OpenLine;
}

// Lines that assign, but not one plain value to one name at their beginning.
bool isSetAside(const KFLBashLine& judged) {
  const auto reasons = {Reason::TwoAssignments, Reason::Array,        Reason::Append,   Reason::OtherAssigner,
                        Reason::IgnoredName,    Reason::ReadOnlyName, Reason::Ambiguous};
  return std::ranges::count(reasons, judged.reason) > 0 ||
         (judged.kind == Kind::Nothing && judged.name.empty());
}

void compareWithBash(const Lines& lines) {
  std::vector<BashQuestion> questions;
  for (const std::string& line : lines) {
    const std::string_view name = examineBashLine(line).name;
    questions.push_back({line, name.empty() ? "A" : std::string(name)});
  }
  const auto answers = askBash(questions);
  ASSERT_EQ(answers.size(), lines.size()) << "bash did not answer";
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const KFLBashLine judged = examineBashLine(lines[i]);
    if (isSetAside(judged) || dependsOnExpansion(lines[i], judged)) continue;
    const bool assigns = judged.kind == Kind::Assignment;
    EXPECT_EQ(assigns, answers[i].has_value())
        << lines[i] << "\nours: " << judged.describe() << "\nbash: " << answers[i].value_or("unset");
    if (assigns && answers[i] &&
        !expands(std::string(judged.value), lines[i].find("export") < lines[i].find('='))) {
      EXPECT_EQ(parse(lines[i]).value, *answers[i]) << "line: " << lines[i];
    }
  }
}

// Texts that stand between ~.
Lines piecesOf(const char* text) {
  Lines pieces;
  getToken tokens(text, "~", 0);
  while (const char* const token = tokens.get(nullptr))
    pieces.emplace_back(token);
  return pieces;
}

Lines randomLines(const Lines& pieces, const std::string& head, std::size_t count, unsigned int seed) {
  std::mt19937 random(seed);
  Lines lines;
  for (std::size_t i = 0; i < count; ++i) {
    lines.push_back(random() % 8 == 0 ? "export " + head : head);
    for (std::size_t n = random() % 9; n > 0; --n)
      lines.back() += pieces[random() % pieces.size()];
  }
  return lines;
}

TEST(KFLBashStr, KeepsTheLawsOnRandomLines) {
  const Lines pieces = piecesOf(
      " ~1~\"~\"~'~\\~$~(~)~{~}~;~&~#~ #~`~x~[~]~=~!~\t~\r~\xc3\xa9~a "
      "b~<~>~<(~$(~${~$'~$$~\\c~#A~\n~x{~u1~2>~"
      "$VEID~UID~_");
  for (const char* const head : {"A=", "A=\"", "", "export A=", "A=$'"}) {
    for (const std::string& line : randomLines(pieces, head, 10000, 7)) {
      expectRewritable(line);
      expectBothWaysAlike(line);
    }
  }
}

TEST(KFLBashStr, AgreesWithBashOnTheRows) {
  compareWithBash(allLines());
}

TEST(KFLBashStr, AgreesWithBashOnEveryShortQuoting) {
  const Lines pieces = piecesOf("x~ ~\"~'~\\~$~#~;~&~=~\t~\r~(~)");
  Lines lines(1, "A=");
  for (std::size_t i = 0; lines[i].size() < std::strlen("A=123"); ++i) {
    for (const std::string& piece : pieces)
      lines.push_back(lines[i] + piece);
  }
  compareWithBash(lines);
}

TEST(KFLBashStr, AgreesWithBashOnRandomQuoting) {
  const Lines pieces = piecesOf(
      " ~1~\"~\"~'~'~\\~$~(~)~}~;~&~#~`~x~[~]~=~!~\t~\r~\xc3\xa9~a\"b\"~'c d'~$'\\n'~\\\"~-~*~?~%~:~,~^~@~$(~"
      "${x~${x:-~$((~))~$\"~$'~<(~\\x41");
  compareWithBash(randomLines(pieces, "A=", 2000, 1));
}

TEST(KFLBashStr, AgreesWithBashOnRandomCommands) {
  const Lines pieces = piecesOf(
      "; ~if ~x ~then ~fi ~; fi~else ~do ~done ~for i in 1 ~; done~while ~for i ~case x in ~x) ~x|y) ~;; ~"
      "esac ~{ ~} ~; }~( ~) ~(x) ~f() ~&& ~|| ~| ~& ~! ~time ~[[ x ]] ~((1)) ~$(x) ~$(~B=2 ~export ~echo a ~"
      "# c~>f ~2>&1 ~in ~until ~{x,y} ~\"a b\" ~function f ~[[ ~]] ~-f ~= ~coproc ~coproc N ");
  compareWithBash(randomLines(pieces, "A=1 ", 2000, 2));
}

// ---- values between double quotes ----

TEST(KFLBashSafe, GivesTheReason) {
  const Group groups[] = {
      {"",
       {"", "plain text, it's (all) #1 & more; <x> | ~ {a,b} *?[] ! \t \xc3\xa9", "$VEID /vz/$VEID/x ${VEID}",
        "$", "a$ $. $/ $' $= $% $+ $~", "C:\\dir\\new 'x\\y'"}},
      {"a double quote", {"a^\"b"}},
      {"a backquote", {"ab^`c"}},
      {"a newline", {"x^\ny"}},
      {"a control character", {"x^\r", "$^\x01", "\\^\x7f"}},
      {"a backslash at the end", {"x^\\"}},
      {"a backslash that bash would take away", {"a^\\\\b", "a^\\$VEID", "a^\\\""}},
      {"a command", {"^$(x)", "^$((1))"}},
      {"a sum", {"^$[1]"}},
      {"a variable", {"^$VEIDS", "^$VEID_", "^$VEI", "^$veid", "^$1"}},
      {"a ${", {"^${VEIDS}", "^${VEID", "^${VEID:-x}", "^${"}},
      {"a special", {"^$$", "x^$@", "$VEID^$?"}},
  };
  for (const Group& group : groups) {
    for (const std::string marked : group.lines) {
      const bool safe = *group.reason == '\0';
      const std::string at = safe ? "untouched" : "character " + std::to_string(marked.find('^') + 1) + ": ";
      std::string reason = "untouched";
      EXPECT_EQ(isBashSafe(unmarked(marked), &reason), safe) << marked;
      EXPECT_TRUE(reason.starts_with(at + group.reason)) << marked << ": " << reason;
    }
  }
  EXPECT_FALSE(isBashSafe(std::string_view("x\0y", 3), nullptr));
}

// Safe means that bash and this reader give back the very text; every byte and pair of special ones is tried.
TEST(KFLBashSafe, SafeValuesComeBackFromBash) {
  const Lines pieces = piecesOf("$~\\~\"~'~`~{~}~(~)~VEID~x~ ~\n~[~!~#~=~*~1~_~\r~\xe9");
  Lines values = randomLines(pieces, "", 1500, 3);
  for (int byte = 1; byte < 256; ++byte) {
    for (const char* around : {"", "x", "$", "\\", "~"})
      values.push_back(around + std::string(1, static_cast<char>(byte)));
  }
  std::vector<BashQuestion> questions;
  for (const std::string& value : values)
    questions.push_back({"VEID=101; A=\"" + value + "\"", "A"});
  const auto answers = askBash(questions);
  ASSERT_EQ(answers.size(), values.size());
  std::size_t safe = 0;
  for (std::size_t i = 0; i < values.size(); ++i) {
    const std::string& value = values[i];
    if (isBashSafe(value, nullptr)) {
      ++safe;
      EXPECT_EQ(parse("A=\"" + value + "\"").value, value);
      EXPECT_EQ(answers[i], std::regex_replace(value, std::regex("\\$(VEID|\\{VEID\\})"), "101")) << value;
    } else if (std::ranges::none_of(value, [](char c) { return isControl(c) && c != '\t'; })) {
      EXPECT_NE(answers[i], value) << "refused without need";
    }
  }
  EXPECT_GT(safe, values.size() / 4);
}

}  // namespace

}  // namespace KFL::test
