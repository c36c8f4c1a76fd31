// SPDX-License-Identifier: Apache-2.0
// How a container environment is to be cloned. A value, except that copies share the configuration: it is one object,
// which reading changes in place.
#ifndef KFAFUNCTIONALITY_MIGRATION_KFAMIGRATORCLONEOPTIONS_H
#define KFAFUNCTIONALITY_MIGRATION_KFAMIGRATORCLONEOPTIONS_H

#include <set>

#include <boost/smart_ptr/shared_ptr.hpp>

#include <KFLCommon/KFLProperty.h>
#include <KFLFunctionality/KFLMigratorCloneOptions.h>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/environment/KFAEnvConfig.h>

namespace KFA {

class KFAMigratorCloneOptions : public KFLMigratorCloneOptions {
 public:
  using Flag = KFLOptionalProperty<bool>;
  using ConfigSP = boost::shared_ptr<KFAEnvConfig>;

  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFAMigratorCloneOptions>;
  // Fails only where the base part does. Afterwards the flag is specified and there is a configuration, whatever the
  // message holds; without an element for one it is a new one.
  using Reader = KFLRecordReader<KFAMigratorCloneOptions>;

  KFAMigratorCloneOptions() = default;
  KFAMigratorCloneOptions(const KFAMigratorCloneOptions&) = default;
  KFAMigratorCloneOptions(KFAMigratorCloneOptions&&) = default;
  KFAMigratorCloneOptions& operator=(const KFAMigratorCloneOptions&) = default;
  KFAMigratorCloneOptions& operator=(KFAMigratorCloneOptions&&) = default;
  ~KFAMigratorCloneOptions() override;

  // Whether the source stays as it is; otherwise the clone takes its place.
  const Flag& getKeepSource() const { return keepSource_; }
  void setKeepSource(const Flag& keep) { keepSource_ = keep; }
  // What is different in the clones' configuration; empty for nothing.
  const ConfigSP& getConfig() const { return config_; }
  void setConfig(const ConfigSP& config) { config_ = config; }
  // The VEIDs that the clones get.
  const std::set<int>& getVeids() const { return veids_; }
  void setVeids(const std::set<int>& veids) { veids_ = veids; }

 private:
  struct Binding;

  Flag keepSource_;
  ConfigSP config_;
  std::set<int> veids_;
};

}  // namespace KFA

#endif
