// SPDX-License-Identifier: Apache-2.0
#include "terminal/Session.h"

#include <unistd.h>

#include <array>
#include <cstdlib>

#include <KFLFunctionality/KFLVocMap.h>

#include <KFAFunctionality/access/KFAAgentFiles.h>
#include <KFAFunctionality/files/KFAEnvConfigBashParser.h>
#include <KFAFunctionality/node/KFANodeSelection.h>

#include "terminal/Node.h"
#include "terminal/Trouble.h"

namespace kfactl {

namespace {

// The vocabulary beside the program, wherever the installation was moved to; empty when there is none.
std::string vocabularyBesideProgram() {
  std::array<char, 4096> target{};
  const ssize_t length = ::readlink("/proc/self/exe", target.data(), target.size());
  if (length <= 0 || static_cast<std::size_t>(length) == target.size()) return {};
  std::string path(target.data(), static_cast<std::size_t>(length));
  path.resize(path.rfind('/') + 1);
  path += KFACTL_DATA_FROM_BIN "/vocabulary.xml";
  return ::access(path.c_str(), F_OK) == 0 ? path : std::string();
}

std::string pathOf(const std::string& chosen) {
  if (!chosen.empty()) return chosen;
  const std::string beside =
      std::getenv("KFA_VOCABULARY") == nullptr ? vocabularyBesideProgram() : std::string();
  return beside.empty() ? KFL::KFLVocMap::defaultPath() : beside;
}

}  // namespace

std::string Session::node() const {
  if (nodeAgent()) return nodeAgent()->getFolder();
  return nodeOption_.empty() ? KFA::KFANodeSelection::defaultFolder() : nodeOption_;
}

const boost::shared_ptr<KFL::KFLVocMap>& Session::vocabulary() {
  if (vocabulary_) return vocabulary_;
  vocabularyPath_ = pathOf(vocabularyOption_);
  vocabulary_ = KFL::KFLVocMap::load(vocabularyPath_);
  if (!vocabulary_) throwLibraryError();
  return vocabulary_;
}

boost::shared_ptr<KFA::KFAEnvConfigBashParser> Session::environmentParser() {
  if (parser_) return parser_;
  parser_ = KFA::KFAEnvConfigBashParser::getInstance(vocabulary());
  if (!parser_) throwLibraryError(vocabularyPath_);
  return parser_;
}

}  // namespace kfactl
