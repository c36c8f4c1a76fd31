// SPDX-License-Identifier: Apache-2.0
// kfactl-at: what kfactl --at does. A command runs here, on the files of the other node; at several nodes it runs for each
// in a thread of its own, and what they print is put together.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <string_view>

#include <grpc/support/log.h>
#include <boost/smart_ptr/make_shared.hpp>
#include <nlohmann/json.hpp>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>
#include <KFLCommon/KFLThreads.h>

#include <KFAFunctionality/access/KFAAgentFiles.h>
#include <KFARemote/KFARemoteConnection.h>

#include "at/Identity.h"
#include "terminal/Cli.h"
#include "terminal/Document.h"
#include "terminal/Input.h"
#include "terminal/Node.h"
#include "terminal/Trouble.h"

namespace kfactl {

namespace {

using Words = std::vector<std::string>;

// At how many nodes a command runs at once.
constexpr std::size_t kMostThreads = 512;

// One node, and what the command gave there.
struct Node {
  std::string address;
  int status = kTrouble;
  Kept kept;
};

using Agent = boost::shared_ptr<KFA::KFAAgentFiles>;

Agent openNode(KFA::KFARemoteConnection& connection, const std::string& address) {
  const auto files = KFA::makeManagerStub<KFA::KFAFilesM>(connection.getChannel(address, KFA::KFLEID(), ""));
  const auto agent = boost::make_shared<KFA::KFAAgentFiles>(files);
  must(agent->open());
  return agent;
}

// The last word of each line: a file of nodes may have their ids before their addresses.
std::vector<Node> readNodes(const std::string& path) {
  const Input input = readInput(path);
  std::vector<Node> nodes;
  std::size_t row = 1;
  for (std::string_view rest = input.text; !rest.empty(); ++row) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    const std::string plain(line.substr(0, line.find('#')));
    KFL::getToken words(plain.c_str(), " \t\r");
    std::string address;
    while (const char* const word = words.get(nullptr))
      address = word;
    if (KFA::checkRemoteAddress(address) != 0)
      throw Trouble(input.name + ":" + std::to_string(row) + ": " + KFL::getErrorMessage());
    const bool isKnown =
        std::any_of(nodes.begin(), nodes.end(), [&](const Node& node) { return node.address == address; });
    if (!address.empty() && !isKnown) nodes.emplace_back().address = address;
  }
  if (nodes.empty())
    throw Trouble(input.name + ": there is no node in it; a line HOST[:PORT] for each is wanted");
  return nodes;
}

// --- Many nodes -------------------------------------------------------------------------------------------------------

// A line on standard error that tells how many nodes have answered, where a person may see it.
class Progress {
 public:
  explicit Progress(std::size_t count) : count_(count), isShown_(isatty(STDERR_FILENO) != 0 && count > 1) {
    show(0);
  }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress() { write("\r\033[K"); }
  void step() { show(++done_); }

 private:
  void show(std::size_t done) const {
    write("\r" + std::to_string(done) + " of " + std::to_string(count_) + " nodes");
  }
  void write(const std::string& text) const {
    if (isShown_) static_cast<void>(!::write(STDERR_FILENO, text.data(), text.size()));
  }

  const std::size_t count_;
  const bool isShown_;
  std::atomic<std::size_t> done_ = 0;
};

class Fleet {
 public:
  Fleet(Session& session, const Words& words, const RunWords& run,
        const KFA::KFARemoteConnectionSP& connection, std::vector<Node> nodes)
      : session_(session), words_(words), run_(run), connection_(connection), nodes_(std::move(nodes)) {}

  int run();

 private:
  void runAt(Node& node) const;
  int print();
  void printTable() const;
  void printDocuments() const;
  Document describe(const Node& node) const;

  Session& session_;
  const Words& words_;
  const RunWords& run_;
  const KFA::KFARemoteConnectionSP connection_;
  std::vector<Node> nodes_;
};

void Fleet::runAt(Node& node) const {
  const Keeping keeping(node.kept);
  Session session;
  session.vocabularyOption() = session_.vocabularyOption();
  session.jsonOption() = session_.format() != Format::Table;
  try {
    const AtNode at(openNode(*connection_, node.address));
    node.status = run_(session, words_);
  } catch (const std::exception& trouble) {
    node.kept.errors.emplace_back(trouble.what());
  }
  session.out().flush();
}

int Fleet::run() {
  if (session_.format() == Format::Sarif) throw Trouble("sarif is a form for one node; name it with --at");
  {
    Progress progress(nodes_.size());
    KFL::runInThreads(nodes_.size(), kMostThreads, [&](std::size_t i) {
      runAt(nodes_[i]);
      progress.step();
    });
  }
  return print();
}

int Fleet::print() {
  int status = kFine;
  for (const Node& node : nodes_) {
    status = std::max(status, node.status);
    for (const std::string& error : node.kept.errors)
      printError(error.starts_with("the agent at ") ? error : node.address + ": " + error);
  }
  if (session_.format() == Format::Table)
    printTable();
  else
    printDocuments();
  return status;
}

// One table of all nodes' tables; what is no table are lines with the node in front.
void Fleet::printTable() const {
  std::vector<std::pair<Words, Table>> tables;
  for (const Node& node : nodes_) {
    for (std::string_view rest = node.kept.text; !rest.empty();) {
      const std::string_view line = rest.substr(0, rest.find('\n'));
      rest.remove_prefix(std::min(line.size() + 1, rest.size()));
      session_.out().add(node.address).add(": ").addLine(line);
    }
    if (node.kept.rows.empty()) continue;
    const Words& headings = node.kept.rows.front();
    if (tables.empty() || tables.back().first != headings) {
      Words all{"NODE"};
      all.insert(all.end(), headings.begin(), headings.end());
      tables.emplace_back(headings, Table(all));
    }
    for (std::size_t i = 1; i < node.kept.rows.size(); ++i) {
      Words row{node.address};
      row.insert(row.end(), node.kept.rows[i].begin(), node.kept.rows[i].end());
      tables.back().second.add(std::span<const std::string>(row));
    }
  }
  for (const auto& [headings, table] : tables)
    table.print(session_.out());
}

Document Fleet::describe(const Node& node) const {
  Document document = {{"node", node.address}, {"status", node.status}};
  if (!node.kept.errors.empty()) document["errors"] = node.kept.errors;
  if (node.kept.text.empty()) return document;
  const Document data = Document::parse(node.kept.text, nullptr, false);
  document["data"] = data.is_discarded() ? Document(node.kept.text) : data;
  return document;
}

void Fleet::printDocuments() const {
  Document all = Document::array();
  for (const Node& node : nodes_)
    all.push_back(describe(node));
  printDocument(session_, all, "nodes", "node");
}

}  // namespace

int runElsewhere(Session& session, const Words& words, const RunWords& run) {
  // What a call came to is said in one line; gRPC's own log is for those who ask for it.
  if (std::getenv("GRPC_VERBOSITY") == nullptr) gpr_set_log_function([](gpr_log_func_args*) {});
  KFA::KFARemoteConnectionOptions options;
  options.identity = findIdentity();
  const KFA::KFARemoteConnectionSP connection(new KFA::KFARemoteConnection(options));
  const std::string at = atOptions().at;
  if (at.starts_with('@')) return Fleet(session, words, run, connection, readNodes(at.substr(1))).run();
  const AtNode node(openNode(*connection, at));
  return run(session, words);
}

}  // namespace kfactl
