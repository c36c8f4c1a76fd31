// SPDX-License-Identifier: Apache-2.0
#include "environments/FileChange.h"

#include <filesystem>
#include <system_error>

#include <CLI/CLI.hpp>

#include <KFLCommon/KFLError.h>

#include "terminal/Diff.h"
#include "terminal/Input.h"
#include "terminal/Node.h"
#include "terminal/Output.h"
#include "terminal/Session.h"
#include "terminal/Trouble.h"

namespace kfactl {

KFA::KFANodeFiles::Edit FileChange::forLibrary(const Edit& edit) {
  return [edit](const std::string& name, const std::string& before, std::string& after) {
    try {
      after = edit(name, before);
      return 0;
    } catch (const Trouble& trouble) {
      KFL::setErrorMessage("%s", trouble.what());
      return -1;
    }
  };
}

void FileChange::declare(CLI::App& app) {
  app.add_flag("-n,--dry-run", dryRun_, "Change nothing; print the difference that it would make");
  declareOutput(app);
  app.add_option("--backup", how_.backupSuffix, "Keep the old content under the file's name with this suffix")
      ->type_name("SUFFIX");
  app.add_flag("--allow-unsafe", options_.allowUnsafe, "Take values that a shell would change or run");
  app.add_flag("--force", options_.force,
               "Rewrite a file in which a quote or a line is left open; such lines stay as they are");
}

void FileChange::declareOutput(CLI::App& app) {
  app.add_option("-o,--output", output_, "Write the result to this file (- is standard output)")
      ->type_name("FILE");
  app.add_flag("--hard-links", how_.hardLinks,
               "Replace a file that has other hard links, which keep the old content");
}

bool FileChange::isShown(const std::string& path) const {
  return dryRun_ || isStandardStream(output_.empty() ? path : output_);
}

KFA::KFAReplaceOptions FileChange::how() const {
  KFA::KFAReplaceOptions how = how_;
  how.note = [](const std::string& text) { printError("note: " + text); };
  return how;
}

void FileChange::refuseBackup() const {
  if (how_.backupSuffix.empty()) return;
  throw Trouble(std::string("--backup has nothing to keep: ") +
                (dryRun_ ? "--dry-run changes no file" : "standard output has no old content") +
                "; leave it out");
}

int FileChange::show(Session& session, const std::string& name, const std::string& before,
                     const std::string& after) {
  printUnifiedDiff(session.out(), name, before, after);
  return before == after ? kFine : kFinding;
}

int FileChange::apply(Session& session, const std::string& path, const Edit& edit) const {
  if (isShown(path)) refuseBackup();
  if (isShown(path) || isStandardStream(path)) {
    const Input input = readNodeFile(path);
    const std::string after = edit(input.name, input.text);
    const bool isOfInput = dryRun_ && (output_.empty() || isStandardStream(output_));
    return isOfInput ? show(session, input.name, input.text, after) : create(session, after);
  }
  if (nodeAgent()) return create(session, edit(path, readNodeFile(path).text));
  const KFA::KFAConfigFile file(path);
  const KFA::KFAConfigFile::Edit libraryEdit = [&path, named = forLibrary(edit)](const std::string& before,
                                                                                 std::string& after) {
    return named(path, before, after);
  };
  must(output_.empty() ? file.update(libraryEdit, how()) : file.copyTo(output_, libraryEdit, how()));
  return kFine;
}

int FileChange::merge(Session& session, const std::string& path, const Edit& edit) const {
  FileChange change = *this;
  if (output_.empty()) change.output_ = "-";
  return change.apply(session, path, edit);
}

int FileChange::create(Session& session, const std::string& text) const {
  const bool isPrinted = output_.empty() || isStandardStream(output_);
  if (isPrinted || dryRun_) refuseBackup();
  if (dryRun_) {
    std::error_code error;
    const bool exists = !isPrinted && std::filesystem::exists(output_, error);
    return show(session, isPrinted ? "standard output" : output_,
                exists ? readInput(output_).text : std::string(), text);
  }
  if (isPrinted)
    session.out().add(text);
  else
    must(KFA::KFAConfigFile(output_).replace(text, how()));
  return kFine;
}

}  // namespace kfactl
