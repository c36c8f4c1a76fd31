// SPDX-License-Identifier: Apache-2.0
// Runs the program as a person would: each file in cases/ is a session with bash in a fresh copy of the example node.
//
//   $ kfactl config get 101.conf ONBOOT      a command, run by bash in the copy's folder conf
//   > yes                                    a line of standard output
//   ! kfactl: ...                            a line of standard error
//   = 1                                      the exit status, when it is not 0
//   # text, blank lines                      between commands
//
// "..." at the end of an expected line stands for the rest of it; "> ..." alone, for all further output.
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

struct Case {
  std::size_t line = 0;
  std::string command;
  Lines out;
  Lines err;
  int status = 0;
};

std::string contentOf(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

Lines linesOf(const std::string& text) {
  Lines lines;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    lines.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  return lines;
}

std::vector<Case> readCases(const fs::path& path) {
  std::vector<Case> cases;
  std::size_t number = 0;
  for (const std::string& line : linesOf(contentOf(path))) {
    ++number;
    if (line.empty() || line.front() == '#') continue;
    const std::string rest = line.size() > 2 ? line.substr(2) : std::string();
    if (line.front() == '$')
      cases.push_back({number, rest, {}, {}, 0});
    else if (cases.empty() || std::string(">!=").find(line.front()) == std::string::npos)
      ADD_FAILURE() << path << ":" << number << ": not a line of a case: " << line;
    else if (line.front() == '=')
      cases.back().status = std::stoi(rest);
    else
      (line.front() == '>' ? cases.back().out : cases.back().err).push_back(rest);
  }
  return cases;
}

bool matchesLine(const std::string& expected, const std::string& actual) {
  if (!expected.ends_with("...")) return expected == actual;
  return actual.starts_with(expected.substr(0, expected.size() - 3));
}

bool matches(Lines expected, Lines actual) {
  if (!expected.empty() && expected.back() == "...") {
    expected.pop_back();
    actual.resize(std::min(actual.size(), expected.size()));
  }
  return std::equal(expected.begin(), expected.end(), actual.begin(), actual.end(), matchesLine);
}

std::string show(const Lines& lines, char mark) {
  std::string text;
  for (const std::string& line : lines)
    text += std::string(1, mark) + (line.empty() ? "" : " ") + line + "\n";
  return text;
}

class CasesTest : public testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "kfactl-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    folder_ = pattern;
    fs::copy(fs::path(KFA_SOURCE_DIR) / "examples/node", folder_ / "node", fs::copy_options::recursive);
    setenv("PATH", (KFACTL_BIN_DIR ":" + path_).c_str(), 1);
    setenv("KFA_VOCABULARY", KFA_SOURCE_DIR "/data/vocabulary.xml", 1);
    setenv("SOURCE", KFA_SOURCE_DIR, 1);
    setenv("LC_ALL", "C.UTF-8", 1);
  }
  void TearDown() override {
    setenv("PATH", path_.c_str(), 1);
    fs::remove_all(folder_);
  }

  // A group of commands in a shell of their own, so that redirections inside the command stay inside it.
  int run(const std::string& command) const {
    std::ofstream(folder_ / "command") << command << "\n";
    const std::string folder = folder_.string();
    const std::string line = "cd " + folder + "/node/conf && exec bash " + folder + "/command >" + folder +
                             "/out 2>" + folder + "/err </dev/null";
    const int status = std::system(line.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  fs::path folder_;

 private:
  const std::string path_ = std::getenv("PATH") == nullptr ? "" : std::getenv("PATH");
};

TEST_P(CasesTest, BehavesAsWritten) {
  const fs::path path = fs::path(KFACTL_CASES_DIR) / (GetParam() + ".txt");
  const std::vector<Case> cases = readCases(path);
  ASSERT_FALSE(cases.empty());
  for (const Case& row : cases) {
    const int status = run(row.command);
    const Lines out = linesOf(contentOf(folder_ / "out"));
    const Lines err = linesOf(contentOf(folder_ / "err"));
    EXPECT_TRUE(status == row.status && matches(row.out, out) && matches(row.err, err))
        << path.string() << ":" << row.line << ": gave\n$ " << row.command << "\n"
        << show(out, '>') << show(err, '!') << "= " << status;
  }
}

std::vector<std::string> caseFiles() {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(KFACTL_CASES_DIR))
    names.push_back(entry.path().stem().string());
  std::sort(names.begin(), names.end());
  return names;
}

INSTANTIATE_TEST_SUITE_P(Files, CasesTest, testing::ValuesIn(caseFiles()),
                         [](const auto& row) { return row.param; });

}  // namespace
