// SPDX-License-Identifier: Apache-2.0
// The files of another node's environments, through its agent: what works on this machine's files works on those.
//
//   const auto files = makeManagerStub<KFAFilesM>(connection->getChannel("a.example.com", KFLEID(), ""));
//   KFAAgentFiles node(files);
//   if (node.open() != 0) puts(KFL::getErrorMessage().c_str());
//   KFANodeSelection selection(node.getFolder(), getParser, node);
//
// A path that is not absolute begins in the node's folder. What a folder holds is asked for once. One thread.
#ifndef KFAFUNCTIONALITY_ACCESS_KFAAGENTFILES_H
#define KFAFUNCTIONALITY_ACCESS_KFAAGENTFILES_H

#include <map>
#include <optional>
#include <string>
#include <vector>

#include <boost/smart_ptr/shared_ptr.hpp>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/access/KFAFilesM.h>
#include <KFAFunctionality/node/KFANodeFiles.h>

namespace KFA {

class KFAAgentFiles : public KFANodeFiles {
 public:
  explicit KFAAgentFiles(const boost::shared_ptr<KFAFilesM>& agent) : agent_(agent) {}

  // Asks for the node's folder and what it holds: 0, or -1 with an error text.
  int open();
  // Its absolute path.
  const std::string& getFolder() const { return folder_; }
  // What the node has, and which templates it knows: 0, or -1 with an error text.
  int getHoldings(KFANodeHoldings& holdings);

  Kind look(const std::string& path) override;
  int list(const std::string& folder, std::vector<Entry>& entries) override;
  int read(const std::string& path, std::string& text) override;
  void expect(const std::vector<std::string>& paths) override;
  // The runner is not used: the agent does the work.
  int replace(const std::vector<KFANodeFile*>& files, const Edit& edit, const ReplaceHow& how) override;
  int getResources(const std::string& folder, KFANodeResources& resources) override;

 private:
  struct Folder {
    std::map<std::string, Kind> names;
    std::string error;  // why it cannot be listed
  };
  using Outcomes = std::vector<KFAFileOutcome>;

  std::string absolute(const std::string& path) const;
  std::string asGiven(std::string text, const std::string& path) const;
  const Folder& folder(const std::string& path);
  void bring(const std::vector<std::string>& paths);
  int send(const std::vector<KFANodeFile*>& files, const ReplaceHow& how, Outcomes& outcomes);
  std::vector<KFANodeFile*> take(const std::vector<KFANodeFile*>& files, const Outcomes& outcomes,
                                 const Edit& edit, const ReplaceHow& how);

  const boost::shared_ptr<KFAFilesM> agent_;
  std::string folder_;
  std::map<std::string, Folder> folders_;
  std::map<std::string, KFAFileText> texts_;  // by absolute path
  std::optional<KFANodeHoldings> holdings_;
};

}  // namespace KFA

#endif
