// SPDX-License-Identifier: Apache-2.0
// Everything that a page about a node shows, judged and counted: its environments with their resources, violated formulas
// and findings, its networks, and what all environments take together beside what the node has.
//
//   KFANodeReporter reporter(parser, vocabulary, tune, {});
//   for (file) reporter.add(file, text);
//   const KFANodeReport report = reporter.finish();
//
// Nothing is printed. A report owns what it says. One reporter serves one thread and one report.
#ifndef KFAFUNCTIONALITY_NODE_KFANODEREPORT_H
#define KFAFUNCTIONALITY_NODE_KFANODEREPORT_H

#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include <boost/shared_ptr.hpp>

#include <KFLFunctionality/KFLVocMap.h>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/node/KFAChangeList.h>
#include <KFAFunctionality/node/KFAEnvironmentSummary.h>
#include <KFAFunctionality/node/KFANodeCheck.h>
#include <KFAFunctionality/node/KFANodeSelection.h>
#include <KFAFunctionality/resources/KFAQoSTune.h>

namespace KFA {

struct KFANodeReport {
  // A resource parameter of an environment.
  struct Resource {
    std::string key;   // in upper case
    std::string text;  // the value with its units, "1 GiB:1.125 GiB"
    // What part of its bound the value takes, 1 for all of it: of a pair the barrier in its limit, of another the value in
    // what the node has. Negative where there is no bound.
    double share = -1;
  };
  // A formula that does not hold.
  struct Violation {
    int number = 0;
    std::string expression;
    std::string comment;               // what is wrong, and what to do
    std::vector<std::string> details;  // "numproc 300:240; 300 <= 240 fails by 60"
  };
  // A finding with its line and the lines round it.
  struct Finding {
    KFANodeFinding finding;
    std::size_t firstLine = 0;  // the number of the first of the lines
    std::vector<std::string> lines;
  };
  struct Environment {
    KFAEnvironmentFile file;
    std::string failure;  // why the file could not be read; nothing below is known then
    KFAEnvironmentSummary summary;
    std::vector<Resource> resources;
    std::vector<Violation> violations;
    bool isJudged = true;   // false when errors in its file leave the formulas without values to hold
    KFAChangeList advice;   // the smallest changes that make the formulas hold
    std::vector<int> left;  // the formulas that no change was found for
    std::array<std::size_t, 3> counts{};  // of findings, by severity
    std::vector<Finding> findings;        // by line
  };
  // Something of the node that environments share. Those that start on boot count.
  struct Share {
    std::size_t environment = 0;  // its index
    long long amount = 0;
  };
  struct Sum {
    std::string name;
    bool isPromised = false;    // or else a limit, which all may have beyond what there is
    bool isBytes = false;       // or else hundredths of a percent of one processor
    long long has = 0;          // what the node has; 0 where that is not known
    long long total = 0;        // what they take together
    std::size_t unlimited = 0;  // how many have no limit, and are not in the total
    std::vector<Share> shares;  // the largest first
  };
  // An environment in a network.
  struct Member {
    std::size_t environment = 0;         // its index
    std::string device;                  // empty for addresses of the environment itself
    std::vector<std::string> addresses;  // "dhcp" where a server is asked
    std::string twin;                    // an address that another environment has, too
  };
  struct Network {
    enum class Kind { Named, Routed, Nameless };

    Kind kind = Kind::Named;
    std::string name;  // of a named one
    std::vector<Member> members;
  };

  std::vector<Environment> environments;
  std::vector<Network> networks;  // the named ones in ascending order, then the others
  std::vector<Sum> sums;
  std::vector<KFANodeFinding> findings;  // about the node
  std::size_t startedOnBoot = 0;

  // Findings of a severity, those about the node among them.
  std::size_t count(KFANodeFinding::Severity severity) const;
  std::size_t countViolations() const;
};

class KFANodeReporter {
 public:
  // tune: the compiled formulas of the vocabulary (KFAQVTune::getShared()). where: as KFANodeCheck has it.
  KFANodeReporter(const boost::shared_ptr<const KFAEnvConfigBashParser>& parser,
                  const boost::shared_ptr<KFLVocMap>& vocabulary,
                  const std::shared_ptr<const KFAQVTune>& tune, const KFANodeCheckOptions& options,
                  KFANodeFiles& where = KFANodeFiles::local());
  KFANodeReporter(const KFANodeReporter&) = delete;
  KFANodeReporter& operator=(const KFANodeReporter&) = delete;
  ~KFANodeReporter();

  void add(const KFAEnvironmentFile& file, const std::string& text);
  // The same for a file that a KFAFileJudge with this parser and these foreign keys has judged.
  void add(KFAJudgedFile judged);
  // A file that could not be read.
  void addFailure(const KFAEnvironmentFile& file, const std::string& why);
  KFANodeReport finish();

 private:
  class Writer;
  std::unique_ptr<Writer> writer_;
};

}  // namespace KFA

#endif
