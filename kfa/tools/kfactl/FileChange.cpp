#include "FileChange.h"

#include <CLI/CLI.hpp>

#include <KFLCommon/KFLError.h>

#include "Diff.h"
#include "Input.h"
#include "Session.h"
#include "Trouble.h"

namespace kfactl {

namespace {

KFA::KFAConfigChanges changesOf(const std::vector<std::string>& arguments) {
  KFA::KFAConfigChanges changes;
  for (auto argument = arguments.begin() + 1; argument != arguments.end(); ++argument) {
    const std::size_t equals = argument->find('=');
    if (equals == std::string::npos || equals == 0)
      throw Trouble("'" + *argument + "' is no KEY=VALUE; write for example ONBOOT=yes");
    changes.emplace_back(argument->substr(0, equals), argument->substr(equals + 1));
  }
  return changes;
}

// The library calls edits through its own interface, which knows results and error texts only.
KFA::KFAConfigFile::Edit asLibraryEdit(const std::string& name, const FileChange::Edit& edit) {
  return [name, edit](const std::string& before, std::string& after) {
    try {
      after = edit(name, before);
      return 0;
    } catch (const Trouble& trouble) {
      KFL::setErrorMessage("%s", trouble.what());
      return -1;
    }
  };
}

}  // namespace

void FileChange::declare(CLI::App& app) {
  app.add_flag("-n,--dry-run", dryRun_, "Change nothing; print the difference that it would make");
  declareOutput(app);
  app.add_option("--backup", how_.backupSuffix, "Keep the old content under the file's name with this suffix")
      ->type_name("SUFFIX");
  app.add_flag("--allow-unsafe", options_.allowUnsafe, "Take values that a shell would change or run");
  app.add_flag("--force", options_.force, "Rewrite a file in which a quote or a line is left open");
  app.add_flag("--hard-links", how_.hardLinks,
               "Replace a file that has other hard links, which keep the old content");
}

void FileChange::declareOutput(CLI::App& app) {
  app.add_option("-o,--output", output_, "Write the result to this file (- is standard output)")
      ->type_name("FILE");
}

void FileChange::apply(Session& session, const std::string& path, const Edit& edit) const {
  if (dryRun_ || isStandardStream(output_) || isStandardStream(path)) {
    const Input input = readInput(path);
    const std::string after = edit(input.name, input.text);
    if (dryRun_)
      printUnifiedDiff(session.out(), input.name, input.text, after);
    else
      create(session, after);
    return;
  }
  const KFA::KFAConfigFile file(path);
  const KFA::KFAConfigFile::Edit libraryEdit = asLibraryEdit(path, edit);
  must(output_.empty() ? file.update(libraryEdit, how_) : file.copyTo(output_, libraryEdit, how_));
}

void FileChange::merge(Session& session, const std::string& path, const Edit& edit) const {
  // A file that is merged with itself is changed in place, so that no other writer's change is lost.
  if (!output_.empty()) {
    FileChange change = *this;
    if (output_ == path) change.output_.clear();
    return change.apply(session, path, edit);
  }
  FileChange shown = *this;
  shown.output_ = "-";
  shown.apply(session, path, edit);
}

void FileChange::setValues(Session& session, const KFA::KFAConfigRules& rules) const {
  const KFA::KFAConfigChanges changes = changesOf(session.arguments());
  apply(session, session.argument(0), [&](const std::string& name, const std::string& before) {
    std::string after;
    must(KFA::setConfigValues(rules, changes, options_, before, name, after));
    return after;
  });
}

void FileChange::create(Session& session, const std::string& text) const {
  if (output_.empty() || isStandardStream(output_))
    session.out().add(text);
  else
    must(KFA::KFAConfigFile(output_).replace(text, how_));
}

}  // namespace kfactl
