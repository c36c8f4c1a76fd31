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
    if (types.size() > kAlertCount)
      return it.fail(std::to_string(types.size()) + " elements alert_type are too many; at most " +
                     std::to_string(kAlertCount) + " are right");
    env.alertTypes_ = {};
    std::ranges::copy(types, env.alertTypes_.begin());
    return 0;
  }

  static int putVirtualConfig(KFLMessageIterator& it, const KFLEnv& env, const KFLField& row) {
    const auto config = env.getVirtualConfig();
    if (!config) return 0;
    return putByClass(it, *config, row.id);
  }
  static int getVirtualConfig(const KFLMessageIterator& it, KFLEnv& env, const KFLField& row) {
    env.virtualConfig_.reset();
    const KFLCursorGuard guard(it);
    if (it.findChild(row.id) != 0) return 0;
    const ConfigSP made = makeByType(it, EnvConfigVirtual);
    env.virtualConfig_ = boost::dynamic_pointer_cast<KFLVEnvConfig>(made);
    if (!env.virtualConfig_) env.virtualConfig_ = boost::make_shared<KFLVEnvConfig>(&it, EnvConfigVirtual);
    return 0;
  }

  static int putConfig(KFLMessageIterator& it, const KFLEnv& env, const KFLField& row) {
    return env.config_ ? putByClass(it, *env.config_, row.id) : 0;
  }
  static int getConfig(const KFLMessageIterator& it, KFLEnv& env, const KFLField& row) {
    env.config_.reset();
    const KFLCursorGuard guard(it);
    if (it.findChild(row.id) != 0) return 0;
    env.config_ = makeByType(it, EnvConfigReal);
    if (!env.config_) env.config_ = boost::make_shared<KFLEnvConfig>(&it, EnvConfigReal);
    return 0;
  }

 private:
  // An object of the class that is registered for the type of the current element; null when there is none.
  static ConfigSP makeByType(const KFLMessageIterator& it, EnvConfigType kind) {
    std::string type;
    it.getTypeName(type);
    const auto* const factory = KFLDerivedParserFactory<KFLEnvConfig>::find(type);
    KFLEnvConfig* made = nullptr;
    if (factory != nullptr && factory->read(it, made) == 0) made->kind_ = kind;
    return ConfigSP(made);
  }
  // A class without a factory keeps the type that its message came with.
  template <class Config>
  static int putByClass(KFLMessageIterator& it, const Config& config, KFLElementID id) {
    it.addChild(id);
    const auto* const factory = KFLDerivedParserFactory<KFLEnvConfig>::find(typeid(config));
    int result = 0;
    if (factory != nullptr)
      result = factory->write(it, &config);
    else if (!config.getIterator().getTypeTag().empty())
      result = it.copyContent(config.getIterator());
    else
      result = it.putObj(config);
    it.leaveChild();
    return result;
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

KFLEnv::~KFLEnv() = default;

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
