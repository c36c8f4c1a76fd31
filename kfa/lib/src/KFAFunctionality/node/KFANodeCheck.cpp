// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/node/KFANodeCheck.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>
#include <string_view>
#include <unordered_map>
#include <utility>

#include <KFLCommon/KFLGUID.h>
#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/environment/KFAVPSType.h>
#include <KFAFunctionality/files/KFAEnvConfigBashParser.h>
#include <KFAFunctionality/node/KFAEnvironmentKeys.h>

#include "KFAConfigLines.h"
#include "KFAValueCheck.h"

namespace KFA {

namespace {

using Severity = KFANodeFinding::Severity;

std::string folderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
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

// --- One check ----------------------------------------------------------------------------------------------------------

class KFL_HIDDEN KFANodeCheck::Judge {
 public:
  Judge(const boost::shared_ptr<const KFAEnvConfigBashParser>& parser, KFANodeCheckOptions options,
        KFANodeFiles& where)
      : options_(std::move(options)),
        where_(where),
        judge_(parser, options_.foreignKeys),
        keys_(std::make_shared<KFAEnvironmentKeys>(parser)) {}

  KFAFileJudge& judge() { return judge_; }
  std::span<const KFANodeFinding> add(KFAJudgedFile judged);
  std::vector<KFANodeFinding> finish();
  const KFAEnvironmentKeys& keys() const { return *keys_; }

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

  // At the line of a key of the current file.
  void reportKey(Severity severity, const char* rule, const std::string& key, const std::string& text,
                 const std::string& related = {});
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

  std::string placeOf(const Owner& owner) const;

  // Whether a path leads to something.
  bool exists(const std::string& path) const {
    const KFANodeFiles::Kind kind = where_.look(path);
    return kind == KFANodeFiles::Kind::File || kind == KFANodeFiles::Kind::Folder;
  }

  KFANodeCheckOptions options_;
  KFANodeFiles& where_;
  KFAFileJudge judge_;
  std::shared_ptr<const KFAEnvironmentKeys> keys_;  // of the file added last
  std::vector<Environment> environments_;
  std::vector<KFANodeFinding> findings_;
  std::map<std::string, bool> sampleFolders_;
  Owners addresses_, macs_, uuids_, names_, hostnames_, privates_;
};

void KFANodeCheck::Judge::reportKey(Severity severity, const char* rule, const std::string& key,
                                    const std::string& text, const std::string& related) {
  const Environment& environment = environments_.back();
  const KeyPlace place = placeOfKey(environment.text, key);
  findings_.push_back({severity, rule, environment.file.path, environment.file.veid, place.line, place.column,
                       text, std::string(place.text), related});
}

std::string KFANodeCheck::Judge::placeOf(const Owner& owner) const {
  const Environment& environment = environments_[owner.environment];
  return environment.file.path + ":" + std::to_string(placeOfKey(environment.text, owner.key).line);
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
  keys_->getRecord().getAddresses(addresses);
  for (const KFL::KFLIPAddress& address : addresses.getValue())
    claimAddress(address.toString(), "ip_address", {});
  KFAEnvConfig::NetVEths devices;
  keys_->getRecord().getNetVEths(devices);
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
  keys_->getRecord().getVEType(type);
  if (!type.isSpecified() || type.getValue().getType() != KFAVPSType::kRepair) return;
  environment.repairs = type.getValue().getSubType();
  const std::string number = std::to_string(environment.repairs);
  if (exists(folderOf(environment.file.path) + number + ".conf")) return;
  reportKey(Severity::Error, "missing-environment", "ve_type",
            "there is no environment " + number + " beside this one, which is to repair it");
}

void KFANodeCheck::Judge::checkSample() {
  std::string sample;
  if (!keys_->get("origin_sample", sample) || sample.empty() || sample.find('/') != std::string::npos) return;
  const std::string folder = folderOf(environments_.back().file.path) + "samples";
  const auto [known, isNew] = sampleFolders_.try_emplace(folder);
  if (isNew) known->second = exists(folder);
  if (exists(folder + "/" + sample + ".conf")) return;
  reportKey(known->second ? Severity::Warning : Severity::Note, "missing-sample", "origin_sample",
            "there is no sample " + sample + ".conf in " + folder);
}

void KFANodeCheck::Judge::checkTemplates(const std::string& key) {
  std::string list;
  if (!options_.templates || !keys_->get(key, list)) return;
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
  if (keys_->get("uuid", value) && !value.empty()) {
    const KFL::KFLGUID guid{std::string_view(value)};
    claim(uuids_, "duplicate-uuid", guid.isValid() ? guid.toString() : value, "uuid", "the UUID ", value);
  }
  if (keys_->get("name", value)) claim(names_, "duplicate-name", value, "name", "the name ", value);
  if (keys_->get("hostname", value)) {
    const std::string bare = value.ends_with('.') ? value.substr(0, value.size() - 1) : value;
    claim(hostnames_, "duplicate-hostname", KFL::toLower(bare), "hostname", "the host name ", bare);
  }
  if (!keys_->get("ve_private", value) || value.empty() || environment.file.veid < 0) return;
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
  const int result = keys_->getRecord().getQoS(qos);
  return result == 0 && qos.isSpecified() ? std::max(qos.getValue().getHard(), 0LL) : 0;
}

void KFANodeCheck::Judge::addResources() {
  std::string onBoot;
  if (!keys_->get("onboot", onBoot) || onBoot != "yes") return;
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

std::span<const KFANodeFinding> KFANodeCheck::Judge::add(KFAJudgedFile judged) {
  const std::size_t first = findings_.size();
  findings_.insert(findings_.end(), std::make_move_iterator(judged.findings.begin()),
                   std::make_move_iterator(judged.findings.end()));
  environments_.push_back({std::move(judged.file), std::move(judged.text), -1});
  keys_ = std::move(judged.keys);
  if (judged.isConfiguration) {
    checkOthers();
    addResources();
  }
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
  return judge_->add(judge_->judge().judge(file, text));
}

std::span<const KFANodeFinding> KFANodeCheck::add(KFAJudgedFile judged) {
  return judge_->add(std::move(judged));
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
