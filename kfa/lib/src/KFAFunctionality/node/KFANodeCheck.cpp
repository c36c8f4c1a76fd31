// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/node/KFANodeCheck.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <map>
#include <string_view>
#include <unordered_map>
#include <utility>

#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/files/KFAEnvConfigBashParser.h>
#include <KFAFunctionality/node/KFAEnvironmentKeys.h>

#include "KFAConfigLines.h"

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

// How a claim that two files make is told; by its kind.
struct ClaimWords {
  const char* rule;
  const char* kind;  // for people
};
constexpr ClaimWords kClaimWords[] = {
    {"duplicate-address", "the address "},    {"duplicate-mac", "the MAC address "},
    {"duplicate-uuid", "the UUID "},          {"duplicate-name", "the name "},
    {"duplicate-hostname", "the host name "}, {"duplicate-private", "the private area "},
};

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
  void checkOthers(const std::vector<KFAClaim>& claims);
  void checkRepair();
  void checkSample();
  void checkTemplates(const std::string& key);
  // Whether an environment and the one that it repairs share what is claimed.
  bool isShared(const KFAClaim& claim, const Environment& owner) const;
  void check(const KFAClaim& claim);
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
  std::array<Owners, std::size(kClaimWords)> owners_;
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

// Whoever repairs an environment works on its private area.
bool KFANodeCheck::Judge::isShared(const KFAClaim& claim, const Environment& owner) const {
  const Environment& self = environments_.back();
  return claim.kind == KFAClaim::Kind::PrivateArea &&
         (owner.repairs == self.file.veid || self.repairs == owner.file.veid);
}

void KFANodeCheck::Judge::check(const KFAClaim& claim) {
  const std::size_t self = environments_.size() - 1;
  const auto kind = static_cast<std::size_t>(claim.kind);
  const auto [at, isFirst] = owners_[kind].try_emplace(claim.what, Owner{self, claim.key, claim.network});
  const Owner& owner = at->second;
  if (isFirst || owner.environment == self || isShared(claim, environments_[owner.environment])) return;
  const bool isApart = !claim.network.empty() && !owner.network.empty() && claim.network != owner.network;
  const std::string place = placeOf(owner);
  const auto& [rule, words] = kClaimWords[kind];
  reportKey(isApart ? Severity::Warning : Severity::Error, rule, claim.key,
            words + claim.shown + " is also that of " + place + (isApart ? ", in another network" : ""),
            place);
}

void KFANodeCheck::Judge::checkRepair() {
  const Environment& environment = environments_.back();
  if (environment.repairs < 0) return;
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

void KFANodeCheck::Judge::checkOthers(const std::vector<KFAClaim>& claims) {
  checkRepair();
  checkSample();
  checkTemplates("ostemplate");
  checkTemplates("templates");
  for (const KFAClaim& claim : claims)
    check(claim);
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
  environments_.push_back({std::move(judged.file), std::move(judged.text), judged.repairs});
  keys_ = std::move(judged.keys);
  if (judged.isConfiguration) {
    checkOthers(judged.claims);
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
