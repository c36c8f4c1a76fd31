// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/environment/KFAEnv.h>

#include <vector>

#include <boost/smart_ptr/make_shared.hpp>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLLock.h>
#include <KFLCommon/KFLLog.h>
#include <KFLFunctionality/KFLEnvFactory.h>
#include <KFLMessage/KFLRecordRegistry.h>

#include <KFAFunctionality/environment/KFAEnvInternal.h>
#include <KFAFunctionality/environment/KFAVtInfo.h>
#include <KFAFunctionality/environment/KFAVtSettings.h>

namespace KFA {

static const KFLRecordRegistration<KFAEnv> recordKFAEnv("KFAEnv");

// --- Registration at load, in this order; it is undone in reverse at unload --------------------------------

namespace {

const std::string kTechnologyName(kTechnology);

template <class Data, class Base, class Reader = typename Data::Reader>
using Factory = KFLDerivedParserFactoryT<Data, Base, std::string, Reader, typename Data::Writer>;

}  // namespace

static const Factory<KFAVtInfo, KFLVtInfo> factoryKFAVtInfo;
static const Factory<KFAVtSettings, KFLVtSettings> factoryKFAVtSettings;
static const Factory<KFAEnvConfig, KFLEnvConfig, KFLEnvConfig::Reader> factoryKFAEnvConfig;

KFLLock configLock;
static const KFL::KFLForkWaits<configLock> forkWaits;

const limited_length_string<16> KFAEnv::type(kTechnologyName);

static const Factory<KFAEnv, KFLEnv, KFLEnv::Reader> factoryKFAEnv;

// Registers the environment type for as long as the library is loaded.
class KFAEnvFactoryInternal {
 public:
  KFAEnvFactoryInternal() : factory_(new KFLEnvChildFactoryT<KFAEnv, KFAEnvConfig>) {
    const limited_length_string<16> name(kTechnologyName);
    if (KFLEnvFactory::getInstance()->registerEnv(name, factory_) != 0) {
      KFL_LOG(kModule, kLogError, "[%s] %s", __func__, getErrorMessage().c_str());
    }
  }
  KFAEnvFactoryInternal(const KFAEnvFactoryInternal&) = delete;
  KFAEnvFactoryInternal& operator=(const KFAEnvFactoryInternal&) = delete;
  ~KFAEnvFactoryInternal() { KFLEnvFactory::getInstance()->unregisterEnv(KFAEnv::type, factory_); }

 private:
  boost::shared_ptr<KFLEnvChildFactory> factory_;
};

static const KFAEnvFactoryInternal registrar;

// --- The environment ---------------------------------------------------------------------------------------

KFAEnv::KFAEnv(const boost::shared_ptr<KFLEnvCoreBasic>& core)
    : KFLEnv(core, core ? boost::make_shared<KFAEnvConfig>(core) : VirtualConfigSP()) {}

KFAEnv::KFAEnv(const KFLEID& eid, const boost::shared_ptr<KFAEnvConfig>& config)
    : KFLEnv(eid, config, ConfigSP()) {}

// The configurations were not made constant: an environment only lends them as such.
KFAEnv::KFAEnv(const KFLEnv& other)
    : KFLEnv(other.getEID(), boost::const_pointer_cast<KFLVEnvConfig>(other.getVirtualConfig()),
             boost::const_pointer_cast<KFLEnvConfig>(other.getConfig())) {
  setParentEID(other.getParentEID());
  setStatus(other.getStatus());
  for (std::size_t i = 0; i < kAlertCount; ++i)
    setAlertType(i, other.getAlertType(i));
}

int KFAEnv::Writer::operator()(KFLMessageIterator& it, const KFLEnv& env) const {
  return it.putObject(env, KFLEnv::Writer());
}

std::size_t KFAEnv::getSortKey() const {
  int veid = 0;
  if (readVeid(getVirtualConfig().get(), veid) == 0) return static_cast<std::size_t>(veid);
  Log2(kModule, "KFAEnv", 631, "getSortKey", "virtual size_t KFA::KFAEnv::getSortKey() const")
      .put(kLogError, "[%s] Failed to get veid", "getSortKey");
  return 0;
}

// --- The title ---------------------------------------------------------------------------------------------

namespace {

using GetText = int (KFLEnvConfig::*)(KFLEnvConfig::Text&) const;

// These yield false when the configuration, which may be null, does not say.
bool getText(const KFLEnvConfig* config, GetText get, std::string& text) {
  KFLEnvConfig::Text value;
  if (config == nullptr || (config->*get)(value) != 0 || !value.isSpecified()) return false;
  text = value.getValue();
  return true;
}

bool getFirstAddress(const KFLEnvConfig* config, std::string& text) {
  KFLEnvConfig::Addresses addresses;
  if (config == nullptr || config->getAddresses(addresses) != 0 || !addresses.isSpecified()) return false;
  if (addresses.getValue().empty()) return false;
  text = addresses.getValue().front().toString();
  return true;
}

bool getNumber(const KFLVEnvConfig* config, std::string& text) {
  int veid = 0;
  if (readVeid(config, veid) != 0) return false;
  text = '#' + std::to_string(veid);
  return true;
}

}  // namespace

std::string KFAEnv::getTitle() const {
  const auto virtualConfig = getVirtualConfig();
  const auto config = getConfig();
  std::string title;
  const bool isNamed = getText(virtualConfig.get(), &KFLEnvConfig::getName, title) ||
                       getText(config.get(), &KFLEnvConfig::getName, title) ||
                       getText(virtualConfig.get(), &KFLEnvConfig::getHostname, title) ||
                       getText(config.get(), &KFLEnvConfig::getHostname, title) ||
                       getNumber(virtualConfig.get(), title) || getFirstAddress(virtualConfig.get(), title) ||
                       getFirstAddress(config.get(), title);
  return isNamed ? title : getEID().toString();
}

}  // namespace KFA
