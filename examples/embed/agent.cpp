// SPDX-License-Identifier: Apache-2.0
// A small agent: reads a folder of VEID.conf files, and prints the environments in sort-key order with their titles.
//   agent FOLDER [VOCABULARY]
#include <algorithm>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>

#include <KFAFunctionality/environment/KFAEnv.h>
#include <KFAFunctionality/environment/KFAEnvConfig.h>
#include <KFAFunctionality/files/KFAEnvConfigBashParser.h>
#include <KFLCommon/KFLError.h>
#include <KFLFunctionality/KFLEID.h>
#include <KFLFunctionality/KFLVocMap.h>

namespace fs = std::filesystem;
using ParserSP = boost::shared_ptr<KFA::KFAEnvConfigBashParser>;
using EnvSP = boost::shared_ptr<KFA::KFAEnv>;

namespace {

// The VEID that a file is named after; -1 for any other file.
int veidOf(const fs::path& path) {
  const std::string stem = path.stem();
  int veid = -1;
  const auto [end, error] = std::from_chars(stem.data(), stem.data() + stem.size(), veid);
  const bool whole = error == std::errc() && end == stem.data() + stem.size();
  return path.extension() == ".conf" && whole ? veid : -1;
}

// Reads one environment; empty, with an error text, when the file cannot be read.
EnvSP readEnv(const KFA::KFAEnvConfigBashParser& parser, const fs::path& path) {
  std::ifstream in(path);
  if (!in) {
    KFL::setErrorMessage("%s: cannot be opened", path.c_str());
    return EnvSP();
  }
  auto config = boost::make_shared<KFA::KFAEnvConfig>();
  if (parser.getConfig(in, *config) != 0 || config->setVeid(veidOf(path)) != 0) return EnvSP();
  return boost::make_shared<KFA::KFAEnv>(KFL::KFLEID(KFL::KFLGUID::generate()), config);
}

int listFolder(const KFA::KFAEnvConfigBashParser& parser, const fs::path& folder) {
  std::error_code trouble;
  std::vector<EnvSP> envs;
  for (fs::directory_iterator it(folder, trouble), end; !trouble && it != end; it.increment(trouble)) {
    if (veidOf(it->path()) < 0) continue;
    envs.push_back(readEnv(parser, it->path()));
    if (envs.back()) continue;
    std::fprintf(stderr, "agent: %s\n", KFL::getErrorMessage().c_str());
    return 1;
  }
  if (trouble) {
    std::fprintf(stderr, "agent: %s: %s\n", folder.c_str(), trouble.message().c_str());
    return 1;
  }
  std::sort(envs.begin(), envs.end(),
            [](const EnvSP& a, const EnvSP& b) { return a->getSortKey() < b->getSortKey(); });
  for (const EnvSP& env : envs)
    std::printf("%zu %s\n", env->getSortKey(), env->getTitle().c_str());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2 && argc != 3) {
    std::fprintf(stderr, "usage: agent FOLDER [VOCABULARY]\n");
    return 1;
  }
  const std::string vocabularyPath = argc == 3 ? argv[2] : KFL::KFLVocMap::defaultPath();
  const KFL::KFLVocMapSP vocabulary = KFL::KFLVocMap::load(vocabularyPath);
  const ParserSP parser = vocabulary ? KFA::KFAEnvConfigBashParser::getInstance(vocabulary) : ParserSP();
  if (!parser) {
    std::fprintf(stderr, "agent: %s\n", KFL::getErrorMessage().c_str());
    return 1;
  }
  return listFolder(*parser, argv[1]);
}
