// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/node/KFANodeReport.h>

#include <algorithm>
#include <iterator>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <utility>

#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/files/KFAEnvConfigBashParser.h>
#include <KFAFunctionality/node/KFAKeyCatalogue.h>
#include <KFAFunctionality/node/KFAQoSAdvice.h>
#include <KFAFunctionality/node/KFAQoSJudgement.h>

#include "KFAConfigLines.h"
#include "KFAValueCheck.h"

namespace KFA {

namespace {

using Report = KFANodeReport;
using Severity = KFANodeFinding::Severity;

constexpr long long kNoLimit = std::numeric_limits<long long>::max();

// The lines of a text, found once.
class LineIndex {
 public:
  explicit LineIndex(std::string_view text) {
    for (std::string_view left = text; !left.empty();) {
      lines_.push_back(left.substr(0, left.find('\n')));
      left.remove_prefix(std::min(lines_.back().size() + 1, left.size()));
    }
  }

  Report::Finding excerptOf(const KFANodeFinding& finding) const {
    constexpr std::size_t kNeighbours = 2;
    Report::Finding excerpt{finding, 0, {}};
    if (finding.line == 0 || finding.line > lines_.size()) return excerpt;
    excerpt.firstLine = finding.line > kNeighbours ? finding.line - kNeighbours : 1;
    const std::size_t last = std::min(finding.line + kNeighbours, lines_.size());
    for (std::size_t line = excerpt.firstLine; line <= last; ++line)
      excerpt.lines.emplace_back(lines_[line - 1]);
    return excerpt;
  }

 private:
  std::vector<std::string_view> lines_;
};

double shareOf(long long value, long long bound) {
  return bound <= 0 ? -1 : static_cast<double>(value) / static_cast<double>(bound);
}

std::string joined(const std::string& front, const std::string& rest, const char* between) {
  return front + (front.empty() || rest.empty() ? "" : between) + rest;
}

Report::Violation violationOf(const KFAFormulaFinding& finding, const KFAKeyCatalogue& catalogue) {
  Report::Violation violation{
      finding.formula->identifier, finding.formula->expression, finding.formula->comment, {}};
  for (const KFAFormulaEvaluation& evaluation : finding.violations) {
    std::string failure;
    if (const auto* const step = evaluation.failingStep())
      failure = std::to_string(step->left) + " " + step->operation + " " + std::to_string(step->right) +
                " fails by " + std::to_string(step->difference());
    violation.details.push_back(joined(evaluation.usedText(&catalogue), failure, "; "));
  }
  return violation;
}

}  // namespace

// --- One report -------------------------------------------------------------------------------------------------------

class KFL_HIDDEN KFANodeReporter::Writer {
 public:
  Writer(const boost::shared_ptr<const KFAEnvConfigBashParser>& parser,
         const boost::shared_ptr<KFLVocMap>& vocabulary, const std::shared_ptr<const KFAQVTune>& tune,
         const KFANodeCheckOptions& options, KFANodeFiles& where)
      : parser_(parser),
        tune_(tune),
        catalogue_(parser, vocabulary),
        node_(options.node),
        judge_(parser, options.foreignKeys),
        check_(parser, options, where) {
    report_.sums = {{"Memory guaranteed", true, true, node_.memory, 0, 0, {}},
                    {"Memory limits", false, true, node_.memory, 0, 0, {}},
                    {"Disk space", true, true, node_.disk, 0, 0, {}},
                    {"Processor time guaranteed", true, false, node_.cpu, 0, 0, {}},
                    {"Processor time limits", false, false, node_.cpu, 0, 0, {}}};
  }

  KFAFileJudge& judge() { return judge_; }
  void add(KFAJudgedFile judged);
  void addFailure(const KFAEnvironmentFile& file, const std::string& why);
  KFANodeReport finish();

 private:
  enum SumIndex { kMemoryGuarantee, kMemoryLimit, kDiskLimit, kCpuGuarantee, kCpuLimit };

  void addFindings(std::span<const KFANodeFinding> findings, const std::string& text);
  void addResources(const std::set<KFLQoS>& qoses);
  Report::Resource resourceOf(const KFLQoS& qos);
  const std::string& textOf(const std::string& key, const std::optional<long long>& barrier, long long limit);
  long long boundOf(const std::string& key) const;
  void addSums(const std::set<KFLQoS>& qoses);
  void addToSum(SumIndex index, const std::set<KFLQoS>& qoses, const char* key, long long factor);
  void addGuarantee();
  bool isResourceAtFault(const KFANodeFinding& finding) const;
  void judge(const std::set<KFLQoS>& qoses);
  const KFAQoSAdvice& adviceFor(const std::set<KFLQoS>& qoses);
  void addNetworks();
  void addMember(Report::Network::Kind kind, const std::string& network, Report::Member member);
  void markTwins();

  boost::shared_ptr<const KFAEnvConfigBashParser> parser_;
  std::shared_ptr<const KFAQVTune> tune_;
  KFAKeyCatalogue catalogue_;
  KFANodeResources node_;
  KFAFileJudge judge_;
  KFANodeCheck check_;
  KFANodeReport report_;
  std::ptrdiff_t inFiles_ = 0;  // findings that are not about the node
  // Environments of a node have most of their values in common.
  std::map<std::string, std::map<std::pair<std::optional<long long>, long long>, std::string>> texts_;
  std::unordered_map<std::string, KFAQoSAdvice> advice_;
  std::map<std::pair<Report::Network::Kind, std::string>, std::size_t> networks_;
};

void KFANodeReporter::Writer::addFindings(std::span<const KFANodeFinding> findings, const std::string& text) {
  if (findings.empty()) return;
  Report::Environment& environment = report_.environments.back();
  const LineIndex lines(text);
  for (const KFANodeFinding& finding : findings) {
    ++environment.counts[static_cast<std::size_t>(finding.severity)];
    environment.findings.push_back(lines.excerptOf(finding));
    environment.isJudged = environment.isJudged && !isResourceAtFault(finding);
  }
}

// A value that cannot be read, and what may stand behind a malformed line, are lacking in the record.
bool KFANodeReporter::Writer::isResourceAtFault(const KFANodeFinding& finding) const {
  if (finding.rule == "malformed-line" || finding.rule == "no-configuration") return true;
  return finding.severity == Severity::Error && finding.rule == "value" &&
         parser_->getQoSMap().count(ConfigLine(finding.lineText).key()) != 0;
}

const std::string& KFANodeReporter::Writer::textOf(const std::string& key,
                                                   const std::optional<long long>& barrier, long long limit) {
  std::string& text = texts_[key][{barrier, limit}];
  if (text.empty()) text = catalogue_.showHeld(key, barrier, limit);
  return text;
}

// What the node has of a single value.
long long KFANodeReporter::Writer::boundOf(const std::string& key) const {
  if (key == "cpulimit" || key == "cpuguarantee") return node_.cpu;
  return key == "slmmemorylimit" ? node_.memory : 0;
}

Report::Resource KFANodeReporter::Writer::resourceOf(const KFLQoS& qos) {
  const std::string key = KFL::toLower(qos.getID());
  const long long hard = qos.getHard();
  if (!qos.getSoft().isSpecified())
    return {KFL::toUpper(key), textOf(key, {}, hard), shareOf(hard, boundOf(key))};
  const long long soft = qos.getSoft().getValue();
  return {KFL::toUpper(key), textOf(key, soft, hard), hard == kNoLimit ? -1 : shareOf(soft, hard)};
}

void KFANodeReporter::Writer::addToSum(SumIndex index, const std::set<KFLQoS>& qoses, const char* key,
                                       long long factor) {
  Report::Sum& sum = report_.sums[index];
  const auto found = std::find_if(qoses.begin(), qoses.end(), [key](const KFLQoS& qos) {
    return KFL::equalsIgnoreCase(qos.getID(), key);
  });
  constexpr long long kMost =
      kNoLimit >> 16;  // nothing that a node could have, and 32,000 of them can be added
  if (found == qoses.end() || found->getHard() > kMost / factor) {
    ++sum.unlimited;
    return;
  }
  const long long amount = std::max(found->getHard(), 0LL) * factor;
  sum.total += amount;
  sum.shares.push_back({report_.environments.size() - 1, amount});
}

// What the check counts as guaranteed to the environment added last.
void KFANodeReporter::Writer::addGuarantee() {
  const KFANodeResources& sum = check_.getGuaranteed();
  const std::pair<SumIndex, long long> kSums[] = {{kMemoryGuarantee, sum.memory}, {kCpuGuarantee, sum.cpu}};
  for (const auto& [index, total] : kSums) {
    Report::Sum& known = report_.sums[index];
    if (total > known.total) known.shares.push_back({report_.environments.size() - 1, total - known.total});
    known.total = total;
  }
}

void KFANodeReporter::Writer::addSums(const std::set<KFLQoS>& qoses) {
  if (!report_.environments.back().summary.onBoot.value_or(false)) return;
  addGuarantee();
  addToSum(kMemoryLimit, qoses, "physmemory", 1);
  addToSum(kDiskLimit, qoses, "diskspace", 1024);
  addToSum(kCpuLimit, qoses, "cpulimit", 1);
}

const KFAQoSAdvice& KFANodeReporter::Writer::adviceFor(const std::set<KFLQoS>& qoses) {
  std::string values;
  for (const KFLQoS& qos : qoses)
    values += qos.getID() + '=' +
              (qos.getSoft().isSpecified() ? std::to_string(qos.getSoft().getValue()) : std::string()) + ':' +
              std::to_string(qos.getHard()) + ' ';
  const auto [entry, isNew] = advice_.try_emplace(values);
  if (isNew) entry->second = adviseQoS(*tune_, *parser_, qoses);
  return entry->second;
}

void KFANodeReporter::Writer::judge(const std::set<KFLQoS>& qoses) {
  Report::Environment& environment = report_.environments.back();
  if (!environment.isJudged) return;
  const KFAQoSJudgement judgement = judgeQoSes(*tune_, check_.getKeys().getRecord(), qoses);
  for (const KFAFormulaFinding& finding : judgement.findings)
    if (finding.state == KFAFormulaEvaluation::State::Violated)
      environment.violations.push_back(violationOf(finding, catalogue_));
  if (environment.violations.empty()) return;
  const KFAQoSAdvice& advice = adviceFor(qoses);
  environment.advice = advice.changes;
  environment.left = advice.left;
}

void KFANodeReporter::Writer::addMember(Report::Network::Kind kind, const std::string& network,
                                        Report::Member member) {
  const auto [entry, isNew] = networks_.try_emplace({kind, network}, report_.networks.size());
  if (isNew) report_.networks.push_back({kind, network, {}});
  report_.networks[entry->second].members.push_back(std::move(member));
}

void KFANodeReporter::Writer::addNetworks() {
  using Kind = Report::Network::Kind;
  const std::size_t index = report_.environments.size() - 1;
  const KFAEnvConfig& record = check_.getKeys().getRecord();
  const auto textsOf = [](const auto& addresses) {
    std::vector<std::string> texts;
    for (const KFLIPAddress& address : addresses)
      texts.push_back(address.toString());
    return texts;
  };
  KFAEnvConfig::Addresses addresses;
  record.getAddresses(addresses);
  if (!addresses.getValue().empty())
    addMember(Kind::Routed, {}, {index, {}, textsOf(addresses.getValue()), {}});
  KFAEnvConfig::NetVEths devices;
  record.getNetVEths(devices);
  for (const KFANetVEth& device : devices.getValue()) {
    const Kind kind = !device.getNetwork().empty() ? Kind::Named
                      : device.getHostRouted()     ? Kind::Routed
                                                   : Kind::Nameless;
    Report::Member member{index, device.getName(), textsOf(device.getIPAddresses()), {}};
    if (device.getDHCP() || device.getDHCPv6()) member.addresses.emplace_back("dhcp");
    addMember(kind, device.getNetwork(), std::move(member));
  }
}

void KFANodeReporter::Writer::markTwins() {
  constexpr std::size_t kSeveral = std::numeric_limits<std::size_t>::max();
  std::unordered_map<std::string, std::size_t> owners;
  const auto eachAddress = [this](const auto& part) {
    for (Report::Network& network : report_.networks)
      for (Report::Member& member : network.members)
        for (const std::string& address : member.addresses)
          if (const std::string normal = normalAddress(address); !normal.empty()) part(member, normal);
  };
  eachAddress([&](const Report::Member& member, const std::string& address) {
    const auto [owner, isFirst] = owners.try_emplace(address, member.environment);
    if (!isFirst && owner->second != member.environment) owner->second = kSeveral;
  });
  eachAddress([&](Report::Member& member, const std::string& address) {
    if (owners.at(address) == kSeveral) member.twin = address;
  });
}

void KFANodeReporter::Writer::add(KFAJudgedFile judged) {
  const KFAEnvironmentFile file = judged.file;
  const std::string text = judged.text;
  const auto findings = check_.add(std::move(judged));
  inFiles_ += static_cast<std::ptrdiff_t>(findings.size());
  report_.environments.emplace_back();
  Report::Environment& environment = report_.environments.back();
  environment.file = file;
  environment.summary = KFAEnvironmentSummary(check_.getKeys(), file.veid);
  addFindings(findings, text);
  KFAEnvConfig::QoSes qoses;
  static_cast<void>(check_.getKeys().getRecord().getQoSes(qoses));
  for (const KFLQoS& qos : qoses.getValue())
    environment.resources.push_back(resourceOf(qos));
  addSums(qoses.getValue());
  judge(qoses.getValue());
  addNetworks();
}

void KFANodeReporter::Writer::addFailure(const KFAEnvironmentFile& file, const std::string& why) {
  report_.environments.emplace_back();
  report_.environments.back().file = file;
  report_.environments.back().failure = why;
}

KFANodeReport KFANodeReporter::Writer::finish() {
  std::vector<KFANodeFinding> findings = check_.finish();
  report_.findings.assign(std::make_move_iterator(findings.begin() + inFiles_),
                          std::make_move_iterator(findings.end()));
  report_.startedOnBoot = check_.getStartedOnBoot();
  for (Report::Sum& sum : report_.sums)
    std::stable_sort(sum.shares.begin(), sum.shares.end(),
                     [](const auto& a, const auto& b) { return a.amount > b.amount; });
  std::sort(report_.networks.begin(), report_.networks.end(),
            [](const auto& a, const auto& b) { return std::tie(a.kind, a.name) < std::tie(b.kind, b.name); });
  markTwins();
  return std::move(report_);
}

// --- What callers see -------------------------------------------------------------------------------------------------

std::size_t KFANodeReport::count(Severity severity) const {
  std::size_t number = static_cast<std::size_t>(
      std::count_if(findings.begin(), findings.end(),
                    [severity](const KFANodeFinding& finding) { return finding.severity == severity; }));
  for (const Environment& environment : environments)
    number += environment.counts[static_cast<std::size_t>(severity)];
  return number;
}

std::size_t KFANodeReport::countViolations() const {
  std::size_t number = 0;
  for (const Environment& environment : environments)
    number += environment.violations.size();
  return number;
}

KFANodeReporter::KFANodeReporter(const boost::shared_ptr<const KFAEnvConfigBashParser>& parser,
                                 const boost::shared_ptr<KFLVocMap>& vocabulary,
                                 const std::shared_ptr<const KFAQVTune>& tune,
                                 const KFANodeCheckOptions& options, KFANodeFiles& where)
    : writer_(std::make_unique<Writer>(parser, vocabulary, tune, options, where)) {}

KFANodeReporter::~KFANodeReporter() = default;

void KFANodeReporter::add(const KFAEnvironmentFile& file, const std::string& text) {
  writer_->add(writer_->judge().judge(file, text));
}

void KFANodeReporter::add(KFAJudgedFile judged) {
  writer_->add(std::move(judged));
}

void KFANodeReporter::addFailure(const KFAEnvironmentFile& file, const std::string& why) {
  writer_->addFailure(file, why);
}

KFANodeReport KFANodeReporter::finish() {
  return writer_->finish();
}

}  // namespace KFA
