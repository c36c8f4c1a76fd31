// SPDX-License-Identifier: Apache-2.0
// Vocabularies: any text is refused with its line and column, or can be used by all that use one; and one that the
// input's bytes make holds what a plain list of it says, its categories found in the order that is promised.
#include <algorithm>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLLog.h>
#include <KFLFunctionality/KFLVEnvConfig.h>
#include <KFLFunctionality/KFLVocMap.h>

#include <KFAFunctionality/files/KFAEnvConfigBashParser.h>
#include <KFAFunctionality/resources/KFAQoSTune.h>

#include "Fuzzing.h"

namespace {

using kfl_fuzz::Choices;
using kfl_fuzz::require;
using Iterator = std::unique_ptr<KFL::KFLVocIterator>;

struct Parameter {
  std::string id, kind, expression;
};
struct Category {
  std::set<std::string> words;
  std::vector<Parameter> parameters;
};

constexpr const char* kWords = "kelvarium|qos|tune|other";

// No two with the same words, which a vocabulary may not have.
std::vector<Category> categoriesOf(Choices& choices) {
  std::vector<Category> categories;
  std::set<std::set<std::string>> known;
  while (!choices.isAtEnd() && categories.size() < 8) {
    Category& category = categories.emplace_back();
    for (std::size_t more = choices.below(4) + 1; more > 0; --more)
      category.words.insert(choices.wordOf(kWords));
    for (std::size_t more = choices.below(4); more > 0; --more)
      category.parameters.push_back({choices.wordOf("a|b|numproc|QOS|avnumproc|x.y"), choices.wordOf("|1|2"),
                                     choices.wordOf("|a|a &lt; b|a.soft/0|)")});
    if (!known.insert(category.words).second) categories.pop_back();
  }
  return categories;
}

std::string textOf(const std::vector<Category>& categories) {
  std::string xml = "<vocabulary version='1'>";
  for (const Category& category : categories) {
    xml += "<category words='";
    for (const std::string& word : category.words)
      xml += word + (xml.size() % 2 == 0 ? " " : "\t ");
    xml += "'>";
    for (const Parameter& parameter : category.parameters) {
      const bool isSpread = parameter.kind == "2";
      xml += "<parameter number='7' id='" + parameter.id + (isSpread ? "' value_type='0'" : "'");
      if (!parameter.kind.empty()) xml += " kind='" + parameter.kind + "'";
      xml += isSpread
                 ? ">\n<comment/> <!-- why --> <expression>\t\n" + parameter.expression +
                       " </expression><description>d</description>\n</parameter>"
                 : "><expression>" + parameter.expression + "</expression><comment>c</comment></parameter>";
    }
    xml += "</category>\n";
  }
  return xml + "</vocabulary>";
}

// Of the categories with all the words, the one with the fewest, and of those the first.
const Category* find(const std::vector<Category>& categories, const std::set<std::string>& words) {
  const Category* found = nullptr;
  for (const Category& category : categories) {
    const bool hasAll =
        std::includes(category.words.begin(), category.words.end(), words.begin(), words.end());
    if (hasAll && (found == nullptr || category.words.size() < found->words.size())) found = &category;
  }
  return found;
}

std::string unescaped(const std::string& text) {
  const std::size_t at = text.find("&lt;");
  return at == std::string::npos ? text : text.substr(0, at) + '<' + text.substr(at + 4);
}

void requireParameters(KFL::KFLVocIterator& it, const Category& category, const std::string& xml) {
  int left = it.firstParameter();
  for (const Parameter& parameter : category.parameters) {
    require(left == 0, "each parameter is walked over", xml);
    std::string id;
    std::string expression;
    int kind = -7;
    require(it.getID(id) == 0 && id == parameter.id, "a parameter has its id", xml);
    it.getStringAttribute(KFL::kVocExpression, expression);
    require(expression == unescaped(parameter.expression), "a parameter has its formula", xml);
    const bool hasKind = parameter.kind == "1" || parameter.kind == "2";
    require((it.getIntAttribute("kind", kind) == 0) == hasKind &&
                kind == (hasKind ? std::stoi(parameter.kind) : -7),
            "a parameter has its kind when it is a number", xml);
    left = it.nextParameter();
  }
  require(left == -1, "there are no other parameters", xml);
}

void use(const boost::shared_ptr<KFL::KFLVocMap>& vocabulary) {
  KFA::KFAEnvConfigBashParser::getInstance(vocabulary);
  const KFL::KFLVEnvConfig config;
  KFA::KFAQVTune tune(config, vocabulary);
  const int result = tune.init();
  require(result == 0 || (result == KFA::kTuneVocabularyFailure && !KFL::getErrorMessage().empty()),
          "a vocabulary can be used, or its refusal has a reason");
  if (result != 0) return;
  KFA::KFAQVTuneParameters values;
  for (const std::string& name : tune.names)
    values[name] = {3, 4, {}};
  KFA::KFAQVFailedFormulas failures;
  const int checked = tune.checkParameters(values, failures);
  require(checked == 0 || checked == -1 || checked == -3, "a check has known results");
  for (const KFA::KFAQVTuneFailure& failure : failures)
    require(failure.formula != nullptr && !failure.formula->expression.empty(),
            "a failure names its formula");
}

void checkModel(Choices choices) {
  const std::vector<Category> categories = categoriesOf(choices);
  const std::string xml = textOf(categories);
  const auto vocabulary = KFL::KFLVocMap::loadFromText(xml, "made");
  require(vocabulary != nullptr, "a vocabulary of the form is taken", xml);
  for (const std::set<std::string>& words : std::vector<std::set<std::string>>{
           {"qos"}, {"kelvarium", "qos"}, {"tune"}, {"other", "tune"}, {"QOS"}, {"qo"}, {"qos tune"}, {}}) {
    const Iterator it(words.size() == 1 ? vocabulary->readCategory(*words.begin())
                                        : vocabulary->readCategory(words));
    const Category* const expected = words.empty() ? nullptr : find(categories, words);
    require((it == nullptr) == (expected == nullptr), "a category is found when there is one", xml);
    if (expected != nullptr) requireParameters(*it, *expected, xml);
  }
  use(vocabulary);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  KFL::setLogLevel(KFL::kLogFatal);
  const std::string_view text = kfl_fuzz::viewOf(data, size);
  const auto vocabulary = KFL::KFLVocMap::loadFromText(text, "given");
  if (vocabulary != nullptr)
    use(vocabulary);
  else
    require(KFL::getErrorMessage().starts_with("given:"), "a refusal names its place");
  checkModel(Choices(text));
  return 0;
}
