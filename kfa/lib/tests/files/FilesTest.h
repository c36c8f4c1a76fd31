// SPDX-License-Identifier: Apache-2.0
// What the tests of the file layer share: the example node, the vocabulary, a folder of their own.
#ifndef KFA_TESTS_FILES_FILESTEST_H
#define KFA_TESTS_FILES_FILESTEST_H

#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <boost/shared_ptr.hpp>

#include <KFLCommon/KFLError.h>
#include <KFLFunctionality/KFLVocMap.h>

#include <KFAFunctionality/files/KFAConfigFile.h>
#include <KFAFunctionality/files/KFAConfigRules.h>
#include <KFAFunctionality/files/KFAEnvConfigBashParser.h>
#include <KFAFunctionality/files/KFARawConfigBashParser.h>

inline boost::shared_ptr<KFA::KFAEnvConfigBashParser> envParser() {
  static const auto parser =
      KFA::KFAEnvConfigBashParser::getInstance(KFL::KFLVocMap::load(KFA_SOURCE_DIR "/data/vocabulary.xml"));
  return parser;
}

inline const KFA::KFAEnvConfigRules& envRules() {
  static const KFA::KFAEnvConfigRules rules(envParser());
  return rules;
}

// The keys of a file, in lower case, and their values.
inline std::map<std::string, std::string> valuesOf(const std::string& text) {
  std::map<std::string, std::string> values;
  const auto get = [&](std::istream& in) {
    return KFA::KFARawConfigBashParser::getInstance()->getConfig(in, values);
  };
  EXPECT_EQ(KFA::readConfigText(text, "f", get), 0) << text;
  return values;
}

inline bool has(const std::string& content, const std::string& part) {
  return content.find(part) != std::string::npos;
}

inline std::string contentOf(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

inline void makeFile(const std::filesystem::path& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

// Whether a call was refused, with this code and an error that has the part.
inline testing::AssertionResult refused(int result, const std::string& part, int code = -1) {
  const std::string text = KFL::getErrorMessage();
  if (result == code && text.find(part) != std::string::npos) return testing::AssertionSuccess();
  return testing::AssertionFailure() << result << ": " << text;
}

// How a child of this process ends that does the work: with what it gives, or killed.
inline int statusOfChild(const std::function<int()>& work) {
  const pid_t child = fork();
  if (child == 0) _exit(work());
  int status = 0;
  waitpid(child, &status, 0);
  return status;
}

inline int addB(const std::string& before, std::string& after) {
  after = before + "B=2\n";
  return 0;
}

inline std::vector<std::filesystem::path> exampleFiles() {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(KFA_SOURCE_DIR "/examples/node/conf"))
    files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  return files;
}

// A folder that goes with the test.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "kfa-files-XXXXXX").string();
    path_ = mkdtemp(name.data());
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder() { std::filesystem::remove_all(path_); }

  std::filesystem::path operator/(const std::string& name) const { return path_ / name; }
  const std::filesystem::path& path() const { return path_; }
  std::vector<std::string> names() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path_))
      names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
  }

 private:
  std::filesystem::path path_;
};

#endif
