// SPDX-License-Identifier: Apache-2.0
#include "environments/Environments.h"

#include <algorithm>
#include <thread>
#include <utility>

#include <nlohmann/json.hpp>

#include <KFLCommon/KFLThreads.h>

#include "terminal/Node.h"
#include "terminal/Output.h"
#include "terminal/Session.h"

namespace kfactl {

namespace {

// The names are shown in short: a folder may be full of them.
void noteOthers(const std::vector<std::string>& others) {
  constexpr std::size_t kShown = 5;
  if (others.empty()) return;
  std::string text;
  for (std::size_t i = 0; i < std::min(others.size(), kShown); ++i)
    text += (i == 0 ? "" : ", ") + others[i];
  if (others.size() > kShown) text += " and " + std::to_string(others.size() - kShown) + " more";
  printNote(text + (others.size() == 1 ? " is no environment" : " are no environments") +
            "; names such as 101.conf are");
}

// What a file is in trouble with is told in its turn.
Environments::Finish finishOf(const Environments::Make& make, const Environments::File& file) {
  try {
    return make(file, readNodeFile(file.path));
  } catch (const Trouble& trouble) {
    return [trouble] { throw trouble; };
  }
}

}  // namespace

Environments::Environments(Session& session, const std::vector<std::string>& words, WhenNone whenNone) {
  KFA::KFANodeSelection selection(
      session.node(), [&session] { return session.environmentParser(); }, nodeFiles());
  if (words.empty()) {
    if (whenNone == WhenNone::Refuse)
      throw Trouble("FILE is missing; name the environments to change, '*' for all of " + session.node());
    must(selection.addAll());
  }
  for (const std::string& word : words)
    must(selection.add(word));
  isSingle_ = words.size() == 1 && KFA::KFANodeSelection::isSingle(words.front(), nodeFiles());
  files_ = selection.getFiles();
  noteOthers(selection.getOthers());
  for (const std::string& trouble : selection.getTroubles())
    troubles_.add(trouble);
}

void Environments::collect(const File& file, const std::function<void()>& part, const Failed& failed) {
  if (isSingle_) return part();
  try {
    part();
  } catch (const Trouble& trouble) {
    troubles_.add(trouble.what());
    if (failed) failed(file, trouble.what());
  }
}

void Environments::each(const Part& part, const Failed& failed) {
  expectFiles(files_);
  for (const File& file : files_)
    collect(
        file, [&] { part(file, readNodeFile(file.path)); }, failed);
}

void Environments::eachAtOnce(const std::function<Make()>& maker, const Failed& failed) {
  constexpr std::size_t kAtOnce = 1024;
  // What another node has comes through one agent, and what is little is done before a thread has begun.
  const bool isShared = !nodeAgent() && files_.size() >= 64;
  const std::size_t helpers = isShared ? std::clamp(std::thread::hardware_concurrency(), 1U, 8U) : 1;
  expectFiles(files_);
  std::vector<Make> makes;
  for (std::size_t i = 0; i < helpers; ++i)
    makes.push_back(maker());
  std::vector<Finish> finishes(std::min(kAtOnce, files_.size()));
  for (std::size_t first = 0; first < files_.size(); first += kAtOnce) {
    const std::size_t count = std::min(kAtOnce, files_.size() - first);
    KFL::runInThreads(helpers, helpers, [&](std::size_t helper) {
      for (std::size_t i = helper; i < count; i += helpers)
        finishes[i] = finishOf(makes[helper], files_[first + i]);
    });
    // What they hold is given back by the threads, which put others in their place.
    for (std::size_t i = 0; i < count; ++i)
      collect(files_[first + i], finishes[i], failed);
  }
}

std::string pathOfOne(Session& session, const std::string& word) {
  const Environments environments(session, {word}, WhenNone::Refuse);
  if (!environments.isSingle()) throw Trouble("'" + word + "': one environment is wanted here");
  return environments.files().front().path;
}

Document documentOf(const KFA::KFAEnvironmentFile& file) {
  Document document = {{"file", isStandardStream(file.path) ? "standard input" : file.path}};
  document["veid"] = file.veid >= 0 ? Document(file.veid) : Document();
  return document;
}

Document documentOf(const KFA::KFAEnvironmentFile& file, Document data) {
  Document document = documentOf(file);
  document["data"] = std::move(data);
  return document;
}

Document failureOf(const KFA::KFAEnvironmentFile& file, const std::string& why) {
  Document document = documentOf(file);
  document["error"] = why;
  return document;
}

}  // namespace kfactl
