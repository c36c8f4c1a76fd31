// SPDX-License-Identifier: Apache-2.0
// One run of the program: its global options, the arguments of its command, its output, and what commands share.
#ifndef KFACTL_SESSION_H
#define KFACTL_SESSION_H

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include <boost/shared_ptr.hpp>

#include "terminal/Output.h"

namespace KFL {
class KFLVocMap;
}
namespace KFA {
class KFAEnvConfigBashParser;
}

namespace kfactl {

enum class Format { Table, Json, Xml, Sarif };

// Exit statuses.
inline constexpr int kFine = 0;
inline constexpr int kFinding = 1;
inline constexpr int kTrouble = 2;

class Session {
 public:
  Output& out() { return out_; }
  Format format() const { return format_; }
  void setFormat(Format format) { format_ = format; }

  // The words of the command line that are no options.
  const std::vector<std::string>& arguments() const { return arguments_; }
  const std::string& argument(std::size_t index) const { return arguments_.at(index); }
  void setArguments(std::vector<std::string> arguments) { arguments_ = std::move(arguments); }

  // As they were given, empty when not; to be filled by the command line.
  std::string& formatOption() { return formatOption_; }
  std::string& vocabularyOption() { return vocabularyOption_; }
  std::string& nodeOption() { return nodeOption_; }
  std::vector<std::string>& librariesOption() { return librariesOption_; }
  bool& jsonOption() { return jsonOption_; }

  // The folder of the node's environments.
  std::string node() const;

  // The vocabulary, which is read when this is first called, and the name of its file.
  const boost::shared_ptr<KFL::KFLVocMap>& vocabulary();
  const std::string& vocabularyPath() const { return vocabularyPath_; }

  // A parser of environment files with the keys of the vocabulary.
  boost::shared_ptr<KFA::KFAEnvConfigBashParser> environmentParser();

 private:
  Output out_;
  Format format_ = Format::Table;
  std::string formatOption_;
  std::string vocabularyOption_;
  std::string nodeOption_;
  std::vector<std::string> librariesOption_;
  bool jsonOption_ = false;
  std::vector<std::string> arguments_;
  std::string vocabularyPath_;
  boost::shared_ptr<KFL::KFLVocMap> vocabulary_;
  boost::shared_ptr<KFA::KFAEnvConfigBashParser> parser_;
};

}  // namespace kfactl

#endif
