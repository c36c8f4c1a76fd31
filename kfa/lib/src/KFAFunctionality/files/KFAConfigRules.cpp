#include <KFAFunctionality/files/KFAConfigRules.h>

#include <algorithm>
#include <functional>
#include <map>
#include <set>
#include <string_view>

#include <KFLCommon/KFLBashStr.h>
#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>
#include <KFLFunctionality/KFLIPAddress.h>
#include <KFLFunctionality/KFLInterfaceRate.h>

#include <KFAFunctionality/environment/KFAEnvConfig.h>
#include <KFAFunctionality/files/KFABashConfig.h>
#include <KFAFunctionality/files/KFAEnvConfigBashParser.h>
#include <KFAFunctionality/files/KFAMemoryStream.h>
#include <KFAFunctionality/files/KFARawConfigBashParser.h>
#include <KFAFunctionality/network/KFANetVEth.h>
#include <KFAFunctionality/templates/KFAArchitectureSelector.h>

#include "KFABashLines.h"
#include "KFANetifWords.h"

namespace KFA {

namespace {

using Words = std::vector<std::string>;
using Parser = KFAEnvConfigBashParser;

constexpr const char* kBlanks = " \t\n";
constexpr const char* kDHCP = "dhcp";
constexpr const char* kHostRoutedDevice = "venet0";

int refuse(const std::string& key, const std::string& what) {
  KFL::setErrorMessage("%s: %s", KFL::toUpper(key).c_str(), what.c_str());
  return -1;
}

Words wordsOf(const std::string& text, const char* delimiters) {
  Words words;
  KFL::getToken tokens(text.c_str(), delimiters, 0);
  for (std::string_view token; tokens.next(token);)
    words.emplace_back(token);
  return words;
}

// --- How the text that is asked for and the one that the record gives back are compared: empty when they say the same,
// else what is lost. -------------------------------------------------------------------------------------------------

std::string compareTexts(const std::string& asked, const std::string& given) {
  return asked == given ? std::string() : quoteText(asked) + " would be read as " + quoteText(given);
}

std::string compareLists(const std::string& asked, const std::string& given) {
  const bool same = wordsOf(asked, kBlanks) == wordsOf(given, kBlanks);
  return same ? std::string() : compareTexts(asked, given);
}

std::string compareSets(const std::string& asked, const std::string& given) {
  Words words = wordsOf(asked, kBlanks);
  std::sort(words.begin(), words.end());
  words.erase(std::unique(words.begin(), words.end()), words.end());
  return words == wordsOf(given, kBlanks) ? std::string() : compareTexts(asked, given);
}

// i386 and x86 are one word.
std::string compareArchitectures(const std::string& asked, const std::string& given) {
  return compareTexts(asked == "i386" ? "x86" : asked, given);
}

// The architecture is what a record keeps of the words; the line, which no record is written over, keeps the others.
std::string compareTechnologies(const std::string& asked, const std::string& given) {
  for (const std::string& word : wordsOf(asked, " \t\n\v\f\r")) {
    if (KFAArchitectureSelector()(word) && word != given) return compareTexts(asked, given);
  }
  return {};
}

std::string compareDevices(const std::string& asked, const std::string& given) {
  const Words askedEntries = wordsOf(asked, ";");
  const Words givenEntries = wordsOf(given, ";");
  if (askedEntries.size() != givenEntries.size()) {
    return "a host-routed venet0 is not taken, since its addresses stand in IP_ADDRESS";
  }
  for (std::size_t i = 0; i < askedEntries.size(); ++i) {
    std::string lost = findLostNetifWord(askedEntries[i], givenEntries[i]);
    if (!lost.empty()) return lost;
  }
  return {};
}

// --- What is wrong with a value, whatever the record makes of it; empty when nothing is. ------------------------------

std::string notTaken(const std::string& word) {
  return quoteText(word) + " is not taken";
}

template <class Value>
std::string findInvalidWord(const std::string& list) {
  for (const std::string& word : wordsOf(list, kBlanks)) {
    if (!Value(word).isValid()) return notTaken(word);
  }
  return {};
}

std::string findBadAddress(const std::string& list) {
  const bool isDynamic = wordsOf(list, kBlanks) == Words{kDHCP};
  return isDynamic ? std::string() : findInvalidWord<KFL::KFLIPAddress>(list);
}

// No device without a name can be read, and with it the whole list is lost.
std::string findNamelessDevice(const std::string& list) {
  for (const std::string& entry : wordsOf(list, ";")) {
    KFANetVEth device;
    device.fromString(entry);
    if (device.getName().empty()) return quoteText(entry) + " has no ifname";
  }
  return {};
}

enum class WhichLine { First, Last };

struct KeyRule {
  std::string_view key;
  const char* form;
  std::string (*compare)(const std::string& asked, const std::string& given);
  std::string (*findFault)(const std::string& value) = nullptr;
  bool emptyIsUnset = false;
  const char* reader = nullptr;             // the key that gives the value back, where it is another one
  WhichLine whichCounts = WhichLine::Last;  // of several lines with the key
};

constexpr const char* kAnyText = "any text";
constexpr const char* kWords = "words separated by spaces";
constexpr const char* kYesNo = "yes or no";
constexpr const char* kTextOrUnset = "any text; empty means unset";

constexpr KeyRule kRules[] = {
    {"arch", "an architecture, such as x86_64", &compareArchitectures, nullptr, false, nullptr,
     WhichLine::First},
    {"description", kTextOrUnset, &compareTexts, nullptr, true},
    {"disabled", kYesNo, &compareTexts},
    {"distribution", "NAME or NAME-VERSION with a version that begins with a digit", &compareTexts},
    {"hostname", kTextOrUnset, &compareTexts, nullptr, true},
    {"ip_address", "IP addresses with or without /PREFIX or /NETMASK, separated by spaces, or dhcp alone",
     &compareLists, &findBadAddress},
    {"iptables", kWords, &compareSets},
    {"name", kTextOrUnset, &compareTexts, nullptr, true},
    {"nameserver", kWords, &compareLists},
    {"netif", "devices separated by semicolons, such as ifname=eth0,network=,mac=,nettype=bridged,dhcp=no",
     &compareDevices, &findNamelessDevice},
    {"offline_management", kYesNo, &compareTexts},
    {"offline_service", kWords, &compareSets},
    {"onboot", kYesNo, &compareTexts},
    {"origin_sample", kAnyText, &compareTexts},
    {"ostemplate", "NAME or NAME/VERSION with a version that begins with a digit", &compareTexts},
    {"platform", kAnyText, &compareTexts},
    {"rate", "DEVICE:CLASS:RATE, several separated by spaces", &compareLists,
     &findInvalidWord<KFL::KFLInterfaceRate>},
    {"ratebound", kYesNo, &compareTexts},
    {"roles", kWords, &compareSets},
    {"searchdomain", kWords, &compareSets},
    {"slmmode", kAnyText, &compareTexts},
    {"technologies", "one of ia64, x86 and x86_64, alone or among other words", &compareTechnologies, nullptr,
     false, "arch"},
    {"templates", "templates as NAME or NAME/VERSION, separated by spaces", &compareLists},
    {"uuid", kAnyText, &compareTexts},
    {"ve_private", kAnyText, &compareTexts},
    {"ve_root", kAnyText, &compareTexts},
    {"ve_type", "regular, repair:VEID or repaired:VEID", &compareTexts},
};

constexpr KeyRule kPairRule = {"", "BARRIER:LIMIT or LIMIT, whole numbers", &compareTexts};
constexpr KeyRule kNumberRule = {"", "a whole number", &compareTexts};
constexpr KeyRule kFractionRule = {
    "", "a number with at most two decimals (held in hundredths, read in single precision)", &compareTexts};
constexpr KeyRule kNothingRule = {"", "nothing: the vocabulary gives it a kind that files do not have",
                                  &compareTexts};

const KeyRule& ruleOf(const Parser::QoSDefinition& definition) {
  if (definition.kind == 2 && definition.valueType == 1) return kPairRule;
  if (definition.kind == 1 && definition.valueType == 1) return kNumberRule;
  if (definition.kind == 1 && definition.valueType == 0) return kFractionRule;
  return kNothingRule;
}

const KeyRule* findRule(const Parser& parser, const std::string& key) {
  const KeyRule* const rule =
      std::lower_bound(std::begin(kRules), std::end(kRules), key,
                       [](const KeyRule& a, const std::string& b) { return a.key < b; });
  if (rule != std::end(kRules) && rule->key == key) return rule;
  const auto qos = parser.getQoSMap().find(key);
  return qos == parser.getQoSMap().end() ? nullptr : &ruleOf(qos->second);
}

// Why a value that a shell reads as it stands is written back as one that it does not; a backslash that comes last, say.
std::string findHazard(const std::string& asked, const std::string& given) {
  std::string reason;
  if (!KFL::isBashSafe(asked, &reason) || KFL::isBashSafe(given, &reason)) return {};
  return quoteText(asked) + " would be written back as " + quoteText(given) + ", with " + reason;
}

// What the record does not give back of the value; empty when it gives all of it.
std::string findLoss(const Parser& parser, const KeyRule& rule, const std::string& key,
                     const std::string& value, const KFAEnvConfig& record) {
  if (value.find('\0') != std::string::npos) return notTaken(value);
  Parser::ParameterParserGet reader(record, parser);
  std::string given;
  const int result = reader.get(rule.reader != nullptr ? rule.reader : key, given);
  if (result == kParameterDone) {
    const std::string loss = rule.compare(value, given);
    return loss.empty() ? findHazard(value, given) : loss;
  }
  return value.empty() && rule.emptyIsUnset ? std::string() : notTaken(value);
}

// The host-routed device whose addresses IP_ADDRESS has once the record is written, where they are others than now.
const KFANetVEth* findOverruling(const KFAEnvConfig::NetVEths& devices,
                                 const KFAEnvConfig::Addresses& addresses) {
  if (!addresses.isSpecified()) return nullptr;
  const auto& all = devices.getValue();
  const auto routed = std::find_if(all.begin(), all.end(), std::mem_fn(&KFANetVEth::getHostRouted));
  if (routed == all.end() || routed->getIPAddresses() == addresses.getValue()) return nullptr;
  // The device that stands for IP_ADDRESS itself says dhcp by a flag.
  const bool isItself = routed->getName() == kHostRoutedDevice && routed->getDHCP();
  const auto& list = addresses.getValue();
  return isItself && std::find(list.begin(), list.end(), kDHCP) != list.end() ? nullptr : &*routed;
}

int refuseOverruling(const std::string& key, const KFAEnvConfig& record) {
  KFAEnvConfig::NetVEths devices;
  KFAEnvConfig::Addresses addresses;
  record.getNetVEths(devices);
  record.getAddresses(addresses);
  const KFANetVEth* const device = findOverruling(devices, addresses);
  if (device == nullptr) return 0;
  std::string list;
  for (const KFL::KFLIPAddress& address : device->getIPAddresses())
    list.append(list.empty() ? "" : " ").append(address.toString());
  return refuse(key, "the host-routed " + device->getName() + " of NETIF makes IP_ADDRESS " +
                         quoteText(list) + "; the same addresses are wanted in both");
}

// Whether a shell, sourcing NAME="", gives a variable of this name its value.
bool isAssignable(const std::string& name) {
  const std::string line = name + "=\"\"";
  const KFL::KFLBashLine judged = KFL::examineBashLine(line.c_str());
  return judged.kind == KFL::KFLBashLine::Kind::Assignment && judged.name == name;
}

}  // namespace

KFAConfigRules::~KFAConfigRules() = default;

bool KFARawConfigRules::isKey(const std::string&) const {
  return true;
}

// The first line with a key is the one that is read.
bool KFARawConfigRules::firstLineCounts(const std::string&) const {
  return true;
}

int KFARawConfigRules::accept(const std::string& key, const std::string&) const {
  if (isAssignable(key)) return 0;
  return refuse(
      key, "not a name that a shell takes; letters, digits and underscores are wanted, and no digit first");
}

void KFARawConfigRules::order(KFAConfigChanges& changes) const {
  std::sort(changes.begin(), changes.end());
}

// A line that has the key in lower case may assign it where an added one, in upper case, does not.
int KFARawConfigRules::readsBack(const std::string& text, const KFAConfigChanges& changes) const {
  KFAMemoryStream stream(text);
  std::map<std::string, std::string> values;
  const int result = KFARawConfigBashParser::getInstance()->getConfig(stream, values);
  for (const auto& [key, value] : changes) {
    const auto found = values.find(key);
    if (found == values.end() && !isAssignable(KFL::toUpper(key)))
      return refuse(key, "a variable that bash itself sets and no file can; another name is wanted");
    if (result != 0) continue;
    if (found == values.end()) return refuse(key, "would not be read back");
    const std::string loss = compareTexts(value, found->second);
    if (!loss.empty()) return refuse(key, loss);
  }
  return result;
}

KFAEnvConfigRules::KFAEnvConfigRules(const boost::shared_ptr<const KFAEnvConfigBashParser>& parser)
    : parser_(parser) {}

bool KFAEnvConfigRules::isKey(const std::string& key) const {
  return parser_->isKey(key);
}

bool KFAEnvConfigRules::firstLineCounts(const std::string& key) const {
  const KeyRule* const rule = findRule(*parser_, key);
  return rule != nullptr && rule->whichCounts == WhichLine::First;
}

std::string KFAEnvConfigRules::getAcceptedForm(const std::string& key) const {
  const KeyRule* const rule = findRule(*parser_, key);
  return rule == nullptr ? std::string() : rule->form;
}

int KFAEnvConfigRules::accept(const std::string& key, const std::string& value) const {
  const KeyRule* const rule = findRule(*parser_, key);
  if (rule == nullptr) {
    return refuse(
        key,
        "not a key of an environment file; ONBOOT, IP_ADDRESS or a resource parameter, for example, "
        "is wanted");
  }
  KFAEnvConfig record;
  record.initMsg();
  Parser::ParameterParserPut writer(record, *parser_);
  writer.put(key, value.c_str());
  if (!writer.getQoSes().getValue().empty()) {
    writer.getQoSes().setSpecified(true);
    record.setQoSes(writer.getQoSes());
  }
  std::string loss = rule->findFault != nullptr ? rule->findFault(value) : std::string();
  if (loss.empty()) loss = findLoss(*parser_, *rule, key, value, record);
  return loss.empty() ? 0 : refuse(key, loss + "; " + rule->form + " is wanted");
}

// As the parser hands its keys out.
void KFAEnvConfigRules::order(KFAConfigChanges& changes) const {
  std::map<std::string, std::string> left(changes.begin(), changes.end());
  changes.clear();
  const KFAEnvConfig none;
  Parser::ParameterParserGet keys(none, *parser_);
  for (std::string key; keys.getNext(std::string(), key) == kParameterDone;) {
    if (auto change = left.extract(key))
      changes.emplace_back(std::move(change.key()), std::move(change.mapped()));
  }
  changes.insert(changes.end(), left.begin(), left.end());
}

int KFAEnvConfigRules::readsBack(const std::string& text, const KFAConfigChanges& changes) const {
  KFAMemoryStream stream(text);
  KFAEnvConfig record;
  record.initMsg();
  if (parser_->getConfig(stream, record) != 0) return -1;
  for (const auto& [key, value] : changes) {
    const KeyRule* const rule = findRule(*parser_, key);
    if (rule == nullptr) return refuse(key, "not a key of an environment file");
    const std::string loss = findLoss(*parser_, *rule, key, value, record);
    const bool isDecided = key == "arch";
    if (!loss.empty()) {
      return refuse(
          key, loss + (isDecided ? ", since TECHNOLOGIES decides it; TECHNOLOGIES is to be set too" : ""));
    }
    const bool sharesAddresses = key == "ip_address" || key == "netif";
    if (sharesAddresses && refuseOverruling(key, record) != 0) return -1;
  }
  return 0;
}

}  // namespace KFA
