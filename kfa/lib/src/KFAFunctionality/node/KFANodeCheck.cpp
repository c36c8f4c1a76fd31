// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/node/KFANodeCheck.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <string_view>
#include <unordered_map>
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

constexpr KFANodeRule kRules[] = {
    {"no-configuration", "The file holds no text of a configuration"},
    {"malformed-line", "A quote or a line is left open, or a shell refuses the line"},
    {"not-an-assignment", "The line looks like an assignment and is none"},
    {"open-line", "The next line belongs to this one"},
    {"nul", "A NUL in a line"},
    {"repeated-key", "Two lines have the same key"},
    {"foreign-key", "The key is none of an environment file"},
    {"carriage-return", "The line ends with a carriage return"},
    {"value", "The key does not take the value"},
    {"unsafe-value", "A shell would not read the value back"},
    {"overruled-value", "Another key overrules the value"},
    {"byte-order-mark", "A byte order mark in front of the first line"},
    {"odd-space", "A blank that a shell does not take for one"},
    {"odd-quote", "A quote of a word processor"},
    {"colon", "KEY: VALUE, where KEY=VALUE is wanted"},
    {"unworkable-value", "The value is kept as it stands, and cannot work"},
    {"duplicate-address", "Two environments have the same address"},
    {"duplicate-mac", "Two environments have the same MAC address"},
    {"duplicate-uuid", "Two environments have the same UUID"},
    {"duplicate-name", "Two environments have the same name"},
    {"duplicate-hostname", "Two environments have the same host name"},
    {"duplicate-private", "Two environments have the same private area"},
    {"missing-environment", "The environment that is to be repaired is not there"},
    {"missing-sample", "The sample that the environment was made from is not there"},
    {"unknown-template", "The cache knows no such template"},
    {"node-memory", "More memory is guaranteed than the node has"},
    {"node-disk", "More disk space is allowed than the node has"},
    {"node-cpu", "More processor time is guaranteed than the node has"},
};

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

std::string folderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

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

std::string sizeText(long long bytes) {
  constexpr long long kGigabyte = 1LL << 30;
  return KFL::doubleToStr(static_cast<double>(bytes / (kGigabyte / 100)) / 100) + " GiB";
}

std::string percentText(long long hundredths) {
  return KFL::doubleToStr(static_cast<double>(hundredths) / 100) + " %";
}

// One text for every way to write a path, as far as the text alone tells.
std::string plainPath(const std::string& path) {
  const std::string plain = std::filesystem::path(path).lexically_normal().string();
  return plain.size() > 1 && plain.ends_with('/') ? plain.substr(0, plain.size() - 1) : plain;
}

}  // namespace

std::span<const KFANodeRule> nodeRules() {
  return kRules;
}

// --- One check ----------------------------------------------------------------------------------------------------------

class [[gnu::visibility("hidden")]] KFANodeCheck::Judge {
 public:
  Judge(const boost::shared_ptr<const KFAEnvConfigBashParser>& parser, KFANodeCheckOptions options,
        KFANodeFiles& where)
      : options_(std::move(options)), where_(where), parser_(parser), rules_(parser), keys_(parser) {
    std::set<std::string> wanted = {"name",       "hostname", "uuid",          "netif",       "ip_address",
                                    "ve_private", "ve_type",  "origin_sample", "ostemplate",  "templates",
                                    "onboot",     "arch",     "nameserver",    "searchdomain"};
    for (const auto& [key, definition] : parser->getQoSMap())
      wanted.insert(key);
    keys_.want(wanted);
  }

  std::span<const KFANodeFinding> add(const KFAEnvironmentFile& file, const std::string& text);
  std::vector<KFANodeFinding> finish();
  const KFAEnvironmentKeys& keys() const { return keys_; }

  KFANodeResources guaranteed;
  std::size_t startedOnBoot = 0;

 private:
  // A file with what there is to hold against others.
  struct Environment {
    KFAEnvironmentFile file;
    std::string text;
    int repairs = -1;  // the number of the environment that this one repairs
  };
  // The first that has something.
  struct Owner {
    std::size_t environment = 0;
    const char* key = "";
    std::string network;
  };
  using Owners = std::unordered_map<std::string, Owner>;

  void judge(const std::string& text);
  void report(Severity severity, const char* rule, std::size_t line, std::size_t column,
              const std::string& text, std::string_view lineText);
  // At the line of a key of the current file.
  void reportKey(Severity severity, const char* rule, const std::string& key, const std::string& text,
                 const std::string& related = {});
  void checkLines(const std::string& text);
  void checkOddLines(const std::string& text);
  void checkOddLine(std::string_view text, std::size_t number, bool mayHaveOddMarks);
  void checkValues();
  void checkOthers();
  void checkRepair();
  void checkSample();
  void checkTemplates(const std::string& key);
  void checkDevices();
  // kind: what it is, for people; shown: as they know it.
  void claim(Owners& owners, const char* rule, const std::string& what, const char* key, const char* kind,
             const std::string& shown, const std::string& network = {});
  void claimAddress(const std::string& address, const char* key, const std::string& network);
  void addResources();
  long long resource(const char* key) const;
  void checkSum(const char* rule, const char* what, long long sum, long long has,
                std::string (*show)(long long));

  static std::size_t lineOf(const Environment& environment, const std::string& key, std::size_t& column,
                            std::string& lineText);
  std::string placeOf(const Owner& owner) const;

  // Whether a path leads to something.
  bool exists(const std::string& path) const {
    const KFANodeFiles::Kind kind = where_.look(path);
    return kind == KFANodeFiles::Kind::File || kind == KFANodeFiles::Kind::Folder;
  }

  KFANodeCheckOptions options_;
  KFANodeFiles& where_;
  boost::shared_ptr<const KFAEnvConfigBashParser> parser_;
  RememberingRules rules_;
  KFAEnvironmentKeys keys_;
  std::vector<Environment> environments_;
  std::vector<KFANodeFinding> findings_;
  std::map<std::string, bool> sampleFolders_;
  Owners addresses_, macs_, uuids_, names_, hostnames_, privates_;
};

void KFANodeCheck::Judge::report(Severity severity, const char* rule, std::size_t line, std::size_t column,
                                 const std::string& text, std::string_view lineText) {
  const KFAEnvironmentFile& file = environments_.back().file;
  findings_.push_back({severity, rule, file.path, file.veid, line, column, text, std::string(lineText)});
}

// The line that counts is the last; where it does not matter, the one that a person looks for.
std::size_t KFANodeCheck::Judge::lineOf(const Environment& environment, const std::string& key,
                                        std::size_t& column, std::string& lineText) {
  std::size_t number = 0;
  for (ConfigLines lines(environment.text); lines.next();) {
    const ConfigLine& line = lines.line();
    if (!line.isAssignment() || line.key() != key) continue;
    number = lines.number();
    column = line.front().size() + 1;
    lineText = lines.text();
  }
  return number;
}

void KFANodeCheck::Judge::reportKey(Severity severity, const char* rule, const std::string& key,
                                    const std::string& text, const std::string& related) {
  std::size_t column = 0;
  std::string lineText;
  const std::size_t line = lineOf(environments_.back(), key, column, lineText);
  report(severity, rule, line, column, text, lineText);
  findings_.back().related = related;
}

std::string KFANodeCheck::Judge::placeOf(const Owner& owner) const {
  const Environment& environment = environments_[owner.environment];
  std::size_t column = 0;
  std::string lineText;
  return environment.file.path + ":" + std::to_string(lineOf(environment, owner.key, column, lineText));
}

void KFANodeCheck::Judge::checkLines(const std::string& text) {
  for (KFAConfigFinding& finding : checkConfig(rules_, text)) {
    if (finding.rule == "foreign-key") {
      const std::string key = KFL::toLower(finding.text.substr(0, finding.text.find(' ')));
      if (options_.foreignKeys.count(key) != 0) continue;
    }
    report(finding.severity, finding.rule.c_str(), finding.line, finding.column, finding.text,
           finding.lineText);
  }
}

// What comes from word processors and other formats.
void KFANodeCheck::Judge::checkOddLines(const std::string& text) {
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

void KFANodeCheck::Judge::checkOddLine(std::string_view text, std::size_t number, bool mayHaveOddMarks) {
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

void KFANodeCheck::Judge::checkValues() {
  for (const auto& [key, value] : keys_.getTexts()) {
    const std::string& fault = rules_.findUnworkableTaken(keys_, key, value);
    if (!fault.empty())
      reportKey(Severity::Warning, "unworkable-value", key, KFL::toUpper(key) + ": " + fault);
  }
}

void KFANodeCheck::Judge::claim(Owners& owners, const char* rule, const std::string& what, const char* key,
                                const char* kind, const std::string& shown, const std::string& network) {
  const std::size_t self = environments_.size() - 1;
  const auto [owner, isFirst] = owners.try_emplace(what, Owner{self, key, network});
  if (isFirst || owner->second.environment == self) return;
  const bool isApart = !network.empty() && !owner->second.network.empty() && network != owner->second.network;
  const std::string place = placeOf(owner->second);
  reportKey(isApart ? Severity::Warning : Severity::Error, rule, key,
            kind + shown + " is also that of " + place + (isApart ? ", in another network" : ""), place);
}

void KFANodeCheck::Judge::claimAddress(const std::string& address, const char* key,
                                       const std::string& network) {
  const std::string normal = normalAddress(address);
  if (normal.empty()) return;
  claim(addresses_, "duplicate-address", normal, key, "the address ", normal, network);
}

void KFANodeCheck::Judge::checkDevices() {
  KFAEnvConfig::Addresses addresses;
  keys_.getRecord().getAddresses(addresses);
  for (const KFL::KFLIPAddress& address : addresses.getValue())
    claimAddress(address.toString(), "ip_address", {});
  KFAEnvConfig::NetVEths devices;
  keys_.getRecord().getNetVEths(devices);
  for (const KFANetVEth& device : devices.getValue()) {
    for (const KFL::KFLIPAddress& address : device.getIPAddresses())
      claimAddress(address.toString(), "netif", device.getNetwork());
    const std::string mac = normalMac(device.getMAC());
    if (!mac.empty()) claim(macs_, "duplicate-mac", mac, "netif", "the MAC address ", mac);
  }
}

void KFANodeCheck::Judge::checkRepair() {
  Environment& environment = environments_.back();
  KFLOptionalProperty<KFAVPSType> type;
  keys_.getRecord().getVEType(type);
  if (!type.isSpecified() || type.getValue().getType() != KFAVPSType::kRepair) return;
  environment.repairs = type.getValue().getSubType();
  const std::string number = std::to_string(environment.repairs);
  if (exists(folderOf(environment.file.path) + number + ".conf")) return;
  reportKey(Severity::Error, "missing-environment", "ve_type",
            "there is no environment " + number + " beside this one, which is to repair it");
}

void KFANodeCheck::Judge::checkSample() {
  std::string sample;
  if (!keys_.get("origin_sample", sample) || sample.empty() || sample.find('/') != std::string::npos) return;
  const std::string folder = folderOf(environments_.back().file.path) + "samples";
  const auto [known, isNew] = sampleFolders_.try_emplace(folder);
  if (isNew) known->second = exists(folder);
  if (exists(folder + "/" + sample + ".conf")) return;
  reportKey(known->second ? Severity::Warning : Severity::Note, "missing-sample", "origin_sample",
            "there is no sample " + sample + ".conf in " + folder);
}

void KFANodeCheck::Judge::checkTemplates(const std::string& key) {
  std::string list;
  if (!options_.templates || !keys_.get(key, list)) return;
  KFL::getToken words(list.c_str(), " \t\n", 0);
  for (std::string_view word; words.next(word);) {
    const std::string name(word);
    if (options_.templates->count(name) == 0)
      reportKey(Severity::Warning, "unknown-template", key, "the cache knows no template " + name);
  }
}

void KFANodeCheck::Judge::checkOthers() {
  const Environment& environment = environments_.back();
  checkRepair();
  checkSample();
  checkTemplates("ostemplate");
  checkTemplates("templates");
  checkDevices();
  std::string value;
  if (keys_.get("uuid", value) && !value.empty()) {
    const KFL::KFLGUID guid{std::string_view(value)};
    claim(uuids_, "duplicate-uuid", guid.isValid() ? guid.toString() : value, "uuid", "the UUID ", value);
  }
  if (keys_.get("name", value)) claim(names_, "duplicate-name", value, "name", "the name ", value);
  if (keys_.get("hostname", value)) {
    const std::string bare = value.ends_with('.') ? value.substr(0, value.size() - 1) : value;
    claim(hostnames_, "duplicate-hostname", KFL::toLower(bare), "hostname", "the host name ", bare);
  }
  if (!keys_.get("ve_private", value) || value.empty() || environment.file.veid < 0) return;
  KFAEnvConfig::veidSubstitute(environment.file.veid, value);
  const std::string area = plainPath(value);
  // Whoever repairs an environment works on its private area.
  const auto owner = privates_.find(area);
  if (owner != privates_.end()) {
    const Environment& other = environments_[owner->second.environment];
    if (other.repairs == environment.file.veid || environment.repairs == other.file.veid) return;
  }
  claim(privates_, "duplicate-private", area, "ve_private", "the private area ", value);
}

long long KFANodeCheck::Judge::resource(const char* key) const {
  KFLOptionalProperty<KFL::KFLQoS> qos{KFL::KFLQoS(key)};
  const int result = keys_.getRecord().getQoS(qos);
  return result == 0 && qos.isSpecified() ? std::max(qos.getValue().getHard(), 0LL) : 0;
}

void KFANodeCheck::Judge::addResources() {
  std::string onBoot;
  if (!keys_.get("onboot", onBoot) || onBoot != "yes") return;
  constexpr long long kMost = 1LL << 53;  // nothing that a node could have
  ++startedOnBoot;
  const auto add = [](long long& sum, double value) {
    sum += static_cast<long long>(std::min(value, static_cast<double>(kMost)));
  };
  // A share in hundredths of a percent; the one memory limit is a promise as a whole.
  const double share = static_cast<double>(resource("memoryguarantee")) / 10000;
  add(guaranteed.memory, static_cast<double>(resource("physmemory")) * share);
  const long long blocks = resource("diskspace");
  if (blocks < kMost) add(guaranteed.disk, static_cast<double>(blocks) * 1024);
  add(guaranteed.cpu, static_cast<double>(resource("cpuguarantee")));
}

void KFANodeCheck::Judge::judge(const std::string& text) {
  if (isNoConfiguration(text)) {
    static_cast<void>(keys_.read({}, {}));
    return report(Severity::Error, "no-configuration", 1, 1,
                  "this is no configuration; lines such as ONBOOT=\"yes\" are wanted",
                  std::string_view(text).substr(0, text.find('\n')));
  }
  checkLines(text);
  checkOddLines(text);
  // What stands before a malformed line is judged all the same.
  static_cast<void>(keys_.read(text, environments_.back().file.path));
  checkValues();
  checkOthers();
  addResources();
}

std::span<const KFANodeFinding> KFANodeCheck::Judge::add(const KFAEnvironmentFile& file,
                                                         const std::string& text) {
  environments_.push_back({file, text, -1});
  const std::size_t first = findings_.size();
  judge(environments_.back().text);
  const std::span<KFANodeFinding> found(findings_.begin() + static_cast<std::ptrdiff_t>(first),
                                        findings_.end());
  std::stable_sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.line < b.line; });
  return found;
}

void KFANodeCheck::Judge::checkSum(const char* rule, const char* what, long long sum, long long has,
                                   std::string (*show)(long long)) {
  if (has <= 0 || sum <= has) return;
  const std::string folder = environments_.empty() ? "" : folderOf(environments_.front().file.path);
  findings_.push_back({Severity::Warning,
                       rule,
                       folder.empty() ? "." : folder,
                       -1,
                       0,
                       0,
                       std::string(what) + " of the " + std::to_string(startedOnBoot) +
                           " environments that start on boot is " + show(sum) + " together; the node has " +
                           show(has),
                       {}});
}

std::vector<KFANodeFinding> KFANodeCheck::Judge::finish() {
  checkSum("node-memory", "the guaranteed memory", guaranteed.memory, options_.node.memory, &sizeText);
  checkSum("node-disk", "the disk space", guaranteed.disk, options_.node.disk, &sizeText);
  checkSum("node-cpu", "the guaranteed processor time", guaranteed.cpu, options_.node.cpu, &percentText);
  return std::move(findings_);
}

KFANodeCheck::KFANodeCheck(const boost::shared_ptr<const KFAEnvConfigBashParser>& parser,
                           KFANodeCheckOptions options, KFANodeFiles& where)
    : judge_(std::make_unique<Judge>(parser, std::move(options), where)) {}

KFANodeCheck::~KFANodeCheck() = default;

std::span<const KFANodeFinding> KFANodeCheck::add(const KFAEnvironmentFile& file, const std::string& text) {
  return judge_->add(file, text);
}

const KFAEnvironmentKeys& KFANodeCheck::getKeys() const {
  return judge_->keys();
}

std::vector<KFANodeFinding> KFANodeCheck::finish() {
  return judge_->finish();
}

const KFANodeResources& KFANodeCheck::getGuaranteed() const {
  return judge_->guaranteed;
}

std::size_t KFANodeCheck::getStartedOnBoot() const {
  return judge_->startedOnBoot;
}

void sortBySeverity(std::vector<KFANodeFinding>& findings) {
  std::stable_sort(findings.begin(), findings.end(),
                   [](const auto& a, const auto& b) { return a.severity < b.severity; });
}

std::set<std::string> parseForeignKeys(const std::string& text) {
  std::set<std::string> keys;
  for (std::string_view rest = text; !rest.empty();) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    const std::string words(line.substr(0, line.find('#')));
    KFL::getToken names(words.c_str(), " \t\r", 0);
    for (std::string_view name; names.next(name);)
      keys.insert(KFL::toLower(std::string(name)));
  }
  return keys;
}

}  // namespace KFA
