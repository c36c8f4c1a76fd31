// SPDX-License-Identifier: Apache-2.0
// The records that stand in configurations and caches, as the classes of kfa.values: a table for each.
#ifndef KFAPYTHON_RECORDS_H
#define KFAPYTHON_RECORDS_H

#include <tuple>

#include <KFLFunctionality/KFLDevMountInfo.h>
#include <KFLFunctionality/KFLOS.h>
#include <KFLFunctionality/KFLQoS.h>

#include <KFAFunctionality/environment/KFAEnvCapability.h>
#include <KFAFunctionality/environment/KFAVPSType.h>
#include <KFAFunctionality/network/KFANetVEth.h>
#include <KFAFunctionality/storage/KFAHardDisk.h>
#include <KFAFunctionality/templates/KFADistribution.h>
#include <KFAFunctionality/templates/KFATemplate.h>
#include <KFAFunctionality/templates/KFATemplateObject.h>

#include "Convert.h"

namespace kfapy {

template <>
struct Fields<KFL::KFLQoS> {
  using R = KFL::KFLQoS;
  static constexpr const char* name = "Resource";
  static constexpr auto rows =
      std::tuple(field("id", &R::getID, &R::setID), field("hard", &R::getHard, &R::setHard),
                 field("soft", &R::getSoft, &R::setSoft));
};

template <>
struct Fields<KFL::KFLOS> {
  using R = KFL::KFLOS;
  static constexpr const char* name = "OperatingSystem";
  static constexpr auto rows = std::tuple(
      field("name", &R::getName, &R::setName), field("version", &R::getVersion, &R::setVersion),
      field("platform", &R::getPlatform, &R::setPlatform), field("kernel", &R::getKernel, &R::setKernel));
};

template <>
struct Fields<KFA::KFATemplate> {
  using R = KFA::KFATemplate;
  static constexpr const char* name = "Template";
  static constexpr auto rows =
      std::tuple(field("name", &R::getName, &R::setName), field("version", &R::getVersion, &R::setVersion));
};

template <>
struct Fields<KFA::KFADistribution> {
  static constexpr const char* name = "Distribution";
  static constexpr auto rows = Fields<KFA::KFATemplate>::rows;
};

template <>
struct Fields<KFA::KFAEnvCapability> {
  using R = KFA::KFAEnvCapability;
  static constexpr const char* name = "Capability";
  static constexpr auto rows =
      std::tuple(field("name", &R::getName, &R::setName), field("value", &R::getValue, &R::setValue));
};

template <>
struct Fields<KFA::KFAVPSType> {
  using R = KFA::KFAVPSType;
  static constexpr const char* name = "EnvironmentType";
  static constexpr auto rows =
      std::tuple(field("kind", &R::getType, &R::setType), field("veid", &R::getSubType, &R::setSubType));
};

template <>
struct Fields<KFA::KFANetVEth> {
  using R = KFA::KFANetVEth;
  static constexpr const char* name = "NetworkDevice";
  static constexpr auto rows = std::tuple(
      field("name", &R::getName, &R::setName), field("addresses", &R::getIPAddresses, &R::setIPAddresses),
      field("mac", &R::getMAC, &R::setMAC), field("network", &R::getNetwork, &R::setNetwork),
      field<AddressText>("gateway", &R::getGateway, &R::setGateway),
      field<AddressText>("gateway6", &R::getGatewayV6, &R::setGatewayV6),
      field("dhcp", &R::getDHCP, &R::setDHCP), field("dhcp6", &R::getDHCPv6, &R::setDHCPv6),
      field("host_routed", &R::getHostRouted, &R::setHostRouted),
      field<AddressText>("wins_servers", &R::getWinsServers, &R::setWinsServers),
      field<AddressText>("nameservers", &R::getNameServers, &R::setNameServers));
};

template <>
struct Fields<KFA::HardDisk::Zloop> {
  using R = KFA::HardDisk::Zloop;
  static constexpr const char* name = "LoopImage";
  static constexpr auto rows =
      std::tuple(field("size", &R::getSize, &R::setSize), field("expanded", &R::getExpanded, &R::setExpanded),
                 field("name", &R::getName, &R::setName), field("guid", &R::getGUID, &R::setGUID));
};

template <>
struct Fields<KFL::KFLDevMountInfo> {
  using R = KFL::KFLDevMountInfo;
  static constexpr const char* name = "Mount";
  static constexpr auto rows = std::tuple(field("device", &R::getDevice, &R::setDevice),
                                          field("mount_point", &R::getMountPoint, &R::setMountPoint),
                                          field("file_system", &R::getFileSystem, &R::setFileSystem),
                                          field("read_only", &R::getReadOnly, &R::setReadOnly),
                                          field("automatic", &R::getAutomatic, &R::setAutomatic),
                                          field("size", &R::getSize, &R::setSize));
};

template <>
struct Fields<KFA::HardDisk::Loopback> {
  using R = KFA::HardDisk::Loopback;
  static constexpr const char* name = "LoopbackDisk";
  static constexpr auto rows =
      std::tuple(field("mount", &R::getMount, &R::setMount), field("guid", &R::getGUID, &R::setGUID));
};

template <>
struct Fields<KFA::HardDisk::KfFS> {
  using R = KFA::HardDisk::KfFS;
  static constexpr const char* name = "SharedArea";
  static constexpr auto rows = std::tuple(field("space", &R::getFirstQuota, &R::setFirstQuota),
                                          field("inodes", &R::getSecondQuota, &R::setSecondQuota),
                                          field("name", &R::getName, &R::setName));
};

template <>
struct Fields<KFA::KFATemplateObject> {
  using R = KFA::KFATemplateObject;
  static constexpr const char* name = "TemplateObject";
  static constexpr auto rows = std::tuple(
      field("name", &R::getName, &R::setName), field("kind", &R::getKind, &R::setKind),
      field("architecture", &R::getArchitecture, &R::setArchitecture), field("os", &R::getOS, &R::setOS),
      field("version", &R::getVersion, &R::setVersion),
      field("os_template", &R::getOsTemplate, &R::setOsTemplate),
      field("cached", &R::getCached, &R::setCached), field("up_to_date", &R::getUpToDate, &R::setUpToDate),
      field("path", &R::getPath, &R::setPath),
      field("technologies", &R::getTechnologyList, &R::setTechnologyList),
      field("environments", &R::getEnvironments, &R::setEnvironments));
};

}  // namespace kfapy

#endif
