// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/access/KFAFilesM.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <string_view>
#include <utility>

#include <boost/smart_ptr/make_shared.hpp>

#include <KFLBash/KFLBashStr.h>
#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>
#include <KFLMessage/KFLRecordBytesFields.h>

#include <KFAFunctionality/node/KFANodeChange.h>

#include "../node/KFAConfigLines.h"

namespace KFA {

// --- The records -------------------------------------------------------------------------------------------

const KFLFieldTable& KFAFileName::fields() {
  using R = KFAFileName;
  static constexpr KFLField rows[] = {
      bytes<R, &R::name>("name").required(),
      field<R, &R::kind>("kind").required(),
  };
  static constexpr KFLFieldTable table{"KFAFileName", kTypesURI, "file_nameType", rows};
  return table;
}

const KFLFieldTable& KFAFileNames::fields() {
  using R = KFAFileNames;
  static constexpr KFLField rows[] = {
      bytes<R, &R::folder>("folder").required(),
      list<R, &R::names>("file"),
  };
  static constexpr KFLFieldTable table{"KFAFileNames", kTypesURI, "file_namesType", rows};
  return table;
}

const KFLFieldTable& KFAFileText::fields() {
  using R = KFAFileText;
  static constexpr KFLField rows[] = {
      bytes<R, &R::path>("path").required(),
      bytes<R, &R::text>("text").required(),
      bytes<R, &R::error>("error").required(),
  };
  static constexpr KFLFieldTable table{"KFAFileText", kTypesURI, "file_textType", rows};
  return table;
}

const KFLFieldTable& KFAFileEdit::fields() {
  using R = KFAFileEdit;
  static constexpr KFLField rows[] = {
      bytes<R, &R::path>("path").required(),
      bytes<R, &R::before>("before").required(),
      bytes<R, &R::after>("after").required(),
      field<R, &R::isNew>("is_new"),
  };
  static constexpr KFLFieldTable table{"KFAFileEdit", kTypesURI, "file_editType", rows};
  return table;
}

const KFLFieldTable& KFAFilesChange::fields() {
  using R = KFAFilesChange;
  static constexpr KFLField rows[] = {
      list<R, &R::files>("file"),
      field<R, &R::keepGoing>("keep_going"),
      field<R, &R::hardLinks>("hard_links"),
      bytes<R, &R::backupSuffix>("backup_suffix").required(),
  };
  static constexpr KFLFieldTable table{"KFAFilesChange", kTypesURI, "files_changeType", rows};
  return table;
}

const KFLFieldTable& KFAFileOutcome::fields() {
  using R = KFAFileOutcome;
  static constexpr KFLField rows[] = {
      bytes<R, &R::path>("path").required(),   field<R, &R::state>("state").required(),
      bytes<R, &R::error>("error").required(), field<R, &R::isOvertaken>("is_overtaken"),
      bytes<R, &R::now>("now").required(),     list<R, &R::notes>("note"),
  };
  static constexpr KFLFieldTable table{"KFAFileOutcome", kTypesURI, "file_outcomeType", rows};
  return table;
}

const KFLFieldTable& KFANodeHoldings::fields() {
  using R = KFANodeHoldings;
  static constexpr KFLField rows[] = {
      field<R, &R::memory>("memory"),     field<R, &R::disk>("disk"),
      field<R, &R::cpu>("cpu"),           field<R, &R::knowsTemplates>("knows_templates"),
      list<R, &R::templates>("template"),
  };
  static constexpr KFLFieldTable table{"KFANodeHoldings", kTypesURI, "node_holdingsType", rows};
  return table;
}

// --- Texts that run nothing --------------------------------------------------------------------------------

namespace {

// KEY="value" or KEY=value with nothing in the value that a shell takes for more than itself.
bool isPlainAssignment(const ConfigLine& line) {
  if (!line.isAssignment() || !line.isAlone()) return false;
  std::string_view written = line.written();
  const bool isQuoted = written.size() > 1 && written.front() == '"' && written.back() == '"';
  if (isQuoted) return KFL::isBashSafe(written.substr(1, written.size() - 2), nullptr);
  return std::all_of(written.begin(), written.end(), [](char c) {
    return KFL::isAlnum(c) || std::string_view("_./:,%@+=-").find(c) != std::string_view::npos;
  });
}

// The lines that are no plain assignments: false when one of them is left open or cannot be read.
bool listOddLines(const std::string& text, std::vector<std::string>& odd) {
  for (ConfigLines lines(text); lines.next();) {
    const ConfigLine& line = lines.line();
    const bool hasNul = line.text().size() != lines.text().size();
    if (hasNul || line.isMalformed() || line.judged().continues) return false;
    if (!line.isSilent() && !isPlainAssignment(line)) odd.push_back(line.text());
  }
  return true;
}

}  // namespace

bool isHarmlessChange(const std::string& before, const std::string& after) {
  std::vector<std::string> was, is;
  static_cast<void>(listOddLines(before, was));
  return listOddLines(after, is) && (is.empty() || is == was);
}

// --- The folder --------------------------------------------------------------------------------------------

namespace {

constexpr std::size_t kNamesOfPart = 500;

class FolderFiles : public KFAFilesM {
 public:
  FolderFiles(const std::string& folder, const boost::function<int(std::vector<std::string>&)>& getTemplates)
      : folder_(std::filesystem::absolute(folder).lexically_normal()), getTemplates_(getTemplates) {
    while (folder_.size() > 1 && folder_.ends_with('/'))
      folder_.pop_back();
  }

  int list(const std::string& folder, std::vector<KFAFileNames>& parts) override;
  int read(const std::vector<std::string>& paths, std::vector<KFAFileText>& texts) override;
  int change(const KFAFilesChange& change, std::vector<KFAFileOutcome>& outcomes) override;
  int changeFreely(const KFAFilesChange& change, std::vector<KFAFileOutcome>& outcomes) override;
  int getHoldings(KFANodeHoldings& holdings) override;

 private:
  int resolve(const std::string& path, std::string& resolved) const;

  std::string folder_;
  const boost::function<int(std::vector<std::string>&)> getTemplates_;
  KFANodeFiles& files_ = KFANodeFiles::local();
};

// The absolute path of what lies in the folder or below it: 0, or -1 with an error text.
int FolderFiles::resolve(const std::string& path, std::string& resolved) const {
  std::string_view below = path;
  if (path == folder_ || path == folder_ + "/") below = {};
  if (path.starts_with(folder_ + "/")) below.remove_prefix(folder_.size() + 1);
  for (std::string_view rest = below; !rest.empty();) {
    const std::string_view name = rest.substr(0, rest.find('/'));
    rest.remove_prefix(std::min(name.size() + 1, rest.size()));
    if (!name.empty() && name.front() != '.' && name.find('\0') == std::string_view::npos) continue;
    setErrorMessage("%s: not one of the files that this agent serves; one in %s would be right", path.c_str(),
                    folder_.c_str());
    return -1;
  }
  resolved = below.empty() ? folder_ : folder_ + "/" + std::string(below);
  return 0;
}

int FolderFiles::list(const std::string& folder, std::vector<KFAFileNames>& parts) {
  std::string path;
  std::vector<KFANodeFiles::Entry> entries;
  if (resolve(folder, path) != 0) return KFAManagerFailed;
  if (files_.list(path, entries) != 0) return KFAManagerNotFound;
  parts.assign(1, {path, {}});
  for (KFANodeFiles::Entry& entry : entries) {
    if (parts.back().names.size() == kNamesOfPart) parts.push_back({path, {}});
    parts.back().names.push_back({std::move(entry.name), static_cast<int>(entry.kind)});
  }
  return KFAManagerDone;
}

int FolderFiles::read(const std::vector<std::string>& paths, std::vector<KFAFileText>& texts) {
  texts.clear();
  for (const std::string& path : paths) {
    KFAFileText& file = texts.emplace_back();
    file.path = path;
    std::string resolved;
    if (resolve(path, resolved) != 0 || files_.read(resolved, file.text) != 0) file.error = getErrorMessage();
  }
  return KFAManagerDone;
}

int FolderFiles::change(const KFAFilesChange& change, std::vector<KFAFileOutcome>& outcomes) {
  for (const KFAFileEdit& file : change.files) {
    if (isHarmlessChange(file.isNew ? std::string() : file.before, file.after)) continue;
    setErrorMessage(
        "%s: a shell would run something in the new text, or find it open; who has the right 'all' may do "
        "that",
        file.path.c_str());
    return KFAManagerFailed;
  }
  return changeFreely(change, outcomes);
}

int FolderFiles::changeFreely(const KFAFilesChange& change, std::vector<KFAFileOutcome>& outcomes) {
  struct Known {
    const KFAFileEdit* edit;
    KFAFileOutcome* outcome;
  };
  std::vector<KFAFileOutcome> made(change.files.size());
  std::map<std::string, Known> known;
  std::vector<std::string> paths;
  for (std::size_t i = 0; i < made.size(); ++i) {
    const KFAFileEdit& edit = change.files[i];
    std::string path;
    if (resolve(edit.path, path) != 0) return KFAManagerFailed;
    made[i].path = edit.path;
    if (!known.emplace(path, Known{&edit, &made[i]}).second) {
      setErrorMessage("%s: it is to be changed twice; once would be right", edit.path.c_str());
      return KFAManagerFailed;
    }
    paths.push_back(path);
  }
  KFAReplaceOptions how;
  how.hardLinks = change.hardLinks;
  how.backupSuffix = change.backupSuffix;
  std::vector<std::string> notes;
  how.note = [&notes](const std::string& text) { notes.push_back(text); };
  KFANodeChange work(
      [&known](const std::string& path, const std::string& now, std::string& after) {
        const auto& [edit, outcome] = known.at(path);
        after = edit->after;
        outcome->isOvertaken = !edit->isNew && now != edit->before;
        if (!outcome->isOvertaken) return 0;
        outcome->now = now;
        setErrorMessage("%s: another process has changed it meanwhile", path.c_str());
        return -1;
      },
      how);
  for (const std::string& path : paths)
    known.at(path).edit->isNew ? work.judgeNew(path, {}) : work.judge(path);
  if (work.isSound() || change.keepGoing) static_cast<void>(work.apply(change.keepGoing));
  for (std::size_t i = 0; i < made.size(); ++i) {
    made[i].state = static_cast<int>(work.getFiles()[i].state);
    made[i].error = work.getFiles()[i].error;
  }
  if (!made.empty()) made.front().notes = notes;
  outcomes.swap(made);
  return KFAManagerDone;
}

int FolderFiles::getHoldings(KFANodeHoldings& holdings) {
  const KFANodeResources resources = KFANodeResources::ofMachine(folder_);
  KFANodeHoldings found;
  found.memory = resources.memory;
  found.disk = resources.disk;
  found.cpu = resources.cpu;
  if (getTemplates_) {
    const int known = getTemplates_(found.templates);
    if (known < 0) return KFAManagerFailed;
    found.knowsTemplates = known == 0;
  }
  holdings = found;
  return KFAManagerDone;
}

}  // namespace

boost::shared_ptr<KFAFilesM> makeFolderFiles(
    const std::string& folder, const boost::function<int(std::vector<std::string>&)>& getTemplates) {
  return boost::make_shared<FolderFiles>(folder, getTemplates);
}

}  // namespace KFA
