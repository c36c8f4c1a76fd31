// SPDX-License-Identifier: Apache-2.0
// What each record makes of small messages: what it needs, what it does without, and which names it takes.
#include <string>
#include <string_view>

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

// Takes from the text up to one of the ends.
std::string take(std::string_view& text, const char* ends) {
  const std::string taken(text.substr(0, text.find_first_of(ends)));
  text.remove_prefix(taken.size());
  return taken;
}

bool takeSign(std::string_view& text, char sign) {
  const bool isThere = text.starts_with(sign);
  text.remove_prefix(isThere ? 1 : 0);
  return isThere;
}

void make(KFLMessageIterator& it, std::string_view& text) {
  while (!text.empty() && !takeSign(text, '}')) {
    it.addChild(take(text, ":={} "));
    if (takeSign(text, ':')) it.setTypeByName(it.getNamespace(), take(text, "{} "));
    if (takeSign(text, '=')) it.putValue(take(text, "} "));
    if (takeSign(text, '{')) make(it, text);
    it.leaveChild();
    takeSign(text, ' ');
  }
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
      {"KFAQuotaStats",
       "disk_space{current=1 soft=2 hard=3 count=4 expire=5} diks_inodes{current=1 soft=2 hard=3 count=4 "
       "expire=5} ugids{current=1 soft=2 hard=3 count=4 expire=5}",
       "="},
      {"KFAUGIDQuotaInfo", "kind=1 ugid_limits", "="},
      {"KFAUGIDQuotaInfo", "kind=1 ugid_limits{ugid_limit} grace_period", "kind=1"},
      // Disks.
      {"HardDisk::Zloop", "", "size=0"},
      {"HardDisk::Zloop", "id=no_guid size=x", "size=0"},
      {"HardDisk::Zloop", "id=2f1c9a4e-7b30-4c58-9d7e-0a4b6c1d2e3f path=root size=1 expanded", "="},
      {"HardDisk::KfFS", "", "disk_quota{id hard=0} inodes{id hard=0}"},
      {"HardDisk::Loopback", "device=d mount_point=p",
       "device=d mount_point=p file_system=auto read_only=false auto_mount=false size=0"},
      {"HardDisk::List::Images<Loopback>", "", ""},
      {"HardDisk::List::Images<Loopback>", "disk", "-/r/disk: element device is missing"},
      // Environments and nodes.
      {"KFAConnectionLinkInfo", "link=l client_port=no_number", "client_ip client_port=0 link=l port=0"},
      {"KFAVtSettings", "", "qoses"},
      {"KFAVtSettings", "no_offline_service", "no_offline_service qoses"},
      {"KFAVtSettings", "offline_service=a offline_service=b", "offline_service=a offline_service=b qoses"},
      {"KFACalculateHWNodeNotes", "", ""},
      {"KFACalculateHWNodeNotes", "statement statement{code=many} exclude_path",
       "exclude_path{path} statement{message code=0} statement{message code=0}"},
      {"KFACalculateHWNodeNotes", "exclude_path{path=/a limit=x}", "exclude_path{path=/a}"},
      {"KFACalculateHWNodeNotes", "eid=none statement", "-/r/eid: \"none\" is no GUID"},
      {"KFAMigratorCloneOptions", "", "config:venv_configType"},
      {"KFAMigratorCloneOptions", "keep_source", "keep_source config:venv_configType"},
      {"KFANetVEth", "name host_routed", "-/r: a network device has no interface name"},
      {"KFANetVEth", "mac=m", "-/r: a network device has no interface name"},
      {"KFANetVEth", "name=eth0", "="},
      {"KFLEnv", "eid=none", "-/r/eid: \"none\" is no GUID"},
      {"KFLEnv", "eid=6d2a1f58-3c94-4b07-a1e5-9f80b7c2d413 parent_eid status=7",
       "eid=6d2a1f58-3c94-4b07-a1e5-9f80b7c2d413 parent_eid=00000000-0000-0000-0000-000000000000 status=7 "
       "alert_type=0 alert_type=0 alert_type=0 alert_type=0 alert_type=0"},
      {"KFLEnv",
       "eid=6d2a1f58-3c94-4b07-a1e5-9f80b7c2d413 parent_eid=00000000-0000-0000-0000-000000000000 status=0 "
       "alert_type=3 alert_type=1 alert_type=1 alert_type=1 alert_type=4",
       "="},
      {"KFLEnv",
       "eid=6d2a1f58-3c94-4b07-a1e5-9f80b7c2d413 alert_type=3 alert_type=1 alert_type=1 alert_type=1 "
       "alert_type=4 alert_type=1",
       "-/r: 6 elements alert_type are too many"},
      {"KFLEnv", "eid=6d2a1f58-3c94-4b07-a1e5-9f80b7c2d413 alert_type=loud",
       "-/r/alert_type: 'loud' is no 32-bit number"},
      {"KFLDevMountInfo", "device=d mount_point=p",
       "device=d mount_point=p file_system=auto read_only=false auto_mount=false size=0"},
      {"KFLNetNIC", "name=eth1", "="},
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
      {"KFAPackageVersion", "package_version=1 is_standard=true",
       "package_version=1 is_standard=true is_cached=false dependencies"},
      {"KFAPackageVersion", "package_version is_standard=true",
       "package_version is_standard=true is_cached=false dependencies"},
      {"KFATemplateConfigInfo", "package_version=1 is_standard=true name=n base_template=b",
       "package_version=1 is_standard=true is_cached=false dependencies name=n base_template=b"},
      {"KFATemplateConfigInfo", "is_standard=true name=n base_template=b option{entry=e}",
       "is_standard=true is_cached=false dependencies name=n base_template=b"},
      {"KFATemplateConfigInfo", "package_version=1 is_standard=true name=n base_template=b item{name=half}",
       "-/r/item: element description is missing"},
      {"KFAPackageKFTemplate", "name=n",
       "name=n architecture kind os_template=false is_cached=false uptodate=false"},
      {"KFAPackageKFTemplateStd", "name=n",
       "name=n architecture kind os_template=false is_cached=false uptodate=false is_standard=false"},
      {"KFATemplateObject", "item{kind=k}", "-/r/item: element name is missing"},
      // Updates.
      {"KFAUpdateServiceSettings", "check_period=Sunday check_interval=1",
       "-/r/check_period: 'Sunday' is no known name; monday, tuesday, wednesday, thursday, friday, saturday "
       "or sunday is wanted"},
      {"KFAUpdateServiceSettings", "check_period check_interval=1", "check_interval=1"},
      {"KFAUpdateProxySettings", "kind=direct url=u",
       "-/r/kind: 'direct' is no known name; explorer, custom or no_proxy is wanted"},
      {"KFAUpdateProxySettings", "kind url=u",
       "-/r/kind: '' is no known name; explorer, custom or no_proxy is wanted"},
      {"KFAUpdateProxySettings", "kind=custom url=u", "kind=custom url=u url=u"},
      {"KFAUpdateProxySettings", "kind=explorer", "kind=explorer url"},
      {"KFAUpdateProxySettings", "", "kind=no_proxy url"},
      {"KFAUpdateConnection", "", "url"},
      {"KFAUpdateConnection", "proxy{kind=direct} repository=r", "url repository=r"},
      {"KFAUpdateConnectionSettings", "", "url"},
      {"KFAUpdateConnectionSettings", "url url=second", "url url"},
      {"KFAUpdateConnectionSettings", "url=u", "url=u url=u"},
      {"KFAUpdateInstallSource", "value", "="},
      {"KFAUpdateProduct", "id=i name=n install_type=never",
       "-/r/install_type: 'never' is no known name; auto_download, automatic, manual or disabled is wanted"},
      {"KFAUpdateProduct", "id=i name=n install_type", "id=i name=n install_type=disabled"},
      {"KFAUpdateProduct", "id=i name=n install_type=disabled install_source{standard}",
       "id=i name=n install_type=disabled"},
      {"KFAUpdateConfig", "", ""},
      {"KFAUpdateConfig", "product{id=i name=n}", "-/r/product: element install_type is missing"},
      {"KFAUpdateConfig", "service_settings product{id=i name=n install_type=manual}",
       "product{id=i name=n install_type=manual}"},
      {"KFAUpdate", "", ""},
      {"KFAUpdate", "name size=9223372036854775807 is_installed", "="},
      {"KFAWindowsSystemUpdate", "kind=Hotfix product=p",
       "-/r/kind: 'Hotfix' is no known name; hotfix, servicepack or version is wanted"},
      {"KFAWindowsSystemUpdate", "product=p", "summary"},  // the mark of the summary tells of the product
      {"KFAWindowsSystemUpdate", "summary=s product=p", "summary=s"},
      {"KFAWindowsSystemUpdate", "summary=s", ""},
      {"KFASystemUpdate", "kind=hotfix", "="},
      {"KFAOsTemplateUpdate",
       "app_template:os_template_updateType app_template:ez_template_updateType app_template:updateType",
       "="},
      {"KFAOsTemplateUpdate", "app_template:system_updateType{kind=none}",
       "-/r/app_template/kind: 'none' is no known name; hotfix, servicepack or version is wanted"},
      {"KFAUpdateList", "update:cloud_updateType{name=n region=r}", "update:updateType{name=n}"},
      {"KFAUpdateList", "update{name=n region=r}", "update:updateType{name=n}"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.record + std::string(" ") + row.read);
    const KFL::KFLRecordType* const record = KFL::findRecordType(row.record);
    ASSERT_NE(record, nullptr);
    KFL::KFLMessage message("r");
    KFLMessageIterator it = message.getIterator();
    it.setName("r", record->namespaceUri());
    std::string_view text = row.read;
    make(it, text);
    const KFL::KFLRecordType::Object object = record->create();
    const bool isRefused = row.written.starts_with('-');
    ASSERT_EQ(record->read(it, object.get()), isRefused ? -1 : 0) << KFL::getErrorMessage();
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
