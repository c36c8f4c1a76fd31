// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/access/KFAAgentFiles.h>

#include <algorithm>
#include <filesystem>
#include <utility>

#include <KFLCommon/KFLError.h>

namespace KFA {

namespace {

using State = KFANodeFile::State;

// How many files are read in one call.
constexpr std::size_t kFilesOfCall = 200;
// How often a change begins anew when other writers are quicker.
constexpr int kMostTries = 100;

std::string folderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace

// --- Names -------------------------------------------------------------------------------------------------

std::string KFAAgentFiles::absolute(const std::string& path) const {
  std::string whole = (std::filesystem::path(folder_) / path).lexically_normal();
  while (whole.size() > 1 && whole.ends_with('/'))
    whole.pop_back();
  return whole;
}

// An error text of the agent, which knows absolute paths alone, with the path that was given.
std::string KFAAgentFiles::asGiven(std::string text, const std::string& path) const {
  const std::string whole = absolute(path);
  for (std::size_t at = 0; whole != path && (at = text.find(whole, at)) != std::string::npos;
       at += path.size())
    text.replace(at, whole.size(), path);
  return text;
}

int KFAAgentFiles::open() {
  std::vector<KFAFileNames> parts;
  if (agent_->list({}, parts) != KFAManagerDone) return -1;
  if (parts.empty()) {
    setErrorMessage("the agent does not tell the folder of its environments");
    return -1;
  }
  folder_ = parts.front().folder;
  Folder& own = folders_[folder_];
  for (const KFAFileNames& part : parts)
    for (const KFAFileName& name : part.names)
      own.names[name.name] = static_cast<Kind>(name.kind);
  return 0;
}

const KFAAgentFiles::Folder& KFAAgentFiles::folder(const std::string& path) {
  const auto [entry, isNew] = folders_.try_emplace(path);
  if (!isNew) return entry->second;
  std::vector<KFAFileNames> parts;
  if (agent_->list(path, parts) != KFAManagerDone) entry->second.error = getErrorMessage();
  for (const KFAFileNames& part : parts)
    for (const KFAFileName& name : part.names)
      entry->second.names[name.name] = static_cast<Kind>(name.kind);
  return entry->second;
}

KFANodeFiles::Kind KFAAgentFiles::look(const std::string& path) {
  const std::string whole = absolute(path);
  if (whole == folder_) return Kind::Folder;
  // Nothing else is served, and a question for each folder above a path would tell no more.
  if (!whole.starts_with(folder_ + "/")) return Kind::None;
  const std::string above = folderOf(whole);
  if (above != folder_ && look(above) != Kind::Folder) return Kind::None;
  const Folder& names = folder(above);
  const auto found = names.names.find(whole.substr(whole.rfind('/') + 1));
  return found == names.names.end() ? Kind::None : found->second;
}

int KFAAgentFiles::list(const std::string& path, std::vector<Entry>& entries) {
  const Folder& found = folder(absolute(path));
  if (!found.error.empty()) {
    setErrorMessage("%s", asGiven(found.error, path).c_str());
    return -1;
  }
  entries.clear();
  for (const auto& [name, kind] : found.names)
    entries.push_back({name, kind});
  return 0;
}

// --- Texts -------------------------------------------------------------------------------------------------

void KFAAgentFiles::bring(const std::vector<std::string>& paths) {
  std::vector<KFAFileText> texts;
  const int code = agent_->read(paths, texts);
  const std::string reason = code == KFAManagerDone ? "the agent did not tell it" : getErrorMessage();
  for (const std::string& path : paths)
    texts_[path] = {path, {}, path + ": " + reason};
  for (KFAFileText& text : texts)
    if (const auto asked = texts_.find(text.path); asked != texts_.end()) asked->second = std::move(text);
}

void KFAAgentFiles::expect(const std::vector<std::string>& paths) {
  std::vector<std::string> wanted;
  for (const std::string& path : paths) {
    const std::string whole = absolute(path);
    if (path == "-" || texts_.contains(whole)) continue;
    wanted.push_back(whole);
    if (wanted.size() < kFilesOfCall) continue;
    bring(wanted);
    wanted.clear();
  }
  if (!wanted.empty()) bring(wanted);
}

int KFAAgentFiles::read(const std::string& path, std::string& text) {
  const std::string whole = absolute(path);
  if (!texts_.contains(whole)) bring({whole});
  const KFAFileText& found = texts_.at(whole);
  if (found.error.empty()) {
    text = found.text;
    return 0;
  }
  setErrorMessage("%s", asGiven(found.error, path).c_str());
  return -1;
}

// --- Changes -----------------------------------------------------------------------------------------------

int KFAAgentFiles::send(const std::vector<KFANodeFile*>& files, const ReplaceHow& how, Outcomes& outcomes) {
  KFAFilesChange change;
  change.keepGoing = how.keepGoing;
  change.hardLinks = how.options.hardLinks;
  change.backupSuffix = how.options.backupSuffix;
  bool isHarmless = true;
  for (const KFANodeFile* const file : files) {
    change.files.push_back({absolute(file->path), file->before, file->after, file->isNew});
    isHarmless = isHarmless && isHarmlessChange(file->before, file->after);
  }
  const int code = isHarmless ? agent_->change(change, outcomes) : agent_->changeFreely(change, outcomes);
  if (code == KFAManagerDone && outcomes.size() == files.size()) return 0;
  if (code == KFAManagerDone) setErrorMessage("the agent did not tell what became of each file");
  return -1;
}

// Takes over what became of the files; those that another writer has changed are edited anew, and are to be sent again.
std::vector<KFANodeFile*> KFAAgentFiles::take(const std::vector<KFANodeFile*>& files,
                                              const Outcomes& outcomes, const Edit& edit,
                                              const ReplaceHow& how) {
  std::vector<KFANodeFile*> again;
  const bool isOvertaken =
      std::any_of(outcomes.begin(), outcomes.end(), [](const auto& outcome) { return outcome.isOvertaken; });
  for (std::size_t i = 0; i < files.size(); ++i) {
    KFANodeFile& file = *files[i];
    const KFAFileOutcome& outcome = outcomes[i];
    file.state = static_cast<State>(outcome.state);
    file.error = asGiven(outcome.error, file.path);
    texts_.erase(absolute(file.path));
    for (const std::string& note : outcome.notes)
      if (how.options.note) how.options.note(asGiven(note, file.path));
    if (!isOvertaken || (how.keepGoing && !outcome.isOvertaken)) continue;
    if (outcome.isOvertaken) file.before = outcome.now;
    if (outcome.isOvertaken && edit(file.path, file.before, file.after) != 0) {
      file.state = State::Failed;
      file.error = KFL::getErrorMessage();
    } else {
      again.push_back(&file);
    }
  }
  return again;
}

int KFAAgentFiles::replace(const std::vector<KFANodeFile*>& files, const Edit& edit, const ReplaceHow& how) {
  std::vector<KFANodeFile*> left = files;
  for (int tries = 0; !left.empty() && tries < kMostTries; ++tries) {
    Outcomes outcomes;
    if (send(left, how, outcomes) != 0) {
      const std::string reason = KFL::getErrorMessage();
      for (KFANodeFile* const file : left) {
        file->state = State::Failed;
        file->error = asGiven(reason, file->path);
      }
      break;
    }
    const std::vector<KFANodeFile*> sent = std::exchange(left, {});
    left = take(sent, outcomes, edit, how);
    // One that can no longer be edited ends the change of all.
    const bool isWhole = how.keepGoing || left.empty() || left.size() == sent.size();
    if (!isWhole) break;
  }
  for (KFANodeFile* const file : files) {
    if (file->state == State::Refused) file->state = State::Failed;
    // Another writer, or another name of the same file, has brought it there already.
    if (file->state == State::Unchanged) file->state = State::Replaced;
  }
  const auto failure =
      std::find_if(files.begin(), files.end(), [](const auto* file) { return file->state == State::Failed; });
  if (failure == files.end()) return 0;
  const std::string reason = (*failure)->error;
  KFL::setErrorMessage("%s", reason.c_str());
  return -1;
}

// --- The node ----------------------------------------------------------------------------------------------

int KFAAgentFiles::getHoldings(KFANodeHoldings& holdings) {
  KFANodeHoldings told;
  if (!holdings_ && agent_->getHoldings(told) != KFAManagerDone) return -1;
  if (!holdings_) holdings_ = std::move(told);
  holdings = *holdings_;
  return 0;
}

int KFAAgentFiles::getResources(const std::string&, KFANodeResources& resources) {
  KFANodeHoldings holdings;
  if (getHoldings(holdings) != 0) return -1;
  resources = {holdings.memory, holdings.disk, holdings.cpu};
  return 0;
}

}  // namespace KFA
