// SPDX-License-Identifier: Apache-2.0
// Resource formulas: any text is refused with a place inside it, or compiles to a notation that gives the
// same result by its program and term by term. The first two bytes choose the values of the parameters.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>

#include <KFLFunctionality/KFLVEnvConfig.h>

#include <KFAFunctionality/resources/KFAQoSTune.h>

namespace {

using namespace KFA;

void require(bool holds, const char* law) {
  if (holds) return;
  std::fprintf(stderr, "%s\n", law);
  std::abort();
}

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

void evaluate(const KFAQVTune& tune, const KFAQVPolishNotation& formula, unsigned choice) {
  KFAQVTuneParameters values;
  const char* const names[] = {"a", "b", "c.d"};
  for (unsigned i = 0; i < 3; ++i) {
    const unsigned mine = choice >> (5 * i);
    if ((mine & 3U) != 0) values[names[i]] = {valueOf(mine), valueOf(mine >> 2U), {}};
  }
  const KFAQVTuneArray array = tune.arrange(values);
  for (const int id : {1, 2, 3}) {
    const int multipleIndex = formula.hasMultiple != 0 ? id : -1;
    KFAQVParamIDSet used;
    KFAQVParamIDSet usedInSteps;
    Ignoring observer;
    const int result = tune.checkByFormula(array, formula, used, multipleIndex);
    require(result == 0 || result == 1 || result == -1 || result == -3, "the results are known");
    require(tune.checkByFormula(array, formula, usedInSteps, multipleIndex, &observer) == result,
            "both ways of evaluating agree");
    require(used == usedInSteps, "both ways of evaluating read the same parameters");
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

  KFAQVPolishNotation formula;
  KFAQVFormulaError error;
  const int result = tune.formFormula(text, formula, &error);
  require(result == 0 || result == -1, "compiling has two results");
  if (result == 0) {
    evaluate(tune, formula, choice);
  } else {
    require(error.offset <= std::strlen(text.c_str()) && !error.reason.empty(),
            "a refusal names a place and a reason");
  }
  return 0;
}
