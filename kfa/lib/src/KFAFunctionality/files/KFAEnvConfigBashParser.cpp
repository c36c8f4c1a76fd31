// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/files/KFAEnvConfigBashParser.h>

#include <algorithm>
#include <iterator>
#include <string_view>

#include <boost/make_shared.hpp>
#include <boost/scoped_ptr.hpp>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLLog.h>
#include <KFLCommon/KFLText.h>
#include <KFLFunctionality/KFLIPAddress.h>
#include <KFLFunctionality/KFLInterfaceRate.h>

#include <KFAFunctionality/environment/KFAEnvConfig.h>
#include <KFAFunctionality/environment/KFAVPSType.h>
#include <KFAFunctionality/files/KFABashConfig.h>
#include <KFAFunctionality/network/KFANetVEth.h>
#include <KFAFunctionality/templates/KFADistribution.h>
#include <KFAFunctionality/templates/KFATemplate.h>

#include "KFAFraction.h"

namespace KFA {

namespace {

using Text = KFL::KFLOptionalProperty<std::string>;
using Flag = KFL::KFLOptionalProperty<bool>;
template <class T>
using ListOf = KFL::KFLOptionalProperty<std::vector<T>>;
using Devices = ListOf<KFANetVEth>;

constexpr const char* kQoSCategory = "qos";
constexpr const char* kHostRoutedDevice = "venet0";
constexpr const char* kDHCP = "dhcp";
constexpr const char* kDevicesKey = "netif";

using Record = KFAEnvConfig;

template <auto setter, auto getter>
using TextKey =
    KFABashParseString<Record, Text, setter, getter, DefaultInputConverter<Text>, FromAttrConverter<Text>>;

template <auto setter, auto getter>
using NotEmptyKey = KFABashParseStringNotEmpty<Record, Text, setter, getter>;

template <auto setter, auto getter>
using FlagKey = KFABashParseBool<Record, Flag, setter, getter>;

template <auto setter, auto getter>
using WordsKey =
    KFABashParseStringList<Record, KFL::KFLOptionalProperty<std::set<std::string>>, setter, getter>;

template <class T, auto setter, auto getter>
using ValueKey = KFABashParseString<Record, KFL::KFLOptionalProperty<T>, setter, getter,
                                    FromStringConverter<T>, ToStringConverter<T>>;

template <class T, auto setter, auto getter, class In = FromStringConverter<T>,
          class Out = ToStringConverter<T>, class Delimiters = spaceDelimiterProvider>
using ListKey = KFABashParseGenericList<Record, ListOf<T>, setter, getter,
                                        std::back_insert_iterator<std::vector<T>>, In, Out, Delimiters>;

using DevicesList =
    ListKey<KFANetVEth, &Record::setNetVEths, &Record::getNetVEths, FromStringConverter<KFANetVEth>,
            ToStringConverter<KFANetVEth>, semicolonDelimiterProvider>;

// A list with a device that cannot be written is none: a part of it, written back, would cost the file the rest.
class DevicesKey : public DevicesList {
 public:
  // 0, or -1 with an error text; then the devices are as before.
  static int read(const char* value, Devices& devices) {
    Devices list;
    split(value, list);
    const auto& all = list.getValue();
    if (std::ranges::any_of(all, [](const KFANetVEth& device) { return device.getName().empty(); })) {
      KFL::setErrorMessage("a network device of NETIF has no ifname; one such as ifname=eth0 is wanted");
      return -1;
    }
    devices = std::move(list);
    return 0;
  }

  using DevicesList::operator();
  int operator()(const char*, const char* value, KFL::KFLEnvConfig& record) override {
    Devices devices;
    return read(value, devices) == 0 ? static_cast<Record&>(record).setNetVEths(devices) : -1;
  }
};

using TypeText = KFL::KFLOptionalProperty<KFAVPSType>;
using TypeKey = KFABashParseString<Record, TypeText, &Record::setVEType, &Record::getVEType,
                                   FromStringConverter<TypeText>, ToStringConverter<TypeText>>;

template <class Parser>
boost::shared_ptr<KFABashParse> make() {
  return boost::make_shared<Parser>();
}

KFAEnvConfigBashParser::KeyTable makeKeyTable() {
  using R = Record;
  using Address = KFL::KFLIPAddress;
  using Rate = KFL::KFLInterfaceRate;
  return {
      {"", boost::shared_ptr<KFABashParse>()},
      {"ve_root", make<TextKey<&R::setVERootVar, &R::getVERootVar>>()},
      {"ve_private", make<TextKey<&R::setVEPrivateVar, &R::getVEPrivateVar>>()},
      {"offline_management", make<FlagKey<&R::setOfflineManagement, &R::getOfflineManagement>>()},
      {"onboot", make<FlagKey<&R::setOnBoot, &R::getOnBoot>>()},
      {"disabled", make<KFABashParseBool<R, bool, &R::setDisabled, &R::getDisabled>>()},
      {"hostname", make<NotEmptyKey<&R::setHostname, &R::getHostname>>()},
      {"ostemplate", make<ValueKey<KFATemplate, &R::setOsTemplate, &R::getOsTemplate>>()},
      {"distribution", make<ValueKey<KFADistribution, &R::setDistribution, &R::getDistribution>>()},
      {"nameserver",
       make<ListKey<std::string, &R::setNameservers, &R::getNameservers, std::string, std::string>>()},
      {"ip_address", make<ListKey<Address, &R::setAddresses, &R::getAddresses, Address>>()},
      {"templates", make<ListKey<KFATemplate, &R::setTemplates, &R::getTemplates>>()},
      {kDevicesKey, make<DevicesKey>()},
      {"offline_service", make<WordsKey<&R::setOfflineServices, &R::getOfflineServices>>()},
      {"roles", make<WordsKey<&R::setServerRoles, &R::getServerRoles>>()},
      {"iptables", make<WordsKey<&R::setIPTables, &R::getIPTables>>()},
      {"name", make<NotEmptyKey<&R::setName, &R::getName>>()},
      {"description", make<NotEmptyKey<&R::setDescription, &R::getDescription>>()},
      {"searchdomain", make<WordsKey<&R::setSearchDomains, &R::getSearchDomains>>()},
      {"rate", make<ListKey<Rate, &R::setRatesList, &R::getRatesList>>()},
      {"slmmode", make<TextKey<&R::setSLMMode, &R::getSLMMode>>()},
      {"ve_type", make<TypeKey>()},
      {"uuid", make<TextKey<&R::setUUID, &R::getUUID>>()},
      {"origin_sample", make<TextKey<&R::setOriginSample, &R::getOriginSample>>()},
      {"ratebound", make<FlagKey<&R::setRateBound, &R::getRateBound>>()},
      {"arch", make<KFABashParseArch>()},
      {"technologies", make<KFABashParseTechnologies>()},
      {"platform", make<KFABashParsePlatform>()},
  };
}

KFAKeyIndex<KFABashParse*> makeKeyIndex(const KFAEnvConfigBashParser::KeyTable& table) {
  KFAKeyIndex<KFABashParse*> index;
  for (const auto& [key, parser] : table)
    index.add(key, parser.get());
  return index;
}

const KFAEnvConfigBashParser::KeyTable keyTable = makeKeyTable();
const KFAKeyIndex<KFABashParse*> keyIndex = makeKeyIndex(keyTable);
const std::string technologyName(kTechnology);

using ValueForm = KFAEnvConfigBashParser::ValueForm;
using QoSValue = KFL::KFLVEnvConfig::QoSValue;

// The limit is what stands behind the first colon, or all of it.
int readPair(std::string_view text, QoSValue& qos) {
  const std::size_t colon = text.find(':');
  if (colon != std::string_view::npos) {
    qos.soft = KFL::strToLonglong(std::string(text.substr(0, colon)));
    text.remove_prefix(colon + 1);
  }
  qos.hard = KFL::strToLonglong(std::string(text));
  return kParameterDone;
}

// Changes nothing where the text is no value of that form.
int readQoS(const ValueForm& form, std::string_view text, QoSValue& qos) {
  if (form.kind == 2 && form.valueType == 1) return readPair(text, qos);
  if (form.kind != 1) return kParameterNotConverted;
  if (form.valueType == 0)
    return readFraction(std::string(text).c_str(), qos.hard) ? kParameterDone : kParameterNotConverted;
  if (form.valueType != 1) return kParameterNotConverted;
  qos.hard = KFL::strToLonglong(std::string(text));
  return kParameterDone;
}

// Leaves the text alone for a kind of value that has none.
void writeQoS(const ValueForm& form, const KFL::KFLQoS& qos, std::string& text) {
  if (form.kind == 2 && form.valueType == 1) {
    const std::string hard = std::to_string(qos.getHard());
    text = qos.getSoft().isSpecified() ? std::to_string(qos.getSoft().getValue()) + ':' + hard : hard;
  } else if (form.kind == 1 && form.valueType == 1) {
    text = std::to_string(qos.getHard());
  } else if (form.kind == 1 && form.valueType == 0) {
    text = writeFraction(qos.getHard());
  }
}

bool failWith(const char* format, const std::string& reason) {
  KFL::setErrorMessage(format, reason.c_str());
  return false;
}

// The addresses of IP_ADDRESS; "dhcp" among them means that there are none yet.
void giveAddresses(KFANetVEth& device, const std::vector<KFL::KFLIPAddress>& addresses) {
  for (const KFL::KFLIPAddress& address : addresses) {
    if (address.toString() != kDHCP) continue;
    device.setDHCP(true);
    return;
  }
  device.setIPAddresses(addresses);
}

bool hasDevice(const Devices& devices, const char* name) {
  for (const KFANetVEth& device : devices.getValue()) {
    if (device.getName() == name) return true;
  }
  return false;
}

// Adds the host-routed device that has the addresses of IP_ADDRESS; false where none is added.
bool completeDevices(const KFAEnvConfig& record, Devices& devices) {
  if (hasDevice(devices, kHostRoutedDevice)) return false;
  ListOf<KFL::KFLIPAddress> addresses;
  if (record.getAddresses(addresses) != 0) {
    return failWith("can't get ip address list:%s", KFL::getErrorMessage());
  }
  ListOf<std::string> servers;
  if (record.getNameservers(servers) != 0) {
    return failWith("can't get nameserver list:%s", KFL::getErrorMessage());
  }
  KFANetVEth& device = devices.value().emplace_back();
  device.setName(kHostRoutedDevice);
  device.setHostRouted(true);
  if (addresses.isSpecified()) giveAddresses(device, addresses.getValue());
  std::erase(servers.value(), std::string());
  device.setNameServers(std::move(servers.value()));
  devices.setSpecified(true);
  return true;
}

}  // namespace

// Reads a whole file into a record. The devices and the resource values are kept until all of them are known, and stored
// once.
class KFAEnvConfigBashParser::FileParser {
 public:
  FileParser(KFAEnvConfig& record, const KFAEnvConfigBashParser& parser)
      : record_(record), filling_(record), parser_(parser), qoses_(parser.qosCount_) {}

  void putViews(std::string_view name, std::string_view value) {
    detail::assignLower(key_, name);
    KFABashParse* const* const fixed = keyIndex.find(key_);
    if (fixed == nullptr) {
      if (const ValueForm* const form = parser_.qosForms_.find(key_); form != nullptr) putQoS(*form, value);
      return;
    }
    value_ = value;
    if (key_ != kDevicesKey) {
      if (*fixed != nullptr) (**fixed)(key_.c_str(), value_.c_str(), record_);
      return;
    }
    if (DevicesKey::read(value_.c_str(), devices_) == 0) hasDevices_ = true;
  }

  // What was read before the malformed line.
  void stop() {
    if (!hasDevices_) return;
    const std::string reason = KFL::getErrorMessage();
    store();
    KFL::setErrorMessage("%s", reason.c_str());
  }

  void finish() {
    std::erase_if(qoses_, [](const QoSValue& qos) { return qos.id.empty(); });
    record_.setOrderedQoSes(qoses_);
    record_.setType(technologyName);
    // Devices of the record that cannot be read stay as they are.
    if (!hasDevices_ && record_.getNetVEths(devices_) != 0) return;
    const bool isCompleted = completeDevices(record_, devices_);
    if (hasDevices_ || isCompleted) store();
  }

 private:
  // The last line of an id counts.
  void putQoS(const ValueForm& form, std::string_view text) {
    QoSValue qos{form.id, {}, 0};
    if (readQoS(form, text, qos) == kParameterDone) qoses_[form.place] = qos;
  }

  void store() {
    if (record_.setNetVEths(devices_) != 0) failWith("can't set VEth list: %s", KFL::getErrorMessage());
  }

  KFAEnvConfig& record_;
  KFL::KFLEnvConfig::Filling filling_;
  const KFAEnvConfigBashParser& parser_;
  std::vector<QoSValue> qoses_;  // at the places of their ids, which they have only where one was put
  Devices devices_;
  bool hasDevices_ = false;
  std::string key_;
  std::string value_;
};

const KFAEnvConfigBashParser::KeyTable& KFAEnvConfigBashParser::getKeyTable() {
  return keyTable;
}

bool KFAEnvConfigBashParser::isKey(const std::string& key) const {
  return !key.empty() && (keyIndex.find(key) != nullptr || qosForms_.find(key) != nullptr);
}

boost::shared_ptr<KFAEnvConfigBashParser> KFAEnvConfigBashParser::getInstance(
    const boost::shared_ptr<KFL::KFLVocMap>& vocabulary) {
  auto parser = boost::make_shared<KFAEnvConfigBashParser>();
  if (parser->initQoSMap(vocabulary) == 0) return parser;
  KFL::Log2(kModule, "KFAEnvConfigBashParser", __LINE__, __func__, __PRETTY_FUNCTION__)
      .put(KFL::kLogError, "can't initQoSMap : %s", KFL::getErrorMessage().c_str());
  return {};
}

int KFAEnvConfigBashParser::initQoSMap(const boost::shared_ptr<KFL::KFLVocMap>& vocabulary) {
  QoSMap map;
  boost::scoped_ptr<KFL::KFLVocIterator> it(vocabulary ? vocabulary->readCategory(kQoSCategory) : nullptr);
  if (!it || it->firstParameter() != 0) {
    KFL::setErrorMessage("can't read %s category from vocabulary", kQoSCategory);
    take({});
    return -1;
  }
  do {
    std::string id;
    if (it->getID(id) != 0) continue;
    QoSDefinition definition;
    definition.id = id;
    definition.lowerName = KFL::toLower(id);
    definition.upperName = KFL::toUpper(id);
    it->getIntAttribute("value_type", definition.valueType);
    it->getIntAttribute(KFL::kVocKind, definition.kind);
    map.emplace(definition.lowerName, definition);
  } while (it->nextParameter() == 0);
  take(std::move(map));
  return 0;
}

// The places are those that a set of the ids gives them.
void KFAEnvConfigBashParser::take(QoSMap map) {
  std::map<std::string_view, std::size_t> places;
  for (const auto& [key, definition] : map)
    places.emplace(definition.id, 0);
  std::size_t count = 0;
  for (auto& [id, place] : places)
    place = count++;
  KFAKeyIndex<ValueForm> forms;
  for (const auto& [key, definition] : map)
    forms.add(key, {definition.kind, definition.valueType, definition.id, places[definition.id]});
  qosMap_.swap(map);
  qosForms_ = std::move(forms);
  qosCount_ = count;
}

int KFAEnvConfigBashParser::getConfig(std::istream& in, KFAEnvConfig& record) const {
  if (!record.hasMsg()) {
    KFAEnvConfig fresh(nullptr, record.getKind());
    fresh.initMsg();
    const int result = fill(in, fresh);
    record = std::move(fresh);
    return result;
  }
  KFL::KFLContentGuard guard(record.getIterator());
  const int result = fill(in, record);
  guard.keep();
  return result;
}

int KFAEnvConfigBashParser::fill(std::istream& in, KFAEnvConfig& record) const {
  FileParser parser(record, *this);
  const int result = parseBashLikeConfig(parser, in);
  result == 0 ? parser.finish() : parser.stop();
  return result;
}

int KFAEnvConfigBashParser::putConfig(const KFAEnvConfig& record, std::ostream& out, std::istream* existing,
                                      bool merge) const {
  KFAEnvConfig copy(record);
  updateIp(&copy);
  ParameterParserGet parser(copy, *this);
  return serializeBashLikeConfig(parser, out, existing, merge);
}

int KFAEnvConfigBashParser::diffConfig(const KFAEnvConfig& before, const KFAEnvConfig& after,
                                       std::vector<std::pair<std::string, std::string>>& changes) const {
  KFAEnvConfig beforeCopy(before);
  KFAEnvConfig afterCopy(after);
  updateIp(&beforeCopy);
  updateIp(&afterCopy);
  ParameterParserGet beforeParser(beforeCopy, *this);
  ParameterParserGet afterParser(afterCopy, *this);
  std::vector<std::pair<std::string, std::string>> found;
  std::string key;
  while (afterParser.getNext(std::string(), key) == kParameterDone) {
    std::string afterValue;
    if (afterParser.get(key, afterValue) != kParameterDone) continue;
    std::string beforeValue;
    if (beforeParser.get(key, beforeValue) != kParameterDone) beforeValue.clear();
    if (beforeValue != afterValue) found.emplace_back(key, afterValue);
  }
  KFL::fields::addAll(changes, std::move(found));
  return 0;
}

int KFAEnvConfigBashParser::updateIp(KFAEnvConfig* record) {
  Devices devices;
  record->getNetVEths(devices);
  for (const KFANetVEth& device : devices.getValue()) {
    if (!device.getHostRouted()) continue;
    record->setAddresses(ListOf<KFL::KFLIPAddress>(device.getIPAddresses()));
    break;
  }
  return 0;
}

int KFAEnvConfigBashParser::ParameterParserPut::put(const std::string& key, const char* value) {
  if (KFABashParse* const* const fixed = keyIndex.find(key); fixed != nullptr) {
    return *fixed != nullptr ? (**fixed)(key.c_str(), value, record_) : kParameterUnknown;
  }
  const ValueForm* const form = parser_.qosForms_.find(key);
  return form != nullptr ? putQoS(*form, value) : kParameterUnknown;
}

int KFAEnvConfigBashParser::ParameterParserPut::putQoS(const ValueForm& form, const char* value) {
  QoSValue read;
  if (readQoS(form, value, read) != kParameterDone) return kParameterNotConverted;
  KFL::KFLQoS qos(form.id);
  qos.setSoft(read.soft);
  qos.setHard(read.hard);
  // The last line of a key counts.
  std::set<KFL::KFLQoS>& qoses = qoses_.value();
  auto place = qoses.lower_bound(qos);
  if (place != qoses.end() && *place == qos) place = qoses.erase(place);
  qoses.insert(place, std::move(qos));
  return kParameterDone;
}

KFAEnvConfigBashParser::ParameterParserGet::ParameterParserGet(const KFAEnvConfig& record,
                                                               const KFAEnvConfigBashParser& parser)
    : record_(record), parser_(parser), nextKey_(keyTable.begin()), nextQoS_(parser.qosMap_.begin()) {}

int KFAEnvConfigBashParser::ParameterParserGet::get(const std::string& key, std::string& value) {
  if (KFABashParse* const* const fixed = keyIndex.find(key); fixed != nullptr) {
    const bool written = *fixed != nullptr && std::as_const(**fixed)(key.c_str(), record_, value) == 0;
    return written ? kParameterDone : kParameterWithoutValue;
  }
  const ValueForm* const form = parser_.qosForms_.find(key);
  if (form == nullptr) return kParameterUnknown;
  KFL::KFLOptionalProperty<KFL::KFLQoS> qos;
  if (record_.getQoS(form->id, qos) != 0 || !qos.isSpecified()) return kParameterWithoutValue;
  writeQoS(*form, qos.getValue(), value);
  return kParameterDone;
}

// The empty key comes first and gives way to the first resource key.
int KFAEnvConfigBashParser::ParameterParserGet::getNext(const std::string&, std::string& next) {
  if (nextKey_ != keyTable.end()) {
    const std::string& key = nextKey_->first;
    ++nextKey_;
    if (!key.empty()) {
      next = key;
      return kParameterDone;
    }
  }
  if (nextQoS_ == parser_.qosMap_.end()) return kParameterFailed;
  next = nextQoS_->first;
  ++nextQoS_;
  return kParameterDone;
}

}  // namespace KFA
