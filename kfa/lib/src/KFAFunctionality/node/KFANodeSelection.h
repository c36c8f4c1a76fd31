// SPDX-License-Identifier: Apache-2.0
// Which environments of a node are meant: files, VEIDs, ranges, folders, patterns and conditions, resolved in the node's
// folder of VEID.conf files.
//
//   101                          the environment of that number
//   101-110                      those with numbers in this range
//   onboot=no,ve_type=repair*    those that fulfil a condition (KFAEnvironmentFilter.h)
//   10*, *.conf                  a shell pattern over numbers and file names
//   /srv/conf/1*.conf            the same with a folder of its own
//   /srv/conf                    every environment of that folder
//   backup/101.conf, -           a file, whatever its name; "-" is standard input
//
// Nothing is printed. A file that cannot be judged by a condition is told and hides no other. One object serves one
// thread; it reads a folder once.
#ifndef KFAFUNCTIONALITY_NODE_KFANODESELECTION_H
#define KFAFUNCTIONALITY_NODE_KFANODESELECTION_H

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <boost/function.hpp>
#include <boost/shared_ptr.hpp>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/node/KFANodeFiles.h>

namespace KFA {

class KFAEnvConfigBashParser;

// One file of an environment.
struct KFAEnvironmentFile {
  std::string path;
  int veid = -1;  // that of its name; negative when the name has none
};

class KFANodeSelection {
 public:
  using GetParser = boost::function<boost::shared_ptr<const KFAEnvConfigBashParser>()>;

  // Conditions are judged with the parser, which is asked for when the first one comes. Folders and files are those of
  // `where`, which must outlive this.
  KFANodeSelection(const std::string& folder, const GetParser& getParser,
                   KFANodeFiles& where = KFANodeFiles::local());

  // The folder that KFA_NODE names, or else /etc/kfa/conf.
  static std::string defaultFolder();
  // Whether a word can only be meant as one of the forms above, and not as a plain name.
  static bool isResembling(const std::string& word, KFANodeFiles& where = KFANodeFiles::local());
  // Whether a word, a file, "-" or a VEID, stands for one environment whatever else there is.
  static bool isSingle(const std::string& word, KFANodeFiles& where = KFANodeFiles::local());

  // Adds what a word stands for, each file once. 0, or -1 with an error text for a range, pattern, condition or folder
  // that stands for nothing, or cannot be read.
  int add(const std::string& word);
  // Adds every environment of the node's folder.
  int addAll();

  // In the order of the words; those of one word by VEID, then by name.
  const std::vector<KFAEnvironmentFile>& getFiles() const { return files_; }
  // The names of the folders and patterns that are no environments, with their folders.
  const std::vector<std::string>& getOthers() const { return others_; }
  // The files of which it cannot be told whether they fulfil a condition: an error text each.
  const std::vector<std::string>& getTroubles() const { return troubles_; }
  const std::string& getFolder() const { return folder_; }

 private:
  class Addition;
  struct Listing {
    std::vector<KFAEnvironmentFile> files;
    std::vector<std::string> others;
  };

  int list(const std::string& folder, const Listing*& listing);
  int addWord(const std::string& word);
  int addFolder(const std::string& folder);
  int addRange(const std::string& word, int first, int last);
  int addPattern(const std::string& word);
  int addMatching(const std::string& word);
  void expectAll(const std::vector<KFAEnvironmentFile>& files) const;
  void addFile(const KFAEnvironmentFile& file);
  void addOther(const std::string& path);

  std::string folder_;
  GetParser getParser_;
  KFANodeFiles& where_;
  std::map<std::string, Listing> listings_;
  std::set<std::string> known_;
  std::set<std::string> knownOthers_;
  std::vector<KFAEnvironmentFile> files_;
  std::vector<std::string> others_;
  std::vector<std::string> troubles_;
};

}  // namespace KFA

#endif
