// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/node/KFAEnvironmentKeys.h>

#include <istream>
#include <unordered_set>
#include <utility>

#include <KFAFunctionality/files/KFABashConfig.h>
#include <KFAFunctionality/files/KFAConfigFile.h>

namespace KFA {

namespace {

using Parser = KFAEnvConfigBashParser;

// Puts the wanted keys into the record, and keeps their texts.
class WantedPut {
 public:
  WantedPut(KFAEnvConfig& record, const Parser& parser, const std::set<std::string>& wanted,
            std::map<std::string, std::string>& texts)
      : put_(record, parser), wanted_(wanted), texts_(texts) {}

  int put(const std::string& key, const char* value) {
    if (!wanted_.empty() && wanted_.find(key) == wanted_.end()) return kParameterDone;
    texts_[key] = value;
    return put_.put(key, value);
  }
  auto& getQoSes() { return put_.getQoSes(); }

 private:
  Parser::ParameterParserPut put_;
  const std::set<std::string>& wanted_;
  std::map<std::string, std::string>& texts_;
};

bool getKey(const Parser& parser, const KFAEnvConfig& record, const std::string& key, std::string& value) {
  return Parser::ParameterParserGet(record, parser).get(key, value) == kParameterDone;
}

}  // namespace

KFAEnvironmentKeys::KFAEnvironmentKeys(const boost::shared_ptr<const KFAEnvConfigBashParser>& parser)
    : KFAEnvironmentKeys(parser, std::make_shared<const std::set<std::string>>()) {}

KFAEnvironmentKeys::KFAEnvironmentKeys(const boost::shared_ptr<const KFAEnvConfigBashParser>& parser,
                                       Wanted wanted)
    : parser_(parser), wanted_(std::move(wanted)), record_(std::make_unique<KFAEnvConfig>()) {}

void KFAEnvironmentKeys::want(const std::set<std::string>& keys) {
  std::set<std::string> wanted = keys;
  // Either of the two decides what the other gives.
  if (wanted.count("arch") != 0) wanted.insert("technologies");
  wanted_ = std::make_shared<const std::set<std::string>>(std::move(wanted));
}

int KFAEnvironmentKeys::read(std::string_view text, const std::string& name) {
  record_ = std::make_unique<KFAEnvConfig>();
  record_->initMsg();
  texts_.clear();
  return readConfigText(text, name, [this](std::istream& in) {
    WantedPut put(*record_, *parser_, *wanted_, texts_);
    const int result = parseBashLikeConfig(put, in);
    if (!put.getQoSes().getValue().empty()) {
      put.getQoSes().setSpecified(true);
      record_->setQoSes(put.getQoSes());
    }
    return result;
  });
}

bool KFAEnvironmentKeys::get(const std::string& key, std::string& value) const {
  return getKey(*parser_, *record_, key, value);
}

const std::string* KFAEnvironmentKeys::getText(const std::string& key) const {
  const auto text = texts_.find(key);
  return text == texts_.end() ? nullptr : &text->second;
}

bool KFAEnvironmentKeys::getOrText(const std::string& key, std::string& value) const {
  if (get(key, value)) return true;
  const std::string* const text = getText(key);
  if (text == nullptr || text->empty() || !parser_->isKey(key)) return false;
  value = *text;
  return true;
}

std::string KFAEnvironmentKeys::getEffectiveAddresses() const {
  KFAEnvConfig copy(*record_);
  Parser::updateIp(&copy);
  std::string value;
  getKey(*parser_, copy, "ip_address", value);
  return value;
}

std::vector<std::string> KFAEnvironmentKeys::getAddresses() const {
  return addressesOf(*record_);
}

std::vector<std::string> addressesOf(const KFAEnvConfig& config) {
  std::vector<std::string> all;
  std::unordered_set<std::string> seen;
  const auto add = [&](const std::string& address) {
    if (seen.insert(address).second) all.push_back(address);
  };
  KFAEnvConfig::Addresses addresses;
  config.getAddresses(addresses);
  for (const KFLIPAddress& address : addresses.getValue())
    add(address.toString());
  KFAEnvConfig::NetVEths devices;
  config.getNetVEths(devices);
  for (const KFANetVEth& device : devices.getValue()) {
    if (device.getDHCP() || device.getDHCPv6()) add("dhcp");
    for (const KFLIPAddress& address : device.getIPAddresses())
      add(address.toString());
  }
  return all;
}

}  // namespace KFA
