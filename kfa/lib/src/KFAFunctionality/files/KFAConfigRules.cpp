#include <KFAFunctionality/files/KFAConfigRules.h>

#include <algorithm>
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

#include "KFABashLines.h"
#include "KFANetifWords.h"

namespace KFA {

namespace {

using Words = std::vector<std::string>;
using Parser = KFAEnvConfigBashParser;

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
  const bool same = wordsOf(asked, " \t\n") == wordsOf(given, " \t\n");
  return same && asked.find('\0') == std::string::npos ? std::string() : compareTexts(asked, given);
}

std::string compareSets(const std::string& asked, const std::string& given) {
  Words words = wordsOf(asked, " \t\n");
  std::sort(words.begin(), words.end());
  words.erase(std::unique(words.begin(), words.end()), words.end());
  const bool same = words == wordsOf(given, " \t\n") && asked.find('\0') == std::string::npos;
  return same ? std::string() : compareTexts(asked, given);
}

// i386 and x86 are one word.
std::string compareArchitectures(const std::string& asked, const std::string& given) {
  return compareTexts(asked == "i386" ? "x86" : asked, given);
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
  return asked.find('\0') == std::string::npos ? std::string() : compareTexts(asked, given);
}

// --- What words of a list must be ------------------------------------------------------------------------------------

bool isAddress(const std::string& word) {
  return KFL::KFLIPAddress(word).isValid();
}

bool isAddressOrDHCP(const std::string& word) {
  return word == "dhcp" || isAddress(word);
}

bool isRate(const std::string& word) {
  return KFL::KFLInterfaceRate(word).isValid();
}

struct KeyRule {
  std::string_view key;
  const char* form;
  std::string (*compare)(const std::string& asked, const std::string& given);
  bool (*isWord)(const std::string& word) = nullptr;  // of each word of the list
  bool emptyIsUnset = false;
  const char* reader = nullptr;  // the key that gives the value back, where it is another one
};

constexpr const char* kAnyText = "any text";
constexpr const char* kWords = "words separated by spaces";
constexpr const char* kYesNo = "yes or no";
constexpr const char* kTextOrUnset = "any text; empty means unset";

constexpr KeyRule kRules[] = {
    {"arch", "an architecture, such as x86_64", &compareArchitectures},
    {"description", kTextOrUnset, &compareTexts, nullptr, true},
    {"disabled", kYesNo, &compareTexts},
    {"distribution", "NAME or NAME-VERSION with a version that begins with a digit", &compareTexts},
    {"hostname", kTextOrUnset, &compareTexts, nullptr, true},
    {"ip_address", "IP addresses with or without /PREFIX, separated by spaces, or dhcp", &compareLists,
     &isAddressOrDHCP},
    {"iptables", kWords, &compareSets},
    {"name", kTextOrUnset, &compareTexts, nullptr, true},
    {"nameserver", "IP addresses separated by spaces", &compareLists, &isAddress},
    {"netif", "devices separated by semicolons, such as ifname=eth0,network=,mac=,nettype=bridged,dhcp=no",
     &compareDevices},
    {"offline_management", kYesNo, &compareTexts},
    {"offline_service", kWords, &compareSets},
    {"onboot", kYesNo, &compareTexts},
    {"origin_sample", kAnyText, &compareTexts},
    {"ostemplate", "NAME or NAME/VERSION with a version that begins with a digit", &compareTexts},
    {"platform", kAnyText, &compareTexts},
    {"rate", "DEVICE:CLASS:RATE, several separated by spaces", &compareLists, &isRate},
    {"ratebound", kYesNo, &compareTexts},
    {"roles", kWords, &compareSets},
    {"searchdomain", kWords, &compareSets},
    {"slmmode", kAnyText, &compareTexts},
    {"technologies", "one architecture: ia64, x86 or x86_64", &compareTexts, nullptr, false, "arch"},
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

// What the record does not give back of the value; empty when it gives all of it.
std::string findLoss(const Parser& parser, const KeyRule& rule, const std::string& key,
                     const std::string& value, const KFAEnvConfig& record) {
  Parser::ParameterParserGet reader(record, parser);
  std::string given;
  const int result = reader.get(rule.reader != nullptr ? rule.reader : key, given);
  if (result == kParameterDone) return rule.compare(value, given);
  return value.empty() && rule.emptyIsUnset ? std::string() : quoteText(value) + " is not taken";
}

std::string findBadWord(const KeyRule& rule, const std::string& value) {
  if (rule.isWord == nullptr) return {};
  for (const std::string& word : wordsOf(value, " \t\n")) {
    if (!rule.isWord(word)) return quoteText(word) + " is not taken";
  }
  return {};
}

}  // namespace

KFAConfigRules::~KFAConfigRules() = default;

bool KFARawConfigRules::isKey(const std::string&) const {
  return true;
}

int KFARawConfigRules::accept(const std::string& key, const std::string&) const {
  const std::string line = key + "=\"\"";
  const KFL::KFLBashLine judged = KFL::examineBashLine(line.c_str());
  if (judged.kind == KFL::KFLBashLine::Kind::Assignment && judged.name == key) return 0;
  return refuse(
      key, "not a name that a shell takes; letters, digits and underscores are wanted, and no digit first");
}

void KFARawConfigRules::order(KFAConfigChanges& changes) const {
  std::sort(changes.begin(), changes.end());
}

int KFARawConfigRules::readsBack(const std::string& text, const KFAConfigChanges& changes) const {
  KFAMemoryStream stream(text);
  std::map<std::string, std::string> values;
  if (KFARawConfigBashParser::getInstance()->getConfig(stream, values) != 0) return -1;
  for (const auto& [key, value] : changes) {
    const auto found = values.find(key);
    if (found == values.end()) return refuse(key, "would not be read back");
    const std::string loss = compareTexts(value, found->second);
    if (!loss.empty()) return refuse(key, loss);
  }
  return 0;
}

KFAEnvConfigRules::KFAEnvConfigRules(const boost::shared_ptr<const KFAEnvConfigBashParser>& parser)
    : parser_(parser) {}

bool KFAEnvConfigRules::isKey(const std::string& key) const {
  return parser_->isKey(key);
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
  std::string loss = findBadWord(*rule, value);
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
    if (loss.empty()) continue;
    const bool decided = key == "arch";
    return refuse(key,
                  loss + (decided ? ", since TECHNOLOGIES decides it; TECHNOLOGIES is to be set too" : ""));
  }
  return 0;
}

}  // namespace KFA
