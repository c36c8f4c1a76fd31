// SPDX-License-Identifier: Apache-2.0
// Text forms of templates and distributions, and the architectures that are accepted.
#include <algorithm>
#include <string>
#include <vector>

#include <KFAFunctionality/templates/KFAArchitectureSelector.h>
#include <KFAFunctionality/templates/KFADistribution.h>
#include <KFAFunctionality/templates/KFAPackageVersion.h>
#include <KFAFunctionality/templates/KFATemplate.h>

#include "../Records.h"

namespace {

using KFA::KFADistribution;
using KFA::KFATemplate;

struct Row {
  const char* text;
  const char* name;
  const char* version;
  const char* written;
};

template <class Record, std::size_t N>
void checkRows(const Row (&rows)[N]) {
  for (const Row& row : rows) {
    SCOPED_TRACE(row.text);
    Record record("former", "9");
    record.fromString(row.text);
    EXPECT_EQ(record.getName(), row.name);
    EXPECT_EQ(record.getVersion(), row.version);
    EXPECT_EQ(record.toString(), row.written);
  }
}

TEST(KFATemplate, TextForm) {
  checkRows<KFATemplate>({
      {"redhat-el5-x86/1.0", "redhat-el5-x86", "1.0", "redhat-el5-x86/1.0"},
      {"redhat-el5-x86", "redhat-el5-x86", "", "redhat-el5-x86"},
      {"name/", "name", "", "name"},
      {"/1.0", "", "1.0", ""},
      {"/", "", "", ""},
      {"a/b", "a", "", "a"},
      {"a/b/2", "a/b", "2", "a/b/2"},
      {"a/2/b", "a/2", "", "a/2"},
      {"a/ 2", "a", "", "a"},
      {"a/\xb2", "a", "", "a"},
      {"a/2 b", "a", "2 b", "a/2 b"},
  });
}

TEST(KFADistribution, TextForm) {
  checkRows<KFADistribution>({
      {"a-b-2.0", "a-b", "2.0", "a-b-2.0"},
      {"centos-x86", "centos", "", "centos"},
      {"debian-12", "debian", "12", "debian-12"},
      {"debian/12", "debian/12", "", "debian/12"},
      {"-5", "", "5", ""},
      {"debian-", "debian", "", "debian"},
  });
}

TEST(KFAPackageVersion, FlagLetsTheVersionBeAbsent) {
  using Version = KFA::KFAPackageVersion;
  Version version;
  EXPECT_EQ(readFrom("", version, Version::Reader()), -1);
  EXPECT_EQ(readFrom("", version, Version::Reader(true)), 0);
  EXPECT_EQ(elementsOf(Version(), Version::Writer(true)),
            (Names{"is_standard", "is_cached", "dependencies"}));
}

TEST(KFAArchitectureSelector, ExactNamesAlone) {
  const KFA::KFAArchitectureSelector isSupported;
  for (const char* name : {"ia64", "x86", "x86_64"})
    EXPECT_TRUE(isSupported(name)) << name;
  for (const char* name : {"X86_64", "i386", "", "x86_6", "x86_644", " x86"})
    EXPECT_FALSE(isSupported(name) || isSupported(std::string(name))) << name;
  EXPECT_FALSE(isSupported(nullptr));
  EXPECT_FALSE(isSupported(std::string("x86\0", 4)));

  const std::vector<std::string> words{"nptl", "x86_64", "x86"};
  const auto first = std::find_if(words.begin(), words.end(), isSupported);
  ASSERT_NE(first, words.end());
  EXPECT_EQ(*first, "x86_64");
}

}  // namespace
