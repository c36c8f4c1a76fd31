// SPDX-License-Identifier: Apache-2.0
// The manager of the files of a node's environments, so that tools work on another node's files as on their own. Results
// and threads: KFAManagerResult.h. It is none of the managers of KFALibFunctionality: an agent has one or none, and no
// implementation's name leads to it. KFAAgentFiles.h is the caller's side.
//
// Only what lies in the folder of the environments and below it is reached, and no name that begins with a dot. A path is
// absolute, or begins in that folder; no path stands for the folder.
#ifndef KFAFUNCTIONALITY_ACCESS_KFAFILESM_H
#define KFAFUNCTIONALITY_ACCESS_KFAFILESM_H

#include <string>
#include <vector>

#include <boost/function.hpp>
#include <boost/smart_ptr/shared_ptr.hpp>

#include <KFLFunctionalityCore/KFLFunctional.h>
#include <KFLMessage/KFLRecordFields.h>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/access/KFAManagerOperations.h>
#include <KFAFunctionality/access/KFAManagerResult.h>
#include <KFAFunctionality/node/KFANodeFiles.h>

namespace KFA {

// A name in a folder.
struct KFAFileName {
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFAFileName>;
  using Reader = KFLRecordReader<KFAFileName>;

  std::string name;
  int kind = 0;  // a KFANodeFiles::Kind
};

// A part of the names in a folder.
struct KFAFileNames {
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFAFileNames>;
  using Reader = KFLRecordReader<KFAFileNames>;

  std::string folder;  // its absolute path
  std::vector<KFAFileName> names;
};

// What a file holds, or why it cannot be read.
struct KFAFileText {
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFAFileText>;
  using Reader = KFLRecordReader<KFAFileText>;

  std::string path;
  std::string text;   // any bytes
  std::string error;  // empty: it was read
};

// A file that is to get another text, and what it holds by what the caller knows.
struct KFAFileEdit {
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFAFileEdit>;
  using Reader = KFLRecordReader<KFAFileEdit>;

  std::string path;
  std::string before;
  std::string after;
  bool isNew = false;  // there shall be no such file yet
};

struct KFAFilesChange {
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFAFilesChange>;
  using Reader = KFLRecordReader<KFAFilesChange>;

  std::vector<KFAFileEdit> files;
  bool keepGoing = false;  // what cannot be changed stops nothing
  bool hardLinks = false;  // as in KFAReplaceOptions
  std::string backupSuffix;
};

// What became of a file in a change.
struct KFAFileOutcome {
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFAFileOutcome>;
  using Reader = KFLRecordReader<KFAFileOutcome>;

  std::string path;
  int state = 0;  // a KFANodeFile::State
  std::string error;
  bool isOvertaken = false;  // it was not as the caller knew it; `now` is what it held
  std::string now;
  std::vector<std::string> notes;
};

// What a node has that its environments are held against.
struct KFANodeHoldings {
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFANodeHoldings>;
  using Reader = KFLRecordReader<KFANodeHoldings>;

  long long memory = 0;  // bytes
  long long disk = 0;    // bytes
  long long cpu = 0;     // as in KFANodeResources
  bool knowsTemplates = false;
  std::vector<std::string> templates;  // as NAME and NAME/VERSION
};

class KFAFilesM : public KFLFunctional {
 public:
  // The names in a folder without those that begin with a dot, in parts of some hundreds; one part at least.
  virtual int list(const std::string& folder, std::vector<KFAFileNames>& parts) = 0;
  // The texts of files in their order; one that cannot be read does not hide the others.
  virtual int read(const std::vector<std::string>& paths, std::vector<KFAFileText>& texts) = 0;
  // Replaces each file that is as the caller knows it, all or none unless keepGoing says otherwise: an outcome for each.
  // Failed, and nothing has changed, for a text in which a shell would run something that it did not run before.
  virtual int change(const KFAFilesChange& change, std::vector<KFAFileOutcome>& outcomes) = 0;
  // The same for any text.
  virtual int changeFreely(const KFAFilesChange& change, std::vector<KFAFileOutcome>& outcomes) = 0;
  virtual int getHoldings(KFANodeHoldings& holdings) = 0;
};

// Whether a shell that sources the one text runs nothing but what it ran in the other: what is new are assignments of
// plain values, blank lines and comments, and no line is left open.
bool isHarmlessChange(const std::string& before, const std::string& after);

// The manager of a folder of this machine. `getTemplates`, when given, tells the node's templates, as NAME and
// NAME/VERSION: 0, 1 when none are known, or -1 with an error text.
boost::shared_ptr<KFAFilesM> makeFolderFiles(
    const std::string& folder, const boost::function<int(std::vector<std::string>&)>& getTemplates = {});

// The name of the manager in calls.
inline constexpr const char* kFilesManager = "files";

// Does a call with this manager, as answerManagerCall does one with those of an implementation.
int answerFilesCall(const KFAManagerOperation& operation, KFAFilesM& files, const KFLMessage& arguments,
                    const KFAPartSink& sink, KFAPartForm form);
int answerFilesCall(const KFAManagerOperation& operation, KFAFilesM& files, const KFLMessage& arguments,
                    const KFAPartSink& sink);

}  // namespace KFA

#endif
