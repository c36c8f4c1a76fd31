// SPDX-License-Identifier: Apache-2.0
// Every key of an environment file in words: what it takes, its unit, what holds without it, an example.
//
// The fixed keys are described here, resource parameters by the vocabulary; what a key takes is said by the rules that
// also judge it. A catalogue never changes; any threads may share it.
#ifndef KFAFUNCTIONALITY_NODE_KFAKEYCATALOGUE_H
#define KFAFUNCTIONALITY_NODE_KFAKEYCATALOGUE_H

#include <map>
#include <optional>
#include <string>

#include <boost/shared_ptr.hpp>

#include <KFLFunctionality/KFLVocMap.h>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

class KFAEnvConfigBashParser;

struct KFAKeyDescription {
  std::string key;          // in upper case
  std::string form;         // what it takes
  std::string unit;         // of its numbers; empty where it has none
  std::string without;      // what holds when it has no value
  std::string example;      // a value that it takes
  std::string description;  // what it is for
  bool isResource = false;
  bool isFraction = false;  // a record holds its numbers in hundredths
};

class KFAKeyCatalogue {
 public:
  KFAKeyCatalogue(const boost::shared_ptr<const KFAEnvConfigBashParser>& parser,
                  const boost::shared_ptr<KFLVocMap>& vocabulary);

  // By key in lower case, in ascending order.
  const std::map<std::string, KFAKeyDescription>& getKeys() const { return keys_; }
  // Null for a key that does not exist.
  const KFAKeyDescription* find(const std::string& key) const;

  // A value as people read it, with its unit: "1 GiB:1.125 GiB" for 1073741824:1207959552 bytes, "150 %". As it stands
  // where the key has no unit or the value is no number.
  std::string showValue(const std::string& key, const std::string& value) const;
  // The same of a resource parameter as a record holds it; no barrier: the one number is both.
  std::string showHeld(const std::string& key, const std::optional<long long>& barrier,
                       long long limit) const;

 private:
  std::map<std::string, KFAKeyDescription> keys_;
};

}  // namespace KFA

#endif
