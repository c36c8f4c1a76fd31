// SPDX-License-Identifier: Apache-2.0
// One law for the accessors of every record: what is got from one and set in another stands there under its own element,
// and all of them together make the record anew.
#include <type_traits>
#include <vector>

#include <boost/preprocessor/cat.hpp>
#include <boost/preprocessor/seq/for_each.hpp>
#include <boost/preprocessor/variadic/to_seq.hpp>

#include <KFAFunctionality/environment/KFAConnectionLinkInfo.h>
#include <KFAFunctionality/environment/KFAEnvCapability.h>
#include <KFAFunctionality/environment/KFAVPSType.h>
#include <KFAFunctionality/environment/KFAVtInfo.h>
#include <KFAFunctionality/environment/KFAVtSettings.h>
#include <KFAFunctionality/files/KFALogOptions.h>
#include <KFAFunctionality/files/KFANativeConfig.h>
#include <KFAFunctionality/migration/KFACalculateHWNodeNotes.h>
#include <KFAFunctionality/migration/KFAMigratorCloneOptions.h>
#include <KFAFunctionality/network/KFANetVEth.h>
#include <KFAFunctionality/network/KFANetworkShaping.h>
#include <KFAFunctionality/resources/KFAEnvSampleM.h>
#include <KFAFunctionality/resources/KFAQuota.h>
#include <KFAFunctionality/storage/KFAHardDisk.h>
#include <KFAFunctionality/support/KFAProblemReportData.h>
#include <KFAFunctionality/templates/KFAPackage.h>
#include <KFAFunctionality/templates/KFAPackageInfo.h>
#include <KFAFunctionality/templates/KFAPackageKFTemplateStd.h>
#include <KFAFunctionality/templates/KFATemplateConfigInfo.h>
#include <KFAFunctionality/templates/KFATemplateObject.h>
#include <KFAFunctionality/updates/KFAUpdate.h>
#include <KFAFunctionality/updates/KFAUpdateConfig.h>
#include <KFLFunctionality/KFLIPPoolAllocation.h>
#include <KFLFunctionality/KFLOS.h>

#include "KFLMessage/Records.h"
#include "MessageExamples.h"

namespace {

using namespace KFA;

template <class Record>
using Copy = void (*)(Record& to, const Record& from);

// What the record writes of a row, or of all where none is given.
std::string written(const KFLRecordType& type, const void* record, const KFLField* row = nullptr) {
  KFLMessage message("r");
  KFLMessageIterator it = message.getIterator();
  EXPECT_EQ(type.write(it, record), 0) << KFL::getErrorMessage();
  if (row == nullptr) return message.toString();
  std::string text;
  const auto take = [&](const KFLField& of) { text += printedOf(KFLMessageIterator(it), of.id); };
  if (row->shape == KFL::KFLFieldShape::Inline)
    visitRows(row->table(), take);
  else
    take(*row);
  return text;
}

// The rows of a record's table, but for those of its base.
template <class Base>
std::vector<const KFLField*> rowsOf(const KFLRecordType& type) {
  std::vector<const KFLField*> rows;
  for (const KFLField& row : type.elements()->rows()) {
    bool isBase = false;
    if constexpr (requires { Base::fields(); })
      isBase = row.shape == KFL::KFLFieldShape::Inline && &row.table() == &Base::fields();
    if (!isBase) rows.push_back(&row);
  }
  return rows;
}

// The accessors go with the rows of the record's table, one after the other. The record that they fill has first read a
// message without elements, and a base, whose accessors are tried by themselves, is copied as a whole.
template <class Record, class Base = void>
void expectAccessors(const char* name, std::initializer_list<Copy<Record>> accessors) {
  SCOPED_TRACE(name);
  const KFLRecordType* const type = KFL::findRecordType(name);
  ASSERT_NE(type, nullptr);
  KFLMessage example;
  ASSERT_EQ(example.parse(examples().find(type)->second.xml), 0);
  Record filled;
  Record none;
  ASSERT_EQ(type->read(example.getIterator(), &filled), 0) << KFL::getErrorMessage();
  type->read(KFLMessage("r").getIterator(), &none);
  if constexpr (!std::is_void_v<Base>) static_cast<Base&>(none) = filled;
  const std::vector<const KFLField*> rows = rowsOf<Base>(*type);
  ASSERT_GE(rows.size(), accessors.size());
  Record all = none;
  auto row = rows.end() - static_cast<std::ptrdiff_t>(accessors.size());
  for (const Copy<Record> copy : accessors) {
    Record one = none;
    copy(one, filled);
    copy(all, filled);
    const std::string wanted = written(*type, &filled, *row);
    EXPECT_EQ(written(*type, &one, *row), wanted);
    EXPECT_NE(written(*type, &none, *row++), wanted) << "the example has what a new record has";
  }
  EXPECT_EQ(written(*type, &all), written(*type, &filled));
}

// NOLINTBEGIN(bugprone-macro-parentheses): a class and a part of a name
#define COPY(r, Record, Name) \
  [](Record& to, const Record& from) { to.BOOST_PP_CAT(set, Name)(from.BOOST_PP_CAT(get, Name)()); },
// NOLINTEND(bugprone-macro-parentheses)
#define COPIES(Record, ...) \
  { BOOST_PP_SEQ_FOR_EACH(COPY, Record, BOOST_PP_VARIADIC_TO_SEQ(__VA_ARGS__)) }
#define RECORD(Record, ...) expectAccessors<Record>(#Record, COPIES(Record, __VA_ARGS__))
#define DERIVED(Record, Base, ...) expectAccessors<Record, Base>(#Record, COPIES(Record, __VA_ARGS__))

TEST(RecordAccessors, OfTheCore) {
  RECORD(KFLCPULoad, User, Nice, System);
  RECORD(KFLCalculateHWNodeNotes, Size, EIDs);
  RECORD(KFLDevMountInfo, Device, MountPoint, FileSystem, ReadOnly, Automatic, Size);
  RECORD(KFLIPPoolAllocation, Gateway, NameServers);
  RECORD(KFLLogOptions, Level, File);
  RECORD(KFLMigratorCloneOptions, Name, EIDs);
  RECORD(KFLNetNIC, Name, IPAddresses, Network, Gateway, GatewayV6, DHCP, DHCPv6, MAC);
  RECORD(KFLOS, Name, Version, Platform, Kernel);
  RECORD(KFLPackage, Name, Architecture, Version, OS, Kind);
  RECORD(KFLQoS, ID, Soft, Hard);
  RECORD(KFLVtInfo, Technology, Description);
  RECORD(KFLVtSettings, Technology, Enabled);
}

TEST(RecordAccessors, OfEnvironmentsAndNodes) {
  RECORD(KFAConnectionLinkInfo, ClientAddress, ClientPort, Link, Port);
  RECORD(KFAEnvCapability, Name, Value);
  RECORD(KFARedirectService, Name, Port, Address, Default);
  RECORD(KFAVPSType, SubType, Type);
  DERIVED(KFAVtInfo, KFLVtInfo, Version, Build, ServiceEID, RedirectServices);
  DERIVED(KFAVtSettings, KFLVtSettings, LockDir, TemplateDir, Values, OfflineServices, QoSes);
  DERIVED(KFALogOptions, KFLLogOptions, Kind);
  DERIVED(KFANativeConfig, KFLNativeConfig, Text);
  RECORD(KFACalculateHWNodeWarning, Message, Code);
  RECORD(KFAExcludePath, Path, Limit);
  DERIVED(KFACalculateHWNodeNotes, KFLCalculateHWNodeNotes, Excludes, Warnings);
  DERIVED(KFAMigratorCloneOptions, KFLMigratorCloneOptions, KeepSource, Config, Veids);
  RECORD(KFAProblemReportData, Name, Email, Report, Subject, Contact, Attachment);
}

TEST(RecordAccessors, OfNetworksAndResources) {
  DERIVED(KFANetVEth, KFLNetNIC, WinsServers, NameServers, HostRouted);
  RECORD(KFANetworkShapingClass, ID, GuaranteedRate, MaximumRate);
  RECORD(KFANetworkShapingIPRange, ShapingClassID, Address, Mask);
  RECORD(KFANetworkInterfaceShaping, Device, Bandwidth);
  RECORD(KFANetConfiguration, Enabled, IPRanges, Classes, Devices);
  RECORD(KFAQoSValidation, Identifier, Parameters, Expression, Comment);
  RECORD(KFAUGIDQuotaLimit::QuotaLimit, Current, Soft, Hard);
  RECORD(KFAUGIDQuotaLimit, ID, Inodes, Space);
  RECORD(KFAUGIDQuotaGracePeriod, Inodes, Space);
  RECORD(KFAUGIDQuotaInfo, ID, Limits, Grace);
  RECORD(KFAQuotaInfo, Current, Soft, Hard, Count, Expire);
  RECORD(KFAQuotaStats, Space, Inodes, UGIDs);
  RECORD(KFAUbc, Name, Value);
  DERIVED(KFAVeCPULoad, KFLCPULoad, IdleTime);
  RECORD(HardDisk::Zloop, GUID, Name, Size, Expanded);
  RECORD(HardDisk::Loopback, GUID, Mount);
  RECORD(HardDisk::KfFS, Name, FirstQuota, SecondQuota);
  RECORD(HardDisk::List::KfFS, Disk);
}

TEST(RecordAccessors, OfTemplatesAndUpdates) {
  RECORD(KFATemplate, Version, Name);
  DERIVED(KFAPackage, KFATemplate, Packages, Installed);
  RECORD(KFAPackageInfo, Name, Description, Kind, Version);
  DERIVED(KFAPackageKFTemplate, KFLPackage, OsTemplate, Cached, UpToDate, Path, TechnologyList);
  DERIVED(KFAPackageKFTemplateStd, KFAPackageKFTemplate, Standard);
  RECORD(KFAPackageVersion, Version, Standard, Cached, Dependencies);
  DERIVED(KFATemplateConfigInfo, KFAPackageVersion, Name, BaseTemplate, Options, Packages, Description,
          OSVersion, OSPlatform, Technologies);
  RECORD(KFAUpdate, ID, Name, Description, Size, Installed, Version, InstalledVersion, Release);
  DERIVED(KFASystemUpdate, KFAUpdate, Type, Summary, Details);
  DERIVED(KFATQAUpdate, KFAUpdate, Summary);
  DERIVED(KFATemplateUpdate, KFAUpdate, AppTemplates);
  RECORD(KFAUpdateServiceSettings, AutoReboot, CheckDay, CheckInterval, AutoInstall);
  RECORD(KFAUpdateConfig, Connection, Products, ServiceSettings);
  RECORD(KFAUpdateConnectionSettings, Url, Login, Password);
  DERIVED(KFAUpdateProxySettings, KFAUpdateConnectionSettings, Type);
  RECORD(KFAUpdateConnection, Direct, Proxy, ProxyExceptions, Repository);
  RECORD(KFAUpdateInstallSource, Value, Standard);
  RECORD(KFAUpdateProduct, ID, Name, InstallType, InstallSource, Location);
}

// What stands in no message of the record, and what a record can be made of.
TEST(RecordAccessors, OfWhatHasNoElement) {
  KFAPackageVersion version;
  version.setLocation("/srv/packages");
  EXPECT_EQ(version.getLocation(), "/srv/packages");
  KFAPackageKFTemplate package;
  package.setName("nginx");
  package.setPackages(KFLPackageList());
  EXPECT_TRUE(package.getPackages().empty());
  EXPECT_EQ(KFATemplateObject(package).getName(), "nginx");
  KFAWindowsSystemUpdate update;
  update.setProduct(std::string("office"));
  EXPECT_EQ(update.getProduct().getValue(), "office");
  // A message without a product leaves none behind, and the mark as it is.
  ASSERT_EQ(KFLMessage("r").getIterator().getObj(update), 0);
  EXPECT_EQ(update.getProduct().getValue(), "");
  EXPECT_TRUE(update.getProduct().isSpecified());
  EXPECT_EQ(HardDisk::Zloop(5, true).getSize(), 5);
  EXPECT_EQ(HardDisk::KfFS(KFLQoS("a"), KFLQoS("b")).getSecondQuota().getID(), "b");
  HardDisk::List::Images<HardDisk::Loopback> images;
  images.setImages({HardDisk::Loopback(KFLDevMountInfo())});
  EXPECT_EQ(images.getImages().size(), 1U);
}

}  // namespace
