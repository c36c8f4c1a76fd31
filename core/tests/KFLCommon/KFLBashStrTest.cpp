#include <KFLCommon/KFLBashStr.h>

#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include <KFLCommon/KFLError.h>

#include "KFLBashTwin.h"

namespace KFL::test {

namespace {

using Kind = KFLBashLine::Kind;
using Reason = KFLBashLine::Reason;

struct Parsed {
  int result = 0;
  std::string name;
  std::string value;
  unsigned int first = 0;
  unsigned int last = 0;
  std::string buffer;
};

Parsed parse(const std::string& line) {
  Parsed parsed;
  parsed.buffer = line;
  char* name = nullptr;
  char* value = nullptr;
  parsed.result = parseBashStr(parsed.buffer.data(), &name, &value, &parsed.first, &parsed.last);
  if (parsed.result == kBashAssignment) {
    parsed.name = name;
    parsed.value = value;
  }
  return parsed;
}

std::string dump(const std::string& line) {
  const Parsed parsed = parse(line);
  if (parsed.result == kBashMalformed) return getErrorMessage();
  if (parsed.result == kBashAssignment) {
    return parsed.name + " = [" + parsed.value + "] at " + std::to_string(parsed.first) + ".." +
           std::to_string(static_cast<int>(parsed.last));
  }
  const std::string why = examineBashLine(line.c_str()).describe();
  return why.empty() ? "nothing" : "nothing, " + why;
}

// A line and what is read from it; a reason is given up to its colon.
struct Row {
  const char* line;
  const char* expected;
};

constexpr Row kRows[] = {
    // The usual forms, and what may stand around them.
    {"ONBOOT=\"yes\"", "ONBOOT = [yes] at 7..11"},
    {"ONBOOT=yes", "ONBOOT = [yes] at 7..9"},
    {"OnBoot='yes'", "OnBoot = [yes] at 7..11"},
    {"A=", "A = [] at 2..1"},
    {"A=\"\"", "A = [] at 2..3"},
    {"A=''", "A = [] at 2..3"},
    {"A= ", "A = [] at 2..1"},
    {"  A=1", "A = [1] at 4..4"},
    {"A=1  ", "A = [1] at 2..2"},
    {"A=\"x\" # comment \"", "A = [x] at 2..4"},
    {"A='x'\t#c", "A = [x] at 2..4"},
    {"A=1 #c\\", "A = [1] at 2..2"},
    {"A=1#no comment", "nothing, column 8: a command"},
    {"A= #c", "A = [] at 2..1"},
    {"A=#x", "A = [#x] at 2..3"},
    {"_a9=\"\303\251\"", "_a9 = [\303\251] at 4..7"},
    {"A=1=2", "A = [1=2] at 2..4"},
    {"A==1", "A = [=1] at 2..3"},
    {"A=\"a b\"", "A = [a b] at 2..6"},
    {"A=\"a#b\"", "A = [a#b] at 2..6"},
    {"A=a;", "A = [a] at 2..2"},
    {"A=1 ;#c", "A = [1] at 2..2"},
    // Quoting.
    {"A=\"x\"y'z'", "A = [xyz] at 2..8"},
    {"A='x'\\''y'", "A = [x'y] at 2..9"},
    {"A=''\"x\"''", "A = [x] at 2..8"},
    {"A=\"it's\"", "A = [it's] at 2..7"},
    {"A='say \"hi\"'", "A = [say \"hi\"] at 2..11"},
    {"A=\"a\\\"b\\\\c\\$d\\`e\\f\\'\"", "A = [a\"b\\c$d`e\\f\\'] at 2..20"},
    {"A='a\\b'", "A = [a\\b] at 2..6"},
    {"A=a\\ b\\\"c\\\\d\\$", "A = [a b\"c\\d$] at 2..13"},
    {"A=\"$VEID/${VEID}\"", "A = [$VEID/${VEID}] at 2..16"},
    {"A=$VEID${VEID}", "A = [$VEID${VEID}] at 2..13"},
    {"A=a$", "A = [a$] at 2..3"},
    {"A=\"a$\"", "A = [a$] at 2..5"},
    {"A=\"$ $. $% $'x'\"", "A = [$ $. $% $'x'] at 2..15"},
    {"A=$$${x", "column 5: the ${ is not closed"},
    {"A=\"$$(x\"", "column 8: the double quote is not closed"},
    {"A=$\"x\\$y\"", "A = [x$y] at 2..8"},
    {"A=$'a\\nb\\x41\\u00e9\\cA'", "A = [a\nbA\303\251\001] at 2..21"},
    {"A=$'\\a\\b\\e\\E\\f\\n\\r\\t\\v\\\\\\'\\\"\\?'", "A = [\007\010\033\033\014\n\r\t\013\\'\"?] at 2..30"},
    {"A=$'\\101\\60\\7\\x4\\x{4142}z\\xg\\u20ac\\U1f600\\ug'",
     "A = [A0\007\004Bz\\xg\342\202\254\360\237\230\200\\ug] at 2..44"},
    {"A=$'it\\'s'x", "A = [it'sx] at 2..10"},
    {"A=$'a\\0b'x", "A = [ax] at 2..9"},
    {"A=$'\\q\\c?\\c\\\\\\400z'y", "A = [\\q\177\034y] at 2..19"},
    {"A=\"x\"", "A = [x] at 2..4"},
    {"A=x", "A = [x] at 2..2"},
    {"A=1\\", "column 4: the backslash joins the next line to this one"},
    // Expansions stay as text.
    {"A=$(cmd \"with ) quotes\")", "A = [$(cmd \"with ) quotes\")] at 2..23"},
    {"A=\"$(echo \")\")\" # c", "A = [$(echo \")\")] at 2..14"},
    {"A=\"a$(echo \"b c\")d\"'e'", "A = [a$(echo \"b c\")de] at 2..21"},
    {"A=`x \"y`", "A = [`x \"y`] at 2..7"},
    {"A=\"`echo \\\"x\\\"`\"", "A = [`echo \\\"x\\\"`] at 2..15"},
    {"A=`x\\`y`", "A = [`x\\`y`] at 2..7"},
    {"A=${x:-\"a b\"}", "A = [${x:-\"a b\"}] at 2..12"},
    {"A=\"${x:-\"a}b\"}c\"", "A = [${x:-\"a}b\"}c] at 2..15"},
    {"A=${x:-'}'}", "A = [${x:-'}'}] at 2..10"},
    {"A=\"${x#'}'}\"", "A = [${x#'}'}] at 2..11"},
    {"A=${#x}${x[1]}${x@Q}${!x*}${1}${@}", "A = [${#x}${x[1]}${x@Q}${!x*}${1}${@}] at 2..33"},
    {"A=$((1+2))", "A = [$((1+2))] at 2..9"},
    {"A=$((1+(2)))b", "A = [$((1+(2)))b] at 2..12"},
    {"A=$((x) ; (y))", "A = [$((x) ; (y))] at 2..13"},
    {"A=$[1 + 2]", "A = [$[1 + 2]] at 2..9"},
    {"A=\"$[x[1]]\"", "A = [$[x[1]]] at 2..10"},
    {"A=~/x", "A = [~/x] at 2..4"},
    {"A={a,b}", "A = [{a,b}] at 2..6"},
    {"A=*[a-z]?!^%", "A = [*[a-z]?!^%] at 2..11"},
    {"A=<(x \"y\")z", "A = [<(x \"y\")z] at 2..10"},
    {"A=$(case x in a) y;; esac)", "A = [$(case x in a) y;; esac)] at 2..25"},
    {"A=$( (x) ; { y; } )", "A = [$( (x) ; { y; } )] at 2..18"},
    {"A=$(x # )", "column 3: the command substitution is not closed"},
    {"A=$()", "A = [$()] at 2..4"},
    // What may follow.
    {"A=1; cmd", "A = [1] at 2..2"},
    {"A=1;cmd \"x;y\" 'z' &", "A = [1] at 2..2"},
    {"A=1 && cmd", "A = [1] at 2..2"},
    {"A=1&&cmd", "A = [1] at 2..2"},
    {"A=1 || cmd", "A = [1] at 2..2"},
    {"A=1 && x | y", "A = [1] at 2..2"},
    {"A=1 >file", "A = [1] at 2..2"},
    {"A=1 2>&1 <<<x", "A = [1] at 2..2"},
    {"A=1 &>f", "A = [1] at 2..2"},
    {"A=1>f", "A = [1] at 2..2"},
    {"A=1 {fd}>f", "A = [1] at 2..2"},
    {"A=1 <<EOF", "A = [1] at 2..2"},
    {"A=1; if x; then y; elif z; then :; else w; fi", "A = [1] at 2..2"},
    {"A=1; while x; do y; done; z", "A = [1] at 2..2"},
    {"A=1; for i in 1 2; do x; done", "A = [1] at 2..2"},
    {"A=1; for ((i=0;i<1;i++)); do x; done", "A = [1] at 2..2"},
    {"A=1; for i; { x; }", "A = [1] at 2..2"},
    {"A=1; case x in (a|b) y;; c) esac", "A = [1] at 2..2"},
    {"A=1; f() { B=2; }", "A = [1] at 2..2"},
    {"A=1; function f { x; } >g", "A = [1] at 2..2"},
    {"A=1; (B=2; x) | y", "A = [1] at 2..2"},
    {"A=1; [[ x = y && ( a < b ) ]]", "A = [1] at 2..2"},
    {"A=1; ((1+(2))) || ! x", "A = [1] at 2..2"},
    {"A=1; ((x) | (y))", "A = [1] at 2..2"},
    {"A=1; time", "A = [1] at 2..2"},
    {"A=1; a[0 1]; echo a[0 1]", "A = [1] at 2..2"},
    // export.
    {"export A=1", "A = [1] at 9..9"},
    {"export \tA=\"x y\" # c", "A = [x y] at 10..14"},
    {"  export A=1;", "A = [1] at 11..11"},
    {"export A=1 B", "A = [1] at 9..9"},
    {"export A= B", "A = [] at 9..8"},
    {"export A=1 1x -y", "A = [1] at 9..9"},
    {"export A={a,b}", "A = [{a,b}] at 9..13"},
    {"export A=1 >f", "A = [1] at 9..9"},
    {"export", "nothing"},
    {"export A", "nothing"},
    {"export=1", "export = [1] at 7..7"},
    {"exportA=1", "exportA = [1] at 8..8"},
    {"export A=\"x", "column 10: the double quote is not closed"},
    {"export A=a(b)", "column 11: unexpected \"(\""},
    {"export A=1 \\", "column 12: the backslash joins the next line to this one"},
    // Nothing is assigned.
    {"", "nothing"},
    {"   ", "nothing"},
    {"# A=1", "nothing"},
    {"  #A=\"1", "nothing"},
    {"cmd", "nothing"},
    {"A", "nothing"},
    {"A cmd", "nothing"},
    {": A=1", "nothing"},
    {"A=1 cmd", "nothing, column 5: a command"},
    {"A= 1", "nothing, column 4: a command"},
    {"A=1 cmd \"x\"", "nothing, column 5: a command"},
    {"A=\"a\" b\"", "column 8: the double quote is not closed"},
    {"A=a b", "nothing, column 5: a command"},
    {"A=1 &", "nothing, column 5: the assignment would be made in the background only"},
    {"A=1&", "nothing, column 4: the assignment would be made in the background only"},
    {"A=1 && x &", "nothing, column 10: the assignment would be made in the background only"},
    {"A=1 & B=2", "nothing, column 5: the assignment would be made in the background only"},
    {"A=a&b", "nothing, column 4: the assignment would be made in the background only"},
    {"A=1 | cmd", "nothing, column 5: the assignment would be made within a pipeline only"},
    {"A=1|cmd", "nothing, column 4: the assignment would be made within a pipeline only"},
    {"A=1 |& cmd", "nothing, column 5: the assignment would be made within a pipeline only"},
    {"export A=1 | x", "nothing, column 12: the assignment would be made within a pipeline only"},
    {"export A=1 &", "nothing, column 12: the assignment would be made in the background only"},
    {"A =1", "nothing, column 3: a blank before the equals sign"},
    {"A = 1", "nothing, column 3: a blank before the equals sign"},
    {"1A=2", "nothing, column 1: not a name"},
    {"A-B=3", "nothing, column 1: not a name"},
    {"A.B=3", "nothing, column 1: not a name"},
    {"\303\251=1", "nothing"},
    {"\\A=1", "nothing"},
    {"\"A\"=1", "nothing"},
    {"A\"B\"=1", "nothing"},
    {"+A=1", "nothing"},
    {"FUNCNAME=x", "nothing, column 1: bash does not let this name be set"},
    {"_=x", "nothing, column 1: bash does not let this name be set"},
    {"if A=1", "nothing"},
    {"! A=1", "nothing"},
    {"{ A=1; }", "nothing"},
    {"time A=1", "nothing"},
    {"(A=1)", "nothing"},
    {"then", "nothing"},
    {"[[ A=1 ]]", "nothing"},
    {"((A=1))", "nothing"},
    {"function A=1", "nothing"},
    {"A=1", "A = [1] at 2..2"},
    // Two, or not a single plain value.
    {"A=1 B=2", "nothing, column 5: another assignment on the same line"},
    {"A=1 B+=2", "nothing, column 5: another assignment on the same line"},
    {"A=1; B=2", "nothing, column 6: another assignment on the same line"},
    {"A=1 && B=2", "nothing, column 8: another assignment on the same line"},
    {"A=1; { B=2; }", "nothing, column 8: another assignment on the same line"},
    {"A=1; declare B=2", "nothing, column 14: another assignment on the same line"},
    {"export A=1 B=2", "nothing, column 12: another assignment on the same line"},
    {"export A=1 \"B=2\"", "nothing, column 12: another assignment on the same line"},
    {"A+=x", "nothing, column 1: += is not a plain assignment"},
    {"A[0]=1", "nothing, column 1: an array, not a single value"},
    {"A[0 ]=\"x\"", "nothing, column 1: an array, not a single value"},
    {"A=(1 2)", "nothing, column 1: an array, not a single value"},
    {"A=(\"x)\" 'y' $(z)) # c", "nothing, column 1: an array, not a single value"},
    {"A=()", "nothing, column 1: an array, not a single value"},
    {"export A=(1)", "nothing, column 8: an array, not a single value"},
    {"declare A=1", "nothing, column 1: assigned by a command"},
    {"export -n A=1", "nothing, column 1: assigned by a command"},
    {"readonly A=1", "nothing, column 1: assigned by a command"},
    // Left open.
    {"A=\"", "column 3: the double quote is not closed"},
    {"A=\"x", "column 3: the double quote is not closed"},
    {"A=\"x\\", "column 3: the double quote is not closed"},
    {"A=\"x\" 'y", "column 7: the single quote is not closed"},
    {"A='x", "column 3: the single quote is not closed"},
    {"A='x\\", "column 3: the single quote is not closed"},
    {"A=$'x\\'", "column 4: the single quote is not closed"},
    {"A=`x", "column 3: the backquote is not closed"},
    {"A=\"`x\"", "column 4: the backquote is not closed"},
    {"A=$(x", "column 3: the command substitution is not closed"},
    {"A=\"$(x\"", "column 7: the double quote is not closed"},
    {"A=\"$(x)", "column 3: the double quote is not closed"},
    {"A=${x", "column 3: the ${ is not closed"},
    {"A=\"${x:-'}\"", "column 9: the single quote is not closed"},
    {"A=$((1", "column 3: the arithmetic expansion is not closed"},
    {"A=$((1)", "column 3: the arithmetic expansion is not closed"},
    {"A=$[1", "column 3: the arithmetic expansion is not closed"},
    {"A=<(x", "column 3: the command substitution is not closed"},
    {"A=(1", "column 3: the array is not closed"},
    {"A=(1 \"2", "column 6: the double quote is not closed"},
    {"A[0]=\"x", "column 6: the double quote is not closed"},
    {"A[0", "nothing"},
    {"A=\\", "column 3: the backslash joins the next line to this one"},
    {"A=x\\", "column 4: the backslash joins the next line to this one"},
    {"A=1 \\", "column 5: the backslash joins the next line to this one"},
    {"A=1; x \\", "column 8: the backslash joins the next line to this one"},
    {"A=1 \"x", "column 5: the double quote is not closed"},
    {"A=1 && \"x", "column 8: the double quote is not closed"},
    {"A=1 |", "column 5: a command must follow the operator"},
    {"A=1 &&", "column 5: a command must follow the operator"},
    {"A=1; if x", "column 6: the compound command is not finished"},
    {"A=1; { x }", "column 6: the compound command is not finished"},
    {"A=1; (x", "column 6: the parenthesis is not closed"},
    {"A=1; f()", "column 9: the compound command is not finished"},
    {"A=1; [[ x", "column 6: the compound command is not finished"},
    {"A=1 #", "A = [1] at 2..2"},
    // Refused.
    {"A=1)", "column 4: unexpected \")\""},
    {"A=1 )", "column 5: unexpected \")\""},
    {"A=x(1)", "column 4: unexpected \"(\""},
    {"A=\"\"(1)", "column 5: unexpected \"(\""},
    {"A=@(x)", "column 4: unexpected \"(\""},
    {"A=(1;2)", "column 5: unexpected \";\""},
    {"A=1 (", "column 5: unexpected \"(\""},
    {"A=1 cmd (x)", "column 9: unexpected \"(\""},
    {"A=1 f() { x; }", "column 6: unexpected \"(\""},
    {"A=1;;", "column 4: unexpected \";;\""},
    {"A=1; ;", "column 6: unexpected \";\""},
    {"A=1; &", "column 6: unexpected \"&\""},
    {"A=1 >", "column 6: unexpected end of the line"},
    {"A=1 > >f", "column 7: unexpected \">\""},
    {"A=1 && ; x", "column 8: unexpected \";\""},
    {"A=1 && && x", "column 8: unexpected \"&&\""},
    {"A=1; then", "column 6: unexpected \"then\""},
    {"A=1; }", "column 6: unexpected \"}\""},
    {"A=1; fi x", "column 6: unexpected \"fi\""},
    {"A=1; if x; then y; fi z", "column 23: unexpected \"z\""},
    {"A=1; ()", "column 7: unexpected \")\""},
    {"A=1; ! &", "column 8: unexpected \"&\""},
    {"A=1; in", "column 6: unexpected \"in\""},
    {"A=1; case x in a) y;; esac)", "column 27: unexpected \")\""},
    {"A=1; for i in 1; x; done", "column 18: unexpected \"x\""},
    {"A=$(if)", "column 7: unexpected \")\""},
    {"A=$(x;;)", "column 6: unexpected \";;\""},
    {"A=$(x))", "column 7: unexpected \")\""},
    {"A=${x y}", "column 3: no such expansion"},
    {"A=\"${}\"", "column 4: no such expansion"},
    {"A=${1x}", "column 3: no such expansion"},
    {"A=${x.y}", "column 3: no such expansion"},
    {"UID=5", "column 1: a read-only variable of bash"},
    {"export EUID=\"5\"", "column 8: a read-only variable of bash"},
    {"A=\"x\"\r", "A = [x\r] at 2..5"},
    {"A=x\r", "A = [x\r] at 2..3"},
    {"A=\r", "A = [\r] at 2..2"},
    {"\r", "nothing"},
    {"A=\"x\" \r", "nothing, column 7: a command"},
    {"\tA=1\t\t#c", "A = [1] at 3..3"},
    {"A=1; x\r", "A = [1] at 2..2"},
};

bool isExpected(const std::string& dumped, std::string_view expected) {
  const bool exact = expected == "nothing" || expected.find(" = [") != std::string_view::npos;
  return exact ? dumped == expected : dumped.starts_with(expected);
}

TEST(KFLBashStr, ReadsEveryRow) {
  for (const Row& row : kRows) {
    EXPECT_PRED2(isExpected, dump(row.line), row.expected) << "line: " << row.line;
  }
}

// What the quick way and the scanner share must agree whichever of them judges, and a refused line stays as it was.
TEST(KFLBashStr, KeepsTheBufferUnlessItAssigns) {
  for (const Row& row : kRows) {
    const Parsed parsed = parse(row.line);
    const KFLBashLine line = examineBashLine(row.line);
    EXPECT_EQ(parsed.result == kBashAssignment, line.kind == Kind::Assignment) << row.line;
    EXPECT_EQ(parsed.result == kBashMalformed, line.kind == Kind::Malformed) << row.line;
    if (parsed.result != kBashAssignment) {
      EXPECT_EQ(parsed.buffer, row.line);
    }
  }
}

// The law that rewriting a file rests on: put a fresh value over the old one, and nothing else changes.
TEST(KFLBashStr, PositionsCoverExactlyTheValue) {
  for (const Row& row : kRows) {
    const Parsed before = parse(row.line);
    if (before.result != kBashAssignment) continue;
    std::string rewritten = row.line;
    rewritten.replace(before.first, before.last - before.first + 1, "\"new value\"");
    const Parsed after = parse(rewritten);
    EXPECT_EQ(after.result, kBashAssignment) << rewritten;
    EXPECT_EQ(after.value, "new value") << rewritten;
    EXPECT_EQ(after.name, before.name) << rewritten;
  }
}

TEST(KFLBashStr, TellsWhatReachesIntoTheNextLine) {
  const struct {
    const char* line;
    bool continues;
  } rows[] = {
      {"A=\"x", true},    {"echo \"x", true},    {"cmd \\", true},    {"\\", true},
      {"x=$(", true},     {"A=(1", true},        {"A[0", true},       {"A=1 <<EOF", true},
      {"cat <<-E", true}, {"echo `x", true},     {"cat <<<x", false}, {"# \"", false},
      {"# \\", false},    {"if x; then", false}, {"x &&", false},     {"A=1", false},
      {"A='x\\'", false}, {"fi", false},         {"(x", false},       {"A=\"x\"; y", false},
  };
  for (const auto& row : rows)
    EXPECT_EQ(examineBashLine(row.line).continues, row.continues) << row.line;
}

TEST(KFLBashStr, TellsACarriageReturnInTheValue) {
  EXPECT_TRUE(examineBashLine("A=\"x\"\r").endsWithCarriageReturn);
  EXPECT_TRUE(examineBashLine("export A=\r").endsWithCarriageReturn);
  EXPECT_FALSE(examineBashLine("A=x # c\r").endsWithCarriageReturn);
}

// Nesting costs no stack, and no line costs more than linear time.
TEST(KFLBashStr, TakesAnyDepthAndLength) {
  constexpr std::size_t kDepth = 200000;
  const auto nested = [](const char* open, const char* middle, const char* close) {
    std::string line = "A=";
    for (std::size_t i = 0; i < kDepth; ++i)
      line += open;
    line += middle;
    for (std::size_t i = 0; i < kDepth; ++i)
      line += close;
    return line;
  };
  EXPECT_EQ(parse(nested("$(", "x", ")")).result, kBashAssignment);
  EXPECT_EQ(parse(nested("${x:-", "x", "}")).result, kBashAssignment);
  EXPECT_EQ(parse(nested("\"${x:-", "x", "}\"")).result, kBashAssignment);
  EXPECT_EQ(parse(nested("$((", "1", "))")).result, kBashAssignment);
  EXPECT_EQ(parse(nested("$((", "1", ") )")).result, kBashAssignment);
  EXPECT_EQ(parse(nested("1; { ", "", "")).result, kBashMalformed);
  EXPECT_EQ(parse(nested("=(", "", "")).result, kBashMalformed);
}

// ---- bash on this machine as the judge ----

// Whether the value, as written, holds anything that bash would expand.
bool expands(std::string_view value, bool exported) {
  for (std::size_t i = 0; i < value.size(); ++i) {
    const char next = i + 1 < value.size() ? value[i + 1] : '\0';
    if (value[i] == '`' || value[i] == '~' || (exported && value[i] == '{')) return true;
    if (value[i] == '$' && next != '\'' && next != '"') return true;
    if ((value[i] == '<' || value[i] == '>') && next == '(') return true;
  }
  return false;
}

// Lines of whose fate the text alone does not decide: what stands in another's environment may expand to no command at
// all, arithmetic and parameters fail only when they are worked out, and bash joins a backslash at the end of a file.
bool dependsOnExpansion(const std::string& line, const KFLBashLine& judged) {
  const bool arithmetic = line.find("$((") != std::string::npos || line.find("$[") != std::string::npos ||
                          line.find("${") != std::string::npos;
  if (judged.kind == Kind::Assignment) return arithmetic;
  if (judged.reason == Reason::CommandEnvironment) return line.find_first_of("$`<") != std::string::npos;
  return judged.reason == Reason::OpenLine;
}

// Lines that assign, but not one plain value to one name at their beginning.
bool isSetAside(const KFLBashLine& judged) {
  return judged.reason == Reason::TwoAssignments || judged.reason == Reason::Array ||
         judged.reason == Reason::Append || judged.reason == Reason::OtherAssigner ||
         judged.reason == Reason::IgnoredName || judged.reason == Reason::ReadOnlyName ||
         (judged.kind == Kind::Nothing && judged.name.empty());
}

void compareWithBash(const std::vector<std::string>& lines) {
  std::vector<BashQuestion> questions;
  for (const std::string& line : lines) {
    const std::string_view name = examineBashLine(line.c_str()).name;
    questions.push_back({line, name.empty() ? "A" : std::string(name)});
  }
  const auto answers = askBash(questions);
  ASSERT_EQ(answers.size(), lines.size()) << "bash did not answer";
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const KFLBashLine judged = examineBashLine(lines[i].c_str());
    if (isSetAside(judged) || (dependsOnExpansion(lines[i], judged))) continue;
    EXPECT_EQ(judged.kind == Kind::Assignment, answers[i].has_value())
        << "line: " << lines[i] << "\nours: " << dump(lines[i]) << "\nbash: " << answers[i].value_or("unset");
    if (judged.kind != Kind::Assignment || !answers[i].has_value()) continue;
    const bool exported = lines[i].find("export") < lines[i].find('=');
    if (!expands(judged.value, exported)) {
      EXPECT_EQ(parse(lines[i]).value, *answers[i]) << "line: " << lines[i];
    }
  }
}

std::vector<std::string> randomLines(const std::vector<std::string>& pieces, const std::string& head,
                                     std::size_t count, unsigned int seed) {
  std::mt19937 random(seed);
  std::vector<std::string> lines;
  for (std::size_t i = 0; i < count; ++i) {
    lines.push_back(random() % 8 == 0 ? "export " + head : head);
    for (std::size_t n = random() % 9; n > 0; --n)
      lines.back() += pieces[random() % pieces.size()];
  }
  return lines;
}

TEST(KFLBashStr, AgreesWithBashOnTheRows) {
  std::vector<std::string> lines;
  for (const Row& row : kRows)
    lines.emplace_back(row.line);
  compareWithBash(lines);
}

TEST(KFLBashStr, AgreesWithBashOnEveryShortQuoting) {
  const std::vector<std::string> pieces = {"x", " ", "\"", "'",  "\\", "$", "#",
                                           ";", "&", "=",  "\t", "\r", "(", ")"};
  std::vector<std::string> lines;
  for (const std::string& a : pieces) {
    for (const std::string& b : pieces) {
      lines.push_back(std::string("A=").append(a).append(b));
      for (const std::string& c : pieces)
        lines.push_back(std::string("A=").append(a).append(b).append(c));
    }
  }
  compareWithBash(lines);
}

TEST(KFLBashStr, AgreesWithBashOnRandomQuoting) {
  compareWithBash(
      randomLines({" ",        "1",      "\"",    "\"",     "'",     "'",   "\\", "$",   "(",  ")",  "}",
                   ";",        "&",      "#",     "`",      "x",     "[",   "]",  "=",   "!",  "\t", "\r",
                   "\xc3\xa9", "a\"b\"", "'c d'", "$'\\n'", "\\\"",  "-",   "*",  "?",   "%",  ":",  ",",
                   "^",        "@",      "$(",    "${x",    "${x:-", "$((", "))", "$\"", "$'", "<(", "\\x41"},
                  "A=", 2000, 1));
}

TEST(KFLBashStr, AgreesWithBashOnRandomCommands) {
  compareWithBash(
      randomLines({"; ",     "if ",         "x ",     "then ",  "fi ",      "; fi",       "else ", "do ",
                   "done ",  "for i in 1 ", "; done", "while ", "for i ",   "case x in ", "x) ",   "x|y) ",
                   ";; ",    "esac ",       "{ ",     "} ",     "; }",      "( ",         ") ",    "(x) ",
                   "f() ",   "&& ",         "|| ",    "| ",     "& ",       "! ",         "time ", "[[ x ]] ",
                   "((1)) ", "$(x) ",       "$(",     "B=2 ",   "export ",  "echo a ",    "# c",   ">f ",
                   "2>&1 ",  "in ",         "until ", "{x,y} ", "\"a b\" ", "function f "},
                  "A=1 ", 2000, 2));
}

// ---- values between double quotes ----

TEST(KFLBashSafe, GivesTheReason) {
  const struct {
    std::string value;
    const char* reason;  // null when the value is safe
  } rows[] = {
      {"", nullptr},
      {"plain text, it's (all) #1 & more; <x> | ~ {a,b} *?[] ! \t \r \xc3\xa9 \x01\x7f", nullptr},
      {"$VEID /vz/$VEID/x ${VEID}", nullptr},
      {"$", nullptr},
      {"a$ $. $/ $' $= $% $+ $~", nullptr},
      {"C:\\dir\\new 'x\\y'", nullptr},
      {"a\"b", "character 2: a double quote"},
      {"ab`c", "character 3: a backquote"},
      {"x\ny", "character 2: a newline"},
      {std::string("x\0y", 3), "character 2: a NUL"},
      {"x\\", "character 2: a backslash at the end"},
      {"a\\\\b", "character 2: a backslash that bash would take away"},
      {"a\\$VEID", "character 2: a backslash that bash would take away"},
      {"a\\\"", "character 2: a backslash that bash would take away"},
      {"$(x)", "character 1: a command"},
      {"$((1))", "character 1: a command"},
      {"$[1]", "character 1: a sum"},
      {"$VEIDS", "character 1: a variable"},
      {"$VEID_", "character 1: a variable"},
      {"$VEI", "character 1: a variable"},
      {"$veid", "character 1: a variable"},
      {"$1", "character 1: a variable"},
      {"${VEIDS}", "character 1: a ${"},
      {"${VEID", "character 1: a ${"},
      {"${VEID:-x}", "character 1: a ${"},
      {"${", "character 1: a ${"},
      {"$$", "character 1: a special"},
      {"x$@", "character 2: a special"},
      {"$VEID$?", "character 6: a special"},
  };
  for (const auto& row : rows) {
    std::string reason = "untouched";
    EXPECT_EQ(isBashSafe(row.value, &reason), row.reason == nullptr) << row.value;
    EXPECT_TRUE(reason.starts_with(row.reason == nullptr ? "untouched" : row.reason))
        << row.value << ": " << reason;
    EXPECT_EQ(isBashSafe(row.value, nullptr), row.reason == nullptr);
  }
}

// Safe means that bash and this reader give back the very text; every byte and pair of special ones is tried.
TEST(KFLBashSafe, SafeValuesComeBackFromBash) {
  std::vector<std::string> values;
  for (int byte = 1; byte < 256; ++byte) {
    for (const char* around : {"", "x", "$", "\\"})
      values.push_back(around + std::string(1, static_cast<char>(byte)));
  }
  const std::vector<std::string> pieces = {"$",  "\\", "\"", "'", "`", "{", "}", "(", ")", "VEID", "x",   " ",
                                           "\n", "[",  "!",  "#", "=", "~", "*", "1", "_", "\r",   "\xe9"};
  for (std::string& line : randomLines(pieces, "", 1500, 3))
    values.push_back(std::move(line));
  std::vector<BashQuestion> questions;
  std::size_t safe = 0;
  for (const std::string& value : values) {
    const bool expected = isBashSafe(value, nullptr);
    safe += expected ? 1 : 0;
    if (expected) {
      EXPECT_EQ(parse("A=\"" + value + "\"").value, value);
    }
    questions.push_back({"VEID=101; A=\"" + value + "\"", "A"});
  }
  EXPECT_GT(safe, values.size() / 4);
  const auto answers = askBash(questions);
  ASSERT_EQ(answers.size(), values.size());
  for (std::size_t i = 0; i < values.size(); ++i) {
    std::string expected = values[i];
    for (const std::string_view name : {"${VEID}", "$VEID"}) {
      for (std::size_t at = 0; (at = expected.find(name, at)) != std::string::npos;)
        expected.replace(at, name.size(), "101");
    }
    const bool safeHere = isBashSafe(values[i], nullptr);
    if (safeHere) {
      EXPECT_EQ(answers[i], expected) << values[i];
    }
    // Refusing what bash keeps is allowed for newlines alone.
    const bool kept = answers[i] == values[i] && values[i].find('\n') == std::string::npos;
    if (kept) {
      EXPECT_TRUE(safeHere) << values[i];
    }
  }
}

}  // namespace

}  // namespace KFL::test
