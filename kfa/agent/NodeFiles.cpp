// SPDX-License-Identifier: Apache-2.0
#include "NodeFiles.h"

#include <algorithm>
#include <set>

#include <boost/uuid/name_generator_sha1.hpp>
#include <boost/uuid/uuid.hpp>

#include <KFAFunctionality/files/KFABashConfig.h>
#include <KFAFunctionality/files/KFAConfigFile.h>
#include <KFAFunctionality/files/KFAConfigFolder.h>
#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLLog.h>

namespace kfad {

using KFL::getErrorMessage;
using KFL::KFLMessageIterator;
using KFL::setErrorMessage;

namespace {

constexpr const char* kModule = "kfad";

// The id that a configuration gives itself; invalid when it gives none.
KFLEID ownId(const KFAEnvConfig& config) {
  KFAEnvConfig::Text uuid;
  KFLEID eid;
  if (config.getUUID(uuid) == 0 && uuid.isSpecified()) eid = KFLEID(uuid.getValue());
  return eid;
}

// The elements of a configuration with one name.
std::vector<KFLMessageIterator> elementsOf(const KFAEnvConfig& config, const std::string& name) {
  std::vector<KFLMessageIterator> elements;
  const KFLMessageIterator it = config.getIterator();
  if (!it.isValid()) return elements;
  for (int left = it.findChild(name); left == 0; left = it.findNextChild(name))
    elements.push_back(it);
  return elements;
}

bool hasSame(const KFAEnvConfig& config, const KFAEnvConfig& changes, const std::string& name) {
  const auto wanted = elementsOf(changes, name);
  const auto there = elementsOf(config, name);
  return std::ranges::equal(wanted, there, [](const auto& a, const auto& b) { return a.isEqualTree(b); });
}

// A file has a line for each resource parameter, so that those which are not named stay.
bool hasResources(const KFAEnvConfig& config, const KFAEnvConfig& changes) {
  KFAEnvConfig::QoSes wanted, there;
  if (changes.getQoSes(wanted) != 0 || config.getQoSes(there) != 0) return false;
  return std::ranges::all_of(wanted.getValue(), [&](const KFL::KFLQoS& one) {
    const auto found = there.getValue().find(one);
    return found != there.getValue().end() && found->getSoft() == one.getSoft() &&
           found->getHard() == one.getHard();
  });
}

// Whether the record gives back all that the changes have: 0, or -1 with an error text.
int holdsAll(const KFAEnvConfig& config, const KFAEnvConfig& changes, const std::string& file) {
  const KFLMessageIterator it = changes.getIterator();
  std::set<std::string> names;
  if (it.isValid() && it.firstChild() == 0) {
    do
      names.emplace(it.getName());
    while (it.nextSibling() == 0);
    it.leaveChild();
  }
  for (const std::string& name : names) {
    if (name == "veid") continue;
    if (name == "qos" ? hasResources(config, changes) : hasSame(config, changes, name)) continue;
    setErrorMessage("%s: the file cannot hold this value of the property '%s'", file.c_str(), name.c_str());
    return -1;
  }
  return 0;
}

}  // namespace

NodeFiles::NodeFiles(const NodePaths& paths, const KFLEID& node, const VocabularySP& vocabulary,
                     const ParserSP& parser)
    : paths_(paths), node_(node), vocabulary_(vocabulary), parser_(parser), rules_(parser) {}

std::string NodeFiles::pathOf(int veid) const {
  return paths_.environments + "/" + std::to_string(veid) + ".conf";
}

KFLEID NodeFiles::madeId(int veid) const {
  boost::uuids::uuid node;
  std::ranges::copy(node_.bytes(), node.begin());
  const boost::uuids::uuid made = boost::uuids::name_generator_sha1(node)(std::to_string(veid));
  KFL::KFLGUID::Bytes bytes;
  std::ranges::copy(made, bytes.begin());
  KFLEID eid;
  eid.fromString(KFL::KFLGUID(bytes).toString());
  return eid;
}

int NodeFiles::read(int veid, KFAEnvConfig& config) const {
  return KFA::KFAConfigFolder(paths_.environments, parser_).read(veid, config);
}

int NodeFiles::each(const std::function<int(int veid, Entry& entry)>& visit) const {
  KFA::KFAConfigFolder folder(paths_.environments, parser_);
  std::vector<int> veids;
  if (folder.list(veids) != 0) return KFA::KFAManagerFailed;
  std::set<KFLEID> taken;
  for (const int veid : veids) {
    Entry entry;
    if (folder.read(veid, entry.config) != 0) {
      KFL_LOG(kModule, KFL::kLogWarning, "[%s] left out: %s", __func__, getErrorMessage().c_str());
      continue;
    }
    entry.eid = ownId(entry.config);
    if (!entry.eid.isValid() || !taken.insert(entry.eid).second) entry.eid = madeId(veid);
    if (visit(veid, entry) != 0) break;
  }
  return KFA::KFAManagerDone;
}

int NodeFiles::find(const KFLEID& eid, int& veid, KFAEnvConfig& config) {
  const KFL::KFLLockGuard guard(lock_);
  // What was known is right while the file says so itself.
  if (const auto known = veids_.find(eid); known != veids_.end()) {
    KFAEnvConfig now;
    if (read(known->second, now) == 0 && (ownId(now) == eid || madeId(known->second) == eid)) {
      veid = known->second;
      config = now;
      return KFA::KFAManagerDone;
    }
  }
  std::map<KFLEID, int> now, made;
  const int code = each([&](int number, Entry& entry) {
    now.emplace(entry.eid, number);
    made.emplace(madeId(number), number);
    return 0;
  });
  if (code != KFA::KFAManagerDone) return code;
  // One that had to do without its UUID while another had it is still found under the id that was made for it.
  now.merge(made);
  veids_.swap(now);
  const auto found = veids_.find(eid);
  if (found == veids_.end()) {
    setErrorMessage("there is no environment with the id %s on this node", eid.toString().c_str());
    return KFA::KFAManagerNotFound;
  }
  veid = found->second;
  return read(veid, config) == 0 ? KFA::KFAManagerDone : KFA::KFAManagerFailed;
}

int NodeFiles::parse(const std::string& text, const std::string& name, KFAEnvConfig& config) const {
  config.initMsg();
  return KFA::readConfigText(text, name, [&](std::istream& in) { return parser_->getConfig(in, config); });
}

KFAConfigChanges NodeFiles::keysOf(const KFAEnvConfig& config) const {
  KFAConfigChanges changes;
  KFA::KFAEnvConfigBashParser::ParameterParserGet keys(config, *parser_);
  std::string key, value;
  while (keys.getNext(key, key) == KFA::kParameterDone) {
    if (keys.get(key, value) == KFA::kParameterDone) changes.emplace_back(key, value);
  }
  return changes;
}

int NodeFiles::apply(const KFAEnvConfig& changes, const std::string& text, const std::string& name,
                     std::string& result) const {
  KFAEnvConfig before;
  if (parse(text, name, before) != 0) return -1;
  // A line whose value says the same already stays as it is written.
  const KFAConfigChanges there = keysOf(before);
  KFAConfigChanges keys = keysOf(changes);
  std::erase_if(keys, [&](const auto& key) { return std::ranges::find(there, key) != there.end(); });
  result = text;
  if (!keys.empty() && KFA::setConfigValues(rules_, keys, {}, text, name, result) != 0) return -1;
  KFAEnvConfig config;
  return parse(result, name, config) == 0 ? holdsAll(config, changes, name) : -1;
}

}  // namespace kfad
