// SPDX-License-Identifier: Apache-2.0
// Versions of packages, and the architectures that are accepted. Text forms are held to their rules by the fuzz target
// ValueFuzz.
#include <algorithm>

#include <KFAFunctionality/templates/KFAArchitectureSelector.h>
#include <KFAFunctionality/templates/KFAPackageVersion.h>

#include "KFLMessage/Records.h"

namespace {

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
