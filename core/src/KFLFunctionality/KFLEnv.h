// SPDX-License-Identifier: Apache-2.0
// An environment as the agent holds it: identity, parent, state, and its two configurations.
//
// The base of every technology's environment class. The configurations are held by counted pointers: a copy
// of an environment shares them with the original.
#ifndef KFLFUNCTIONALITY_KFLENV_H
#define KFLFUNCTIONALITY_KFLENV_H

#include <array>
#include <cstddef>
#include <string>

#include <boost/smart_ptr/shared_ptr.hpp>

#include <KFLFunctionality/KFLEID.h>
#include <KFLFunctionality/KFLEnvCoreBasic.h>
#include <KFLFunctionality/KFLVEnvConfig.h>
#include <KFLMessage/KFLDerivedParsers.h>
#include <KFLMessage/KFLRecordFields.h>

namespace KFL {

class KFLEnv {
 public:
  using ConfigSP = boost::shared_ptr<KFLEnvConfig>;
  using VirtualConfigSP = boost::shared_ptr<KFLVEnvConfig>;

  static const KFLFieldTable& fields();
  using Writer = KFLCoreRecordWriter<KFLEnv, kTypesNamespace, 122>;
  // An environment without an id cannot be read. The class of its virtual configuration is chosen by the type
  // tag; one whose tag nobody has registered is a KFLVEnvConfig, which keeps the tag. So it is with the other
  // configuration, which is then a KFLEnvConfig. Both work on their elements of the message in place.
  using Reader = KFLRecordReader<KFLEnv>;

  // Without an id and without configurations.
  KFLEnv() = default;
  KFLEnv(const KFLEID& eid, const VirtualConfigSP& virtualConfig, const ConfigSP& config);
  // On a core; its virtual configuration is made by the child factory of the core's type, where there is one.
  // An empty environment for a null pointer.
  explicit KFLEnv(const boost::shared_ptr<KFLEnvCoreBasic>& core);
  KFLEnv(const KFLEnv&) = default;
  KFLEnv(KFLEnv&&) = default;
  KFLEnv& operator=(const KFLEnv&) = default;
  KFLEnv& operator=(KFLEnv&&) = default;
  virtual ~KFLEnv();

  // The number by which the agent orders environments.
  virtual std::size_t getSortKey() const;
  // Null when there is none.
  virtual VirtualConfigSP getVirtualConfig();
  virtual boost::shared_ptr<const KFLVEnvConfig> getVirtualConfig() const;
  // The text that names the environment to a person.
  virtual std::string getTitle() const;

  void setVirtualConfig(const VirtualConfigSP& config) { virtualConfig_ = config; }
  // Null when there is none.
  ConfigSP getConfig() { return config_; }
  boost::shared_ptr<const KFLEnvConfig> getConfig() const { return config_; }
  void setConfig(const ConfigSP& config) { config_ = config; }

  const KFLEID& getEID() const { return eid_; }
  void setEID(const KFLEID& eid) { eid_ = eid; }
  const KFLEID& getParentEID() const { return parentEID_; }
  void setParentEID(const KFLEID& eid) { parentEID_ = eid; }
  // The agent's number for the state; 0 while it is not known.
  int getStatus() const { return status_; }
  void setStatus(int status) { status_ = status; }
  // Of the alert with this index, from 0 to kAlertCount - 1; 0 for any other.
  int getAlertType(std::size_t index) const { return index < kAlertCount ? alertTypes_[index] : 0; }
  // 0, or -1 with an error text for an index that no alert has.
  int setAlertType(std::size_t index, int type);

 protected:
  // On a core, with a virtual configuration of the technology's own class.
  KFLEnv(const boost::shared_ptr<KFLEnvCoreBasic>& core, const VirtualConfigSP& virtualConfig);

 private:
  struct Binding;

  KFLEID eid_;
  KFLEID parentEID_;
  int status_ = 0;
  std::array<int, kAlertCount> alertTypes_{};
  VirtualConfigSP virtualConfig_;
  ConfigSP config_;
};

}  // namespace KFL

KFL_DECLARE_DERIVED_REGISTRY(KFL::KFLEnv)

#endif
