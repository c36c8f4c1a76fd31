// SPDX-License-Identifier: Apache-2.0
// The formula language of the resource checks: tokens, postfix notation, operators. Three stages, each
// callable alone.
//
//   a.soft <= b.hard && c < 2mb
//     | get_token          a.soft   <=   b.hard   &&   c   <   2mb
//     | compileFormula     a  b+100  <=  c  2097152  <  &&            (postfix; +100 marks a hard value)
//     v KFAQVTune::checkByFormula   whether it holds
//
// Arithmetic is on signed 64-bit integers and wraps. Formulas are written without parentheses: a closed pair
// counts as one more operator, so the ordinary use of parentheses is refused. The encoding of a term keeps
// parameter and value apart by the number 100, so indices run from 1 to 99: 98 parameters and QOS. docs/formats.md
// describes the language.
//
// Nothing here is shared between calls; a compiled notation may be evaluated by any number of threads at
// once. The trap: a formula ends at its first NUL, as C strings do.
#ifndef KFAFUNCTIONALITY_RESOURCES_KFAQOSFORMULA_H
#define KFAFUNCTIONALITY_RESOURCES_KFAQOSFORMULA_H

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/resources/KFAQoSParamIDs.h>
#include <KFAFunctionality/resources/KFAQoSTerms.h>

namespace KFA {

// A compiled formula.
struct KFAQVPolishNotation {
  KFAQVTerms terms;                                // the postfix program
  int hasMultiple = 0;                             // 1 when a term is a multiple reference
  const KFAQVParamIDList* multipleList = nullptr;  // what it is repeated over; not owned
};

// One row of the operator table. The row number is the operator's identity; the order decides which text
// matches first, and is permanent.
struct KFAQVOperator {
  std::string_view text;
  int priority;  // operators of higher priority bind tighter; equal ones from the left
  // Null: cannot be evaluated. A division that applyOperator() refuses gives 0.
  long long (*evaluation)(long long left, long long right);

  static std::span<const KFAQVOperator> table();
};

// Rows of the operator table that the stages know by name.
inline constexpr int kOperatorEnd = 0;
inline constexpr int kOperatorOpen = 1;
inline constexpr int kOperatorClose = 2;
inline constexpr int kOperatorDivide = 16;

// Reads one token at *cursor and moves the cursor behind it; `text` receives the characters of an identifier
// or a number. 0, or -1 for a character that starts no token (the cursor then stands on it). After the end of
// the formula the cursor stands behind the terminating NUL.
int get_token(const char** cursor, KFAQVTermType* term, std::string& text);

// What is wrong with a formula.
struct KFAQVFormulaError {
  std::size_t offset = 0;  // 0-based position in the text
  std::string reason;      // what was found, and what would be right
};

// What an identifier stands for. Implemented by the owner of the names.
class KFAQVNames {
 public:
  // A parameter's index and, for a multiple reference, the list that it is repeated over; -1 for an unknown
  // name.
  virtual int find(std::string_view name, const KFAQVParamIDList*& multiple) const = 0;

 protected:
  ~KFAQVNames() = default;
};

// Compiles a formula, appending to `out`: 0, or -1 when it is not valid; terms may then have been appended.
// `error`, where given, receives the reason. After std::bad_alloc `out` is as it was.
int compileFormula(const std::string& formula, const KFAQVNames& names, KFAQVPolishNotation& out,
                   KFAQVFormulaError* error = nullptr);

// The result of one operator; false when it cannot be evaluated: a zero divisor, the overflow of a division,
// or a row without a function.
bool applyOperator(int row, long long left, long long right, long long& result);

}  // namespace KFA

#endif
