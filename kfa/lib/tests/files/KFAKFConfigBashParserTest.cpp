// SPDX-License-Identifier: Apache-2.0
// What is held against a plain reading of the lines by the fuzz target GlobalFileFuzz is not tried here.
#include <KFAFunctionality/files/KFAKFConfigBashParser.h>

#include <array>
#include <tuple>

#include <KFAFunctionality/environment/KFAVtSettings.h>

#include "FilesTest.h"

namespace {

using KFA::KFAVtSettings;
using Parser = KFA::KFAKFConfigBashParser;
using Services = std::vector<KFA::KFAOfflineService>;
using Values = std::map<std::string, std::string>;

KFAVtSettings read(const std::string& text, const KFAVtSettings::OfflineServices& services = {}) {
  KFAVtSettings settings;
  settings.setOfflineServices(services);
  std::istringstream in(text);
  EXPECT_EQ(Parser::getInstance()->getConfig(in, settings), 0);
  return settings;
}

std::string write(const KFAVtSettings& settings, const std::string& existing, bool merge) {
  std::istringstream in(existing);
  std::ostringstream out;
  EXPECT_EQ(Parser::getInstance()->putConfig(settings, out, &in, merge), 0);
  return out.str();
}

// A file that is sourced takes no line that assigns nothing, or runs something, or that bash refuses.
TEST(KFAKFConfigBashParser, WhatIsNoNameStaysOutOfTheFile) {
  KFAVtSettings settings;
  settings.setLockDir(KFAVtSettings::Text("/l"));
  settings.setValues(
      {{"", "boo"}, {"a b", "1"}, {"1x", "2"}, {"x;reboot", "3"}, {"b-c", "5"}, {"uid", "6"}, {"z", "4"}});
  EXPECT_EQ(write(settings, "", false), "uid=\"6\"\nLOCKDIR=\"/l\"\nZ=\"4\"\n");
  std::ostringstream out;
  EXPECT_EQ(KFA::KFARawConfigBashParser::getInstance()->putConfig(settings.getValues(), out, nullptr, false),
            0);
  EXPECT_EQ(out.str(), "uid=\"6\"\nZ=\"4\"\n");
}

TEST(KFAKFConfigBashParser, OfflineServicesAreSwitched) {
  // A file, whether "a", "b" and "" are enabled by it, and what is written.
  const std::tuple<std::string, std::array<bool, 3>, std::string> rows[] = {
      {"", {true, false, false}, "a"},
      {"OFFLINE_SERVICE=\n", {true, false, false}, "a"},
      {"OFFLINE_SERVICE='b a other'\n", {true, true, false}, "a b"},
      {"OFFLINE_SERVICE='a  b'\n", {true, true, true}, "a b "},
      {"OFFLINE_SERVICE=' '\n", {false, false, true}, ""},
      {"OFFLINE_SERVICE='A\tb'\n", {false, false, false}, ""},
      {"OFFLINE_SERVICE=a\nOFFLINE_SERVICE=b\n", {false, true, false}, "b"},
  };
  for (const auto& [text, enabled, written] : rows) {
    SCOPED_TRACE(text);
    const KFAVtSettings settings = read(text, Services{{"a", true}, {"b", false}, {"", false}});
    Services expected{{"a", enabled[0]}, {"b", enabled[1]}, {"", enabled[2]}};
    EXPECT_EQ(settings.getOfflineServices(), KFAVtSettings::OfflineServices(expected));
    std::string value;
    EXPECT_EQ(Parser::ParameterParserGet(settings).get("offline_service", value), 0);
    EXPECT_EQ(value, written);
  }
  std::string value;
  EXPECT_EQ(Parser::ParameterParserGet(KFAVtSettings()).get("offline_service", value), -1002);
  EXPECT_EQ(Parser::ParameterParserGet(KFAVtSettings()).get("other", value), -1001);
}

TEST(KFAKFConfigBashParser, OrderOfKeys) {
  const std::pair<Values, std::string> rows[] = {
      {{}, "LOCKDIR=\"/l\"\nTEMPLATE=\"/t\"\n"},
      {{{"z", "1"}}, "Z=\"1\"\nLOCKDIR=\"/l\"\nTEMPLATE=\"/t\"\n"},
      {{{"z", "1"}, {"lockdir", ""}, {"m", "2"}, {"a", "3"}, {"offline_service", "gone"}},
       "A=\"3\"\nLOCKDIR=\"/l\"\nTEMPLATE=\"/t\"\nM=\"2\"\nZ=\"1\"\n"},
  };
  for (const auto& [values, written] : rows) {
    KFAVtSettings settings;
    settings.setLockDir(std::string("/l"));
    settings.setTemplateDir(std::string("/t"));
    settings.setValues(values);
    EXPECT_EQ(write(settings, "", false), written);
  }
}

}  // namespace
