// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/node/KFANodeWatch.h>

#include <random>
#include <set>

#include <KFAFunctionality/node/KFAEnvironmentKeys.h>

#include "../files/FilesTest.h"

namespace {

namespace fs = std::filesystem;
using Event = KFA::KFANodeEvent;
using Kind = Event::Kind;

// What a folder says, from its files alone or from what was told of it: keys of environments, and findings.
struct Model {
  std::map<std::string, std::map<std::string, std::string>> keys;
  std::multiset<std::string> findings;

  bool operator==(const Model&) const = default;
};

std::string nameOf(const KFA::KFANodeFinding& finding) {
  const std::string place = finding.related.empty() ? "" : finding.text.substr(0, finding.text.find('/'));
  return finding.file + ' ' + finding.rule + ' ' + (place.empty() ? finding.text : place);
}

std::map<std::string, std::string> keysOf(const fs::path& path) {
  KFA::KFAEnvironmentKeys keys(envParser());
  static_cast<void>(keys.read(contentOf(path), path));
  std::map<std::string, std::string> all;
  for (const char* const key : {"name", "onboot", "hostname", "numproc", "description"}) {
    std::string value;
    if (keys.getOrText(key, value)) all[key] = value;
  }
  return all;
}

Model modelOf(const fs::path& folder) {
  Model model;
  KFA::KFANodeCheck check(envParser(), {});
  for (int veid = 100; veid < 110; ++veid) {
    const fs::path path = folder / (std::to_string(veid) + ".conf");
    if (!fs::exists(path)) continue;
    model.keys[path] = keysOf(path);
    check.add({path, veid}, contentOf(path));
  }
  for (const auto& finding : check.finish())
    model.findings.insert(nameOf(finding));
  return model;
}

void follow(Model& model, const std::vector<Event>& events) {
  for (const Event& event : events) {
    if (event.kind == Kind::Added) {
      model.keys[event.file.path] = keysOf(event.file.path);
    } else if (event.kind == Kind::Removed) {
      model.keys.erase(event.file.path);
    } else if (event.kind == Kind::Changed) {
      auto& keys = model.keys.at(event.file.path);
      const auto had = keys.find(event.change.key);
      EXPECT_EQ(event.change.before, had == keys.end() ? std::nullopt : std::optional(had->second));
      keys.erase(event.change.key);
      if (event.change.value) keys[event.change.key] = *event.change.value;
    } else if (event.kind == Kind::Found) {
      model.findings.insert(nameOf(event.finding));
    } else if (event.kind == Kind::Cured) {
      const auto known = model.findings.find(nameOf(event.finding));
      ASSERT_NE(known, model.findings.end()) << nameOf(event.finding);
      model.findings.erase(known);
    }
  }
}

class NodeWatchTest : public testing::Test {
 protected:
  // A file is written in place, replaced by another one, taken away, or given a text of the one before.
  void disturb(std::mt19937& random) const {
    static const char* const kLines[] = {"NAME=a\n",        "NAME=b\n",       "ONBOOT=yes\n",
                                         "ONBOOT=true\n",   "HOSTNAME=h.x\n", "HOSTNAME=i.x\n",
                                         "NUMPROC=20:10\n", "NUMPROC=1:2\n",  "DESCRIPTION='\n",
                                         "# quiet\n",       "NAME =x\n",      "OTHER=1\n"};
    const fs::path path = folder_ / (std::to_string(100 + random() % 8) + ".conf");
    const auto way = random() % 5;
    if (way == 0) {
      fs::remove(path);
      return;
    }
    const fs::path written = way == 1 ? path : folder_ / "temporary";
    std::ofstream out(written, way == 1 && random() % 2 == 0 ? std::ios::app : std::ios::trunc);
    for (auto left = random() % 5; left > 0; --left)
      out << kLines[random() % std::size(kLines)];
    out.close();
    if (written != path) fs::rename(written, path);
  }

  TemporaryFolder folder_;
};

// Whatever is done between two looks, what is told leads from what was there to what is there.
TEST_F(NodeWatchTest, ToldChangesLeadToWhatIsThere) {
  std::mt19937 random(20261122);
  for (int i = 0; i < 10; ++i)
    disturb(random);
  Model model = modelOf(folder_.path());
  KFA::KFANodeWatch watch(folder_.path(), envParser(), {});
  std::vector<Event> events;
  ASSERT_EQ(watch.start(events), 0) << KFL::getErrorMessage();
  std::size_t told = 0;
  for (int round = 0; round < 300; ++round) {
    for (auto left = random() % 4; left > 0; --left)
      disturb(random);
    events.clear();
    ASSERT_EQ(watch.take(events), 0);
    follow(model, events);
    ASSERT_TRUE(model == modelOf(folder_.path())) << "round " << round;
    told += events.size();
    events.clear();
    EXPECT_EQ(watch.take(events), 0);
    EXPECT_TRUE(events.empty());
  }
  EXPECT_GT(told, 500U);
}

TEST_F(NodeWatchTest, TellsOfOverflow) {
  makeFile(folder_ / "101.conf", "ONBOOT=yes\n");
  makeFile(folder_ / "102.conf", "ONBOOT=yes\n");
  KFA::KFANodeWatch watch(folder_ / "", envParser(), {});
  std::vector<Event> events;
  ASSERT_EQ(watch.start(events), 0);
  std::size_t most = 0;
  std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> most;
  for (std::size_t i = 0; i < most; ++i)
    makeFile(folder_ / (i % 2 == 0 ? "a" : "b"), {});
  makeFile(folder_ / "101.conf", "ONBOOT=no\n");
  fs::remove(folder_ / "102.conf");
  makeFile(folder_ / "103.conf", "");
  ASSERT_EQ(watch.take(events), 0);
  std::string kinds;
  for (const Event& event : events)
    kinds += toString(event.kind) + std::string(" ") + std::to_string(event.file.veid) + "; ";
  EXPECT_EQ(kinds, "overflow -1; changed 101; removed 102; added 103; ");
}

}  // namespace
