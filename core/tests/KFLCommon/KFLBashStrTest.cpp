#include <KFLCommon/KFLBashStr.h>

#include <algorithm>
#include <random>
#include <span>
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

    // export.
    "export A=1", "  export A=1^;", "export A=1^ B", "export A=^ B", "export A=1^ 1x -y", "export A={a,b}",
    "export A=1^ >f"};

// Lines and their values, where quotes are taken away.
struct Quoted {
  const char* line;
  const char* value;
};
const Quoted kQuoted[] = {
    {"OnBoot='yes'", "yes"},
    {"A=\"\"", ""},
    {"A=\"x\"^ # comment \"", "x"},
    {"A='x'^\t#c", "x"},
    {"_a9=\"\303\251\"", "\303\251"},
    {"A=\"a b#c\"", "a b#c"},
    {"export \tA=\"x y\"^ # c", "x y"},
    {"A=\"x\"\r", "x\r"},
    {"A=\"x\"y'z'", "xyz"},
    {"A='x'\\''y'", "x'y"},
    {"A=''\"x\"''", "x"},
    {"A='say \"hi\"'", "say \"hi\""},
    {"A=\"a\\\"b\\\\c\\$d\\`e\\f\\'\"", "a\"b\\c$d`e\\f\\'"},
    {"A='a\\b'", "a\\b"},
    {"A=a\\ b\\\"c\\\\d\\$", "a b\"c\\d$"},
    {"A=\"$VEID/${VEID}\"", "$VEID/${VEID}"},
    {"A=\"$ $. $% $'x'$\"", "$ $. $% $'x'$"},
    {"A=$\"x\\$y\"", "x$y"},
    {"A=$'a\\nb\\x41\\u00e9\\cA'", "a\nbA\303\251\001"},
    {"A=$'\\a\\b\\e\\E\\f\\n\\r\\t\\v\\\\\\'\\\"\\?'", "\007\010\033\033\014\n\r\t\013\\'\"?"},
    {"A=$'\\101\\60\\7\\x4\\x{4142}z\\xg\\u20ac\\U1f600\\ug'",
     "A0\007\004Bz\\xg\342\202\254\360\237\230\200\\ug"},
    {"A=$'a\\0b'x", "ax"},
    {"A=$'\\q\\c?\\c\\\\\\400z'y", "\\q\177\034y"},
    {"A=\"$(echo \")\")\"^ # c", "$(echo \")\")"},
    {"A=\"a$(echo \"b c\")d\"'e'", "a$(echo \"b c\")de"},
    {"A=\"`echo \\\"x\\\"`\"", "`echo \\\"x\\\"`"},
    {"A=\"${x:-\"a}b\"}c\"", "${x:-\"a}b\"}c"},
    {"A=\"${x#'}'}\"", "${x#'}'}"},
    {"A=\"$[x[1]]\"", "$[x[1]]"},
};

// Lines that assign nothing, by the reason; "" for what does not even look like an assignment.
struct Group {
  const char* reason;
  std::vector<const char*> lines;
};
const Group kNothing[] = {
    {"", {"",           "   ",      "# A=1",      "  #A=\"1", "A",         "A cmd",   ": A=1",
          "\303\251=1", "\\A=1",    "\"A\"=1",    "A\"B\"=1", "+A=1",      "if A=1",  "! A=1",
          "{ A=1; }",   "time A=1", "(A=1)",      "then",     "[[ A=1 ]]", "((A=1))", "function A=1",
          "export",     "export A", "export A[0", "\r"}},
    {"a command, for which alone", {"A=1 ^cmd", "A= ^1", "A=1 ^cmd \"x\"", "A=1#no ^comment", "A=\"x\" ^\r"}},
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
      "A=1; let ^x=(1)", "export A=1 ^B=2", "export A=1 ^\"B=2\""}},
    {"+= is not a plain assignment", {"^A+=x"}},
    {"an array, not a single value",
     {"^A[0]=1", "^A[0 ]=\"x\"", "^A=(1 2)", "^A=(\"x)\" 'y' $(z)) # c", "^A=()", "export ^A=(1)"}},
    {"assigned by a command", {"^declare A=1", "^export -n A=1", "^readonly A=1", "^let A=1"}},
};

// Lines that bash cannot end or refuses.
const Group kMalformed[] = {
    {"the double quote is not closed",
     {"A=^\"", "A=^\"x\\", "export A=^\"x", "A=\"a\" b^\"", "A=\"$(x^\"", "A=\"$$(x^\"", "A=^\"$(x)",
      "A=(1 ^\"2", "A[0]=^\"x", "A=1 ^\"x", "A=1 && ^\"x"}},
    {"the single quote is not closed", {"A=^'x\\", "A=\"x\" ^'y", "A=$^'x\\'", "A=\"${x:-^'}\""}},
    {"the backquote is not closed", {"A=^`x", "A=\"^`x\""}},
    {"the command substitution is not closed", {"A=^$(x", "A=^<(x", "A=^$(x # )"}},
    {"the ${ is not closed", {"A=^${x", "A=$$^${x"}},
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
      "A=1^)^", "A=1 ^)^", "A=1; (^)^", "A=$(if^)^", "A=$(x)^)^", "A=1; case x in a) y;; esac^)^",
      "A=(1^;^2)", "A=1; ^;^", "A=1 && ^;^ x", "A=1^;;^", "A=$(x^;;^)", "A=1; ^&^", "A=1; ! ^&^",
      "A=1 && ^&&^ x", "A=1 > ^>^f",
      // Reserved words.
      "A=1; ^then^", "A=1; ^}^", "A=1; ^fi^ x", "A=1; if x; then y; fi ^z^", "A=1; ^in^",
      "A=1; for i in 1; ^x^; done",
      // Conditions.
      "A=1; [[ ^]]^", "A=1; [[ x ^y^ ]]", "A=1; [[ -f ^]]^", "A=1; [[ x = ^]]^", "A=1; [[ ( ^)^ ]]",
      "A=1; [[ x ^|^ y ]]", "A=1; [[ x == a^(^b) ]]", "A=1; [[ x ^(^y) ]]", "A=1; [[ \"-f\" ^x^ ]]",
      "A=1; [[ -n = ^x^ ]]", "A=1; [[ x ^)^ ]]",
      // Coprocesses, redirections and pipes.
      "A=1; coproc x ^fi^", "A=1; coproc ^!^ x", "A=1; coproc N ^function^ f { x; }", "A=x >o H=^(^7)",
      "A=?,|&^!^"}},
    {"unexpected end of the line", {"A=1 >^"}},
    {"no such expansion",
     {"A=^${x y}", "A=\"^${}\"", "A=^${1x}", "A=^${x.y}", "A=^${x[}", "A=^${x[0]y}", "A=^${#x[0]y}",
      "A=^${-x}", "A=^${$x}", "A=^${!x*y}", "A=^${#x:-y}", "A=^${#@x}", "A=^${!#x}", "A=^${@[0]}"}},
    {"a read-only variable of bash", {"^UID=5", "export ^EUID=\"5\""}},
};

const Lines& allLines() {
  static const Lines lines = [] {
    Lines all(std::begin(kPlain), std::end(kPlain));
    for (const Quoted& row : kQuoted)
      all.emplace_back(row.line);
    for (const std::span<const Group> groups : {std::span<const Group>(kNothing), {kMalformed}})
      for (const Group& group : groups)
        all.insert(all.end(), group.lines.begin(), group.lines.end());
    std::ranges::transform(all, all.begin(), unmarked);
    return all;
  }();
  return lines;
}

void expectAssignment(const std::string& marked, const char* expected) {
  const std::string line = unmarked(marked);
  const std::size_t equals = line.find('=');
  const std::size_t end = std::min(marked.find('^'), line.size());
  const std::size_t name = line.find_last_of(" \t", equals) + 1;
  const Parsed parsed = parse(line);
  ASSERT_EQ(parsed.result, kBashAssignment) << line << ": " << getErrorMessage();
  EXPECT_EQ(parsed.name, line.substr(name, equals - name)) << line;
  EXPECT_EQ(parsed.first, equals + 1) << line;
  EXPECT_EQ(parsed.last + 1, end) << line;
  EXPECT_EQ(parsed.value, expected == nullptr ? line.substr(equals + 1, end - equals - 1) : expected) << line;
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
      const std::string told = examineBashLine(line.c_str()).describe();
      EXPECT_TRUE(told.starts_with(head + group.reason + token) && told.empty() == head.empty())
          << line << ": " << told;
      EXPECT_EQ(getErrorMessage(), result == kBashMalformed ? told : "") << line;
    }
  }
}

TEST(KFLBashStr, ReadsAssignments) {
  for (const char* const line : kPlain)
    expectAssignment(line, nullptr);
  for (const Quoted& row : kQuoted)
    expectAssignment(row.line, row.value);
}

TEST(KFLBashStr, SaysWhyItReadsNone) {
  expectReason(kNothing, kBashNothing);
  expectReason(kMalformed, kBashMalformed);
}

// What the quick way and the scanner share must agree whichever of them judges, and a refused line stays as it was.
TEST(KFLBashStr, KeepsTheBufferUnlessItAssigns) {
  for (const std::string& line : allLines()) {
    const Parsed parsed = parse(line);
    const Kind kind = examineBashLine(line.c_str()).kind;
    EXPECT_EQ(parsed.result == kBashAssignment, kind == Kind::Assignment) << line;
    EXPECT_EQ(parsed.result == kBashMalformed, kind == Kind::Malformed) << line;
    EXPECT_TRUE(parsed.result == kBashAssignment || parsed.buffer == line) << line;
  }
}

// The law that rewriting a file rests on: put a fresh value over the old one, and nothing else changes.
TEST(KFLBashStr, PositionsCoverExactlyTheValue) {
  for (const std::string& line : allLines()) {
    const Parsed before = parse(line);
    if (before.result != kBashAssignment) continue;
    std::string rewritten = line;
    rewritten.replace(before.first, before.last - before.first + 1, "\"new value\"");
    const Parsed after = parse(rewritten);
    EXPECT_EQ(after.name + "=" + after.value, before.name + "=new value") << rewritten;
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
        << lines[i] << "\nours: " << judged.describe() << "\nbash: " << answers[i].value_or("unset");
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
  compareWithBash(allLines());
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
  compareWithBash(randomLines(
      {"; ",     "if ",         "x ",      "then ",    "fi ",      "; fi",        "else ", "do ",
       "done ",  "for i in 1 ", "; done",  "while ",   "for i ",   "case x in ",  "x) ",   "x|y) ",
       ";; ",    "esac ",       "{ ",      "} ",       "; }",      "( ",          ") ",    "(x) ",
       "f() ",   "&& ",         "|| ",     "| ",       "& ",       "! ",          "time ", "[[ x ]] ",
       "((1)) ", "$(x) ",       "$(",      "B=2 ",     "export ",  "echo a ",     "# c",   ">f ",
       "2>&1 ",  "in ",         "until ",  "{x,y} ",   "\"a b\" ", "function f ", "[[ ",   "]] ",
       "-f ",    "= ",          "coproc ", "coproc N "},
      "A=1 ", 2000, 2));
}

// ---- values between double quotes ----

TEST(KFLBashSafe, GivesTheReason) {
  const Group groups[] = {
      {"",
       {"", "plain text, it's (all) #1 & more; <x> | ~ {a,b} *?[] ! \t \r \xc3\xa9 \x01\x7f",
        "$VEID /vz/$VEID/x ${VEID}", "$", "a$ $. $/ $' $= $% $+ $~", "C:\\dir\\new 'x\\y'"}},
      {"a double quote", {"a^\"b"}},
      {"a backquote", {"ab^`c"}},
      {"a newline", {"x^\ny"}},
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
