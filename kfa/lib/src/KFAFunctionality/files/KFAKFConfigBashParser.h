// SPDX-License-Identifier: Apache-2.0
// The global configuration file of the container technology as a settings record, and back.
//
// LOCKDIR and TEMPLATE are fields of the record, OFFLINE_SERVICE tells which of the services that the record lists are
// enabled, and every key of the file stands in the record's map of named values, so that writing the record reproduces
// the file. The parser object has no state; any threads may use it. The trap: of a key that stands twice the map keeps
// the first value, while the fields and the services follow the last.
#ifndef KFAFUNCTIONALITY_FILES_KFAKFCONFIGBASHPARSER_H
#define KFAFUNCTIONALITY_FILES_KFAKFCONFIGBASHPARSER_H

#include <cstddef>
#include <istream>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include <boost/shared_ptr.hpp>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

class KFAVtSettings;

class KFAKFConfigBashParser {
 public:
  // The parser object of the process.
  static boost::shared_ptr<KFAKFConfigBashParser> getInstance();

  // The reader's and the writer's results (KFABashConfig.h).
  int getConfig(std::istream& in, KFAVtSettings& settings) const;
  int putConfig(const KFAVtSettings& settings, std::ostream& out, std::istream* existing, bool merge) const;

  // The names in a value of OFFLINE_SERVICE: what stands between single spaces, so that some may be empty.
  static std::vector<std::string> getServiceNames(const std::string& value);

  class ParameterParserPut {
   public:
    explicit ParameterParserPut(KFAVtSettings& settings) : settings_(settings) {}
    // Always 0.
    int put(const std::string& key, const char* value);

   private:
    KFAVtSettings& settings_;
  };

  class ParameterParserGet {
   public:
    explicit ParameterParserGet(const KFAVtSettings& settings);
    int get(const std::string& key, std::string& value);
    // The first key of the map that is no folder's, LOCKDIR, TEMPLATE, the other keys of the map in ascending order. A
    // key that is no name of a variable is not handed out, since the file is sourced.
    int getNext(const std::string& previous, std::string& next);

   private:
    bool getNextNamed(std::string& next);

    const KFAVtSettings& settings_;
    std::map<std::string, std::string>::const_iterator nextNamed_;
    bool hasBegun_ = false;
    std::size_t nextFolder_ = 0;
  };
};

}  // namespace KFA

#endif
