// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <clocale>

#include <functional>
#include <limits>
#include <utility>
#include <vector>

#include <KFAFunctionality/resources/KFAQoSFormula.h>

#include "FormulaNames.h"

namespace {

using namespace KFA;

constexpr int kLeastInt = std::numeric_limits<int>::min();

// Rows "FORMULA -> RESULT".
void expectRows(const std::vector<std::string>& rows,
                const std::function<std::string(const std::string&)>& f) {
  for (const std::string& row : rows) {
    const std::string formula = row.substr(0, row.find(" -> "));
    EXPECT_EQ(formula + " -> " + f(formula), row);
  }
}

TEST(QoSFormula, PostfixForm) {
  const FormulaNames names;
  expectRows(
      {// The side is found behind the last dot, in any place.
       "a.xsofty -> a.soft", "a.hardsoft -> a.soft", " \t\n\v\f\rx.y.hard -> x.y.hard",
       "a &lt;= b &gt; c -> a.soft b.soft &lt;= c.soft &gt;",
       // Values and operators need not take turns, only leave one value.
       "a b + -> a.soft b.soft +", "+ a b -> a.soft b.soft +", "a b c + * -> a.soft b.soft c.soft * +",
       // A closed pair of parentheses is one operator more.
       "(a) b -> a.soft b.soft )", "a (b (c)) -> a.soft b.soft c.soft ) )",
       "(a + b) c * d -> a.soft b.soft + c.soft d.soft * )"},
      [&](const std::string& formula) { return names.compile(formula); });
  EXPECT_EQ(names.compile(std::string("a\0 <=", 5)), "a.soft") << "the text ends at a NUL";
}

TEST(QoSFormula, TermsAreEncoded) {
  const FormulaNames names;
  KFAQVPolishNotation notation;
  ASSERT_EQ(names.tune.formFormula("x.y.hard &lt;= QOS.hard + 3", notation), 0);
  const std::vector<KFAQVTermType> terms = {{1, 105}, {4, 106}, {3, 3}, {2, 13}, {2, 5}};
  EXPECT_EQ(notation.terms, terms);
  EXPECT_EQ(notation.hasMultiple, 1);
  EXPECT_EQ(notation.multipleList, &names.tune.index.find("QOS")->second.list);
  // A second list is refused, the same one is not.
  EXPECT_EQ(names.tune.formFormula("QOS", notation), -1);
  KFAQVParamIDList other;
  KFAQVPolishNotation mixed{{}, 1, &other};
  KFAQVFormulaError error;
  EXPECT_EQ(names.tune.formFormula("a + QOS", mixed, &error), -1);
  EXPECT_EQ(error.offset, 4U);
  EXPECT_NE(error.reason.find("second list"), std::string::npos) << error.reason;
}

// Whatever hands out a term that can be changed takes the fast form away.
TEST(QoSFormula, TermsAreASequenceThatCanBeChanged) {
  void (*const changes[])(KFAQVTerms&) = {
      [](auto& terms) { terms[0] = {}; },       [](auto& terms) { terms.at(0) = {}; },
      [](auto& terms) { terms.front() = {}; },  [](auto& terms) { terms.back() = {}; },
      [](auto& terms) { *terms.begin() = {}; }, [](auto& terms) { terms.end(); },
      [](auto& terms) { terms.push_back({}); }, [](auto& terms) { terms.pop_back(); },
      [](auto& terms) { terms.resize(1); },     [](auto& terms) { terms.clear(); }};
  const FormulaNames names;
  for (const auto& change : changes) {
    KFAQVPolishNotation notation;
    ASSERT_EQ(names.tune.formFormula("a < 5", notation), 0);
    notation.terms.reserve(9);
    EXPECT_NE(notation.terms.program(), nullptr);
    change(notation.terms);
    EXPECT_EQ(notation.terms.program(), nullptr) << &change - changes;
  }
  const KFAQVTerms terms = {{1, 2}, {3, 4}};
  EXPECT_TRUE(!terms.empty() && terms.front() == terms[0] && terms.back() == terms.at(1));
  EXPECT_TRUE(terms.cbegin() == terms.begin() && terms.cend() - 1 == terms.begin() + 1);
  EXPECT_EQ(terms.data()[1].value, 4);
}

TEST(QoSFormula, NumbersAreSinglePrecisionAndTruncated) {
  const FormulaNames names;
  // Whatever the program's locale, the point is a point.
  for (const char* const locale : {"C", "de_DE.UTF-8"}) {
    if (std::setlocale(LC_ALL, locale) == nullptr) continue;
    expectRows({"1.5 -> 1", "3KB -> 3072",
                // The edges of a float and of an int.
                "2147483520 -> 2147483520", "2147483647 -> -2147483648", "2047mb -> 2146435072",
                "2048mb -> -2147483648",
                // The other forms of the C library.
                "1e39 -> -2147483648", "0x1p4 -> 16", "0xAmb -> 10485760", "0x1b -> 27"},
               [&](const std::string& formula) { return names.compile(formula); });
  }
  std::setlocale(LC_ALL, "C");
}

TEST(QoSFormula, RefusalsNameThePlace) {
  // The formulas, "^" before the place.
  const std::pair<const char*, std::vector<std::string>> rows[] = {
      {"no formula", {"^", "  ^"}},
      {"behind a value", {"a ^b", "a < 1 ^2"}},
      {"the end behind '+'", {"a +^"}},
      {"without a value", {"^< a", "a + ^* b", "^-1"}},
      {"begins no", {"a < ^= b", "a <= b ^& c", "a ^!", "^&amp;", "a ^||", "^.5"}},
      {"'_' cannot stand", {"a^_b"}},
      {"byte 0x80", {"a^\x80"}},
      {"'('; formulas are written without parentheses",
       {"^(", "^(a)", "^(a + b) * c", "a * ^(b + c)", "a + ^("}},
      {"')'", {"^)", "a^)"}},
      {"unknown name 'e'", {"a <= ^e"}},
      {"unknown name", {"^A", "^qos", "^a.b.hard"}},
      {".soft or .hard", {"^a.", "^a.Hard", "^x.y"}},
      {"is no number", {"a < ^10gb", "^10k", "^10kbb", "^1.2.3", "^0x", "^1.2kb3"}},
  };
  const FormulaNames names;
  for (const auto& [reason, formulas] : rows) {
    for (std::string formula : formulas) {
      const std::size_t offset = formula.find('^');
      const std::string refusal = names.compile(formula.erase(offset, 1));
      EXPECT_EQ(refusal.substr(0, refusal.find(' ')), "-" + std::to_string(offset)) << formula;
      EXPECT_NE(refusal.find(reason), std::string::npos) << formula << ": " << refusal;
    }
  }
}

TEST(QoSFormula, LongFormulasTakeNoLongTime) {
  const FormulaNames names;
  KFAQVPolishNotation notation;
  std::string text = "a";
  for (int i = 0; i < 200000; ++i)
    text += " + b";
  EXPECT_EQ(names.tune.formFormula(text, notation), 0);
  EXPECT_EQ(notation.terms.size(), 400001U);
  EXPECT_EQ(names.compile(std::string(1 << 20, 'a')).substr(0, 30),
            "-0 the unknown name '" + std::string(9, 'a'));
  EXPECT_EQ(names.compile(std::string(1 << 20, '1')), std::to_string(kLeastInt));
  EXPECT_EQ(names.compile(std::string(1 << 20, '(')).substr(0, 5), "-0 '(");
}

}  // namespace
