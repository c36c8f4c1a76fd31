// SPDX-License-Identifier: Apache-2.0
#include <KFLFunctionality/KFLEnv.h>

#include <algorithm>
#include <typeinfo>
#include <vector>

#include <boost/smart_ptr/make_shared.hpp>

#include <KFLCommon/KFLError.h>
#include <KFLFunctionality/KFLEnvFactory.h>
#include <KFLMessage/KFLRecordRegistry.h>

KFL_DERIVED_REGISTRY(KFL::KFLEnv)

namespace KFL {

static const KFLRecordRegistration<KFLEnv> recordKFLEnv("KFLEnv");

// --- The fields that no row of the table describes ---------------------------------------------------------

struct KFLEnv::Binding {
  static int putAlerts(KFLMessageIterator& it, const KFLEnv& env, const KFLField& row) {
    for (const int type : env.alertTypes_)
      it.putValue(type, row.id);
    return 0;
  }
  static int getAlerts(const KFLMessageIterator& it, KFLEnv& env, const KFLField& row) {
    std::vector<int> types;
    if (KFL::fields::getItems(it, types, row.id) != 0) return -1;
    if (types.size() > kAlertCount) {
      setErrorMessage("an environment has %zu elements \"alert_type\"; at most %zu are right", types.size(),
                      kAlertCount);
      return -1;
    }
    env.alertTypes_ = {};
    std::ranges::copy(types, env.alertTypes_.begin());
    return 0;
  }

  static int putVirtualConfig(KFLMessageIterator& it, const KFLEnv& env, const KFLField& row) {
    const auto config = env.getVirtualConfig();
    if (!config) return 0;
    it.addChild(row.id);
    const int result = writeByClass(it, *config);
    it.leaveChild();
    it.selectNamespaceId(kTypesNamespace);
    return result;
  }
  static int getVirtualConfig(const KFLMessageIterator& it, KFLEnv& env, const KFLField& row) {
    if (it.findChild(row.id) != 0) return 0;
    ConfigSP made;
    KFLReaderDerived<KFLEnvConfig>()(it, made);
    auto config = boost::dynamic_pointer_cast<KFLVEnvConfig>(made);
    int result = 0;
    if (!config) {
      config = boost::make_shared<KFLVEnvConfig>();
      result = it.getObj(*config);
    }
    it.leaveChild();
    if (result == 0) env.virtualConfig_ = config;
    return result;
  }

  static int putConfig(KFLMessageIterator& it, const KFLEnv& env, const KFLField& row) {
    return env.config_ ? it.putObj(*env.config_, row.id) : 0;
  }
  static int getConfig(const KFLMessageIterator& it, KFLEnv& env, const KFLField& row) {
    if (!it.hasChild(row.id)) return 0;
    const auto config = boost::make_shared<KFLEnvConfig>(nullptr, EnvConfigReal);
    const int result = it.getObj(*config, row.id);
    if (result == 0) env.config_ = config;
    return result;
  }

 private:
  // A class without a factory keeps the type that its message came with.
  static int writeByClass(KFLMessageIterator& it, const KFLVEnvConfig& config) {
    const auto* const factory = KFLDerivedParserFactory<KFLEnvConfig>::find(typeid(config));
    if (factory != nullptr) return factory->write(it, &config);
    if (!config.getIterator().getTypeTag().empty()) return it.copyContent(config.getIterator());
    return it.putObj(config);
  }
};

const KFLFieldTable& KFLEnv::fields() {
  using R = KFLEnv;
  using B = Binding;
  static constexpr KFLField rows[] = {
      field<R, &R::eid_>(1899).required(),
      field<R, &R::parentEID_>("parent_eid"),
      field<R, &R::status_>("status"),
      special<R, int, &B::putAlerts, &B::getAlerts>("alert_type").atMost(kAlertCount).required(),
      special<R, KFLEnvConfig, &B::putVirtualConfig, &B::getVirtualConfig>("virtual_config")
          .polymorphic()
          .required()
          .mustWrite(),
      special<R, KFLEnvConfig, &B::putConfig, &B::getConfig>(1185).required().mustWrite(),
  };
  static constexpr KFLFieldTable table{"KFLEnv", kTypesNamespaceURI, "envType", rows};
  return table;
}

// --- Construction ------------------------------------------------------------------------------------------

namespace {

KFLEnv::VirtualConfigSP makeVirtualConfig(const boost::shared_ptr<KFLEnvCoreBasic>& core) {
  if (!core) return {};
  const auto factory = KFLEnvFactory::getInstance()->getFactory(core->type);
  return factory ? factory->createVEnvConfig(core) : boost::make_shared<KFLVEnvConfig>(core);
}

}  // namespace

KFLEnv::KFLEnv(const KFLEID& eid, const VirtualConfigSP& virtualConfig, const ConfigSP& config)
    : eid_(eid), virtualConfig_(virtualConfig), config_(config) {}

KFLEnv::KFLEnv(const boost::shared_ptr<KFLEnvCoreBasic>& core) : KFLEnv(core, makeVirtualConfig(core)) {}

KFLEnv::KFLEnv(const boost::shared_ptr<KFLEnvCoreBasic>& core, const VirtualConfigSP& virtualConfig)
    : virtualConfig_(virtualConfig) {
  if (!core) return;
  eid_ = core->eid;
  parentEID_ = core->parentEID;
  status_ = core->status;
  alertTypes_ = core->alertTypes;
  config_ = boost::make_shared<KFLEnvConfig>(&core->config, EnvConfigReal);
}

// --- What is known -----------------------------------------------------------------------------------------

std::size_t KFLEnv::getSortKey() const {
  return 0;
}

KFLEnv::VirtualConfigSP KFLEnv::getVirtualConfig() {
  return virtualConfig_;
}

boost::shared_ptr<const KFLVEnvConfig> KFLEnv::getVirtualConfig() const {
  return virtualConfig_;
}

std::string KFLEnv::getTitle() const {
  return eid_.toString();
}

int KFLEnv::setAlertType(std::size_t index, int type) {
  if (index >= kAlertCount) {
    setErrorMessage("an environment has no alert %zu; 0 to %zu are right", index, kAlertCount - 1);
    return -1;
  }
  alertTypes_[index] = type;
  return 0;
}

}  // namespace KFL
