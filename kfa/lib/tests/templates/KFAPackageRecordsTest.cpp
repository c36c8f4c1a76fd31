// SPDX-License-Identifier: Apache-2.0
// Package and template records: what they write, and what makes reading fail.
#include <string>

#include <KFAFunctionality/templates/KFAPackage.h>
#include <KFAFunctionality/templates/KFAPackageKFTemplateStd.h>
#include <KFAFunctionality/templates/KFATemplateConfigInfo.h>

#include "../Records.h"

namespace {

TEST(KFATemplate, NameMustBeThere) {
  KFA::KFATemplate what("former", "9");
  EXPECT_EQ(readFrom("<version>1</version>", what), -1);
  EXPECT_EQ(readFrom("<name>a</name>", what), 0);
  EXPECT_EQ(what.getName(), "a");
  EXPECT_EQ(elementsOf(KFA::KFATemplate()), (Names{"version", "name"}));
}

TEST(KFAPackage, NestedPackagesStandUnderTheirText) {
  KFA::KFAPackage package;
  const std::string nested =
      "<package><name>b</name><version>2</version></package><package><name>a</name></package>";
  EXPECT_EQ(readFrom(nested + "<name>top</name>", package), 0);
  Names keys;
  for (const auto& entry : package.getPackages())
    keys.push_back(entry.first);
  EXPECT_EQ(keys, (Names{"a", "b/2"}));
  EXPECT_EQ(
      readFrom("<package><version>1</version></package><installed>true</installed><name>top</name>", package),
      0);
  EXPECT_TRUE(package.getInstalled());
  EXPECT_EQ(readFrom("<package><name>a</name></package>", package), -1);
}

TEST(KFAPackageVersion, FlagLetsTheVersionBeAbsent) {
  using Version = KFA::KFAPackageVersion;
  const struct {
    const char* xml;
    int plain;
    int mayBeAbsent;
  } rows[] = {
      {"<package_version>1</package_version><is_standard>true</is_standard>", 0, 0},
      {"<package_version/><is_standard>true</is_standard>", 0, 0},
      {"<is_standard>true</is_standard>", -1, 0},
      {"<package_version>1</package_version>", -1, 0},
      {"<package_version>1</package_version><is_standard>maybe</is_standard>", -1, 0},
      {"", -1, 0},
  };
  for (const auto& row : rows) {
    Version version;
    EXPECT_EQ(readFrom(row.xml, version, Version::Reader()), row.plain) << row.xml;
    EXPECT_EQ(readFrom(row.xml, version, Version::Reader(true)), row.mayBeAbsent) << row.xml;
  }
  EXPECT_EQ(elementsOf(Version()), (Names{"package_version", "is_standard", "is_cached", "dependencies"}));
  EXPECT_EQ(elementsOf(Version(), Version::Writer(true)),
            (Names{"is_standard", "is_cached", "dependencies"}));
}

TEST(KFATemplateConfigInfo, OptionsMayBeMalformedItemsNot) {
  const std::string version = "<package_version>1</package_version><is_standard>true</is_standard>";
  const std::string names = "<name>n</name><base_template>b</base_template>";
  const struct {
    std::string xml;
    int result;
  } rows[] = {
      {version + names, 0},
      {version + names + "<option><entry>e</entry></option>", 0},
      {version + names + "<item><name>half</name></item>", -1},
  };
  for (const auto& row : rows) {
    KFA::KFATemplateConfigInfo info;
    EXPECT_EQ(readFrom(row.xml, info), row.result) << row.xml;
  }
  EXPECT_EQ(elementsOf(KFA::KFATemplateConfigInfo()),
            (Names{"is_standard", "is_cached", "dependencies", "name", "base_template"}));
}

TEST(KFAPackageKFTemplate, BaseMustBeReadAndTechnologiesAreReplaced) {
  KFA::KFAPackageKFTemplateStd record;
  record.setTechnologyList({"former"});
  EXPECT_EQ(readFrom("<is_standard>true</is_standard>", record), -1);
  EXPECT_EQ(readFrom("<name>n</name>", record), 0);
  EXPECT_TRUE(record.getTechnologyList().empty());
  EXPECT_EQ(elementsOf(KFA::KFAPackageKFTemplate()),
            (Names{"name", "architecture", "kind", "os_template", "is_cached", "uptodate"}));
}

// The elements of the derived class and of its base keep their own namespaces.
TEST(KFAPackageKFTemplate, NamespacesOfDerivedAndBase) {
  KFL::KFLMessage message;
  auto it = message.getIterator();
  ASSERT_EQ(it.putObj(KFA::KFAPackageKFTemplateStd()), 0);
  const std::pair<const char*, std::string> rows[] = {
      {"name", KFL::kTypesNamespaceURI}, {"uptodate", KFA::kTypesURI}, {"is_standard", KFA::kTypesURI}};
  for (const auto& [name, uri] : rows) {
    ASSERT_EQ(it.findChild(name), 0) << name;
    EXPECT_EQ(it.getNamespace(), uri) << name;
    it.leaveChild();
  }
}

}  // namespace
