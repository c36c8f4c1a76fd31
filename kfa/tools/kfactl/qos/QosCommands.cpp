// SPDX-License-Identifier: Apache-2.0
// kfactl qos: resource parameters held against the formulas of the vocabulary.
#include <algorithm>
#include <memory>
#include <set>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <KFLCommon/KFLBashStr.h>
#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>
#include <KFLFunctionality/KFLVocMap.h>

#include <KFAFunctionality/files/KFAConfigCheck.h>
#include <KFAFunctionality/resources/KFAEnvSampleM.h>

#include "environments/Environment.h"
#include "environments/Environments.h"
#include "qos/QosAdvise.h"
#include "qos/QosFormulas.h"
#include "terminal/Cli.h"
#include "terminal/Document.h"
#include "terminal/Trouble.h"

namespace kfactl {

namespace {

using KFA::KFAQVFormula;
using KFA::KFAQVTune;
using State = Evaluation::State;

// --- the vocabulary's formulas

// What would be right, for the faults of a vocabulary that the library's text leaves open.
std::string adviceFor(const std::string& reason) {
  constexpr std::pair<const char*, const char*> kAdvice[] = {
      {"can not read QOS", "; a category of the words \"kelvarium qos\" with parameters is needed"},
      {"can not read FORMULAE", "; a category of the words \"kelvarium tune\" with formulas is needed"},
      {"double index", "; give each parameter an id of its own, and none the id QOS"},
      {"no index for", "; leave parameters out"},
  };
  for (const auto& [beginning, advice] : kAdvice)
    if (reason.starts_with(beginning)) return advice;
  return {};
}

// Names the first formula of the vocabulary that the checker refuses.
void refuseFormula(Session& session, const KFAQVTune& tune) {
  const std::unique_ptr<KFL::KFLVocIterator> it(
      session.vocabulary()->readCategory({KFA::kTechnology, "tune"}));
  if (!it) return;
  for (int left = it->firstParameter(); left == 0; left = it->nextParameter()) {
    std::string number, expression, comment;
    if (it->getStringAttribute(KFL::kVocFormulaIdentifier, number) != 0 ||
        it->getStringAttribute(KFL::kVocExpression, expression) != 0 ||
        it->getStringAttribute(KFL::kVocComment, comment) != 0)
      continue;
    KFA::KFAQVPolishNotation notation;
    KFA::KFAQVFormulaError error;
    if (tune.formFormula(expression, notation, &error) != 0)
      throw Trouble(session.vocabularyPath() + ": formula " + number + ": " + refusalText(expression, error));
  }
}

void initialise(Session& session, KFAQVTune& tune) {
  if (tune.init() == 0) return;
  const std::string reason = KFL::getErrorMessage();
  if (reason.starts_with("can not parse formula")) refuseFormula(session, tune);
  throw Trouble(session.vocabularyPath() + ": " + reason + adviceFor(reason));
}

int listFormulas(Session& session) {
  const KFL::KFLVEnvConfig config;
  KFAQVTune tune(config, session.vocabulary());
  initialise(session, tune);
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

// What became of one formula.
struct Finding {
  const KFAQVFormula* formula = nullptr;
  State state = State::Holds;
  std::vector<Evaluation> violations;
  std::string reason;  // why it cannot be checked
  std::vector<std::string> missing;
};

Finding judge(const KFAQVTune& tune, const KFA::KFAQVTuneParameters& values, const KFAQVFormula& formula) {
  Finding finding;
  finding.formula = &formula;
  const std::vector<Evaluation> evaluations = evaluate(tune, values, formula.notation);
  if (evaluations.empty()) {
    finding.state = State::NotCheckable;
    finding.reason = "no parameter that QOS stands for has a value";
  }
  for (const Evaluation& evaluation : evaluations) {
    if (evaluation.state == State::Violated) finding.violations.push_back(evaluation);
    if (evaluation.state != State::NotCheckable) continue;
    finding.state = State::NotCheckable;
    finding.reason = evaluation.reason;
    finding.missing = evaluation.missing;
  }
  if (!finding.violations.empty()) finding.state = State::Violated;
  return finding;
}

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
std::vector<std::string> detailsOf(const Finding& finding, const KFA::KFAQVTuneParameters& values) {
  std::vector<std::string> lines;
  if (finding.state == State::NotCheckable) {
    lines.push_back(finding.missing.empty() ? finding.reason : "without a value: " + joined(finding.missing));
  } else if (finding.state == State::Violated) {
    lines.push_back(finding.formula->comment);
    for (const Evaluation& violation : finding.violations) {
      const Step* const failing = failingStep(violation);
      std::string line = usedText(violation, values);
      if (failing != nullptr) {
        line += (line.empty() ? "" : "; ") + std::to_string(failing->left) + " " + failing->operation + " " +
                std::to_string(failing->right) + " fails by " + std::to_string(differenceOf(*failing));
      }
      if (!line.empty()) lines.push_back(std::move(line));
    }
  }
  return lines;
}

Document describe(const Finding& finding, const KFA::KFAQVTuneParameters& values) {
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
      Document one = {{"parameters", usedDocument(violation, values)}};
      if (const Step* const failing = failingStep(violation))
        one.update({{"left", failing->left},
                    {"operator", failing->operation},
                    {"right", failing->right},
                    {"difference", differenceOf(*failing)}});
      document["violations"].push_back(std::move(one));
    }
  }
  return document;
}

void printFinding(Output& out, const Finding& finding, const KFA::KFAQVTuneParameters& values) {
  constexpr std::pair<State, Colour> kColours[] = {
      {State::Holds, Colour::Green}, {State::Violated, Colour::Red}, {State::NotCheckable, Colour::Magenta}};
  const auto& [state, colour] = kColours[static_cast<std::size_t>(finding.state)];
  const std::string name = nameOf(state);
  out.add(colour, name).add(std::string(15 - name.size(), ' '));
  out.addLine(std::to_string(finding.formula->identifier) + "  " + printable(finding.formula->expression));
  for (const std::string& line : detailsOf(finding, values))
    out.add(std::string(15, ' ')).addLine(printable(line));
}

void printFindings(Session& session, const std::vector<Finding>& findings,
                   const KFA::KFAQVTuneParameters& values) {
  std::size_t counts[3] = {};
  for (const Finding& finding : findings) {
    ++counts[static_cast<std::size_t>(finding.state)];
    printFinding(session.out(), finding, values);
  }
  session.out().addLine(std::to_string(counts[0]) + " hold, " + std::to_string(counts[1]) + " violated, " +
                        std::to_string(counts[2]) + " not checkable");
}

// The memory mode of a configuration may decide without the formulas.
void printMode(Session& session, bool isFine) {
  session.out().addLine(isFine
                            ? "the memory mode leaves all to slmmemorylimit; no formula applies"
                            : "the memory mode is slm, but slmmemorylimit has no value; no formula applies");
}

// The key of a line that assigns, in lower case.
std::string keyOf(std::string line) {
  char* name = nullptr;
  char* value = nullptr;
  unsigned int first = 0, last = 0;
  return KFL::parseBashStr(line.data(), &name, &value, &first, &last) == 0 ? KFL::toLower(name)
                                                                           : std::string();
}

// A value that is no number reads as another one: a judgement over it would be about a file that is not there.
void refuseUnreadable(Session& session, const Input& input, const std::set<KFL::KFLQoS>& qoses) {
  for (const auto& finding : checkConfig(KFA::KFAEnvConfigRules(session.environmentParser()), input.text)) {
    if (finding.severity != KFA::KFAConfigFinding::Severity::Error) continue;
    if (qoses.count(KFL::KFLQoS(keyOf(finding.lineText))) != 0)
      throw Trouble(input.name + ":" + std::to_string(finding.line) + ":" + std::to_string(finding.column) +
                    ": " + finding.text);
  }
}

// One file judged: printed as a table, or given as a document. Of many files only what is violated is printed.
struct CheckedFile {
  Document document;
  std::size_t violated = 0;
  bool isFine = true;
};

CheckedFile checkFile(Session& session, const Input& input, bool isSingle) {
  const KFA::KFAEnvConfig config = readEnvironment(session, input, {});
  KFL::KFLOptionalProperty<std::set<KFL::KFLQoS>> qoses;
  must(config.getQoSes(qoses));
  refuseUnreadable(session, input, qoses.getValue());
  const bool isTable = session.format() == Format::Table;
  const KFA::KFAQoSMemoryMode mode = KFA::judgeMemoryMode(config, qoses.getValue());
  if (mode != KFA::KFAQoSMemoryMode::Formulas) {
    const bool isFine = mode == KFA::KFAQoSMemoryMode::Managed;
    if (isTable && !isSingle && !isFine)
      session.out().add(Colour::Bold, printable(input.name) + ":").add("\n");
    if (isTable && (isSingle || !isFine)) printMode(session, isFine);
    return {
        {{"memory_mode", isFine ? "managed" : "limit_missing"}, {"formulas", Document::array()}}, 0, isFine};
  }
  KFAQVTune tune(config, session.vocabulary());
  initialise(session, tune);
  const KFA::KFAQVTuneParameters values = KFA::tuneParameters(qoses.getValue());
  CheckedFile checked;
  std::vector<Finding> findings;
  Document formulas = Document::array();
  for (const KFAQVFormula& formula : tune.formulas) {
    findings.push_back(judge(tune, values, formula));
    if (findings.back().state == State::Violated) ++checked.violated;
    if (!isTable) formulas.push_back(describe(findings.back(), values));
  }
  checked.document = {{"memory_mode", "formulas"}, {"formulas", std::move(formulas)}};
  checked.isFine = checked.violated == 0;
  if (isTable && isSingle) printFindings(session, findings, values);
  if (!isTable || isSingle || checked.isFine) return checked;
  session.out().add(Colour::Bold, printable(input.name) + ":").add("\n");
  for (const Finding& finding : findings)
    if (finding.state == State::Violated) printFinding(session.out(), finding, values);
  return checked;
}

int check(Session& session) {
  Environments environments(session, session.arguments(), WhenNone::All);
  const bool isSingle = environments.isSingle();
  Document all = Document::array();
  std::size_t violated = 0;
  std::size_t files = 0;
  environments.each(
      [&](const auto& file, const Input& input) {
        CheckedFile checked = checkFile(session, input, isSingle);
        violated += checked.violated;
        files += checked.isFine ? 0 : 1;
        all.push_back(isSingle ? std::move(checked.document) : documentOf(file, std::move(checked.document)));
      },
      [&](const auto& file, const std::string& why) { all.push_back(failureOf(file, why)); });
  if (session.format() != Format::Table)
    printDocument(session, isSingle ? all.front() : all, "check");
  else if (!isSingle)
    session.out().addLine(std::to_string(violated) + (violated == 1 ? " formula" : " formulas") +
                          " violated in " + std::to_string(files) + " of " +
                          std::to_string(environments.files().size()) + " files");
  return environments.status(files == 0 ? kFine : kFinding);
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

Document describe(const Evaluation& evaluation, const KFA::KFAQVTuneParameters& values, bool withSteps) {
  Document document = Document::object();
  if (!evaluation.multiple.empty()) document["parameter"] = evaluation.multiple;
  document["holds"] = evaluation.state == State::Holds;
  document["value"] = evaluation.value;
  document["parameters"] = usedDocument(evaluation, values);
  if (const Step* const failing = failingStep(evaluation)) document["difference"] = differenceOf(*failing);
  if (!withSteps) return document;
  document["steps"] = Document::array();
  for (const Step& step : evaluation.steps)
    document["steps"].push_back(
        {{"left", step.left}, {"operator", step.operation}, {"right", step.right}, {"result", step.result}});
  return document;
}

std::string stepText(const Step& step) {
  return std::to_string(step.left) + " " + step.operation + " " + std::to_string(step.right);
}

void print(Output& out, const Evaluation& evaluation, bool withSteps) {
  const std::string whose = evaluation.multiple.empty() ? "" : evaluation.multiple + ": ";
  for (const Step& step : evaluation.steps)
    if (withSteps) out.addLine("step     " + whose + stepText(step) + " = " + std::to_string(step.result));
  out.add(whose);
  if (evaluation.state == State::Holds) {
    out.addLine("holds");
  } else if (const Step* const failing = failingStep(evaluation)) {
    out.addLine("does not hold: " + stepText(*failing) + " fails by " +
                std::to_string(differenceOf(*failing)));
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
  const KFA::KFAQVTuneParameters& values;
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
    document.update(describe(result.evaluations.front(), result.values, result.withSteps));
    return document;
  }
  document["evaluations"] = Document::array();
  for (const Evaluation& evaluation : result.evaluations)
    document["evaluations"].push_back(describe(evaluation, result.values, result.withSteps));
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

  const Result result{tune, formula, values, evaluate(tune, values, formula.notation), withSteps};
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
     "named, only what is violated. Status 1 when one is.\n\n"
     "Examples:\n"
     "  kfactl qos check\n"
     "  kfactl qos check 101.conf\n"
     "  kfactl --format json --vocabulary my.xml qos check 101.conf",
     withoutOptions<check>},
    {"advise", "[FILE...]", "Name the smallest changes that make every violated formula hold",
     "Few keys, and of these the least change; printed as a command that makes it. Formulas for which no "
     "change was "
     "found are\n"
     "named. Status 1 when a formula is violated.\n\n"
     "Examples:\n"
     "  kfactl qos advise 114\n"
     "  kfactl --json qos advise",
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
