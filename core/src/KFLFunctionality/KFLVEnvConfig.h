// SPDX-License-Identifier: Apache-2.0
// The virtual configuration of an environment: what its technology has been told. It is a KFLEnvConfig, with
// the properties that every technology has, among them the resource parameters.
#ifndef KFLFUNCTIONALITY_KFLVENVCONFIG_H
#define KFLFUNCTIONALITY_KFLVENVCONFIG_H

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <KFLFunctionality/KFLEnvConfig.h>
#include <KFLFunctionality/KFLQoS.h>

namespace KFL {

class KFLVEnvConfig : public KFLEnvConfig {
 public:
  struct Writer;
  using QoSes = KFLOptionalProperty<std::set<KFLQoS>>;

  KFLVEnvConfig() = default;
  KFLVEnvConfig(const KFLMessageIterator* it, EnvConfigType kind) : KFLEnvConfig(it, kind) {}
  explicit KFLVEnvConfig(const KFLEnvConfig& other) : KFLEnvConfig(other) {}
  explicit KFLVEnvConfig(const boost::shared_ptr<KFLEnvCoreBasic>& core) : KFLEnvConfig(core) {}

  static const KFLFieldTable& elements();

  int getPositionOfTheTag(const std::string& tag) const override;

  // Whether the environment must not be started. An absent element gives false and -1.
  int getDisabled(bool& disabled) const;
  int setDisabled(const bool& disabled);
  // Whether somebody has changed what the sample gave.
  int getConfigCustomized(KFLOptionalProperty<bool>& customized) const;
  int setConfigCustomized(const KFLOptionalProperty<bool>& customized);
  int getClassID(KFLOptionalProperty<int>& id) const;
  int setClassID(const KFLOptionalProperty<int>& id);

  // The resource parameters. For many lookups get the whole set once: a lookup by id goes through the
  // elements.
  int getQoSes(QoSes& qoses) const;
  int setQoSes(const QoSes& qoses);
  // The same from values in the order of their ids, of which each stands once.
  struct QoSValue {
    std::string_view id;
    KFLOptionalProperty<long long> soft;
    long long hard = 0;
  };
  int setOrderedQoSes(const std::vector<QoSValue>& qoses);
  // One parameter by its id, in any case of letters; unspecified when there is none.
  int getQoS(const std::string& id, KFLOptionalProperty<KFLQoS>& qos) const;
  // The parameter with the id that `qos` holds.
  int getQoS(KFLOptionalProperty<KFLQoS>& qos) const;
  // Puts a parameter in the place of the one with its id, in any case of letters; an unspecified one is only taken out.
  int setQoS(const KFLOptionalProperty<KFLQoS>& qos);
};

// The parameter with this id in a set: the one that is spelled so, or else the first one in another case of letters.
// Null when there is none.
const KFLQoS* findQoS(const std::set<KFLQoS>& qoses, std::string_view id);

struct KFLVEnvConfig::Writer {
  static int getNSID() { return kTypesNamespace; }
  static const char* getStrNSID() { return ""; }
  static int getTypeID() { return 121; }
  static const char* getStrTypeID() { return ""; }
  int operator()(KFLMessageIterator& it, const KFLVEnvConfig& config) const {
    return KFLEnvConfig::Writer()(it, config);
  }
};

}  // namespace KFL

#endif
