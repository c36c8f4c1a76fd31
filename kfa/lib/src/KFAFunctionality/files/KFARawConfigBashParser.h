// SPDX-License-Identifier: Apache-2.0
// Any file of KEY="value" lines as a plain map from lower-case key to value text.
//
// The way to files for which there is no record. The parser object has no state; any threads may use it. The trap: of
// a key that stands twice the map keeps the first value, and writing gives it to both lines.
#ifndef KFAFUNCTIONALITY_FILES_KFARAWCONFIGBASHPARSER_H
#define KFAFUNCTIONALITY_FILES_KFARAWCONFIGBASHPARSER_H

#include <istream>
#include <map>
#include <ostream>
#include <string>

#include <boost/shared_ptr.hpp>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

class KFARawConfigBashParser {
 public:
  // The parser object of the process.
  static boost::shared_ptr<KFARawConfigBashParser> getInstance();

  // The reader's and the writer's results (KFABashConfig.h).
  int getConfig(std::istream& in, std::map<std::string, std::string>& values) const;
  int putConfig(const std::map<std::string, std::string>& values, std::ostream& out, std::istream* existing,
                bool merge) const;

  class ParameterParserPut {
   public:
    explicit ParameterParserPut(std::map<std::string, std::string>& values) : values_(values) {}
    // Always 0; an entry that is there stays.
    int put(const std::string& key, const char* value);

   private:
    std::map<std::string, std::string>& values_;
  };

  class ParameterParserGet {
   public:
    explicit ParameterParserGet(const std::map<std::string, std::string>& values)
        : values_(values), next_(values.begin()) {}
    // No line can have a key that is not a name: such a one cannot be written (-1002).
    int get(const std::string& key, std::string& value);
    // The keys in ascending order.
    int getNext(const std::string& previous, std::string& next);

   private:
    const std::map<std::string, std::string>& values_;
    std::map<std::string, std::string>::const_iterator next_;
  };
};

}  // namespace KFA

#endif
