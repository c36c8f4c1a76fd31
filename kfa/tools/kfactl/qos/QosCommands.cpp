// SPDX-License-Identifier: Apache-2.0
// kfactl qos: resource parameters held against the formulas of the vocabulary.
#include <algorithm>
#include <memory>
#include <optional>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>
#include <KFLFunctionality/KFLVocMap.h>

#include <KFAFunctionality/node/KFAKeyCatalogue.h>
#include <KFAFunctionality/resources/KFAEnvSampleM.h>

#include "environments/Environments.h"
#include "qos/QosAdvise.h"
#include "qos/QosFormulas.h"
#include "qos/QosParameters.h"
#include "terminal/Cli.h"
#include "terminal/Document.h"
#include "terminal/Trouble.h"

namespace kfactl {

namespace {

using KFA::KFAQVFormula;
using KFA::KFAQVTune;
using Finding = KFA::KFAFormulaFinding;
using Judgement = KFA::KFAQoSJudgement;
using State = Evaluation::State;

// --- the vocabulary's formulas

int listFormulas(Session& session) {
  const auto shared = formulasOf(session);
  const KFAQVTune& tune = *shared;
  if (session.format() == Format::Table) {
    Table table({"NUMBER", "FORMULA", "COMMENT"});
    for (const KFAQVFormula& formula : tune.formulas)
      table.add({std::to_string(formula.identifier), formula.expression, formula.comment});
    table.print(session.out());
    return kFine;
  }
  Document formulas = Document::array();
  for (const KFAQVFormula& formula : tune.formulas)
    formulas.push_back({{"identifier", formula.identifier},
                        {"expression", formula.expression},
                        {"comment", formula.comment}});
  printDocument(session, formulas, "formulas", "formula");
  return kFine;
}

// --- check

const char* nameOf(State state) {
  if (state == State::NotCheckable) return "not checkable";
  return state == State::Holds ? "holds" : "violated";
}

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words)
    text += (text.empty() ? "" : ", ") + word;
  return text;
}

// The lines under a formula.
std::vector<std::string> detailsOf(const Finding& finding, const KFA::KFAKeyCatalogue* catalogue) {
  std::vector<std::string> lines;
  if (finding.state == State::NotCheckable) {
    lines.push_back(finding.missing.empty() ? finding.reason : "without a value: " + joined(finding.missing));
  } else if (finding.state == State::Violated) {
    lines.push_back(finding.formula->comment);
    for (const Evaluation& violation : finding.violations) {
      const Evaluation::Step* const failing = violation.failingStep();
      std::string line = violation.usedText(catalogue);
      if (failing != nullptr) {
        line += (line.empty() ? "" : "; ") + std::to_string(failing->left) + " " + failing->operation + " " +
                std::to_string(failing->right) + " fails by " + std::to_string(failing->difference());
      }
      if (!line.empty()) lines.push_back(std::move(line));
    }
  }
  return lines;
}

Document describe(const Finding& finding) {
  std::string state = nameOf(finding.state);
  std::replace(state.begin(), state.end(), ' ', '_');
  Document document = {{"identifier", finding.formula->identifier},
                       {"expression", finding.formula->expression},
                       {"comment", finding.formula->comment},
                       {"state", state}};
  if (finding.state == State::NotCheckable) {
    if (finding.missing.empty())
      document["reason"] = finding.reason;
    else
      document["missing"] = finding.missing;
  }
  if (finding.state == State::Violated) {
    document["violations"] = Document::array();
    for (const Evaluation& violation : finding.violations) {
      Document one = {{"parameters", usedDocument(violation)}};
      if (const Evaluation::Step* const failing = violation.failingStep())
        one.update({{"left", failing->left},
                    {"operator", failing->operation},
                    {"right", failing->right},
                    {"difference", failing->difference()}});
      document["violations"].push_back(std::move(one));
    }
  }
  return document;
}

void printFinding(Output& out, const Finding& finding, const KFA::KFAKeyCatalogue* catalogue) {
  constexpr std::pair<State, Colour> kColours[] = {
      {State::Holds, Colour::Green}, {State::Violated, Colour::Red}, {State::NotCheckable, Colour::Magenta}};
  const auto& [state, colour] = kColours[static_cast<std::size_t>(finding.state)];
  const std::string name = nameOf(state);
  out.add(colour, name).add(std::string(15 - name.size(), ' '));
  out.addLine(std::to_string(finding.formula->identifier) + "  " + printable(finding.formula->expression));
  for (const std::string& line : detailsOf(finding, catalogue))
    out.add(std::string(15, ' ')).addLine(printable(line));
}

// What the memory mode decides without the formulas, else how many formulas hold and do not.
std::string sumOf(const Judgement& judgement) {
  if (judgement.mode != KFA::KFAQoSMemoryMode::Formulas) return textOf(judgement.mode);
  return std::to_string(judgement.count(State::Holds)) + " hold, " +
         std::to_string(judgement.count(State::Violated)) + " violated, " +
         std::to_string(judgement.count(State::NotCheckable)) + " not checkable";
}

// One environment whole.
void print(Output& out, const Judgement& judgement, const KFA::KFAKeyCatalogue* catalogue) {
  for (const Finding& finding : judgement.findings)
    printFinding(out, finding, catalogue);
  out.addLine(sumOf(judgement));
}

// One of many: what is wrong with it under its name, and nothing where all is well.
void printFaults(Output& out, const std::string& name, const Judgement& judgement,
                 const KFA::KFAKeyCatalogue* catalogue) {
  if (judgement.isFine()) return;
  out.add(Colour::Bold, printable(name) + ":").addLine(" " + sumOf(judgement));
  for (const Finding& finding : judgement.findings)
    if (finding.state == State::Violated) printFinding(out, finding, catalogue);
}

Document describe(const Judgement& judgement) {
  Document formulas = Document::array();
  for (const Finding& finding : judgement.findings)
    formulas.push_back(describe(finding));
  Document document = {{"memory_mode", wordFor(judgement.mode)}};
  document["formulas"] = std::move(formulas);
  return document;
}

Judgement judge(Session& session, const Input& input) {
  const Resources resources = readResources(session, input);
  if (resources.mode() == KFA::KFAQoSMemoryMode::Formulas)
    return judgeQoSes(*formulasOf(session), resources.config, resources.qoses);
  Judgement judgement;
  judgement.mode = resources.mode();
  return judgement;
}

// The judgements of the environments that are named, shown one by one.
class Checker {
 public:
  Checker(Session& session, bool raw)
      : session_(session), environments_(session, session.arguments(), WhenNone::All) {
    if (!raw && session.format() == Format::Table)
      catalogue_.emplace(session.environmentParser(), session.vocabulary());
  }

  int run() {
    environments_.each(
        [this](const auto& file, const Input& input) { add(file, judge(session_, input)); },
        [this](const auto& file, const std::string& why) { all_.push_back(failureOf(file, why)); });
    if (session_.format() != Format::Table)
      printDocument(session_, isSingle() ? all_.front() : all_, "check",
                    isSingle() ? "formula" : "environment");
    else if (!isSingle())
      session_.out().addLine(sum());
    return environments_.status(files_ + missing_ == 0 ? kFine : kFinding);
  }

 private:
  bool isSingle() const { return environments_.isSingle(); }
  const KFA::KFAKeyCatalogue* catalogue() const { return catalogue_ ? &*catalogue_ : nullptr; }

  std::string sum() const {
    return std::to_string(violated_) + (violated_ == 1 ? " formula" : " formulas") + " violated in " +
           std::to_string(files_) + " of " + std::to_string(environments_.files().size()) + " files" +
           (missing_ == 0 ? "" : "; slmmemorylimit has no value in " + std::to_string(missing_));
  }

  void add(const KFA::KFAEnvironmentFile& file, const Judgement& judgement) {
    const std::size_t violated = judgement.count(State::Violated);
    violated_ += violated;
    files_ += violated == 0 ? 0 : 1;
    missing_ += judgement.mode == KFA::KFAQoSMemoryMode::LimitMissing ? 1 : 0;
    if (session_.format() != Format::Table)
      all_.push_back(isSingle() ? describe(judgement) : documentOf(file, describe(judgement)));
    else if (isSingle())
      print(session_.out(), judgement, catalogue());
    else
      printFaults(session_.out(), file.path, judgement, catalogue());
  }

  Session& session_;
  Environments environments_;
  std::optional<KFA::KFAKeyCatalogue> catalogue_;
  Document all_ = Document::array();
  std::size_t violated_ = 0;
  std::size_t files_ = 0;    // with a formula that is
  std::size_t missing_ = 0;  // without the one limit that their mode wants
};

Action prepareCheck(CLI::App& app) {
  const auto raw = std::make_shared<bool>(false);
  app.add_flag("--raw", *raw, "Print stored numbers, without units");
  return [raw](Session& session) { return Checker(session, *raw).run(); };
}

// --- eval

// NAME=SOFT or NAME=SOFT:HARD.
void takeValue(const std::string& word, KFAQVTune& tune, KFA::KFAQVTuneParameters& values) {
  const std::size_t equals = word.find('=');
  const std::size_t colon = word.find(':', equals == std::string::npos ? 0 : equals);
  const std::string form = "; write NAME=SOFT or NAME=SOFT:HARD, such as numproc=200:240";
  if (equals == std::string::npos || equals == 0) throw Trouble("'" + word + "' gives no value" + form);
  const std::string name = word.substr(0, equals);
  const std::string_view numbers = std::string_view(word).substr(equals + 1);
  KFA::KFAQVParamsValue value;
  const bool isPair = colon != std::string::npos;
  const std::string_view soft = isPair ? numbers.substr(0, colon - equals - 1) : numbers;
  const std::string_view hard = isPair ? numbers.substr(colon - equals) : numbers;
  if (KFL::parseInteger(soft, value.soft) != 0 || KFL::parseInteger(hard, value.hard) != 0)
    throw Trouble("'" + word + "': a value is a whole number of 64 bits" + form);
  if (KFAQVTune::MultipleTuneMap.count(name) != 0) return;
  if (tune.index.count(name) != 0)
    throw Trouble("'" + word + "': " + name + " has a value already; give it one");
  if (tune.getNewIndex(name) != 0) throwLibraryError("'" + word + "'");
  values[name] = value;
}

// QOS stands for every name that was given.
void addMultiples(KFAQVTune& tune) {
  KFA::KFAQVParamIDList all;
  for (int id = 1; id <= tune.count; ++id)
    all.push_back(id);
  for (const auto& [word, fill] : KFAQVTune::MultipleTuneMap) {
    if (word.empty()) continue;
    KFA::KFAQVParamsValue* entry = nullptr;
    if (tune.getNewIndex(word, &entry) != 0) throwLibraryError();
    entry->list = all;
  }
}

std::vector<std::string> tokensOf(const std::string& formula) {
  std::vector<std::string> tokens;
  const char* cursor = formula.c_str();
  KFA::KFAQVTermType term;
  std::string text;
  while (KFA::get_token(&cursor, &term, text) == 0) {
    if (term.kind != KFA::KFAQVTermOperator) {
      tokens.push_back(text);
    } else if (term.value != KFA::kOperatorEnd) {
      tokens.emplace_back(KFA::KFAQVOperator::table()[static_cast<std::size_t>(term.value)].text);
    } else {
      break;
    }
  }
  return tokens;
}

Document describe(const Evaluation& evaluation, bool withSteps) {
  Document document = Document::object();
  if (!evaluation.multiple.empty()) document["parameter"] = evaluation.multiple;
  document["holds"] = evaluation.state == State::Holds;
  document["value"] = evaluation.value;
  document["parameters"] = usedDocument(evaluation);
  if (const Evaluation::Step* const failing = evaluation.failingStep())
    document["difference"] = failing->difference();
  if (!withSteps) return document;
  document["steps"] = Document::array();
  for (const Evaluation::Step& step : evaluation.steps)
    document["steps"].push_back(
        {{"left", step.left}, {"operator", step.operation}, {"right", step.right}, {"result", step.result}});
  return document;
}

std::string stepText(const Evaluation::Step& step) {
  return std::to_string(step.left) + " " + step.operation + " " + std::to_string(step.right);
}

void print(Output& out, const Evaluation& evaluation, bool withSteps) {
  const std::string whose = evaluation.multiple.empty() ? "" : evaluation.multiple + ": ";
  for (const Evaluation::Step& step : evaluation.steps)
    if (withSteps) out.addLine("step     " + whose + stepText(step) + " = " + std::to_string(step.result));
  out.add(whose);
  if (evaluation.state == State::Holds) {
    out.addLine("holds");
  } else if (const Evaluation::Step* const failing = evaluation.failingStep()) {
    out.addLine("does not hold: " + stepText(*failing) + " fails by " +
                std::to_string(failing->difference()));
  } else {
    out.addLine("does not hold: its value is 0");
  }
}

std::vector<std::string> postfixOf(const KFAQVTune& tune, const KFA::KFAQVPolishNotation& notation) {
  std::vector<std::string> terms;
  for (const KFA::KFAQVTermType& term : notation.terms)
    terms.push_back(tune.toString(term));
  return terms;
}

std::string spaced(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words)
    text += (text.empty() ? "" : " ") + word;
  return text;
}

struct Result {
  const KFAQVTune& tune;
  const KFAQVFormula& formula;
  std::vector<Evaluation> evaluations;
  bool withSteps = false;
};

void printResult(Session& session, const Result& result) {
  if (result.withSteps) {
    session.out().addLine("tokens   " + spaced(tokensOf(result.formula.expression)));
    session.out().addLine("postfix  " + spaced(postfixOf(result.tune, result.formula.notation)));
  }
  for (const Evaluation& evaluation : result.evaluations)
    print(session.out(), evaluation, result.withSteps);
}

// One evaluation stands in the document itself, those of QOS in a list.
Document describe(const Result& result, bool holds) {
  Document document = {{"formula", result.formula.expression}, {"holds", holds}};
  if (result.withSteps) {
    document["tokens"] = tokensOf(result.formula.expression);
    document["postfix"] = postfixOf(result.tune, result.formula.notation);
  }
  if (result.formula.notation.hasMultiple == 0) {
    document.update(describe(result.evaluations.front(), result.withSteps));
    return document;
  }
  document["evaluations"] = Document::array();
  for (const Evaluation& evaluation : result.evaluations)
    document["evaluations"].push_back(describe(evaluation, result.withSteps));
  return document;
}

int evaluateFormula(Session& session, bool withSteps) {
  const KFL::KFLVEnvConfig config;
  KFAQVTune tune(config, nullptr);
  KFA::KFAQVTuneParameters values;
  const auto& arguments = session.arguments();
  for (auto word = arguments.begin() + 1; word != arguments.end(); ++word)
    takeValue(*word, tune, values);
  addMultiples(tune);

  KFAQVFormula& formula = tune.formulas.emplace_back();
  formula.expression = session.argument(0);
  KFA::KFAQVFormulaError error;
  if (tune.formFormula(formula.expression, formula.notation, &error) != 0)
    throw Trouble(refusalText(formula.expression, error));

  const KFA::KFAQVTuneArray array = tune.arrange(values);
  const Result result{tune, formula, evaluateFormula(tune, array, formula.notation), withSteps};
  if (result.evaluations.empty())
    throw Trouble("no name is given that QOS could stand for; write NAME=SOFT:HARD behind the formula, " +
                  std::string("such as numproc=200:240"));
  bool holds = true;
  for (const Evaluation& evaluation : result.evaluations) {
    if (evaluation.state == State::NotCheckable) throw Trouble(evaluation.reason);
    holds = holds && evaluation.state == State::Holds;
  }
  if (session.format() == Format::Table)
    printResult(session, result);
  else
    printDocument(session, describe(result, holds), "evaluation");
  return holds ? kFine : kFinding;
}

Action prepareEval(CLI::App& app) {
  const auto withSteps = std::make_shared<bool>(false);
  app.add_flag("--steps", *withSteps, "Print the tokens, the postfix form and each step");
  return [withSteps](Session& session) { return evaluateFormula(session, *withSteps); };
}

constexpr Command kCommands[] = {
    {"check", "[FILE...]", "Hold the resource parameters of an environment against the vocabulary's formulas",
     "Every formula as holding, violated (with its comment, the parameters that took part, and by how much "
     "it\n"
     "fails) or not checkable (with the parameters that have no value). Of many environments, all of the "
     "node when "
     "none is\n"
     "named, what is wrong is printed, and a summary. Status 1 when a formula is violated, or when the "
     "memory\n"
     "mode is slm and slmmemorylimit has no value.\n\n"
     "Examples:\n"
     "  kfactl qos check\n"
     "  kfactl qos check 101.conf\n"
     "  kfactl --format json --vocabulary my.xml qos check 101.conf",
     prepareCheck},
    {"advise", "[FILE...]", "Name the smallest changes that make every violated formula hold",
     "Few keys, and of these the least change; printed as a command that makes it. Formulas for which no "
     "change was "
     "found are\n"
     "named. Status 1 when a formula is violated, or when the memory mode is slm and slmmemorylimit has no\n"
     "value.\n\n"
     "Examples:\n"
     "  kfactl qos advise 114\n"
     "  kfactl --json qos advise 101-103 114",
     withoutOptions<adviseQos>},
    {"formulas", "", "List the formulas of the vocabulary",
     "The formulas in the order in which they are checked.\n\n"
     "Examples:\n"
     "  kfactl qos formulas\n"
     "  kfactl --format json qos formulas",
     withoutOptions<listFormulas>},
    {"eval", "FORMULA [NAME=VALUE...]", "Evaluate one formula over the values given",
     "A value is SOFT:HARD, or one number that is both. QOS stands for each of the names in turn. Status 0 "
     "when\n"
     "the formula holds, 1 when it does not, 2 when it is refused. A formula that begins with '-' comes\n"
     "behind '--'.\n\n"
     "Examples:\n"
     "  kfactl qos eval 'a.soft <= b.hard && c < 2mb' a=1:2 b=5 c=100 --steps\n"
     "  kfactl qos eval 'QOS.soft <= QOS.hard' numproc=200:240 openfiles=9000:8000",
     prepareEval},
};

}  // namespace

extern const Group qosGroup;
const Group qosGroup{"qos", "Resource parameters and the formulas over them", kCommands,
                     "  kfactl qos check 101.conf\n"
                     "  kfactl qos eval 'numproc.soft <= numproc.hard' numproc=200:240"};

}  // namespace kfactl
