// SPDX-License-Identifier: Apache-2.0
// What the `set` commands share: their options, and a change of a file that is shown, written elsewhere, or made.
#ifndef KFACTL_FILECHANGE_H
#define KFACTL_FILECHANGE_H

#include <functional>
#include <string>

#include <KFAFunctionality/files/KFAConfigFile.h>
#include <KFAFunctionality/node/KFANodeFiles.h>

namespace CLI {
class App;
}

namespace kfactl {

class Session;

class FileChange {
 public:
  // The new text of a file, whose name is for messages; failures are thrown.
  using Edit = std::function<std::string(const std::string& name, const std::string& before)>;
  // The same for the library, whose edits give results and error texts.
  static KFA::KFANodeFiles::Edit forLibrary(const Edit& edit);

  void declare(CLI::App& app);
  // --output and how a file of that name is replaced, for commands that make a file.
  void declareOutput(CLI::App& app);

  const KFA::KFASetOptions& options() const { return options_; }
  // How files are replaced; what a new one could not be given is told on standard error.
  KFA::KFAReplaceOptions how() const;
  bool isDryRun() const { return dryRun_; }
  const std::string& output() const { return output_; }

  // Changes the file at `path` as the options say: the exit status, 1 where --dry-run shows a difference. "-" is read from
  // standard input and written to standard output.
  int apply(Session& session, const std::string& path, const Edit& edit) const;
  // The same, but the result goes to standard output unless --output is given.
  int merge(Session& session, const std::string& path, const Edit& edit) const;
  // Makes the text a file of its own, as --output says; standard output unless it is given.
  int create(Session& session, const std::string& text) const;

 private:
  // Prints the difference: the exit status.
  static int show(Session& session, const std::string& name, const std::string& before,
                  const std::string& after);
  // Whether a change of the file at `path` is printed, and no file changed.
  bool isShown(const std::string& path) const;
  // For changes that replace no file.
  void refuseBackup() const;

  bool dryRun_ = false;
  std::string output_;
  KFA::KFASetOptions options_;
  KFA::KFAReplaceOptions how_;
};

}  // namespace kfactl

#endif
