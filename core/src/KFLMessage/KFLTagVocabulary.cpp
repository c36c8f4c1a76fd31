// SPDX-License-Identifier: Apache-2.0
#include <KFLMessage/KFLTagVocabulary.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>

#include <KFLMessage/KFLTagIndex.h>

namespace KFL {

namespace {

// Number and element name, in ascending order of the numbers. The numbers are permanent. Behind them, with
// the number 0, stand names that have none: being here only makes them known to every tree.
constexpr KFLTag kTags[] = {
    {1002, "veid"},
    {1004, "count"},
    {1007, "kind"},
    {1010, "id"},
    {1012, "url"},
    {1017, "entry"},
    {1018, "value"},
    {1023, "release"},
    {1024, "size"},
    {1025, "login"},
    {1026, "name"},
    {1032, "password"},
    {1034, "mask"},
    {1065, "current"},
    {1066, "soft"},
    {1067, "hard"},
    {1070, "bandwidth"},
    {1094, "shaping_class"},
    {1099, "report"},
    {1100, "service_settings"},
    {1101, "repository"},
    {1118, "installed"},
    {1156, "path"},
    {1185, "config"},
    {1223, "version"},
    {1224, "message"},
    {1226, "template"},
    {1231, "inode_limit"},
    {1232, "space_limit"},
    {1248, "enabled"},
    {1250, "interface_shaping"},
    {1251, "guaranteed_rate"},
    {1252, "maximum_rate"},
    {1253, "ip_range"},
    {1262, "link"},
    {1264, "summary"},
    {1274, "is_installed"},
    {1275, "disk"},
    {1276, "details"},
    {1278, "build"},
    {1281, "nameserver"},
    {1295, "item"},
    {1301, "inodes"},
    {1302, "comment"},
    {1304, "value_kind"},
    {1305, "default"},
    {1307, "formula"},
    {1315, "email"},
    {1323, "redirect_service"},
    {1328, "native_config"},
    {1338, "location"},
    {1346, "exclude_path"},
    {1347, "subject"},
    {1377, "ugid_limit"},
    {1405, "code"},
    {1417, "shaping_class_id"},
    {1463, "iptables"},
    {1476, "qos_id"},
    {1479, "parameter"},
    {1480, "statement"},
    {1481, "remark"},
    {1496, "description"},
    {1497, "package_version"},
    {1498, "is_standard"},
    {1499, "is_cached"},
    {1501, "base_template"},
    {1502, "option"},
    {1509, "dependencies"},
    {1511, "package"},
    {1538, "ugid_limits"},
    {1549, "ve_root"},
    {1550, "ve_private"},
    {1556, "on_boot"},
    {1557, "rate_bound"},
    {1573, "grace_period"},
    {1579, "ugids"},
    {1582, "space"},
    {1586, "idle_time"},
    {1632, "attachment"},
    {1647, "offline_management"},
    {1652, "address"},
    {1704, "port"},
    {1705, "auto_install"},
    {1733, "os_template"},
    {1747, "offline_service"},
    {1780, "distribution"},
    {1786, "capability"},
    {1795, "proxy_exceptions"},
    {1803, "install_source"},
    {1811, "disk_quota"},
    {1813, "contact"},
    {1818, "limit"},
    {1837, "slm_mode"},
    {1839, "install_type"},
    {1843, "proxy"},
    {1846, "os_version"},
    {1857, "keep_source"},
    {1859, "role"},
    {1899, "eid"},
    {1992, "check_interval"},
    {2005, "os_platform"},
    {2047, "ip_address"},
    {2053, "net_device"},
    {2291, "is_sample"},
    {0, "alert_type"},
    {0, "allow_reboot"},
    {0, "architecture"},
    {0, "class_id"},
    {0, "client_ip"},
    {0, "client_port"},
    {0, "config_customized"},
    {0, "dhcp"},
    {0, "dhcp_v6"},
    {0, "disabled"},
    {0, "disk_list"},
    {0, "expanded"},
    {0, "gateway"},
    {0, "gateway_v6"},
    {0, "host_routed"},
    {0, "hostname"},
    {0, "interface_rate"},
    {0, "kernel"},
    {0, "lock_dir"},
    {0, "log_file"},
    {0, "log_level"},
    {0, "mac"},
    {0, "nameservers"},
    {0, "net_device_id"},
    {0, "network"},
    {0, "no_offline_service"},
    {0, "origin_sample"},
    {0, "os"},
    {0, "parent_eid"},
    {0, "platform"},
    {0, "qos"},
    {0, "qoses"},
    {0, "search_domain"},
    {0, "status"},
    {0, "sve_eid"},
    {0, "technology"},
    {0, "template_dir"},
    {0, "ts_license_server"},
    {0, "ts_mode"},
    {0, "type"},
    {0, "uuid"},
    {0, "ve_type"},
    {0, "virtual_config"},
    {0, "wins_server"},
};

constexpr std::size_t countNumbered() {
  std::size_t count = 0;
  while (count < std::size(kTags) && kTags[count].number != 0)
    ++count;
  return count;
}
constexpr std::size_t kNumbered = countNumbered();

struct NumberedName {
  int number;
  std::string_view name;
};

constexpr NumberedName kNamespaces[] = {
    {kTypesNamespace, kTypesNamespaceURI},
    {kRelocatorNamespace, kRelocatorNamespaceURI},
};

constexpr NumberedName kTypes[] = {
    {120, "env_configType"},  {121, "venv_configType"}, {122, "envType"},     {151, "vt_infoType"},
    {152, "vt_settingsType"}, {155, "packageType"},     {167, "net_nicType"}, {275, "clone_optionsType"},
    {307, "hw_notesType"},    {311, "log_optionsType"},
};

template <class Range>
constexpr std::string_view nameOf(const Range& range, int number) {
  for (const NumberedName& row : range) {
    if (row.number == number) return row.name;
  }
  return {};
}

constexpr bool ascends() {
  for (std::size_t i = 1; i < kNumbered; ++i) {
    if (kTags[i - 1].number >= kTags[i].number) return false;
  }
  return true;
}
static_assert(ascends(), "the vocabulary is searched by number");

constexpr bool namesAreUnique() {
  for (std::size_t i = 0; i < std::size(kTags); ++i) {
    for (std::size_t j = i + 1; j < std::size(kTags); ++j) {
      if (kTags[i].name == kTags[j].name) return false;
    }
  }
  return true;
}
static_assert(namesAreUnique(), "one element name has one number");

static_assert(std::size(kTags) < kTagPositionLimit, "every position is below the limit");

using Position = std::uint16_t;

constexpr auto positionsByNumber() {
  std::array<Position, kTags[kNumbered - 1].number + 1> positions{};
  for (std::size_t i = 0; i < kNumbered; ++i)
    positions[kTags[i].number] = static_cast<Position>(i + 1);
  return positions;
}
constexpr auto kByNumber = positionsByNumber();

// Names by hash, open addressing, a quarter full at most. Length and three characters tell the names apart
// well enough.
constexpr std::size_t kSlots = 1024;
static_assert(std::size(kTags) <= kSlots / 4, "a search by name ends soon");

constexpr std::size_t slotOf(std::string_view name) {
  if (name.empty()) return 0;
  const auto at = [name](std::size_t i) {
    return static_cast<std::uint32_t>(static_cast<unsigned char>(name[i]));
  };
  const std::uint32_t hash = at(0) | at(name.size() / 2) << 8U | at(name.size() - 1) << 16U;
  return ((hash | static_cast<std::uint32_t>(name.size()) << 24U) * 2654435769U) >> 22U;
}

constexpr auto positionsByName() {
  std::array<Position, kSlots> positions{};
  for (std::size_t i = 0; i < std::size(kTags); ++i) {
    std::size_t slot = slotOf(kTags[i].name);
    while (positions[slot] != 0)
      slot = (slot + 1) % kSlots;
    positions[slot] = static_cast<Position>(i + 1);
  }
  return positions;
}
constexpr auto kByName = positionsByName();

constexpr std::size_t longestName() {
  std::size_t longest = 0;
  for (const KFLTag& tag : kTags)
    longest = tag.name.size() > longest ? tag.name.size() : longest;
  return longest;
}
constexpr std::size_t kLongestName = longestName();

}  // namespace

KFLTagRange tagVocabulary() {
  return {std::begin(kTags), std::begin(kTags) + kNumbered};
}

std::uint32_t tagPosition(int number) {
  return number > 0 && static_cast<std::size_t>(number) < kByNumber.size()
             ? kByNumber[static_cast<std::size_t>(number)]
             : 0;
}

std::uint32_t tagPosition(std::string_view name) {
  if (name.size() > kLongestName) return 0;
  for (std::size_t slot = slotOf(name); kByName[slot] != 0; slot = (slot + 1) % kSlots) {
    if (kTags[kByName[slot] - 1].name == name) return kByName[slot];
  }
  return 0;
}

std::string_view tagName(int number) {
  const std::uint32_t position = tagPosition(number);
  return position == 0 ? std::string_view() : kTags[position - 1].name;
}

int tagNumber(std::string_view name) {
  const std::uint32_t position = tagPosition(name);
  return position == 0 ? 0 : kTags[position - 1].number;
}

std::string_view namespaceName(int number) {
  return nameOf(kNamespaces, number);
}

std::string_view typeName(int number) {
  return nameOf(kTypes, number);
}

}  // namespace KFL
