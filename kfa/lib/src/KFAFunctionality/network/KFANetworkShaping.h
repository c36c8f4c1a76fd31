// SPDX-License-Identifier: Apache-2.0
// How the traffic of a node's network is shaped: classes of traffic with their rates, the addresses that belong to
// each class, and the bandwidth of the node's devices. Plain values. All rates are in kilobits per second, as
// KFLInterfaceRate has them.
#ifndef KFAFUNCTIONALITY_NETWORK_KFANETWORKSHAPING_H
#define KFAFUNCTIONALITY_NETWORK_KFANETWORKSHAPING_H

#include <string>
#include <vector>

#include <KFLFunctionality/KFLIPAddress.h>
#include <KFLMessage/KFLRecordFields.h>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

// A class of traffic.
class KFANetworkShapingClass {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFANetworkShapingClass>;
  // -1 without an id; a rate that is absent is 0.
  using Reader = KFLRecordReader<KFANetworkShapingClass>;

  // The number or name by which ranges and rates refer to the class.
  const std::string& getID() const { return id_; }
  void setID(const std::string& id) { id_ = id; }
  // What each environment is sure to get, and what it can get at most while bandwidth is left; 0 when not given.
  long long getGuaranteedRate() const { return guaranteedRate_; }
  void setGuaranteedRate(long long rate) { guaranteedRate_ = rate; }
  long long getMaximumRate() const { return maximumRate_; }
  void setMaximumRate(long long rate) { maximumRate_ = rate; }

 private:
  std::string id_;
  long long guaranteedRate_ = 0;
  long long maximumRate_ = 0;
};

// Addresses whose traffic belongs to a class.
class KFANetworkShapingIPRange {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFANetworkShapingIPRange>;
  // -1 without a class or an address; a mask that is absent is empty.
  using Reader = KFLRecordReader<KFANetworkShapingIPRange>;

  const std::string& getShapingClassID() const { return shapingClassID_; }
  void setShapingClassID(const std::string& id) { shapingClassID_ = id; }
  // The network's address.
  const KFLIPAddress& getAddress() const { return address_; }
  void setAddress(const KFLIPAddress& address) { address_ = address; }
  // The network's mask or prefix length; empty where the address has it, or is alone.
  const std::string& getMask() const { return mask_; }
  void setMask(const std::string& mask) { mask_ = mask; }

 private:
  std::string shapingClassID_;
  KFLIPAddress address_;
  std::string mask_;
};

// The bandwidth of a device of the node.
class KFANetworkInterfaceShaping {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFANetworkInterfaceShaping>;
  // -1 without a device or its bandwidth.
  using Reader = KFLRecordReader<KFANetworkInterfaceShaping>;

  const std::string& getDevice() const { return device_; }
  void setDevice(const std::string& device) { device_ = device; }
  long long getBandwidth() const { return bandwidth_; }
  void setBandwidth(long long bandwidth) { bandwidth_ = bandwidth; }

 private:
  std::string device_;
  long long bandwidth_ = 0;
};

// The shaping of a whole node.
class KFANetConfiguration {
 public:
  using Ranges = std::vector<KFANetworkShapingIPRange>;
  using Classes = std::vector<KFANetworkShapingClass>;
  using Devices = std::vector<KFANetworkInterfaceShaping>;

  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFANetConfiguration>;
  // -1 at an item that cannot be read; the lists hold what was read before it.
  using Reader = KFLRecordReader<KFANetConfiguration>;

  // Whether traffic is shaped at all.
  bool getEnabled() const { return enabled_; }
  void setEnabled(bool enabled) { enabled_ = enabled; }
  const Ranges& getIPRanges() const { return ranges_; }
  void setIPRanges(const Ranges& ranges) { ranges_ = ranges; }
  const Classes& getClasses() const { return classes_; }
  void setClasses(const Classes& classes) { classes_ = classes; }
  const Devices& getDevices() const { return devices_; }
  void setDevices(const Devices& devices) { devices_ = devices; }

 private:
  bool enabled_ = false;
  Ranges ranges_;
  Classes classes_;
  Devices devices_;
};

}  // namespace KFA

#endif
