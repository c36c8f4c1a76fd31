// SPDX-License-Identifier: Apache-2.0
// The checker of resource parameters: reads parameters and formulas from the vocabulary once, then evaluates
// every formula over the values of one environment and lists those that do not hold.
//
//   KFAQVTune tune(config, vocabulary);
//   KFAQVFailedFormulas failures;
//   if (tune.checkParameters({{"numproc", {200, 240}}, ...}, failures) != 0) puts(getErrorMessage().c_str());
//
// One object serves one thread. The checker of a vocabulary is also to be had compiled, from getShared(): made once,
// never changed, for any threads. The trap: failures point into the object's formulas and are valid only while it lives.
#ifndef KFAFUNCTIONALITY_RESOURCES_KFAQOSTUNE_H
#define KFAFUNCTIONALITY_RESOURCES_KFAQOSTUNE_H

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <boost/smart_ptr/shared_ptr.hpp>

#include <KFLFunctionality/KFLVocMap.h>

#include <KFAFunctionality/files/KFAKeyIndex.h>
#include <KFAFunctionality/resources/KFAQoSFormula.h>

namespace KFL {
class KFLVEnvConfig;
}

namespace KFA {

// Results of the checker.
inline constexpr int kTuneVocabularyFailure = -2;  // the vocabulary cannot be used
inline constexpr int kTuneParameterAbsent = -3;    // a formula needs a parameter that has no value

// The value of one parameter. In the tuning index: the parameter's index in `soft`, and what QOS stands for
// in `list`.
struct KFAQVParamsValue {
  long long soft = 0;
  long long hard = 0;
  KFAQVParamIDList list;
};

// One formula of the vocabulary.
struct KFAQVFormula {
  KFAQVPolishNotation notation;
  int identifier = 0;
  std::string expression;
  std::string comment;
};

// One violated formula with the parameters that were read.
struct KFAQVTuneFailure {
  const KFAQVFormula* formula = nullptr;  // not owned
  KFAQVParamIDSet params;
};

using KFAQVTuneParameters = std::map<std::string, KFAQVParamsValue>;
using KFAQVFailedFormulas = std::vector<KFAQVTuneFailure>;
using KFAQVTuneArray = std::vector<const KFAQVParamsValue*>;

// Watches an evaluation: one call for each operator that was applied, with its operands and its result.
class KFAQVEvaluationObserver {
 public:
  virtual void step(const KFAQVTermType& term, long long left, long long right, long long result) = 0;

 protected:
  ~KFAQVEvaluationObserver() = default;
};

class KFAQVTune {
 public:
  using Filler = int (KFAQVTune::*)(KFAQVParamIDList& list);
  using Index = std::map<std::string, KFAQVParamsValue, std::less<>>;

  // Words of formulas that stand for one parameter after the other, with what fills their list. The empty
  // word has no operation and is skipped.
  static const std::map<std::string, Filler, std::less<>> MultipleTuneMap;

  // Reads nothing yet. A null vocabulary makes init() fail. The configuration must outlive the object.
  KFAQVTune(const KFLVEnvConfig& environment, boost::shared_ptr<KFLVocMap> vocabularyMap);
  // Compiled notations point into the index.
  KFAQVTune(const KFAQVTune&) = delete;
  KFAQVTune& operator=(const KFAQVTune&) = delete;

  // The checker of a vocabulary, initialised. It is made when it is first asked for and given to all who ask while the
  // vocabulary lives; its config is an empty one, and it has no vocabulary of its own. Null, with an error text, when
  // init() fails. Any thread.
  static std::shared_ptr<const KFAQVTune> getShared(const boost::shared_ptr<KFLVocMap>& vocabulary);

  // Reads parameters and formulas from the vocabulary: 0, or -2 with an error text; a failure is final for
  // the object. Later calls return 0 at once. After std::bad_alloc it begins anew.
  int init();

  // Gives a name the next index, from 1 on: 0, or -2 with an error text when it has one or when there are
  // more than terms can tell apart. `entry`, where given, receives the place of the new entry.
  int getNewIndex(const std::string& name, KFAQVParamsValue** entry = nullptr);

  // The index of a name, in any case of letters where none is spelled so; 0 when there is none.
  int findIndex(std::string_view name) const;

  // The name of an index from 0 to count - 1; another index is a programming error.
  const std::string& getByIndex(int id) const;

  // Appends the indices of the parameters that QOS stands for: 0, or -2 with an error text.
  int addQOStoIndex(KFAQVParamIDList& list);

  // Compiles a formula over the names of the index, appending to `out`: 0, or -1 when it is not valid. Sets
  // no error text; `error`, where given, receives position and reason.
  int formFormula(const std::string& formula, KFAQVPolishNotation& out,
                  KFAQVFormulaError* error = nullptr) const;

  // Evaluates a formula: 0 when it holds, or is skipped because the parameter that a multiple reference
  // stands for has no value; 1 when it does not hold; -3 when a parameter has no value; -1 when it cannot be
  // evaluated. The negative ones set an error text. `used` receives every parameter read. `multipleIndex`:
  // the parameter that a multiple reference stands for; -1 for a formula without one. A notation that
  // formFormula did not make must not take more operands than there are.
  int checkByFormula(const KFAQVTuneArray& values, const KFAQVPolishNotation& formula, KFAQVParamIDSet& used,
                     int multipleIndex, KFAQVEvaluationObserver* observer = nullptr) const;

  // Checks every formula, after init() where that is still to be done: 0 when all could be evaluated, with
  // the violated ones appended to `failures`; else the first negative code, with the failures before it.
  int checkParameters(const KFAQVTuneParameters& values, KFAQVFailedFormulas& failures);

  // The same over values in the order of the index, of an object that has been initialised.
  int check(const KFAQVTuneArray& values, KFAQVFailedFormulas& failures) const;

  // The values in the order of the index, as checkByFormula() takes them; they point into `values`. Names
  // that the index does not know in any case of letters, and QOS, are left out.
  KFAQVTuneArray arrange(const KFAQVTuneParameters& values) const;
  // Puts the value of a name into such an array. A value under the very name goes before one in another case.
  void place(std::string_view name, const KFAQVParamsValue& value, KFAQVTuneArray& values) const;

  // The postfix form of a notation, for people.
  std::string toString(const KFAQVPolishNotation& formula) const;
  // One term of it: "numproc.hard", "<=", "12".
  std::string toString(const KFAQVTermType& term) const;

  const KFLVEnvConfig& config;
  boost::shared_ptr<KFLVocMap> vocabulary;
  int count = 0;
  Index index;
  std::vector<std::string> names;
  std::vector<KFAQVFormula> formulas;
  int initialised = 0;

 private:
  void forget() noexcept;
  int readParameters();
  int readFormulas();
  int addFormula(KFLVocIterator& entry);
  int checkAll(const KFAQVTuneArray& array, KFAQVFailedFormulas& failures) const;
  int checkFormula(const KFAQVTuneArray& values, const KFAQVFormula& formula, int multipleIndex,
                   KFAQVFailedFormulas& failures) const;

  // The indices by name, and by name in lower case.
  KFAKeyIndex<int> byName_;
  KFAKeyIndex<int> byLowerName_;
};

}  // namespace KFA

#endif
