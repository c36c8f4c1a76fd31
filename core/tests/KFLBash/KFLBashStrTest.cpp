// SPDX-License-Identifier: Apache-2.0
#include <KFLBash/KFLBashStr.h>

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include <KFLCommon/KFLError.h>
namespace KFL::test {

namespace {

using Kind = KFLBashLine::Kind;

// What lines assign is held against the bash of the machine, and both ways of reading them against each other, by the seeds
// of the fuzz targets BashLineFuzz and BashTextFuzz. Here are the reasons that a line gives for assigning nothing, with a
// line for each place that gives one.
//
// In the tables "^" marks the place that the reason is about, and a second one the end of the token that stands there.
std::string unmarked(std::string line) {
  std::erase(line, '^');
  return line;
}

// Lines that assign nothing, by the reason; "" for what does not even look like an assignment.
struct Group {
  const char* reason;
  std::vector<const char*> lines;
};
const Group kNothing[] = {
    {"",
     {// Neither a name nor an equals sign where they would have to be.
      "", "# A=1", "A", ": A=1", "\303\251=1", "\"A\"=1", "+A=1", "if A=1", "! A=1", "(A=1)", "[[ A=1 ]]",
      "export A[0", "\r"}},
    {"a command, for which alone", {"A=1 ^cmd", "A= ^1", "A=1 ^{a[0]b}>f", "A=1 >&-^b", "A=\"x\" ^\r"}},
    {"the assignment would be made in the background",
     {"A=1^&", "A=1 && x ^&", "A=1 ^& B=2", "export A=1 ^&"}},
    {"the assignment would be made within a pipeline", {"A=1^| cmd", "A=1 ^|& cmd", "export A=1 ^| x"}},
    {"a blank before the equals sign", {"A ^=1"}},
    {"not a name", {"^1A=2", "^A-B=3", "^A.B=3"}},
    {"bash does not let this name be set", {"^_=x", "export ^PIPESTATUS=7", "^BASH_SUBSHELL=x"}},
    {"another assignment on the same line",
     {"A=1 ^B=2", "A=1 ^B+=2", "A=1; ^B=2", "A=1; declare ^B=2", "A=1; let ^x=(1)", "A=1; { x | B=2; ^C=3; }",
      "A=1; { B=2; } & ^C=3 || x", "export A=1 ^$'B=2'", "export A=1 ^B\"=\"2"}},
    {"+= is not a plain assignment", {"^A+=x"}},
    {"an array, not a single value", {"^A[0]=1", "^A=(\"x)\" 'y' $(z)) # c", "export ^A=(1)", "^A=(1)x\\)"}},
    {"assigned by a command", {"^declare A=1", "^export -n A=1", "^let A=1"}},
};

// Lines that bash cannot end or refuses.
const Group kMalformed[] = {
    {"the double quote is not closed", {"A=^\"", "A=\"$(x^\"", "A=(1 ^\"2", "A[0]=^\"x", "A=1 ^\"x"}},
    {"the single quote is not closed", {"A=^'x\\", "A=\"x\" ^'y", "A=$^'x\\'", "A=\"${x:-^'}\""}},
    {"bash parses this in one way",
     {"A=\"^$$(\\)\"", "A=\"a^$${x\"", "A=\"^\\\x01\"", "A=\"^$\x01\"", "A=$'\\c^\x01'", "A=\"$(B=(^\\))\"",
      "A=$'^\x7f'"}},
    {"the backquote is not closed", {"A=^`x", "A=\"^`x\""}},
    {"the command substitution is not closed", {"A=^$(x", "A=${a:-^<(x}"}},
    {"the ${ is not closed", {"A=^${x", "A=^${!"}},
    {"the arithmetic expansion is not closed", {"A=^$((1", "A=^$[1"}},
    {"the array is not closed", {"A=^(1"}},
    {"the subscript is not closed", {"A^[0", "A^[1=2"}},
    {"the backslash joins the next line", {"A=x^\\", "A=1; x ^\\", "export A=1 ^\\"}},
    {"a command must follow the operator", {"A=1 ^|", "A=1 ^&&"}},
    {"the compound command is not finished", {"A=1; ^if x", "A=1; f()^", "A=1; ^[[ x"}},
    {"the parenthesis is not closed", {"A=1; ^(x"}},
    {"unexpected ",
     {"A=x^(^1)", "A=1 cmd ^(^x)", "export A=a^(^b)",
      // Ends of lists, and separators.
      "A=1^)^", "A=$(x)^)^", "A=1; case x in a) y;; esac^)^", "A=(1^;^2)", "A=1; ^;^", "A=1 && ^;^ x",
      "A=1^;;^", "A=$(x^;;^)", "A=1; ! ^&^", "A=1 && ^&&^ x", "A=1 > ^>^f", "A=1 2>^2^>f", "A=1 >&^{a}^>f",
      // Reserved words.
      "A=1; ^then^", "A=1; ^fi^ x", "A=1; if x; then y; fi ^z^", "A=1; ^in^", "A=1; for i in 1; ^x^; done",
      "A=1; for i=^(^) do x; done", "A=1; case i=^(^) in x) esac",
      // Conditions.
      "A=1; [[ ^]]^", "A=1; [[ x = ^]]^", "A=1; [[ ( ^)^ ]]", "A=1; [[ x ^(^y) ]]", "A=1; [[ x ^)^ ]]",
      "A=1; time -p ^}^", "A=1; time -p ^&^", "A=1; { case x in esac >f ^}^",
      "A=1; for ((i;j)^)^; do x; done", "A=1; for ((;;;)^)^; do x; done",
      // Coprocesses, redirections and pipes.
      "A=1; coproc x ^fi^", "A=1; coproc ^!^ x", "A=1; coproc N ^function^ f { x; }", "A=x >o H=^(^7)",
      "A=?,|&^!^", "A=$(time { x;^}^)", "A=$((${x)})^)^", "A=1; for ((${x;y};)^)^ do z; done",
      "A=1; ((^)^ & y)", "export A= >f D=^(^x)", "A=1; <f &>>^B=^", "A=$(B=(\\))^)^"}},
    {"unexpected end of the line", {"A=1 >^"}},
    {"no such expansion",
     {"A=^${x y}", "A=\"^${}\"", "A=^${x[0]y}", "A=^${-x}", "A=^${#x:-y}", "A=^${@[0]}", "A=^${!#@}",
      "A=^${x@ab}", "A=^${x[$'\\']#'}", "A=^${#+}"}},
    {"a read-only variable of bash", {"^UID=5", "export ^EUID=\"5\""}}};

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
      std::string text = line;
      char* name = nullptr;
      char* value = nullptr;
      EXPECT_EQ(parseBashStr(text.data(), &name, &value, nullptr, nullptr), result) << line;
      const std::string told = examineBashLine(line).describe();
      EXPECT_TRUE(told.starts_with(head + group.reason + token) && told.empty() == head.empty())
          << line << ": " << told;
      EXPECT_EQ(getErrorMessage(), result == kBashMalformed ? told : "") << line;
    }
  }
}

TEST(KFLBashStr, SaysWhyItReadsNone) {
  expectReason(kNothing, kBashNothing);
  expectReason(kMalformed, kBashMalformed);
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
  const auto kindOf = [](const char* open, const char* middle, const char* close) {
    std::string line = "A=";
    std::string end = middle;
    for (int depth = 0; depth < 200000; ++depth) {
      line += open;
      end += close;
    }
    return examineBashLine(line + end).kind;
  };
  EXPECT_EQ(kindOf("$(", "x", ")"), Kind::Assignment);
  EXPECT_EQ(kindOf("${x:-", "x", "}"), Kind::Assignment);
  EXPECT_EQ(kindOf("\"${x:-", "x", "}\""), Kind::Assignment);
  EXPECT_EQ(kindOf("$((", "1", "))"), Kind::Assignment);
  EXPECT_EQ(kindOf("$((", "1", ") )"), Kind::Assignment);
  EXPECT_EQ(kindOf("1; { ", "", ""), Kind::Malformed);
  EXPECT_EQ(kindOf("=(", "", ""), Kind::Malformed);
  EXPECT_EQ(kindOf("${x[", "1", "]}"), Kind::Assignment);
  EXPECT_EQ(kindOf("${!x[[[[[[", "", ""), Kind::Malformed);
  EXPECT_EQ(kindOf("1; ((", "", ""), Kind::Malformed);
  EXPECT_EQ(kindOf("$(export ", "x", ")"), Kind::Assignment);
  EXPECT_EQ(kindOf("$(export \"\"B[", "x", "])"), Kind::Assignment);
  EXPECT_EQ(kindOf("$({a[", "x", "]}>f)"), Kind::Assignment);
  EXPECT_EQ(kindOf("$(B[", "x", "]=1)"), Kind::Assignment);
}

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

}  // namespace

}  // namespace KFL::test
