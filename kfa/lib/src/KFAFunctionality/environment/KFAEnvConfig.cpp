// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/environment/KFAEnvConfig.h>

#include <array>
#include <atomic>
#include <charconv>
#include <cstddef>
#include <iterator>
#include <span>
#include <string_view>
#include <unordered_map>
#include <utility>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLLock.h>
#include <KFLFunctionality/KFLEnv.h>
#include <KFLMessage/KFLRecordElements.h>
#include <KFLMessage/KFLRecordRegistry.h>

#include <KFAFunctionality/environment/KFAEnvInternal.h>

namespace KFA {

static const KFLRecordRegistration<KFAEnvConfig> recordKFAEnvConfig("KFAEnvConfig");

// --- The elements ------------------------------------------------------------------------------------------

namespace {

// A child element: its name, and what it holds; nothing for those of the base class, which stand among ours.
struct Element {
  std::string_view name;
  KFLField row;
};

// In the order in which a configuration keeps them.
constexpr Element kElements[] = {
    {"veid", element<int>(1002)},
    {"ve_root", element<std::string>(1549)},
    {"ve_private", element<std::string>(1550)},
    {"on_boot", element<bool>(1556)},
    {"template", elementList<KFATemplate>(1226)},
    {"disabled", {}},
    {"offline_management", element<bool>(1647)},
    {"os_template", element<KFATemplate>(1733)},
    {"distribution", element<KFADistribution>(1780)},
    {"capability", elementList<KFAEnvCapability>(1786)},
    {"iptables", elementList<std::string>(1463)},
    {"config_customized", {}},
    {"class_id", {}},
    {"ve_type", element<KFAVPSType>("ve_type")},
    {"offline_service", elementList<std::string>(1747)},
    {"wins_server", elementList<KFLIPAddress>("wins_server")},
    {"net_device", elementList<KFANetVEth>(2053)},
    {"ts_license_server", elementList<std::string>("ts_license_server")},
    {"ts_mode", element<int>("ts_mode")},
    {"uuid", element<std::string>("uuid")},
    {"allow_reboot", element<bool>("allow_reboot")},
    {"rate_bound", element<bool>(1557)},
    {"interface_rate", elementList<KFLInterfaceRate>("interface_rate")},
    {"slm_mode", element<std::string>(1837)},
    {"origin_sample", element<std::string>("origin_sample")},
    {"is_sample", element<bool>(2291)},
    {"role", elementList<std::string>(1859)},
    {"disk_list", element<HardDisk::List::Base>("disk_list").polymorphic()},
};
static_assert(std::size(kElements) == 28);

// The property in an element of the table; any other name does not compile.
consteval KFLEnvProperty property(std::string_view name) {
  for (const Element& element : kElements) {
    if (element.name == name && !element.row.id.isEmpty()) return {element.row.id, kTypesURI};
  }
  throw "no element of this name is in the table";
}

using PositionMap = std::unordered_map<std::string, int>;
PositionMap positions;
// Whether the map is complete; from then on it is read without the lock.
constinit std::atomic<bool> positionsAreKnown{false};

void buildPositions() {
  {
    const KFLLockGuard guard(configLock);
    if (!positions.empty()) return;
  }
  PositionMap built;
  for (const Element& element : kElements)
    built.emplace(element.name, static_cast<int>(built.size()));
  const KFLLockGuard guard(configLock);
  if (!positions.empty()) return;
  positions.swap(built);
  positionsAreKnown.store(true, std::memory_order_release);
}

}  // namespace

int KFAEnvConfig::getPositionOfTheTag(const std::string& tag) const {
  if (!positionsAreKnown.load(std::memory_order_acquire)) buildPositions();
  const auto found = positions.find(tag);
  return found == positions.end() ? -1 : found->second;
}

const KFLFieldTable& KFAEnvConfig::elements() {
  static constexpr auto rows = [] {
    std::array<KFLField, std::size(kElements) + 1> all;
    auto end = all.begin();
    *end++ = elementsOf<KFLVEnvConfig>();
    for (const Element& element : kElements)
      if (!element.row.id.isEmpty()) *end++ = element.row;
    return std::pair(all, static_cast<std::size_t>(end - all.begin()));
  }();
  static constexpr auto table =
      KFLFieldTable{"KFAEnvConfig", kTypesURI, "venv_configType", std::span(rows.first).first(rows.second)}
          .inAnyOrder();
  return table;
}

int KFAEnvConfig::Writer::operator()(KFLMessageIterator& it, const KFLVEnvConfig& config) const {
  return it.putObject(config, KFLVEnvConfig::Writer());
}

// --- Properties --------------------------------------------------------------------------------------------

int KFAEnvConfig::getVeid(int& veid) const {
  return getMandatory(property("veid"), veid);
}
int KFAEnvConfig::setVeid(const int& veid) {
  return putMandatory(property("veid"), veid);
}
int KFAEnvConfig::getVERootVar(Text& path) const {
  return getProperty(property("ve_root"), path);
}
int KFAEnvConfig::setVERootVar(const Text& path) {
  return setProperty(property("ve_root"), path);
}
int KFAEnvConfig::getVEPrivateVar(Text& path) const {
  return getProperty(property("ve_private"), path);
}
int KFAEnvConfig::setVEPrivateVar(const Text& path) {
  return setProperty(property("ve_private"), path);
}
int KFAEnvConfig::getOnBoot(Flag& onBoot) const {
  return getProperty(property("on_boot"), onBoot);
}
int KFAEnvConfig::setOnBoot(const Flag& onBoot) {
  return setProperty(property("on_boot"), onBoot);
}
int KFAEnvConfig::getRateBound(Flag& rateBound) const {
  return getProperty(property("rate_bound"), rateBound);
}
int KFAEnvConfig::setRateBound(const Flag& rateBound) {
  return setProperty(property("rate_bound"), rateBound);
}
int KFAEnvConfig::getOfflineManagement(Flag& offlineManagement) const {
  return getProperty(property("offline_management"), offlineManagement);
}
int KFAEnvConfig::setOfflineManagement(const Flag& offlineManagement) {
  return setProperty(property("offline_management"), offlineManagement);
}
int KFAEnvConfig::getSLMMode(Text& mode) const {
  return getProperty(property("slm_mode"), mode);
}
int KFAEnvConfig::setSLMMode(const Text& mode) {
  return setProperty(property("slm_mode"), mode);
}
int KFAEnvConfig::getAllowReboot(Flag& allowReboot) const {
  return getProperty(property("allow_reboot"), allowReboot);
}
int KFAEnvConfig::setAllowReboot(const Flag& allowReboot) {
  return setProperty(property("allow_reboot"), allowReboot);
}
int KFAEnvConfig::getUUID(Text& uuid) const {
  return getProperty(property("uuid"), uuid);
}
int KFAEnvConfig::setUUID(const Text& uuid) {
  return setProperty(property("uuid"), uuid);
}
int KFAEnvConfig::getVEType(KFLOptionalProperty<KFAVPSType>& type) const {
  return getProperty(property("ve_type"), type);
}
int KFAEnvConfig::setVEType(const KFLOptionalProperty<KFAVPSType>& type) {
  return setProperty(property("ve_type"), type);
}
int KFAEnvConfig::getSample(Flag& isSample) const {
  return getProperty(property("is_sample"), isSample);
}
int KFAEnvConfig::setSample(const Flag& isSample) {
  return setProperty(property("is_sample"), isSample);
}
int KFAEnvConfig::getOriginSample(Text& name) const {
  return getProperty(property("origin_sample"), name);
}
int KFAEnvConfig::setOriginSample(const Text& name) {
  return setProperty(property("origin_sample"), name);
}
int KFAEnvConfig::getTSMode(KFLOptionalProperty<int>& mode) const {
  return getProperty(property("ts_mode"), mode);
}
int KFAEnvConfig::setTSMode(const KFLOptionalProperty<int>& mode) {
  return setProperty(property("ts_mode"), mode);
}
int KFAEnvConfig::getTSLicenseServers(TextSet& servers) const {
  return getListProperty(property("ts_license_server"), servers);
}
int KFAEnvConfig::setTSLicenseServers(const TextSet& servers) {
  return setListProperty(property("ts_license_server"), servers);
}
int KFAEnvConfig::getIPTables(TextSet& modules) const {
  return getListProperty(property("iptables"), modules);
}
int KFAEnvConfig::setIPTables(const TextSet& modules) {
  return setListProperty(property("iptables"), modules);
}
int KFAEnvConfig::getServerRoles(TextSet& roles) const {
  return getListProperty(property("role"), roles);
}
int KFAEnvConfig::setServerRoles(const TextSet& roles) {
  return setListProperty(property("role"), roles);
}
int KFAEnvConfig::getOfflineServices(TextSet& services) const {
  return getListProperty(property("offline_service"), services);
}
int KFAEnvConfig::setOfflineServices(const TextSet& services) {
  return setListProperty(property("offline_service"), services);
}
int KFAEnvConfig::getCapabilities(Capabilities& capabilities) const {
  return getListProperty(property("capability"), capabilities);
}
int KFAEnvConfig::setCapabilities(const Capabilities& capabilities) {
  return setListProperty(property("capability"), capabilities);
}
int KFAEnvConfig::getCapability(KFLOptionalProperty<KFAEnvCapability>& capability) const {
  return getMember(property("capability"), capability);
}
int KFAEnvConfig::setCapability(const KFLOptionalProperty<KFAEnvCapability>& capability) {
  return setMember(property("capability"), capability);
}
int KFAEnvConfig::getDistribution(KFLOptionalProperty<KFADistribution>& distribution) const {
  return getProperty(property("distribution"), distribution);
}
int KFAEnvConfig::setDistribution(const KFLOptionalProperty<KFADistribution>& distribution) {
  return setProperty(property("distribution"), distribution);
}
int KFAEnvConfig::getOsTemplate(KFLOptionalProperty<KFATemplate>& osTemplate) const {
  return getProperty(property("os_template"), osTemplate);
}
int KFAEnvConfig::setOsTemplate(const KFLOptionalProperty<KFATemplate>& osTemplate) {
  return setProperty(property("os_template"), osTemplate);
}
int KFAEnvConfig::getTemplates(Templates& templates) const {
  return getListProperty(property("template"), templates);
}
int KFAEnvConfig::setTemplates(const Templates& templates) {
  return setListProperty(property("template"), templates);
}
int KFAEnvConfig::getWinsServers(Addresses& servers) const {
  return getListProperty(property("wins_server"), servers);
}
int KFAEnvConfig::setWinsServers(const Addresses& servers) {
  return setListProperty(property("wins_server"), servers);
}
int KFAEnvConfig::getRatesList(Rates& rates) const {
  return getListProperty(property("interface_rate"), rates);
}
int KFAEnvConfig::setRatesList(const Rates& rates) {
  return setListProperty(property("interface_rate"), rates);
}
int KFAEnvConfig::getNetVEths(NetVEths& devices) const {
  return getListProperty(property("net_device"), devices);
}
int KFAEnvConfig::setNetVEths(const NetVEths& devices) {
  return setListProperty(property("net_device"), devices);
}

// --- Paths -------------------------------------------------------------------------------------------------

namespace {

void replaceAll(std::string& text, std::string_view what, std::string_view by) {
  std::size_t at = text.find(what);
  if (at == std::string::npos) return;
  std::string replaced;
  std::size_t rest = 0;
  for (; at != std::string::npos; at = text.find(what, rest)) {
    replaced.append(text, rest, at - rest).append(by);
    rest = at + what.size();
  }
  text = replaced.append(text, rest);
}

}  // namespace

// Digits cannot make up a part of another variable, so one pass for each form finds all that there are.
void KFAEnvConfig::veidSubstitute(int veid, std::string& text) {
  std::array<char, 12> digits;
  const char* const end = std::to_chars(digits.data(), digits.data() + digits.size(), veid).ptr;
  const std::string_view number(digits.data(), static_cast<std::size_t>(end - digits.data()));
  replaceAll(text, "$VEID", number);
  replaceAll(text, "${VEID}", number);
}

namespace {

using GetPath = int (KFAEnvConfig::*)(KFLEnvConfig::Text&) const;

int getWithNumber(const KFAEnvConfig& config, const KFLElementID& id, GetPath getPath, std::string& path) {
  KFLEnvConfig::Text variable;
  int veid = 0;
  if ((config.*getPath)(variable) != 0) return -1;
  if (!variable.isSpecified()) return config.getIterator().failMissing(id);
  if (config.getVeid(veid) != 0) return -1;
  path = variable.getValue();
  KFAEnvConfig::veidSubstitute(veid, path);
  return 0;
}

}  // namespace

int KFAEnvConfig::getVERoot(std::string& path) const {
  return getWithNumber(*this, property("ve_root").id, &KFAEnvConfig::getVERootVar, path);
}
int KFAEnvConfig::getVEPrivate(std::string& path) const {
  return getWithNumber(*this, property("ve_private").id, &KFAEnvConfig::getVEPrivateVar, path);
}

// --- Disks -------------------------------------------------------------------------------------------------

namespace {

// Answers whether a disk list is bound to real storage.
class Validator : public HardDisk::List::Visitor {
 public:
  int visit(const HardDisk::List::KfFS& list) override { return !list.getDisk().getName().empty(); }
  int visit(const HardDisk::List::Images<HardDisk::Zloop>& list) override { return isBound(list); }
  int visit(const HardDisk::List::Images<HardDisk::Loopback>& list) override { return isBound(list); }

 private:
  template <class Image>
  static bool isBound(const HardDisk::List::Images<Image>& list) {
    return !list.getImages().empty() && list.getImages().front().getGUID().isValid();
  }
};

}  // namespace

int KFAEnvConfig::getHardDisks(boost::shared_ptr<HardDisk::List::Base>& disks) const {
  disks.reset();
  if (!it_.hasChild(property("disk_list").id)) return 0;
  const KFLMessageIterator it(it_);
  it.getObject(disks, KFLReaderDerived<HardDisk::List::Base>(), property("disk_list").id);
  return 0;
}

int KFAEnvConfig::setHardDisks(const HardDisk::List::Base* disks) {
  boost::shared_ptr<HardDisk::List::Base> current;
  if (const int result = getHardDisks(current); result != 0) return result;
  MessageGuard message(*this);
  Validator validator;
  if (current && current->accept(validator) != 0) {
    setErrorMessage(
        "the environment's disks are bound to storage; they must be removed there before others are set");
    return -1;
  }
  const std::vector<KFLMessageIterator> old = elementsNamed(property("disk_list").id);
  int result = 0;
  if (disks != nullptr) {
    const Placement placement(*this, property("disk_list"));
    KFLWriteGuard guard(it_);
    it_.addChild(property("disk_list").id);
    result = it_.putObject(disks, KFLWriterDerived<HardDisk::List::Base>());
    it_.leaveChild();
    if (result == 0) guard.keep();
  }
  for (const KFLMessageIterator& element : old)
    it_.removeElement(element);
  message.keep();
  return result;
}

// --- Searches ----------------------------------------------------------------------------------------------

int readVeid(const KFLVEnvConfig* config, int& veid) {
  if (config == nullptr) {
    KFL::setErrorMessage("the environment has no virtual configuration, which holds its number");
    return -1;
  }
  if (const auto* const own = dynamic_cast<const KFAEnvConfig*>(config)) return own->getVeid(veid);
  const KFLMessageIterator it = config->getIterator();
  return KFAEnvConfig(&it, config->getKind()).getVeid(veid);
}

bool KFAEnvConfig::MatchVeid::operator()(int veid, const boost::shared_ptr<const KFLEnv>& env) const {
  int read = 0;
  return env && readVeid(env->getVirtualConfig().get(), read) == 0 && read == veid;
}

bool KFAEnvConfig::MatchVeidParent::operator()(const boost::shared_ptr<const KFLEnv>& env) const {
  return env && env->getParentEID() == parent_ && MatchVeid()(veid_, env);
}

}  // namespace KFA
