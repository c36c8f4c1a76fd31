// SPDX-License-Identifier: Apache-2.0
// Inner header, not installed: the operator table and the meaning of its rows.
#ifndef KFAFUNCTIONALITY_RESOURCES_KFAQOSOPERATORS_H
#define KFAFUNCTIONALITY_RESOURCES_KFAQOSOPERATORS_H

#include <array>
#include <limits>

#include <KFAFunctionality/resources/KFAQoSFormula.h>

namespace KFA::operators {

using Wide = unsigned long long;

constexpr Wide wide(long long value) {
  return static_cast<Wide>(value);
}
constexpr long long wrap(Wide value) {
  return static_cast<long long>(value);
}

// Rows 4 to 7 are the escaped forms of 8 to 11.
constexpr int plainRow(int row) {
  return row >= 4 && row <= 7 ? row + 4 : row;
}

// The meaning of each row. False for what cannot be evaluated: a row without
// a meaning, a zero divisor, the one overflow of division.
constexpr bool apply(int row, long long left, long long right, long long& result) {
  switch (plainRow(row)) {
    case 3:
      result = left != 0 && right != 0;
      return true;
    case 8:
      result = left >= right;
      return true;
    case 9:
      result = left <= right;
      return true;
    case 10:
      result = left > right;
      return true;
    case 11:
      result = left < right;
      return true;
    case 12:
      result = left == right;
      return true;
    case 13:
      result = wrap(wide(left) + wide(right));
      return true;
    case 14:
      result = wrap(wide(left) - wide(right));
      return true;
    case 15:
      result = wrap(wide(left) * wide(right));
      return true;
    case kOperatorDivide:
      if (right == 0 || (right == -1 && left == std::numeric_limits<long long>::min())) return false;
      result = left / right;
      return true;
    default:
      return false;
  }
}

template <int Row>
constexpr long long evaluation(long long left, long long right) {
  long long result = 0;
  apply(Row, left, right, result);
  return result;
}

// The escaped forms stand in vocabularies that were escaped twice.
inline constexpr std::array kTable = {
    KFAQVOperator{"dummy", -1, nullptr},       // 0, the end of a formula
    KFAQVOperator{"(", 0, nullptr},            // 1
    KFAQVOperator{")", 1, nullptr},            // 2
    KFAQVOperator{"&&", 3, evaluation<3>},     // 3
    KFAQVOperator{"&gt;=", 5, evaluation<4>},  // 4
    KFAQVOperator{"&lt;=", 5, evaluation<5>},  // 5
    KFAQVOperator{"&gt;", 5, evaluation<6>},   // 6
    KFAQVOperator{"&lt;", 5, evaluation<7>},   // 7
    KFAQVOperator{">=", 5, evaluation<8>},     // 8
    KFAQVOperator{"<=", 5, evaluation<9>},     // 9
    KFAQVOperator{">", 5, evaluation<10>},     // 10
    KFAQVOperator{"<", 5, evaluation<11>},     // 11
    KFAQVOperator{"==", 5, evaluation<12>},    // 12
    KFAQVOperator{"+", 7, evaluation<13>},     // 13
    KFAQVOperator{"-", 7, evaluation<14>},     // 14
    KFAQVOperator{"*", 9, evaluation<15>},     // 15
    KFAQVOperator{"/", 9, evaluation<16>},     // 16
};
static_assert(kTable[kOperatorOpen].text == "(" && kTable[kOperatorClose].text == ")");
static_assert(kTable.size() == kOperatorDivide + 1 && kTable[kOperatorDivide].text == "/");

}  // namespace KFA::operators

#endif
