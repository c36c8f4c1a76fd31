// SPDX-License-Identifier: Apache-2.0
// Calls of managers that come as messages: the first line names manager and operation, the rest are the arguments. A
// refusal has a text, a result is of parts that can be read; and what reads as base64 is written as the same text. The
// input's bytes also make a row of calls, which find and change what a plain model of the node says.
#include <algorithm>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <KFAFunctionality/access/KFAManagerOperations.h>
#include <KFAFunctionality/access/KFAMemoryNode.h>
#include <KFLCommon/KFLBase64.h>
#include <KFLCommon/KFLError.h>
#include <KFLMessage/KFLMessage.h>

#include "Fuzzing.h"

namespace {

using namespace KFA;
using kfl_fuzz::Choices;
using kfl_fuzz::require;

const std::string kFirst = "11111111-0000-4000-8000-000000000001";

KFAMemoryNode::Content contentOfNode() {
  KFAMemoryNode::Content node;
  node.environments[KFLEID(kFirst)].isRunning = true;
  node.samples["basic"] = KFAEnvConfig();
  return node;
}

struct Answer {
  int code = 0;
  std::vector<KFLMessage> parts;
};

Answer answer(const KFAManagerOperation& operation, const KFALibFunctionality& managers,
              const KFLMessage& arguments) {
  KFLEID eid;
  KFL::setErrorMessage("%s", "");
  const int found = getEnvironmentOfCall(operation, arguments, eid);
  Answer given;
  given.code = answerManagerCall(operation, managers, nullptr, kTechnology, arguments, [&](const auto& part) {
    require(given.parts.emplace_back().parse(part) == 0, "a part of a result can be read");
    return 0;
  });
  require(given.code >= 0 || !KFL::getErrorMessage().empty(), "a refusal has a text");
  require(found == 0 || given.code < 0, "a call about nobody is refused");
  return given;
}

void call(const KFAManagerOperation& operation, const std::string& text) {
  KFLMessage arguments;
  if (arguments.parse(text) != 0) return;
  const KFAMemoryNode node(contentOfNode());
  KFALibFunctionality managers;
  require(node.registerManagers(managers, kTechnology) == 0, "a node can be registered");
  answer(operation, managers, arguments);
}

// --- Calls against a model --------------------------------------------------------------------------------------------

// What stands in the parts of a result: their texts, or those of an element of them.
std::vector<std::string> textsOf(const Answer& answer, const char* element = nullptr) {
  std::vector<std::string> texts;
  for (const KFLMessage& part : answer.parts) {
    auto it = part.getIterator();
    require(element == nullptr || it.findChild(element) == 0, "a part has what it is about",
            part.toPrettyString());
    texts.emplace_back(it.getText());
  }
  return texts;
}

class Node {
 public:
  explicit Node(Choices choices)
      : choices_(choices),
        node_(contentOfNode()),
        environments_{{kFirst, {true, 101, {}, 0}}},
        samples_{"basic"} {
    require(node_.registerManagers(managers_, kTechnology) == 0, "a node can be registered");
  }

  void go() {
    KFLMessage config("arguments");
    setVeid(kFirst, 101);
    for (int steps = 0; steps < 32 && !choices_.isAtEnd(); ++steps)
      step();
    requireLists();
  }

 private:
  struct Environment {
    bool isRunning;
    int veid;
    std::vector<std::string> templates;
    int seconds;
  };

  KFLMessage arguments() const { return KFLMessage("arguments"); }
  Answer ask(const char* manager, const char* name, const KFLMessage& arguments) {
    const KFAManagerOperation* const operation = findManagerOperation(manager, name);
    require(operation != nullptr, "an operation is found by its names", name);
    last_ = std::string(manager) + "." + name + "\n" + arguments.toPrettyString();
    return answer(*operation, managers_, arguments);
  }
  void mustBe(const Answer& answer, bool isRight, int otherwise) const {
    require(answer.code == (isRight ? int{KFAManagerDone} : otherwise),
            "a call is answered as the model says", last_ + std::to_string(answer.code));
  }

  std::string eid() {
    const std::size_t at = choices_.below(environments_.size() + 1);
    if (at == environments_.size()) return "22222222-0000-4000-8000-000000000002";
    return std::next(environments_.begin(), static_cast<std::ptrdiff_t>(at))->first;
  }
  KFLMessage about(const std::string& eid) const {
    KFLMessage made = arguments();
    made.getIterator().putValue(eid, "eid");
    return made;
  }
  static void addConfig(KFLMessage& message, const char* name, int veid) {
    auto it = message.getIterator();
    it.addChild(name);
    it.selectNamespace(KFAEnvConfig::elements().namespaceUri());
    it.setTypeByName(KFAEnvConfig::elements().namespaceUri(), KFAEnvConfig::elements().typeTag());
    if (veid > 0) it.putValue(veid, "veid");
  }
  void setVeid(const std::string& eid, int veid) {
    KFLMessage made = about(eid);
    addConfig(made, "changes", veid);
    mustBe(ask("environments", "setConfig", made), true, 0);
  }
  bool isUsed(int veid) const {
    return std::any_of(environments_.begin(), environments_.end(),
                       [&](const auto& one) { return one.second.veid == veid; });
  }

  void step() {
    switch (choices_.below(11)) {
      case 0:
        return create();
      case 1:
        return run("start", true);
      case 2:
        return run("stop", false);
      case 3:
        return remove();
      case 4:
        return addTo(true);
      case 5:
        return addTo(false);
      case 6:
        return changeSample();
      case 7:
        return watch();
      case 8:
        return execute();
      case 9:
        return renumber();
      default:
        return requireLists();
    }
  }

  void create() {
    const int veid = choices_.oneIn(3) ? 0 : 101 + static_cast<int>(choices_.below(4));
    KFLMessage made = arguments();
    addConfig(made, "config", veid);
    const bool isFree = veid == 0 || !isUsed(veid);
    const Answer given = ask("environments", "create", made);
    mustBe(given, isFree, KFAManagerFailed);
    if (!isFree) return;
    int taken = veid;
    while (taken == 0 || (veid == 0 && isUsed(taken)))
      taken = std::max(taken, 100) + 1;
    require(given.parts.size() == 1 &&
                environments_.emplace(textsOf(given)[0], Environment{false, taken, {}, 0}).second,
            "a new environment has an id of its own", last_);
  }
  void run(const char* name, bool isRunning) {
    const auto found = environments_.find(eid());
    mustBe(ask("environments", name,
               about(found == environments_.end() ? "22222222-0000-4000-8000-000000000002" : found->first)),
           found != environments_.end(), KFAManagerNotFound);
    if (found != environments_.end()) found->second.isRunning = isRunning;
  }
  void remove() {
    const std::string id = eid();
    const auto found = environments_.find(id);
    const bool isThere = found != environments_.end();
    const bool isRight = isThere && !found->second.isRunning;
    mustBe(ask("environments", "remove", about(id)), isRight,
           isThere ? KFAManagerFailed : KFAManagerNotFound);
    if (isRight) environments_.erase(found);
  }
  void addTo(bool isAdded) {
    const std::string id = eid();
    const auto found = environments_.find(id);
    std::vector<std::string> names;
    KFLMessage made = about(id);
    auto it = made.getIterator();
    it.addChild("templates");
    for (std::size_t more = choices_.below(4); more > 0; --more) {
      names.push_back(choices_.wordOf("web|db|mail|a/b"));
      it.addChild("item");
      it.putValue(std::string("1"), "version");
      it.putValue(names.back(), "name");
      it.leaveChild();
    }
    it.leaveChild();
    mustBe(ask("templates", isAdded ? "addTo" : "removeFrom", made), found != environments_.end(),
           KFAManagerNotFound);
    if (found == environments_.end()) return;
    std::vector<std::string>& had = found->second.templates;
    for (const std::string& name : names) {
      const auto at = std::find(had.begin(), had.end(), name);
      if (isAdded && at == had.end()) had.push_back(name);
      if (!isAdded && at != had.end()) had.erase(at);
    }
    require(textsOf(ask("templates", "listOf", about(id)), "name") == had,
            "an environment has the templates that it was given", last_);
  }
  void changeSample() {
    const std::string name = choices_.wordOf("basic|a|b c|<&>|\xc3\xa4");
    KFLMessage made = arguments();
    made.getIterator().putValue(name, "name");
    if (choices_.oneIn(2))
      return mustBe(ask("samples", "remove", made), samples_.erase(name) != 0, KFAManagerNotFound);
    addConfig(made, "sample", 0);
    mustBe(ask("samples", "set", made), true, 0);
    samples_.insert(name);
  }
  void watch() {
    const std::string id = eid();
    const auto found = environments_.find(id);
    const bool isThere = found != environments_.end();
    KFLMessage made = about(id);
    const int seconds = static_cast<int>(choices_.below(3));
    if (seconds == 0) {
      mustBe(ask("monitor", "stop", made), isThere && found->second.seconds != 0, KFAManagerNotFound);
    } else {
      made.getIterator().putValue(seconds, "seconds");
      mustBe(ask("monitor", "start", made), isThere, KFAManagerNotFound);
    }
    if (isThere) found->second.seconds = seconds;
  }
  void execute() {
    const std::string id = eid();
    const auto found = environments_.find(id);
    const bool isThere = found != environments_.end();
    std::string printed;
    KFLMessage made = about(id);
    auto it = made.getIterator();
    it.addChild("arguments");
    const std::size_t count = choices_.below(4);
    for (std::size_t i = 0; i < count; ++i) {
      const std::string word = choices_.wordOf("echo|a b||<x>");
      it.putValue(word, "item");
      printed += word;
    }
    it.leaveChild();
    const bool isRight = isThere && found->second.isRunning && count > 0;
    mustBe(ask("processes", "execute", made), isRight, isThere ? KFAManagerFailed : KFAManagerNotFound);
  }

  void renumber() {
    const std::string id = eid();
    const auto found = environments_.find(id);
    if (found == environments_.end()) return;
    found->second.veid = 201 + static_cast<int>(choices_.below(100));
    setVeid(id, found->second.veid);
    const Answer given = ask("environments", "getConfig", about(id));
    auto it = given.parts.at(0).getIterator();
    require(it.findChild("veid") == 0 && it.findNextChild("veid") != 0,
            "a value takes the place of the former", last_);
  }

  void requireLists() {
    std::set<std::string> running, watched, all;
    for (const auto& [id, environment] : environments_) {
      all.insert(id);
      if (environment.seconds != 0) watched.insert(id);
    }
    const auto setOf = [](const std::vector<std::string>& texts) {
      return std::set<std::string>(texts.begin(), texts.end());
    };
    const std::vector<std::string> listed = textsOf(ask("environments", "list", arguments()), "eid");
    require(listed.size() == all.size() && setOf(listed) == all, "each environment is listed once", last_);
    require(setOf(textsOf(ask("monitor", "list", arguments()))) == watched,
            "those that are watched are listed", last_);
    require(setOf(textsOf(ask("samples", "list", arguments()))) == samples_, "each sample is listed", last_);
    for (const auto& [id, environment] : environments_) {
      const Answer given = ask("environments", "getConfig", about(id));
      mustBe(given, true, 0);
      require(textsOf(given, "veid") == std::vector<std::string>{std::to_string(environment.veid)},
              "each environment has its number", last_);
    }
  }

  Choices choices_;
  const KFAMemoryNode node_;
  KFALibFunctionality managers_;
  std::map<std::string, Environment> environments_;
  std::set<std::string> samples_;
  std::string last_;
};

// --- Base64 -----------------------------------------------------------------------------------------------------------

// The digits of three bytes at a time, bit by bit.
std::string plainBase64(std::string_view bytes) {
  const std::string digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (std::size_t bit = 0; bit < 8 * bytes.size(); bit += 6) {
    std::size_t digit = 0;
    for (std::size_t i = bit; i < bit + 6; ++i)
      digit = 2 * digit +
              (i < 8 * bytes.size() ? static_cast<unsigned char>(bytes[i / 8]) >> (7 - i % 8) & 1U : 0U);
    text += digits[digit];
  }
  return text.append((4 - text.size() % 4) % 4, '=');
}

void requireOneText(const std::string& text) {
  std::string bytes;
  if (KFL::fromBase64(text, bytes) == 0)
    require(KFL::toBase64(bytes) == text, "one value has one text", text);
}

void checkBase64(const std::string& text) {
  std::string bytes;
  require(KFL::toBase64(text) == plainBase64(text), "bytes have their digits", text);
  require(KFL::fromBase64(plainBase64(text), bytes) == 0 && bytes == text, "digits have their bytes", text);
  requireOneText(text);
  std::string other = plainBase64(text);
  const std::size_t last = other.find_last_not_of('=');
  if (last == std::string::npos) return;
  for (const char digit : std::string("ABCDEFGHgw/")) {  // some with bits beyond the last byte
    other[last] = digit;
    requireOneText(other);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(kfl_fuzz::viewOf(data, size));
  checkBase64(text);
  Node(Choices(text)).go();
  const std::string first = text.substr(0, text.find('\n'));
  const std::size_t dot = first.find('.');
  if (dot == std::string::npos || first.size() == text.size()) return 0;
  const auto* const operation = findManagerOperation(first.substr(0, dot), first.substr(dot + 1));
  if (operation != nullptr) call(*operation, text.substr(first.size() + 1));
  return 0;
}
