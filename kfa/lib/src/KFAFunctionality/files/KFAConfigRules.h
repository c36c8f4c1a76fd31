// SPDX-License-Identifier: Apache-2.0
// Which values a key of a KEY="value" file takes: one judgement for what is set, what is checked and what is documented.
//
// A value is taken when what a record keeps of it gives the same words back. Rules never change once they are made;
// any threads may share them.
#ifndef KFAFUNCTIONALITY_FILES_KFACONFIGRULES_H
#define KFAFUNCTIONALITY_FILES_KFACONFIGRULES_H

#include <string>
#include <utility>
#include <vector>

#include <boost/shared_ptr.hpp>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

class KFAEnvConfigBashParser;

// Keys, in any case, with the values that they are to have.
using KFAConfigChanges = std::vector<std::pair<std::string, std::string>>;

class KFAConfigRules {
 public:
  virtual ~KFAConfigRules();

  // Whether the key, in lower case, is one that this kind of file gives a meaning.
  virtual bool isKey(const std::string& key) const = 0;
  // Whether the first of several lines with the key, in lower case, is the one that counts, and not the last.
  virtual bool firstLineCounts(const std::string& key) const = 0;
  // Whether the key, in lower case, takes the value: 0, or -1 with an error text that names the accepted form. How the
  // value is quoted in a file is not judged here.
  virtual int accept(const std::string& key, const std::string& value) const = 0;
  // Brings the changes (lower-case keys, each once) into the order in which this kind of file appends keys.
  virtual void order(KFAConfigChanges& changes) const = 0;
  // Whether the text of a file gives exactly these values when it is read, and still does when what was read is written
  // back: 0, or -1 with an error text.
  virtual int readsBack(const std::string& text, const KFAConfigChanges& changes) const = 0;
};

// Any file: every key that bash takes, and every value.
class KFARawConfigRules : public KFAConfigRules {
 public:
  bool isKey(const std::string& key) const override;
  bool firstLineCounts(const std::string& key) const override;
  int accept(const std::string& key, const std::string& value) const override;
  void order(KFAConfigChanges& changes) const override;
  int readsBack(const std::string& text, const KFAConfigChanges& changes) const override;
};

// The per-environment file.
class KFAEnvConfigRules : public KFAConfigRules {
 public:
  explicit KFAEnvConfigRules(const boost::shared_ptr<const KFAEnvConfigBashParser>& parser);

  bool isKey(const std::string& key) const override;
  bool firstLineCounts(const std::string& key) const override;
  int accept(const std::string& key, const std::string& value) const override;
  void order(KFAConfigChanges& changes) const override;
  int readsBack(const std::string& text, const KFAConfigChanges& changes) const override;

  // What the key, in lower case, accepts, in words; empty for a key that is not one of this file's.
  std::string getAcceptedForm(const std::string& key) const;
  // Whether a line of the key, in lower case, with this value gives a record nothing, so that another line of the key
  // counts: a number that does not convert, a network device without a name, TECHNOLOGIES without an architecture.
  bool passesOver(const std::string& key, const std::string& value) const;

 private:
  boost::shared_ptr<const KFAEnvConfigBashParser> parser_;
};

}  // namespace KFA

#endif
