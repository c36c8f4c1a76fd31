// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/resources/KFAQoSTune.h>

#include <memory>
#include <string_view>
#include <utility>

#include <KFLCommon/KFLCheck.h>
#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLLock.h>
#include <KFLCommon/KFLText.h>
#include <KFLFunctionality/KFLVEnvConfig.h>

#include <boost/smart_ptr/weak_ptr.hpp>

namespace KFA {

namespace {

constexpr const char* kUnit = "KFAQoSTune";

// Parameters of this kind are left out of what QOS stands for.
constexpr int kPairKind = 2;

using Iterator = std::unique_ptr<KFLVocIterator>;

// The first parameter of a category of this technology; null, with an error text, when there is none.
Iterator openCategory(const KFLVocMapSP& vocabulary, std::string_view word, const char* failure) {
  if (vocabulary == nullptr) failure = "invalid vocabulary";
  Iterator it(vocabulary != nullptr ? vocabulary->readCategory({kTechnology, word}) : nullptr);
  if (it != nullptr && it->firstParameter() == 0) return it;
  setErrorMessage("%s", failure);
  return nullptr;
}

Iterator openParameters(const KFLVocMapSP& vocabulary) {
  return openCategory(vocabulary, "qos", "can not read QOS from vocabulary");
}

int indexOf(const KFAQVParamsValue& entry) {
  return static_cast<int>(entry.soft);
}

class IndexNames final : public KFAQVNames {
 public:
  explicit IndexNames(const KFAQVTune& tune) : tune_(tune) {}

  int find(std::string_view name, const KFAQVParamIDList*& multiple) const override {
    const auto found = tune_.index.find(name);
    if (found == tune_.index.end()) return -1;
    if (KFAQVTune::MultipleTuneMap.find(name) != KFAQVTune::MultipleTuneMap.end())
      multiple = &found->second.list;
    return indexOf(found->second);
  }

 private:
  const KFAQVTune& tune_;
};

}  // namespace

const std::map<std::string, KFAQVTune::Filler, std::less<>> KFAQVTune::MultipleTuneMap = {
    {"", nullptr},
    {"QOS", &KFAQVTune::addQOStoIndex},
};

KFAQVTune::KFAQVTune(const KFLVEnvConfig& environment, boost::shared_ptr<KFLVocMap> vocabularyMap)
    : config(environment), vocabulary(std::move(vocabularyMap)), names(20) {}

// --- Sharing -------------------------------------------------------------------------------------------------------

namespace {

struct SharedTune {
  explicit SharedTune(const KFLVocMapSP& vocabulary) : tune(none, vocabulary) {}
  KFLVEnvConfig none;
  KFAQVTune tune;
};

constinit KFLLock tunesLock;
const KFL::KFLForkWaits<tunesLock> forkWaits;

// The checkers by their vocabularies, which they do not keep alive.
class SharedTunes {
 public:
  std::shared_ptr<const KFAQVTune> find(const KFLVocMapSP& vocabulary) {
    const KFLLockGuard guard(tunesLock);
    return findLocked(vocabulary);
  }

  // Of two threads that make one at the same time, both go on with the first.
  std::shared_ptr<const KFAQVTune> add(const KFLVocMapSP& vocabulary,
                                       const std::shared_ptr<const KFAQVTune>& tune) {
    const KFLLockGuard guard(tunesLock);
    if (auto known = findLocked(vocabulary)) return known;
    std::erase_if(known_, [](const Known& known) { return known.vocabulary.expired(); });
    known_.push_back({vocabulary, tune});
    return tune;
  }

 private:
  struct Known {
    boost::weak_ptr<const KFLVocMap> vocabulary;
    std::shared_ptr<const KFAQVTune> tune;
  };

  std::shared_ptr<const KFAQVTune> findLocked(const KFLVocMapSP& vocabulary) const {
    for (const Known& known : known_) {
      if (!known.vocabulary.owner_before(vocabulary) && !vocabulary.owner_before(known.vocabulary))
        return known.tune;
    }
    return nullptr;
  }

  std::vector<Known> known_;
};

SharedTunes sharedTunes;

}  // namespace

std::shared_ptr<const KFAQVTune> KFAQVTune::getShared(const boost::shared_ptr<KFLVocMap>& vocabulary) {
  if (auto known = vocabulary ? sharedTunes.find(vocabulary) : nullptr) return known;
  const auto made = std::make_shared<SharedTune>(vocabulary);
  if (made->tune.init() != 0) return nullptr;
  made->tune.vocabulary.reset();
  return sharedTunes.add(vocabulary, {made, &made->tune});
}

// --- Initialisation ------------------------------------------------------------------------------------------------

int KFAQVTune::init() {
  if (vocabulary == nullptr) {
    setErrorMessage("invalid vocabulary");
    return kTuneVocabularyFailure;
  }
  if (initialised != 0) return 0;
  try {
    count = 0;
    int result = readParameters();
    if (result == 0) result = readFormulas();
    if (result == 0) initialised = 1;
    return result;
  } catch (...) {
    forget();
    throw;
  }
}

// As if nothing had been read yet.
void KFAQVTune::forget() noexcept {
  count = 0;
  formulas.clear();
  index.clear();
  byName_.clear();
  byLowerName_.clear();
  for (std::string& name : names)
    name.clear();
}

int KFAQVTune::readParameters() {
  const Iterator it = openParameters(vocabulary);
  if (it == nullptr) return kTuneVocabularyFailure;
  std::string id;
  do {
    if (it->getID(id) != 0) continue;
    if (const int result = getNewIndex(id); result != 0) return result;
  } while (it->nextParameter() == 0);

  for (const auto& [word, fill] : MultipleTuneMap) {
    if (word.empty()) continue;
    KFAQVParamsValue* entry = nullptr;
    if (const int result = getNewIndex(word, &entry); result != 0) return result;
    if (const int result = (this->*fill)(entry->list); result != 0) return result;
  }
  return 0;
}

int KFAQVTune::readFormulas() {
  const Iterator it = openCategory(vocabulary, "tune", "can not read FORMULAE");
  if (it == nullptr) return kTuneVocabularyFailure;
  do {
    if (const int result = addFormula(*it); result != 0) return result;
  } while (it->nextParameter() == 0);
  return 0;
}

int KFAQVTune::addFormula(KFLVocIterator& entry) {
  KFAQVFormula formula;
  std::string identifier;
  if (entry.getStringAttribute(kVocFormulaIdentifier, identifier) != 0 ||
      entry.getStringAttribute(kVocExpression, formula.expression) != 0 ||
      entry.getStringAttribute(kVocComment, formula.comment) != 0) {
    return 0;
  }
  formula.identifier = static_cast<int>(strToLonglong(identifier));
  if (formFormula(formula.expression, formula.notation) != 0) {
    setErrorMessage("can not parse formula: %s", formula.expression.c_str());
    return kTuneVocabularyFailure;
  }
  formulas.push_back(std::move(formula));
  return 0;
}

int KFAQVTune::getNewIndex(const std::string& name, KFAQVParamsValue** entry) {
  if (index.count(name) != 0) {
    setErrorMessage("double index '%s' in formulas initialization", name.c_str());
    return kTuneVocabularyFailure;
  }
  if (count >= kLastParameterIndex) {
    // The word QOS takes one of the indices.
    setErrorMessage("no index for '%s' in formulas initialization: formulas can tell %d parameters apart",
                    name.c_str(), kLastParameterIndex - 1);
    return kTuneVocabularyFailure;
  }
  const auto place = static_cast<std::size_t>(count) + 1;
  if (place >= names.size()) names.resize(place + 5);
  std::string copy = name;
  KFAQVParamsValue& made = index[name];
  made.soft = ++count;
  names[place] = std::move(copy);
  byName_.add(name, count);
  byLowerName_.add(toLower(name), count);
  if (entry != nullptr) *entry = &made;
  return 0;
}

int KFAQVTune::findIndex(std::string_view name) const {
  const int* found = byName_.find(name);
  if (found == nullptr) found = byLowerName_.find(toLower(std::string(name)));
  return found != nullptr ? *found : 0;
}

const std::string& KFAQVTune::getByIndex(int id) const {
  KFL_CHECK(id >= 0 && id < count, kModule, kUnit);
  return names[static_cast<std::size_t>(id)];
}

int KFAQVTune::addQOStoIndex(KFAQVParamIDList& list) {
  const Iterator it = openParameters(vocabulary);
  if (it == nullptr) return kTuneVocabularyFailure;
  std::string id;
  do {
    if (it->getID(id) != 0) continue;
    int kind = 1;
    it->getIntAttribute(kVocKind, kind);
    if (kind == kPairKind) continue;
    const auto found = index.find(id);
    KFL_CHECK(found != index.end(), kModule, kUnit);
    list.push_back(indexOf(found->second));
  } while (it->nextParameter() == 0);
  return 0;
}

int KFAQVTune::formFormula(const std::string& formula, KFAQVPolishNotation& out,
                           KFAQVFormulaError* error) const {
  return compileFormula(formula, IndexNames(*this), out, error);
}

KFAQVTuneArray KFAQVTune::arrange(const KFAQVTuneParameters& values) const {
  KFAQVTuneArray array(static_cast<std::size_t>(count), nullptr);
  for (const auto& [name, value] : values)
    place(name, value, array);
  return array;
}

void KFAQVTune::place(std::string_view name, const KFAQVParamsValue& value, KFAQVTuneArray& values) const {
  const auto at = static_cast<std::size_t>(findIndex(name));
  // The last index belongs to QOS, which has no value of its own.
  if (at == 0 || at >= values.size()) return;
  if (values[at] == nullptr || names[at] == name) values[at] = &value;
}

int KFAQVTune::checkParameters(const KFAQVTuneParameters& values, KFAQVFailedFormulas& failures) {
  if (const int result = init(); result != 0) return result;
  return check(arrange(values), failures);
}

int KFAQVTune::check(const KFAQVTuneArray& array, KFAQVFailedFormulas& failures) const {
  KFAQVFailedFormulas violated;
  const int result = checkAll(array, violated);
  failures.insert(failures.end(), violated.begin(), violated.end());
  return result;
}

int KFAQVTune::checkAll(const KFAQVTuneArray& array, KFAQVFailedFormulas& failures) const {
  for (const KFAQVFormula& formula : formulas) {
    if (formula.notation.hasMultiple == 0) {
      if (const int result = checkFormula(array, formula, -1, failures); result < 0) return result;
      continue;
    }
    KFL_CHECK(formula.notation.hasMultiple == 1 && formula.notation.multipleList != nullptr, kModule, kUnit);
    for (const int id : *formula.notation.multipleList) {
      if (const int result = checkFormula(array, formula, id, failures); result < 0) return result;
    }
  }
  return 0;
}

int KFAQVTune::checkFormula(const KFAQVTuneArray& values, const KFAQVFormula& formula, int multipleIndex,
                            KFAQVFailedFormulas& failures) const {
  KFAQVTuneFailure failure{&formula, {}};
  const int result = checkByFormula(values, formula.notation, failure.params, multipleIndex);
  if (result == 1) failures.push_back(failure);
  return result;
}

std::string KFAQVTune::toString(const KFAQVTermType& term) const {
  if (term.kind == KFAQVTermNumber) return std::to_string(term.value);
  if (term.kind == KFAQVTermOperator) {
    const auto row = static_cast<std::size_t>(term.value);
    const auto table = KFAQVOperator::table();
    return row < table.size() ? std::string(table[row].text) : "?";
  }
  const auto id = static_cast<std::size_t>(term.value % kHardOffset);
  return (id < names.size() ? names[id] : "?") + (term.value >= kHardOffset ? ".hard" : ".soft");
}

std::string KFAQVTune::toString(const KFAQVPolishNotation& formula) const {
  std::string text;
  for (const KFAQVTermType& term : formula.terms) {
    if (!text.empty()) text += ' ';
    text += toString(term);
  }
  return text;
}

}  // namespace KFA
