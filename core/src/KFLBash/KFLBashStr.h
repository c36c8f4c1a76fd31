// SPDX-License-Identifier: Apache-2.0
// Lines of the KEY="value" files that a shell sources: what bash would assign from one line, without
// expanding anything.
//
// The rule is bash itself, a line at a time. A line is an assignment when it begins (after blanks and an
// optional `export`) with one that bash, sourcing the line, would make. Expansions ($VEID, $(...), a tilde)
// stay as text. Nothing is allocated for an ordinary line, and no thread shares anything.
#ifndef KFLBASH_KFLBASHSTR_H
#define KFLBASH_KFLBASHSTR_H

#include <cstddef>
#include <string>
#include <string_view>

#include <KFLCommon/KFLLanguage.h>

namespace KFL {

// Results of parseBashStr.
inline constexpr int kBashAssignment = 0;
inline constexpr int kBashNothing = 1;
inline constexpr int kBashMalformed = -1;

// Takes one line (NUL-terminated, without its newline) apart, in place.
// 0: an assignment; *name and *value point into the buffer at the NUL-terminated name and the value with its
// quoting
//    removed. valueFirst and valueLast, when not null, receive the 0-based positions of the first and the
//    last character of the value in the unaltered line, quotes included; for an empty value the last is the
//    first less one (so the length, last - first + 1, is 0).
// 1: no assignment; the buffer is as it was.
// -1: an assignment that is left open or that bash refuses; the buffer is as it was, the error text names the
// column.
int parseBashStr(char* line, char** name, char** value, unsigned int* valueFirst, unsigned int* valueLast);

// The same judgement with its reasons, for tools that explain a line.
struct KFLBashLine {
  enum class Kind { Assignment, Nothing, Malformed };

  enum class Reason {
    None,  // an assignment, a comment, a blank line, an ordinary command
    // Nothing: it looks like an assignment, but none is made, or not one that has one name and one value.
    TwoAssignments,      // A=1 B=2, A=1; B=2
    Append,              // A+=x
    Array,               // A=(1 2), A[0]=1
    CommandEnvironment,  // A=1 cmd, A= 1
    Background,          // A=1 &
    Pipeline,            // A=1 | cmd
    SpacedEquals,        // A =1
    InvalidName,         // 1A=2, A-B=3
    OtherAssigner,       // declare A=1, export -n A=1
    IgnoredName,         // FUNCNAME=x: bash takes it and assigns nothing
    // Malformed: something is left open.
    OpenSingleQuote,
    OpenDoubleQuote,
    OpenBackquote,
    OpenCommand,      // $(, <(
    OpenParameter,    // ${
    OpenArithmetic,   // $((, $[
    OpenSubscript,    // A[
    OpenArray,        // A=(
    OpenParenthesis,  // a subshell's
    OpenCompound,     // if, while, case, {
    OpenOperator,     // && at the end
    OpenLine,         // a backslash at the end
    // Malformed: bash refuses it.
    UnexpectedToken,
    BadSubstitution,
    ReadOnlyName,  // UID=5
    Ambiguous,     // A="$$(": its parser and its expander disagree
  };

  Kind kind = Kind::Nothing;
  Reason reason = Reason::None;
  // 1-based, of the character that the reason is about; 0 without a reason.
  unsigned int column = 0;
  // What stands there, where bash does not expect it.
  std::string_view token;
  // The name and the value as written, quotes included; meaningful for an assignment.
  std::string_view name;
  std::string_view value;
  // The value ends with a carriage return, as the lines of a file with DOS line ends do.
  bool endsWithCarriageReturn = false;
  // The text of the next line belongs to this one, be it an assignment or not: a quote, a substitution, an array, a
  // here-document or a backslash is open. (An open `if` or `&&` leaves the next line a line of its own.)
  bool continues = false;

  // The reason in words with its column; empty without one.
  std::string describe() const;
};

// Judges a line without changing it. The result points into it; a NUL ends it.
KFLBashLine examineBashLine(std::string_view line);

// A line that can be told without the grammar: blanks, a comment, or NAME=word or NAME="text" with blanks and a comment
// around it. Nothing in the value quotes or expands, but $NAME, which is text here. Nearly all lines of real files are such.
struct KFLBashPlainLine {
  std::string_view name;   // empty when the line assigns nothing
  std::string_view value;  // without its quotes
  // Where the value stands in the line, quotes included: the first character, and the one behind the last.
  std::size_t first = 0;
  std::size_t end = 0;
  // Of the line, without its newline.
  std::size_t length = 0;
};

// Recognises the first line of the text, up to its newline or the end, in one pass; false, with plain in any state, for a
// line that parseBashStr has to judge. Where it is true both give the same result.
bool readPlainBashLine(std::string_view text, KFLBashPlainLine& plain);

// Whether the text can be the name of an assignment: letters, digits and underscores, no digit first.
bool isBashName(std::string_view text);

// Whether bash keeps that name for itself, as it does UID, which it does not let be set, and LINENO, which it computes: no
// line assigns it. In lower case none but "_" is.
bool isSpecialBashName(std::string_view name);

// Whether bash reads KEY="value", with this value put between the quotes as it stands, back as the same text
// and runs nothing. $VEID and ${VEID} are welcome, although bash expands them. When it is not safe and reason
// is not null, *reason says why and at which character.
bool isBashSafe(std::string_view value, std::string* reason);

}  // namespace KFL

#endif
