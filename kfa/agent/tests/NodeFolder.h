// SPDX-License-Identifier: Apache-2.0
// A node's files for a test: the example node's, with two environments whose ids the tests know.
#ifndef KFAD_TESTS_NODEFOLDER_H
#define KFAD_TESTS_NODEFOLDER_H

#include <boost/smart_ptr/make_shared.hpp>

#include "../../lib/tests/files/FilesTest.h"
#include "../NodeManagers.h"

class NodeFolder : public TemporaryFolder {
 public:
  NodeFolder() {
    namespace fs = std::filesystem;
    const fs::path examples = fs::path(KFA_SOURCE_DIR) / "examples/node";
    fs::copy(examples / "conf", path() / "conf");
    fs::copy(examples / "global.conf", path() / "global.conf");
    fs::create_directory(path() / "samples");
    std::ofstream(conf(7)) << "VE_PRIVATE=\"/nonexistent/$VEID\"\nUUID=\"" << kKnown
                           << "\"\nONBOOT=no # by hand\n";
    std::ofstream(conf(8)) << "UUID=\"" << kKnown << "\"\nNAME=twin\n";
    std::ofstream(conf(9)) << "NAME='open\n";
    std::ofstream(*this / "samples/basic.sample") << "ONBOOT=\"yes\"\nNUMPROC=\"100:200\"\n";
  }

  std::string operator/(const std::string& name) const { return path() / name; }
  std::string conf(int veid) const { return *this / ("conf/" + std::to_string(veid) + ".conf"); }
  kfad::NodePaths paths() const {
    return {*this / "conf", *this / "global.conf", *this / "samples", *this / "shaping.xml",
            *this / "updates.xml"};
  }
  kfad::NodeFilesSP files() const {
    const auto vocabulary = KFL::KFLVocMap::load(std::string(KFA_SOURCE_DIR) + "/data/vocabulary.xml");
    return boost::make_shared<kfad::NodeFiles>(paths(), KFL::KFLEID(kNode), vocabulary,
                                               KFA::KFAEnvConfigBashParser::getInstance(vocabulary));
  }

  static constexpr const char* kNode = "22222222-0000-4000-8000-000000000001";
  static constexpr const char* kKnown = "22222222-0000-4000-8000-000000000007";
};

#endif
