// SPDX-License-Identifier: Apache-2.0
// Resource formulas beside muParser, which compiles and evaluates the same formulas over floating point
// numbers.
//
// Targets: an evaluation, the recording of the parameters included, <= 0.7 times muParser's compiled one,
// without an allocation; compiling <= 0.15 times; a whole check with the default vocabulary <= 0.04 times the
// time in which muParser compiles the same formulas, and one that compiles them itself <= 0.3 times. The same
// formula as a C++ function shows the limit. Checking grows linearly with the formulas and with the parameters of QOS.
#include <benchmark/benchmark.h>
#include <muParser.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <vector>

#include <KFLCommon/KFLText.h>
#include <KFLFunctionality/KFLVEnvConfig.h>
#include <KFLFunctionality/KFLVocMap.h>

#include <KFAFunctionality/resources/KFAEnvSampleM.h>
#include <KFAFunctionality/resources/KFAQoSTune.h>

namespace {

std::size_t allocations = 0;

}  // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
  ++allocations;
  if (void* const memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace {

using namespace KFA;

constexpr const char* kShort = "numproc.soft <= numproc.hard";
constexpr const char* kLong =
    "numproc.soft <= numproc.hard && openfiles.hard >= numproc.hard * 3 && tcpsockets.soft <= openfiles.hard "
    "&& "
    "physmemory.hard + swapspace.hard <= virtualmemory.hard && lockedmemory.hard <= physmemory.soft";

// The formula with this number of operands.
const char* formulaOf(const benchmark::State& state) {
  return state.range(0) == 2 ? kShort : kLong;
}

const KFLVocMapSP& vocabulary() {
  static const KFLVocMapSP map = KFLVocMap::load(KFA_SOURCE_DIR "/data/vocabulary.xml");
  return map;
}

// An environment in which every parameter of the vocabulary has a value and no formula fails.
KFLVEnvConfig makeConfig() {
  KFLOptionalProperty<std::set<KFLQoS>> qoses;
  qoses.setSpecified(true);
  const std::map<std::string, long long> values = {
      {"openfiles", 9000},     {"tcpsockets", 500},
      {"physmemory", 1 << 29}, {"swapspace", 1 << 28},
      {"lockedmemory", 4096},  {"virtualmemory", 1 << 30},
      {"sharedmemory", 4096},  {"kernelmemory", 1 << 26},
      {"diskspace", 1 << 20},  {"diskinodes", 1 << 16},
      {"cpulimit", 200},       {"tcpsendbuffers", 1 << 22},
      {"cpuguarantee", 100},   {"tcpreceivebuffers", 1 << 22},
  };
  const std::unique_ptr<KFLVocIterator> it(vocabulary()->readCategory({"kelvarium", "qos"}));
  std::string id;
  for (int left = it->firstParameter(); left == 0; left = it->nextParameter()) {
    it->getID(id);
    const auto found = values.find(id);
    KFLQoS qos(id);
    qos.setHard(found != values.end() ? found->second : 240);
    qos.setSoft(KFLOptionalProperty<long long>(found != values.end() ? found->second : 200));
    if (id != "slmmemorylimit") qoses.value().insert(qos);
  }
  KFLVEnvConfig config;
  config.setQoSes(qoses);
  return config;
}

KFAQVTuneParameters makeValues() {
  KFLOptionalProperty<std::set<KFLQoS>> qoses;
  makeConfig().getQoSes(qoses);
  return tuneParameters(qoses.getValue());
}

// A formula as muParser writes it: no dots in names, no suffixes of numbers.
std::string forMuParser(std::string formula) {
  for (std::size_t at = 0; (at = formula.find_first_of(".k", at)) != std::string::npos; ++at) {
    if (formula[at] == '.') formula[at] = '_';
    if (formula.compare(at, 2, "kb") == 0 && at > 0 && KFL::isDigit(formula[at - 1]))
      formula.replace(at, 2, "*1024");
  }
  return formula;
}

// A parser that knows every parameter of the vocabulary as two variables.
class MuParser {
 public:
  MuParser() {
    for (const auto& [name, value] : makeValues())
      define(name, value);
    define("QOS", {1, 1, {}});
  }
  mu::Parser& get() { return parser_; }
  double& operator[](const std::string& name) { return values_[name]; }

 private:
  void define(const std::string& name, const KFAQVParamsValue& value) {
    values_[name + "_soft"] = static_cast<double>(value.soft);
    values_[name + "_hard"] = static_cast<double>(value.hard);
    parser_.DefineVar(name + "_soft", &values_[name + "_soft"]);
    parser_.DefineVar(name + "_hard", &values_[name + "_hard"]);
  }

  std::map<std::string, double> values_;
  mu::Parser parser_;
};

// Evaluates with a value that changes from one evaluation to the next.
template <class Value, class Evaluate>
void evaluate(benchmark::State& state, Value& value, Evaluate holds) {
  Value change = 1;
  for (auto _ : state) {
    benchmark::DoNotOptimize(value += change);
    change = -change;
    if (!holds()) return state.SkipWithError("the formula does not hold");
  }
}

void EvaluateOurs(benchmark::State& state) {
  const KFLVEnvConfig config;
  KFAQVTune tune(config, vocabulary());
  KFAQVPolishNotation formula;
  if (tune.init() != 0 || tune.formFormula(formulaOf(state), formula) != 0)
    return state.SkipWithError("refused");
  KFAQVTuneParameters values = makeValues();
  const KFAQVTuneArray array = tune.arrange(values);
  KFAQVParamIDSet used;
  allocations = 0;
  evaluate(state, values["numproc"].soft, [&] {
    used.clear();
    const bool holds = tune.checkByFormula(array, formula, used, -1) == 0;
    benchmark::DoNotOptimize(used);
    return holds;
  });
  state.counters["allocations"] = static_cast<double>(allocations);
}

void EvaluateMuParser(benchmark::State& state) {
  MuParser parser;
  parser.get().SetExpr(forMuParser(formulaOf(state)));
  evaluate(state, parser["numproc_soft"], [&] { return parser.get().Eval() != 0; });
}

// The same as compiled code, over the same values.
void EvaluateFunction(benchmark::State& state) {
  KFAQVTuneParameters v = makeValues();
  const auto at = [&](const char* name) { return &v[name]; };
  const KFAQVParamsValue *processes = at("numproc"), *files = at("openfiles"), *sockets = at("tcpsockets"),
                         *physical = at("physmemory"), *swap = at("swapspace"),
                         *virtualMemory = at("virtualmemory"), *locked = at("lockedmemory");
  evaluate(state, v["numproc"].soft, [&] {
    benchmark::ClobberMemory();
    if (state.range(0) == 2) return processes->soft <= processes->hard;
    return processes->soft <= processes->hard && files->hard >= processes->hard * 3 &&
           sockets->soft <= files->hard && physical->hard + swap->hard <= virtualMemory->hard &&
           locked->hard <= physical->soft;
  });
}

void CompileOurs(benchmark::State& state) {
  const KFLVEnvConfig config;
  KFAQVTune tune(config, vocabulary());
  if (tune.init() != 0) return state.SkipWithError("refused");
  const std::string text = formulaOf(state);
  for (auto _ : state) {
    KFAQVPolishNotation formula;
    if (tune.formFormula(text, formula) != 0) return state.SkipWithError("refused");
    benchmark::DoNotOptimize(formula);
  }
}

// It compiles when it evaluates for the first time.
void CompileMuParser(benchmark::State& state) {
  MuParser parser;
  const std::string text = forMuParser(formulaOf(state));
  for (auto _ : state) {
    parser.get().SetExpr(text);
    benchmark::DoNotOptimize(parser.get().Eval());
  }
}

std::vector<std::string> vocabularyFormulas() {
  std::vector<std::string> formulas;
  const std::unique_ptr<KFLVocIterator> it(vocabulary()->readCategory({"kelvarium", "tune"}));
  for (int left = it->firstParameter(); left == 0; left = it->nextParameter()) {
    it->getStringAttribute(kVocExpression, formulas.emplace_back());
  }
  return formulas;
}

void CheckOurs(benchmark::State& state) {
  const KFLVEnvConfig config = makeConfig();
  for (auto _ : state) {
    KFAQoSValidationList failures;
    if (validateQoSes(&failures, vocabulary(), config) != 0 || !failures.empty()) {
      return state.SkipWithError("not all formulas hold");
    }
  }
}

// With an object of its own, which compiles the formulas.
void CheckOursCompile(benchmark::State& state) {
  const KFLVEnvConfig config = makeConfig();
  const KFAQVTuneParameters values = makeValues();
  for (auto _ : state) {
    KFAQVTune tune(config, vocabulary());
    KFAQVFailedFormulas failures;
    if (tune.checkParameters(values, failures) != 0 || !failures.empty())
      return state.SkipWithError("not all formulas hold");
  }
}

void CheckMuParserCompile(benchmark::State& state) {
  MuParser parser;
  std::vector<std::string> formulas;
  for (const std::string& formula : vocabularyFormulas())
    formulas.push_back(forMuParser(formula));
  for (auto _ : state) {
    for (const std::string& formula : formulas) {
      parser.get().SetExpr(formula);
      benchmark::DoNotOptimize(parser.get().Eval());
    }
  }
}

// A vocabulary of parameters p0, p1, ... and formulas.
KFLVocMapSP makeVocabulary(long parameters, long formulas, const std::string& expression) {
  std::string xml = "<vocabulary version=\"1\"><category words=\"kelvarium qos\">";
  for (long i = 0; i < parameters; ++i)
    xml += "<parameter id=\"p" + std::to_string(i) + "\" kind=\"1\"/>";
  xml += "</category><category words=\"kelvarium tune\">";
  for (long i = 0; i < formulas; ++i) {
    xml += "<parameter number=\"" + std::to_string(i) + "\"><expression>" + expression +
           "</expression><comment>none</comment></parameter>";
  }
  return KFLVocMap::loadFromText(xml + "</category></vocabulary>", "bench");
}

// A check that was compiled before.
void check(benchmark::State& state, const KFLVocMapSP& map, long parameters) {
  const KFLVEnvConfig config;
  KFAQVTune tune(config, map);
  KFAQVTuneParameters values;
  for (long i = 0; i < parameters; ++i)
    values["p" + std::to_string(i)] = {i, i, {}};
  if (tune.init() != 0) return state.SkipWithError("refused");
  for (auto _ : state) {
    KFAQVFailedFormulas failures;
    if (tune.checkParameters(values, failures) != 0) return state.SkipWithError("not checked");
    benchmark::DoNotOptimize(failures);
  }
}

void FormulasOurs(benchmark::State& state) {
  check(state, makeVocabulary(2, state.range(0), "p0.soft &lt;= p1.hard"), 2);
}

void RepeatOurs(benchmark::State& state) {
  check(state, makeVocabulary(state.range(0), 10, "QOS.soft &lt;= QOS.hard"), state.range(0));
}

BENCHMARK(EvaluateOurs)->Arg(2)->Arg(12);
BENCHMARK(EvaluateMuParser)->Arg(2)->Arg(12);
BENCHMARK(EvaluateFunction)->Arg(2)->Arg(12);
BENCHMARK(CompileOurs)->Arg(2)->Arg(12);
BENCHMARK(CompileMuParser)->Arg(2)->Arg(12);
BENCHMARK(CheckOurs);
BENCHMARK(CheckOursCompile);
BENCHMARK(CheckMuParserCompile);
BENCHMARK(FormulasOurs)->Arg(1)->Arg(100)->Arg(10000);
BENCHMARK(RepeatOurs)->Arg(1)->Arg(10)->Arg(90);

}  // namespace
