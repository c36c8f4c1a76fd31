// SPDX-License-Identifier: Apache-2.0
// The configuration of one container environment: the properties that only this technology has, on top of
// those that every configuration has. KFLEnvConfig.h tells how accessors behave, what is shared, and what
// threads may do.
#ifndef KFAFUNCTIONALITY_ENVIRONMENT_KFAENVCONFIG_H
#define KFAFUNCTIONALITY_ENVIRONMENT_KFAENVCONFIG_H

#include <set>
#include <string>
#include <vector>

#include <boost/smart_ptr/shared_ptr.hpp>

#include <KFLFunctionality/KFLEID.h>
#include <KFLFunctionality/KFLInterfaceRate.h>
#include <KFLFunctionality/KFLVEnvConfig.h>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/environment/KFAEnvCapability.h>
#include <KFAFunctionality/environment/KFAVPSType.h>
#include <KFAFunctionality/network/KFANetVEth.h>
#include <KFAFunctionality/storage/KFAHardDisk.h>
#include <KFAFunctionality/templates/KFADistribution.h>
#include <KFAFunctionality/templates/KFATemplate.h>

namespace KFL {
class KFLEnv;
}

namespace KFA {

class KFAEnvConfig : public KFLVEnvConfig {
 public:
  struct Writer;
  class MatchVeid;
  class MatchVeidParent;

  using Flag = KFLOptionalProperty<bool>;
  using Capabilities = KFLOptionalProperty<std::set<KFAEnvCapability>>;
  using Templates = KFLOptionalProperty<std::vector<KFATemplate>>;
  using Rates = KFLOptionalProperty<std::vector<KFLInterfaceRate>>;
  using NetVEths = KFLOptionalProperty<std::vector<KFANetVEth>>;

  KFAEnvConfig() = default;
  // On the element under the cursor, in place.
  KFAEnvConfig(const KFLMessageIterator* it, EnvConfigType kind) : KFLVEnvConfig(it, kind) {}
  // With a copy of the other's message.
  explicit KFAEnvConfig(const KFLEnvConfig& other) : KFLVEnvConfig(other) {}
  // On the core's virtual configuration, in place.
  explicit KFAEnvConfig(const boost::shared_ptr<KFLEnvCoreBasic>& core) : KFLVEnvConfig(core) {}

  static const KFLFieldTable& elements();

  int getPositionOfTheTag(const std::string& tag) const override;

  // The number of the environment on its node. Absent, it cannot be got: -1.
  int getVeid(int& veid) const;
  int setVeid(const int& veid);

  // Paths as they are configured: $VEID and ${VEID} stand for the number of the environment.
  int getVERootVar(Text& path) const;
  int setVERootVar(const Text& path);
  int getVEPrivateVar(Text& path) const;
  int setVEPrivateVar(const Text& path);
  // The same with the number put in: 0, or -1 when the path or the number is absent.
  int getVERoot(std::string& path) const;
  int getVEPrivate(std::string& path) const;
  // Puts the number in the place of each $VEID, then of each ${VEID}.
  static void veidSubstitute(int veid, std::string& text);

  int getOnBoot(Flag& onBoot) const;
  int setOnBoot(const Flag& onBoot);
  int getRateBound(Flag& rateBound) const;
  int setRateBound(const Flag& rateBound);
  int getOfflineManagement(Flag& offlineManagement) const;
  int setOfflineManagement(const Flag& offlineManagement);
  int getSLMMode(Text& mode) const;
  int setSLMMode(const Text& mode);
  int getAllowReboot(Flag& allowReboot) const;
  int setAllowReboot(const Flag& allowReboot);
  int getUUID(Text& uuid) const;
  int setUUID(const Text& uuid);
  // What the environment is for.
  int getVEType(KFLOptionalProperty<KFAVPSType>& type) const;
  int setVEType(const KFLOptionalProperty<KFAVPSType>& type);

  // Whether the configuration is a sample, and the sample that it was made from.
  int getSample(Flag& isSample) const;
  int setSample(const Flag& isSample);
  int getOriginSample(Text& name) const;
  int setOriginSample(const Text& name);

  // The terminal services of a guest.
  int getTSMode(KFLOptionalProperty<int>& mode) const;
  int setTSMode(const KFLOptionalProperty<int>& mode);
  int getTSLicenseServers(TextSet& servers) const;
  int setTSLicenseServers(const TextSet& servers);

  int getIPTables(TextSet& modules) const;
  int setIPTables(const TextSet& modules);
  int getServerRoles(TextSet& roles) const;
  int setServerRoles(const TextSet& roles);
  int getOfflineServices(TextSet& services) const;
  int setOfflineServices(const TextSet& services);

  int getCapabilities(Capabilities& capabilities) const;
  int setCapabilities(const Capabilities& capabilities);
  // The capability with the name that `capability` holds; unspecified when there is none.
  int getCapability(KFLOptionalProperty<KFAEnvCapability>& capability) const;
  // Puts a capability in the place of the one with its name; an unspecified one is only taken out.
  int setCapability(const KFLOptionalProperty<KFAEnvCapability>& capability);

  int getDistribution(KFLOptionalProperty<KFADistribution>& distribution) const;
  int setDistribution(const KFLOptionalProperty<KFADistribution>& distribution);
  int getOsTemplate(KFLOptionalProperty<KFATemplate>& osTemplate) const;
  int setOsTemplate(const KFLOptionalProperty<KFATemplate>& osTemplate);
  // Application templates.
  int getTemplates(Templates& templates) const;
  int setTemplates(const Templates& templates);

  int getWinsServers(Addresses& servers) const;
  int setWinsServers(const Addresses& servers);
  int getRatesList(Rates& rates) const;
  int setRatesList(const Rates& rates);
  int getNetVEths(NetVEths& devices) const;
  int setNetVEths(const NetVEths& devices);

  // Always 0; the pointer is empty afterwards when there is no disk list that can be read.
  int getHardDisks(boost::shared_ptr<HardDisk::List::Base>& disks) const;
  // -1, with an error text and nothing changed, when the disks that are there are bound to real storage. A
  // null pointer removes them.
  int setHardDisks(const HardDisk::List::Base* disks);
};

// Names the technology's type; the subtree is written by the writer of the base class.
struct KFAEnvConfig::Writer {
  static int getNSID() { return 0; }
  static const char* getStrNSID() { return kTypesURI; }
  static int getTypeID() { return 0; }
  static const char* getStrTypeID() { return "venv_configType"; }
  int operator()(KFLMessageIterator& it, const KFLVEnvConfig& config) const;
};

// Whether an environment has this number.
class KFAEnvConfig::MatchVeid {
 public:
  using result_type = bool;
  bool operator()(int veid, const boost::shared_ptr<const KFLEnv>& env) const;
};

// Whether an environment has this parent and this number.
class KFAEnvConfig::MatchVeidParent {
 public:
  using result_type = bool;
  MatchVeidParent(const KFLEID& parent, int veid) : parent_(parent), veid_(veid) {}
  bool operator()(const boost::shared_ptr<const KFLEnv>& env) const;

 private:
  KFLEID parent_;
  int veid_;
};

}  // namespace KFA

#endif
