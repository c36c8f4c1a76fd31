// SPDX-License-Identifier: Apache-2.0
// What each record makes of small messages: what it needs, what it does without, and which names it takes.
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <KFLCommon/KFLError.h>
#include <KFLMessage/KFLMessage.h>
#include <KFLMessage/KFLRecordRegistry.h>

namespace {

using KFL::KFLMessageIterator;

// Elements are told as name:type{children} or name=value, with blanks between them.
std::string told(const KFLMessageIterator& it) {
  std::string text;
  for (int left = it.firstChild(); left == 0; left = it.nextSibling()) {
    text += (text.empty() ? "" : " ") + std::string(it.getName());
    if (!it.getTypeTag().empty()) text += ":" + std::string(it.getTypeTag());
    if (it.countChildren() != 0)
      text += "{" + told(KFLMessageIterator(it)) + "}";
    else if (!it.getText().empty())
      text += "=" + std::string(it.getText());
  }
  return text;
}

// The XML of elements that are told so.
std::string xmlOf(const std::string& text) {
  static const std::regex part(R"((\w+)(?::(\w+))?(?:=([^ }]*))?(\{?)|\})");
  std::string xml;
  std::vector<std::string> open;
  for (std::sregex_iterator it(text.begin(), text.end(), part), none; it != none; ++it) {
    const std::smatch& found = *it;
    if (found[1].matched) {
      open.push_back(found[1]);
      xml +=
          "<" + open.back() + (found[2].matched ? " x:type='" + found[2].str() + "'>" : ">") + found[3].str();
      if (found[4].length() != 0) continue;
    }
    xml += "</" + open.back() + ">";
    open.pop_back();
  }
  return xml;
}

struct Row {
  const char* record;
  const char* read;
  std::string written;  // "=" for the same, or what a refusal says behind "-"
};

TEST(RecordRows, AreReadAndWrittenOrRefused) {
  const Row rows[] = {
      // Quotas.
      {"KFAUGIDQuotaLimit::QuotaLimit", "current=x soft=2 hard=3", "current=0 soft=2 hard=3"},
      {"KFAUGIDQuotaInfo", "kind=1 ugid_limits", "="},
      {"KFAUGIDQuotaInfo", "kind=1 ugid_limits{ugid_limit} grace_period", "kind=1"},
      // Disks.
      {"HardDisk::Zloop", "", "size=0"},
      {"HardDisk::Zloop", "id=no_guid size=x", "size=0"},
      {"HardDisk::KfFS", "", "disk_quota{id hard=0} inodes{id hard=0}"},
      {"HardDisk::Loopback", "device=d mount_point=p",
       "device=d mount_point=p file_system=auto read_only=false auto_mount=false size=0"},
      {"HardDisk::List::Images<Loopback>", "", ""},
      {"HardDisk::List::Images<Loopback>", "disk", "-/r/disk: element device is missing"},
      // Environments and nodes.
      {"KFAConnectionLinkInfo", "link=l client_port=no_number", "client_ip client_port=0 link=l port=0"},
      {"HardDisk::List::KfFS", "", "-/r: element disk is missing"},
      {"KFAVtSettings", "", "qoses"},
      {"KFAVtSettings", "no_offline_service", "no_offline_service qoses"},
      {"KFACalculateHWNodeNotes", "", ""},
      {"KFACalculateHWNodeNotes", "statement statement{code=many} exclude_path",
       "exclude_path{path} statement{message code=0} statement{message code=0}"},
      {"KFACalculateHWNodeNotes", "exclude_path{path=/a limit=x}", "exclude_path{path=/a}"},
      {"KFACalculateHWNodeNotes", "eid=none statement", "-/r/eid: \"none\" is no GUID"},
      {"KFAMigratorCloneOptions", "keep_source", "keep_source config:venv_configType"},
      {"KFANetVEth", "name host_routed", "-/r: a network device has no interface name"},
      {"KFANetVEth", "name=eth0", "="},
      {"KFLEnv", "eid=none", "-/r/eid: \"none\" is no GUID"},
      {"KFLEnv", "eid=6d2a1f58-3c94-4b07-a1e5-9f80b7c2d413 parent_eid status=7",
       "eid=6d2a1f58-3c94-4b07-a1e5-9f80b7c2d413 parent_eid=00000000-0000-0000-0000-000000000000 status=7 "
       "alert_type=0 alert_type=0 alert_type=0 alert_type=0 alert_type=0"},
      {"KFLEnv",
       "eid=6d2a1f58-3c94-4b07-a1e5-9f80b7c2d413 alert_type=3 alert_type=1 alert_type=1 alert_type=1 "
       "alert_type=4 alert_type=1",
       "-/r: 6 elements alert_type are too many"},
      {"KFLEnv", "eid=6d2a1f58-3c94-4b07-a1e5-9f80b7c2d413 alert_type=loud",
       "-/r/alert_type: 'loud' is no 32-bit number"},
      {"KFLNetNIC", "ip_address", "-/r/ip_address: an IP address is empty"},
      {"KFLQoS", "id=a hard=2", "="},
      {"KFLPackageList", "", ""},
      {"KFLPackageList", "package{name=a}",
       "-/r/package: the type '' is not known here; one of packageType, package_kftemplateType, "
       "package_std_kftemplateType is wanted"},
      {"KFLPackageList", "package:packageType{kind=k}", "-/r/package: element name is missing"},
      {"KFLPackageList", "package:otherType",
       "-/r/package: the type 'http://kelvarium.internal/webservices/kfl/4.0.0/types:otherType' is not known "
       "here"},
      // Templates and packages.
      {"KFATemplate", "name=a", "version name=a"},
      {"KFAPackage", "package{name=b version=2} package{name=a} name=top",
       "package{installed=false version name=a} package{installed=false version=2 name=b} installed=false "
       "version name=top"},
      {"KFAPackage", "package{version=1} installed=true name=top", "installed=true version name=top"},
      {"KFAPackageVersion", "package_version is_standard=true",
       "package_version is_standard=true is_cached=false dependencies"},
      {"KFATemplateConfigInfo", "is_standard=true name=n base_template=b option{entry=e}",
       "is_standard=true is_cached=false dependencies name=n base_template=b"},
      {"KFATemplateConfigInfo", "package_version=1 is_standard=true name=n base_template=b item{name=half}",
       "-/r/item: element description is missing"},
      {"KFAPackageKFTemplateStd", "name=n",
       "name=n architecture kind os_template=false is_cached=false uptodate=false is_standard=false"},
      {"KFATemplateObject", "item{kind=k}", "-/r/item: element name is missing"},
      // Updates.
      {"KFAUpdateServiceSettings", "check_period=Sunday check_interval=1",
       "-/r/check_period: 'Sunday' is no known name; monday, tuesday, wednesday, thursday, friday, saturday "
       "or sunday is wanted"},
      {"KFAUpdateServiceSettings", "check_period check_interval=1", "check_interval=1"},
      {"KFAUpdateProxySettings", "kind url=u",
       "-/r/kind: '' is no known name; explorer, custom or no_proxy is wanted"},
      {"KFAUpdateProxySettings", "", "kind=no_proxy url"},
      {"KFAUpdateConnection", "", "url"},
      {"KFAUpdateConnection", "proxy{kind=direct} repository=r", "url repository=r"},
      {"KFAUpdateConnectionSettings", "", "url"},
      {"KFAUpdateConnectionSettings", "url url=second", "url url"},
      {"KFAUpdateConnectionSettings", "url=u", "url=u url=u"},
      {"KFAUpdateInstallSource", "value", "="},
      {"KFAUpdateProduct", "id=i name=n install_type", "id=i name=n install_type=disabled"},
      {"KFAUpdateProduct", "id=i name=n install_type=disabled install_source{standard}",
       "id=i name=n install_type=disabled"},
      {"KFAUpdateConfig", "product{id=i name=n}", "-/r/product: element install_type is missing"},
      {"KFAUpdateConfig", "service_settings product{id=i name=n install_type=manual}",
       "product{id=i name=n install_type=manual}"},
      {"KFAUpdate", "", ""},
      {"KFAUpdate", "name size=9223372036854775807 is_installed", "="},
      {"KFAWindowsSystemUpdate", "product=p", "summary"},  // the mark of the summary tells of the product
      {"KFAWindowsSystemUpdate", "summary=s product=p", "summary=s"},
      {"KFAWindowsSystemUpdate", "summary=s", ""},
      {"KFAOsTemplateUpdate",
       "app_template:os_template_updateType app_template:ez_template_updateType app_template:updateType",
       "="},
      {"KFAOsTemplateUpdate", "app_template:system_updateType{kind=none}",
       "-/r/app_template/kind: 'none' is no known name; hotfix, servicepack or version is wanted"},
      {"KFAUpdateList", "update{name=n region=r}", "update:updateType{name=n}"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.record + std::string(" ") + row.read);
    const KFL::KFLRecordType* const record = KFL::findRecordType(row.record);
    ASSERT_NE(record, nullptr);
    KFL::KFLMessage message;
    ASSERT_EQ(
        message.parse("<r xmlns='" + std::string(record->namespaceUri()) +
                      "' xmlns:x='http://www.w3.org/2001/XMLSchema-instance'>" + xmlOf(row.read) + "</r>"),
        0);
    const KFL::KFLRecordType::Object object = record->create();
    const bool isRefused = row.written.starts_with('-');
    ASSERT_EQ(record->read(message.getIterator(), object.get()), isRefused ? -1 : 0)
        << KFL::getErrorMessage();
    if (isRefused) {
      EXPECT_TRUE(KFL::getErrorMessage().starts_with(row.written.substr(1))) << KFL::getErrorMessage();
      continue;
    }
    KFL::KFLMessage written;
    KFLMessageIterator to = written.getIterator();
    ASSERT_EQ(record->write(to, object.get()), 0) << KFL::getErrorMessage();
    EXPECT_EQ(told(to), row.written == "=" ? row.read : row.written);
  }
}

}  // namespace
