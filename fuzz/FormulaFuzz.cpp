// SPDX-License-Identifier: Apache-2.0
// Resource formulas: any text is refused with a place inside it, or compiles to a notation that gives the same result by
// its program and term by term; and a formula that the input's bytes make comes to what a plain evaluator of its tree
// says. The first two bytes choose the values of the parameters.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>
#include <string>
#include <utility>

#include <KFLFunctionality/KFLVEnvConfig.h>

#include <KFAFunctionality/resources/KFAQoSTune.h>

#include "Fuzzing.h"

namespace {

using namespace KFA;
using kfl_fuzz::Choices;
using kfl_fuzz::require;

class Ignoring final : public KFAQVEvaluationObserver {
 public:
  void step(const KFAQVTermType& term, long long left, long long right, long long result) override {
    long long again = 0;
    require(applyOperator(term.value, left, right, again) && again == result,
            "a step is what its operator gives");
  }
};

// Tokens follow one another to the end, or to the character that begins none.
void walkTokens(const std::string& text) {
  const char* const end = text.c_str() + std::strlen(text.c_str());
  const char* cursor = text.c_str();
  KFAQVTermType term{0, -1};
  std::string word;
  while (true) {
    const char* const before = cursor;
    if (get_token(&cursor, &term, word) != 0) {
      require(cursor >= before && cursor < end, "a refused character stands in the text");
      return;
    }
    require(cursor > before, "a token is not empty");
    if (term.kind == KFAQVTermOperator && term.value == kOperatorEnd) break;
    require(cursor <= end, "a token ends in the text");
  }
  require(cursor == end + 1, "the end is behind the text");
}

long long valueOf(unsigned choice) {
  constexpr long long kValues[] = {
      0,         1,    -1, 7, std::numeric_limits<long long>::min(), std::numeric_limits<long long>::max(),
      1LL << 32, -1024};
  return kValues[choice % 8];
}

KFAQVTuneParameters valuesOf(unsigned choice) {
  KFAQVTuneParameters values;
  const char* const names[] = {"a", "b", "c.d"};
  for (unsigned i = 0; i < 3; ++i) {
    const unsigned mine = choice >> (5 * i);
    if ((mine & 3U) != 0) values[names[i]] = {valueOf(mine), valueOf(mine >> 2U), {}};
  }
  return values;
}

// The result of a formula, which its program and its terms must give alike.
int evaluate(const KFAQVTune& tune, const KFAQVPolishNotation& formula, const KFAQVTuneArray& array, int id) {
  const int multipleIndex = formula.hasMultiple != 0 ? id : -1;
  KFAQVParamIDSet used;
  KFAQVParamIDSet usedInSteps;
  Ignoring observer;
  const int result = tune.checkByFormula(array, formula, used, multipleIndex);
  require(result == 0 || result == 1 || result == -1 || result == -3, "the results are known");
  require(tune.checkByFormula(array, formula, usedInSteps, multipleIndex, &observer) == result,
          "both ways of evaluating agree");
  require(used == usedInSteps, "both ways of evaluating read the same parameters");
  return result;
}

// --- A formula as a tree --------------------------------------------------------------------------------------------

// What stands in a formula, and how strongly it binds: 4 for a value, 3 for a product, 0 for a conjunction.
struct Plain {
  std::string text;
  int strength = 4;
  const char* sign = "";
  std::unique_ptr<Plain> left, right;
  std::string name, side;  // of a parameter
  long long number = 0;
};

Plain number(Choices& choices) {
  static constexpr std::pair<const char*, long long> kNumbers[] = {
      {"0", 0},
      {"1", 1},
      {"2", 2},
      {"7", 7},
      {"64kb", 65536},
      {"0.5MB", 524288},
      {"1.5", 1},
      {"16777217", 16777216},
      {"1.1kb", 1126},
      {"1e3", 1000},
      {"0x10", 16},
      {"0x1p3", 8},
      {"1e3kb", 1024000},
      {"007", 7},
      {"2KB", 2048},
      {"1.", 1},
      {"3.999Mb", 4193255},
      {"3000000000", std::numeric_limits<int>::min()}};
  const auto& [text, value] = kNumbers[choices.below(std::size(kNumbers))];
  Plain made;
  made.text = text;
  made.number = value;
  return made;
}

Plain parameter(Choices& choices) {
  Plain made;
  made.name = choices.oneOf({"a", "b", "c.d", "QOS"});
  made.side = choices.oneOf({".soft", ".hard"});
  // A name without a dot is that of the soft value.
  if (made.name != "c.d" && made.side == ".soft" && choices.oneIn(2)) {
    made.text = made.name;
    return made;
  }
  made.text = made.name + made.side;
  return made;
}

Plain formula(Choices& choices, int strength, int depth) {
  if (depth == 0 || strength == 4 || choices.isAtEnd())
    return choices.oneIn(3) ? number(choices) : parameter(choices);
  Plain made = formula(choices, strength + 1, depth - 1);
  for (std::size_t more = choices.below(3); more > 0; --more) {
    Plain joined;
    joined.strength = strength;
    switch (strength) {
      case 3:
        joined.sign = choices.oneOf({"*", "/"});
        break;
      case 2:
        joined.sign = choices.oneOf({"+", "-"});
        break;
      case 1:
        joined.sign = choices.oneOf({"<", "<=", ">", ">=", "==", "&lt;", "&gt;="});
        break;
      default:
        joined.sign = "&&";
    }
    joined.left = std::make_unique<Plain>(std::move(made));
    joined.right = std::make_unique<Plain>(formula(choices, strength + 1, depth - 1));
    const std::string blank = choices.oneOf({"", " ", "  "});
    joined.text = joined.left->text + blank + joined.sign + blank + joined.right->text;
    made = std::move(joined);
  }
  return made;
}

// What ends an evaluation before its end, as the result that it gives.
struct Ending {
  int result;
};

long long joined(const std::string& sign, long long left, long long right) {
  const auto l = static_cast<unsigned long long>(left);
  const auto r = static_cast<unsigned long long>(right);
  if (sign == "&&") return left != 0 && right != 0;
  if (sign == "*") return static_cast<long long>(l * r);
  if (sign == "+") return static_cast<long long>(l + r);
  if (sign == "-") return static_cast<long long>(l - r);
  if (sign == "==") return left == right;
  if (sign == "<" || sign == "&lt;") return left < right;
  if (sign == "<=") return left <= right;
  if (sign == ">") return left > right;
  if (sign == ">=" || sign == "&gt;=") return left >= right;
  const bool overflows = left == std::numeric_limits<long long>::min() && right == -1;
  if (right == 0 || overflows) throw Ending{-1};
  return left / right;
}

long long valueOf(const Plain& plain, const KFAQVTuneParameters& values, const std::string& multiple) {
  if (plain.left != nullptr) {
    const long long left = valueOf(*plain.left, values, multiple);
    return joined(plain.sign, left, valueOf(*plain.right, values, multiple));
  }
  if (plain.name.empty()) return plain.number;
  const auto found = values.find(plain.name == "QOS" ? multiple : plain.name);
  if (found == values.end()) throw Ending{plain.name == "QOS" ? 0 : -3};
  return plain.side == ".soft" ? found->second.soft : found->second.hard;
}

void checkPlain(const KFAQVTune& tune, Choices choices, const KFAQVTuneParameters& values) {
  const Plain plain = formula(choices, 0, 5);
  KFAQVPolishNotation notation;
  require(tune.formFormula(plain.text, notation) == 0, "a formula of the grammar compiles", plain.text);
  const KFAQVTuneArray array = tune.arrange(values);
  for (const int id : {1, 2, 3}) {
    int expected = 0;
    try {
      expected = valueOf(plain, values, tune.getByIndex(id)) == 0 ? 1 : 0;
    } catch (const Ending& ending) {
      expected = ending.result;
    }
    require(evaluate(tune, notation, array, id) == expected, "a formula comes to what its tree says",
            plain.text);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const unsigned choice = data[0] | static_cast<unsigned>(data[1]) << 8U;
  const std::string text(reinterpret_cast<const char*>(data) + 2, size - 2);
  walkTokens(text);

  const KFL::KFLVEnvConfig config;
  KFAQVTune tune(config, nullptr);
  for (const char* name : {"a", "b", "c.d"})
    tune.getNewIndex(name);
  KFAQVParamsValue* multiple = nullptr;
  tune.getNewIndex("QOS", &multiple);
  multiple->list = {1, 2, 3};

  const KFAQVTuneParameters values = valuesOf(choice);
  checkPlain(tune, Choices({text.data(), text.size()}), values);

  KFAQVPolishNotation notation;
  KFAQVFormulaError error;
  const int result = tune.formFormula(text, notation, &error);
  require(result == 0 || result == -1, "compiling has two results");
  if (result == 0) {
    const KFAQVTuneArray array = tune.arrange(values);
    for (const int id : {1, 2, 3})
      evaluate(tune, notation, array, id);
  } else {
    require(error.offset <= std::strlen(text.c_str()) && !error.reason.empty(),
            "a refusal names a place and a reason");
  }
  return 0;
}
