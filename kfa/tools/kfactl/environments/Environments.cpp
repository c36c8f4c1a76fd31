// SPDX-License-Identifier: Apache-2.0
#include "environments/Environments.h"

#include <algorithm>

#include <nlohmann/json.hpp>

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

void Environments::each(const Part& part, const Failed& failed) {
  expectFiles(files_);
  for (const File& file : files_) {
    if (isSingle_) {
      part(file, readNodeFile(file.path));
      continue;
    }
    try {
      part(file, readNodeFile(file.path));
    } catch (const Trouble& trouble) {
      troubles_.add(trouble.what());
      if (failed) failed(file, trouble.what());
    }
  }
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
