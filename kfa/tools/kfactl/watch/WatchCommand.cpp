// SPDX-License-Identifier: Apache-2.0
// kfactl watch: what happens to the environments of the node, line by line.
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <memory>
#include <optional>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/node/KFAKeyCatalogue.h>
#include <KFAFunctionality/node/KFANodeWatch.h>

#include "environments/Environments.h"
#include "environments/Findings.h"
#include "environments/NodeOptions.h"
#include "terminal/Cli.h"
#include "terminal/Document.h"
#include "terminal/JsonLine.h"
#include "terminal/Trouble.h"

namespace kfactl {

namespace {

using KFA::KFANodeEvent;
using Kind = KFANodeEvent::Kind;

struct WatchOptions {
  NodeOptions node;
  bool raw = false;
};

// --- Waiting ----------------------------------------------------------------------------------------------------------

volatile std::sig_atomic_t endAsked = 0;

// The signals with which people end the command, held back but while it waits, so that none comes unseen between two
// waits.
class EndSignals {
 public:
  EndSignals() {
    struct sigaction action {};
    action.sa_handler = [](int) { endAsked = 1; };
    sigset_t held;
    sigemptyset(&held);
    for (const int signal : {SIGINT, SIGTERM}) {
      sigaction(signal, &action, nullptr);
      sigaddset(&held, signal);
    }
    sigprocmask(SIG_BLOCK, &held, &while_);
  }

  // Until the descriptor can be read: false when the end was asked for, or nobody reads the output any more.
  bool wait(int descriptor) const {
    std::array<pollfd, 2> both = {{{descriptor, POLLIN, 0}, {STDOUT_FILENO, 0, 0}}};
    while (endAsked == 0) {
      const int count = ppoll(both.data(), both.size(), nullptr, &while_);
      if (count < 0 && errno != EINTR) throw Trouble("cannot wait for changes");
      if (count > 0) return (both[1].revents & POLLERR) == 0;
    }
    return false;
  }

  // A moment for whoever writes in several steps.
  void settle() const {
    const timespec moment{0, 50'000'000};
    ppoll(nullptr, 0, &moment, &while_);
  }

 private:
  sigset_t while_{};
};

// --- What is printed --------------------------------------------------------------------------------------------------

class Events {
 public:
  Events(Session& session, bool raw) : session_(session) {
    if (!raw) catalogue_.emplace(session.environmentParser(), session.vocabulary());
  }

  void print(const KFANodeEvent& event) {
    if (session_.format() == Format::Table)
      session_.out().addLine(lineOf(event));
    else
      session_.out().addLine(jsonLineOf(documentFor(event)));
    session_.out().flush();
  }

 private:
  static std::string nameOf(const KFANodeEvent& event) {
    if (event.file.veid >= 0) return std::to_string(event.file.veid);
    return event.kind == Kind::Found || event.kind == Kind::Cured ? "node" : printable(event.file.path);
  }

  std::string shown(const std::string& key, const std::optional<std::string>& value) const {
    if (!value) return "unset";
    if (value->empty()) return "\"\"";
    return printable(catalogue_ ? catalogue_->showValue(key, *value) : *value);
  }

  std::string lineOf(const KFANodeEvent& event) const {
    const std::string name = nameOf(event) + " ";
    switch (event.kind) {
      case Kind::Changed:
        return name + KFL::toUpper(event.change.key) + " " + shown(event.change.key, event.change.before) +
               " -> " + shown(event.change.key, event.change.value);
      case Kind::Found:
      case Kind::Cured:
        return name + toString(event.kind) + " " + toString(event.finding.severity) + ": " +
               printable(event.finding.text);
      case Kind::Failed:
        return name + "cannot be read: " + printable(event.text);
      case Kind::Overflow:
        return name + "overflow: too much happened at once; everything was read anew";
      case Kind::Gone:
        return name + "gone: the folder was removed or renamed";
      default:
        return name + toString(event.kind);
    }
  }

  static Document documentFor(const KFANodeEvent& event) {
    Document document = {{"event", toString(event.kind)}};
    document.update(documentOf(event.file));
    const auto orNull = [](const std::optional<std::string>& text) {
      return text ? Document(*text) : Document();
    };
    if (event.kind == Kind::Changed)
      document.update({{"key", event.change.key},
                       {"before", orNull(event.change.before)},
                       {"value", orNull(event.change.value)}});
    if (event.kind == Kind::Found || event.kind == Kind::Cured)
      document["finding"] = describeFinding(event.finding);
    if (event.kind == Kind::Failed) document["error"] = event.text;
    return document;
  }

  Session& session_;
  std::optional<KFA::KFAKeyCatalogue> catalogue_;
};

int watch(Session& session, const WatchOptions& options) {
  const EndSignals signals;
  KFA::KFANodeWatch node(session.node(), session.environmentParser(), options.node.resolve(session));
  std::vector<KFANodeEvent> events;
  must(node.start(events));
  Events printer(session, options.raw);
  printNote("watching " + std::to_string(node.getCount()) + " environments of " + session.node());
  for (;;) {
    for (const KFANodeEvent& event : events)
      printer.print(event);
    if (!events.empty() && events.back().kind == Kind::Gone) return kFinding;
    events.clear();
    if (!signals.wait(node.getDescriptor())) return kFine;
    signals.settle();
    must(node.take(events));
  }
}

Action prepareWatch(CLI::App& app) {
  const auto options = std::make_shared<WatchOptions>();
  app.add_flag("--raw", options->raw, "Print stored numbers, without units");
  options->node.declare(app);
  return [options](Session& session) { return watch(session, *options); };
}

constexpr Command kCommands[] = {
    {nullptr, "", "Tell what happens to the environments of the node, until it is interrupted",
     "A line for each key that says something else, each environment that comes or goes, each finding that "
     "is new or\n"
     "cured. --format json gives an object on each line. Ends with status 0 when it is interrupted, with 1 "
     "when the\n"
     "folder goes away.\n\n"
     "Examples:\n"
     "  kfactl watch\n"
     "  kfactl --json watch | jq -r 'select(.event == \"changed\") | .key'",
     prepareWatch, 1U << static_cast<unsigned>(Format::Table) | 1U << static_cast<unsigned>(Format::Json)},
};

}  // namespace

extern const Group watchGroup;
const Group watchGroup{"watch", "What happens on the node", kCommands};

}  // namespace kfactl
