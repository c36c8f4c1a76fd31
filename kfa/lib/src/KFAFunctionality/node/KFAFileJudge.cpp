// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/node/KFAFileJudge.h>

#include <algorithm>
#include <filesystem>
#include <string_view>
#include <utility>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLGUID.h>
#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/environment/KFAVPSType.h>
#include <KFAFunctionality/files/KFAEnvConfigBashParser.h>
#include <KFAFunctionality/node/KFAChangeList.h>
#include <KFAFunctionality/node/KFAEnvironmentKeys.h>

#include "KFAConfigLines.h"
#include "KFAValueCheck.h"

namespace KFA {

namespace {

using Severity = KFANodeFinding::Severity;

// The rules of the environment file with a memory: the environments of a node have most of their values in common. A value
// takes the place of another one with the same hash, so the memory stays small enough for the processor's own.
class RememberingRules : public KFAEnvConfigRules {
 public:
  using KFAEnvConfigRules::KFAEnvConfigRules;

  int accept(const std::string& key, const std::string& value) const override {
    Judged& judged = judgedOf(key, value);
    if (judged.fault.empty()) return 0;
    KFL::setErrorMessage("%s", judged.fault.c_str());
    return -1;
  }

  // findUnworkable() of a value that the key takes; empty for any other.
  const std::string& findUnworkableTaken(const KFAEnvironmentKeys& keys, const std::string& key,
                                         const std::string& value) const {
    Judged& judged = judgedOf(key, value);
    if (!std::exchange(judged.isTried, true) && judged.fault.empty())
      judged.unworkable = findUnworkable(keys, key, value);
    return judged.unworkable;
  }

  // Values that are sound alone can only be overruled within two pairs of keys, so a text of these alone tells. Of the
  // addresses only a host-routed device can be the reason, which few environments have. What a key does not take is none of
  // the changes and has its effect all the same; then all of the text is read.
  int readsBack(const std::string& text, const KFAConfigChanges& changes) const override {
    if (changes.size() == 1 || hasRefusedPartner(text, changes))
      return KFAEnvConfigRules::readsBack(text, changes);
    const bool isRouted = std::any_of(changes.begin(), changes.end(), [](const auto& change) {
      return change.first == "netif" && mayBeHostRouted(change.second);
    });
    KFAConfigChanges pairs;
    std::string lines;
    for (const auto& [key, value] : changes) {
      const bool isAddress = isRouted && (key == "netif" || key == "ip_address");
      if (key != "arch" && key != "technologies" && !isAddress) continue;
      pairs.emplace_back(key, value);
      lines += KFL::toUpper(key) + "=" + quoteForShell(value) + "\n";
    }
    return pairs.size() < 2 ? 0 : KFAEnvConfigRules::readsBack(lines, pairs);
  }

 private:
  // Whether one key of a pair is taken, and the text has the other one with a value that is not.
  static bool hasRefusedPartner(const std::string& text, const KFAConfigChanges& changes) {
    constexpr const char* kPairs[][2] = {{"ip_address", "netif"}, {"arch", "technologies"}};
    const auto isTaken = [&changes](const char* key) {
      return std::any_of(changes.begin(), changes.end(),
                         [key](const auto& change) { return change.first == key; });
    };
    if (text.find('\0') != std::string::npos) return true;
    for (const auto& [one, other] : kPairs) {
      const bool isOne = isTaken(one);
      const bool isOther = isTaken(other);
      if (isOne != isOther && strcasestr(text.c_str(), isOne ? other : one) != nullptr) return true;
    }
    return false;
  }

  // Any beginning of the word host-routed makes a device one.
  static bool mayBeHostRouted(std::string_view devices) {
    constexpr std::string_view kField = "nettype=";
    for (std::size_t at = devices.find(kField); at != std::string_view::npos; at = devices.find(kField, at)) {
      at += kField.size();
      if (!devices.substr(at).starts_with('b')) return true;
    }
    return false;
  }

  // What is known of one value.
  struct Judged {
    std::string key;
    std::string value;
    std::string fault;       // why the key does not take it
    bool isTried = false;    // whether the next is known
    std::string unworkable;  // why it cannot work
  };

  Judged& judgedOf(const std::string& key, const std::string& value) const {
    const std::size_t hash = std::hash<std::string>()(value) + 31 * std::hash<std::string>()(key);
    Judged& judged = known_[hash % known_.size()];
    if (judged.key == key && judged.value == value) return judged;
    judged = {key, value, {}, false, {}};
    if (KFAEnvConfigRules::accept(key, value) != 0) judged.fault = KFL::getErrorMessage();
    return judged;
  }

  mutable std::vector<Judged> known_ = std::vector<Judged>(2048);
};

// Whether a text is of another kind than lines with keys.
bool isNoConfiguration(const std::string& text) {
  if (text.find('\0') != std::string::npos && text.find("=") == std::string::npos) return true;
  bool hasLines = false;
  for (ConfigLines lines(text); lines.next();) {
    if (lines.line().isAssignment()) return false;
    const auto reason = lines.line().judged().reason;
    // Something that was meant to assign is told on its own.
    if (reason != KFL::KFLBashLine::Reason::None && reason != KFL::KFLBashLine::Reason::UnexpectedToken)
      return false;
    hasLines = hasLines || !lines.line().isSilent();
  }
  return hasLines;
}

// The key of a line `KEY: value`, in lower case; empty for any other.
std::string keyBeforeColon(std::string_view line) {
  line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
  std::size_t length = 0;
  while (length < line.size() && (KFL::isAlnum(line[length]) || line[length] == '_'))
    ++length;
  const bool isColon = length > 0 && line.substr(length).starts_with(':');
  return isColon ? KFL::toLower(std::string(line.substr(0, length))) : std::string();
}

// One text for every way to write a path, as far as the text alone tells.
std::string plainPath(const std::string& path) {
  const std::string plain = std::filesystem::path(path).lexically_normal().string();
  return plain.size() > 1 && plain.ends_with('/') ? plain.substr(0, plain.size() - 1) : plain;
}

}  // namespace

class KFL_HIDDEN KFAFileJudge::Work {
 public:
  Work(const boost::shared_ptr<const KFAEnvConfigBashParser>& parser,
       const std::set<std::string>& foreignKeys)
      : foreignKeys_(foreignKeys), parser_(parser), rules_(parser), keys_(parser) {
    std::set<std::string> wanted = {"name",       "hostname", "uuid",          "netif",       "ip_address",
                                    "ve_private", "ve_type",  "origin_sample", "ostemplate",  "templates",
                                    "onboot",     "arch",     "nameserver",    "searchdomain"};
    for (const auto& [key, definition] : parser->getQoSMap())
      wanted.insert(key);
    keys_.want(wanted);
  }

  KFAJudgedFile judge(const KFAEnvironmentFile& file, const std::string& text);

 private:
  void report(Severity severity, const char* rule, std::size_t line, std::size_t column,
              const std::string& text, std::string_view lineText);
  void checkLines(const std::string& text);
  void checkOddLines(const std::string& text);
  void checkOddLine(std::string_view text, std::size_t number, bool mayHaveOddMarks);
  void checkValues(const KFAEnvironmentKeys& keys);
  void readClaims(const KFAEnvironmentKeys& keys);
  void claimDevices(const KFAEnvironmentKeys& keys);
  void claim(KFAClaim claim) { judged_.claims.push_back(std::move(claim)); }
  void claimAddress(const KFL::KFLIPAddress& address, const char* key, const std::string& network);

  const std::set<std::string> foreignKeys_;
  boost::shared_ptr<const KFAEnvConfigBashParser> parser_;
  RememberingRules rules_;
  KFAEnvironmentKeys keys_;
  KFAJudgedFile judged_;
};

void KFAFileJudge::Work::report(Severity severity, const char* rule, std::size_t line, std::size_t column,
                                const std::string& text, std::string_view lineText) {
  judged_.findings.push_back(
      {severity, rule, judged_.file.path, judged_.file.veid, line, column, text, std::string(lineText)});
}

void KFAFileJudge::Work::checkLines(const std::string& text) {
  for (KFAConfigFinding& finding : checkConfig(rules_, text)) {
    if (finding.rule == "foreign-key") {
      const std::string key = KFL::toLower(finding.text.substr(0, finding.text.find(' ')));
      if (foreignKeys_.count(key) != 0) continue;
    }
    report(finding.severity, finding.rule.c_str(), finding.line, finding.column, finding.text,
           finding.lineText);
  }
}

// What comes from word processors and other formats.
void KFAFileJudge::Work::checkOddLines(const std::string& text) {
  constexpr std::string_view kMark = "\xef\xbb\xbf";
  const bool hasOdd =
      std::any_of(text.begin(), text.end(), [](char c) { return c == '\xc2' || c == '\xe2' || c == '\xe3'; });
  if (text.starts_with(kMark)) {
    report(Severity::Error, "byte-order-mark", 1, 1,
           "a byte order mark, which belongs to the first word; UTF-8 without one is wanted",
           std::string_view(text).substr(0, text.find('\n')));
  }
  std::size_t number = 0;
  for (std::string_view left = text; !left.empty();) {
    const std::string_view line = left.substr(0, left.find('\n'));
    left.remove_prefix(std::min(line.size() + 1, left.size()));
    checkOddLine(line, ++number, hasOdd);
  }
}

void KFAFileJudge::Work::checkOddLine(std::string_view text, std::size_t number, bool mayHaveOddMarks) {
  constexpr std::string_view kOddSpaces[] = {"\xc2\xa0", "\xe2\x80\xaf", "\xe3\x80\x80"};
  constexpr std::string_view kOddQuotes[] = {"\xe2\x80\x9c", "\xe2\x80\x9d", "\xe2\x80\x98", "\xe2\x80\x99"};
  if (const std::string key = keyBeforeColon(text); !key.empty() && parser_->isKey(key))
    report(Severity::Error, "colon", number, text.find(':') + 1,
           KFL::toUpper(key) + ": is no assignment; " + KFL::toUpper(key) + "=\"value\" is wanted", text);
  if (!mayHaveOddMarks) return;
  const ConfigLine line{std::string(text)};
  if (line.isSilent()) return;
  // Inside plain quotes all of these are text.
  if (line.isAssignment() && (line.written().starts_with('"') || line.written().starts_with('\''))) return;
  const std::string_view code =
      text.substr(0, line.isAssignment() ? text.size() - line.rest().size() : text.size());
  for (const std::string_view space : kOddSpaces)
    if (const std::size_t at = code.find(space); at != std::string_view::npos)
      report(Severity::Warning, "odd-space", number, at + 1,
             "a blank that a shell does not take for one; an ordinary blank is wanted", text);
  std::size_t first = std::string_view::npos;
  for (const std::string_view quote : kOddQuotes)
    first = std::min(first, code.find(quote));
  if (first != std::string_view::npos)
    report(Severity::Warning, "odd-quote", number, first + 1,
           "a quote of a word processor, which belongs to the value; \" is wanted", text);
}

void KFAFileJudge::Work::checkValues(const KFAEnvironmentKeys& keys) {
  for (const auto& [key, value] : keys.getTexts()) {
    const std::string& fault = rules_.findUnworkableTaken(keys, key, value);
    if (fault.empty()) continue;
    const KeyPlace place = placeOfKey(judged_.text, key);
    report(Severity::Warning, "unworkable-value", place.line, place.column, KFL::toUpper(key) + ": " + fault,
           place.text);
  }
}

void KFAFileJudge::Work::claimAddress(const KFL::KFLIPAddress& address, const char* key,
                                      const std::string& network) {
  const std::string normal = normalAddress(address.toString());
  if (!normal.empty()) claim({KFAClaim::Kind::Address, key, normal, normal, network});
}

void KFAFileJudge::Work::claimDevices(const KFAEnvironmentKeys& keys) {
  KFAEnvConfig::Addresses addresses;
  keys.getRecord().getAddresses(addresses);
  for (const KFL::KFLIPAddress& address : addresses.getValue())
    claimAddress(address, "ip_address", {});
  KFAEnvConfig::NetVEths devices;
  keys.getRecord().getNetVEths(devices);
  for (const KFANetVEth& device : devices.getValue()) {
    for (const KFL::KFLIPAddress& address : device.getIPAddresses())
      claimAddress(address, "netif", device.getNetwork());
    const std::string mac = normalMac(device.getMAC());
    if (!mac.empty()) claim({KFAClaim::Kind::Mac, "netif", mac});
  }
}

void KFAFileJudge::Work::readClaims(const KFAEnvironmentKeys& keys) {
  KFLOptionalProperty<KFAVPSType> type;
  keys.getRecord().getVEType(type);
  if (type.isSpecified() && type.getValue().getType() == KFAVPSType::kRepair)
    judged_.repairs = type.getValue().getSubType();
  claimDevices(keys);
  std::string value;
  if (keys.get("uuid", value) && !value.empty()) {
    const KFL::KFLGUID guid{std::string_view(value)};
    claim({KFAClaim::Kind::Uuid, "uuid", guid.isValid() ? guid.toString() : value, value});
  }
  if (keys.get("name", value)) claim({KFAClaim::Kind::Name, "name", value});
  if (keys.get("hostname", value)) {
    const std::string bare = value.ends_with('.') ? value.substr(0, value.size() - 1) : value;
    claim({KFAClaim::Kind::HostName, "hostname", KFL::toLower(bare), bare});
  }
  if (!keys.get("ve_private", value) || value.empty() || judged_.file.veid < 0) return;
  KFAEnvConfig::veidSubstitute(judged_.file.veid, value);
  claim({KFAClaim::Kind::PrivateArea, "ve_private", plainPath(value), value});
}

KFAJudgedFile KFAFileJudge::Work::judge(const KFAEnvironmentFile& file, const std::string& text) {
  judged_ = {};
  judged_.file = file;
  judged_.text = text;
  judged_.isConfiguration = !isNoConfiguration(text);
  const auto keys = std::make_shared<KFAEnvironmentKeys>(keys_.another());
  if (!judged_.isConfiguration) {
    static_cast<void>(keys->read({}, {}));
    report(Severity::Error, "no-configuration", 1, 1,
           "this is no configuration; lines such as ONBOOT=\"yes\" are wanted",
           std::string_view(text).substr(0, text.find('\n')));
  } else {
    checkLines(text);
    checkOddLines(text);
    // What stands before a malformed line is judged all the same.
    static_cast<void>(keys->read(text, file.path));
    checkValues(*keys);
    readClaims(*keys);
  }
  judged_.keys = keys;
  return std::move(judged_);
}

KFAFileJudge::KFAFileJudge(const boost::shared_ptr<const KFAEnvConfigBashParser>& parser,
                           const std::set<std::string>& foreignKeys)
    : work_(std::make_unique<Work>(parser, foreignKeys)) {}

KFAFileJudge::~KFAFileJudge() = default;

KFAJudgedFile KFAFileJudge::judge(const KFAEnvironmentFile& file, const std::string& text) {
  return work_->judge(file, text);
}

}  // namespace KFA
