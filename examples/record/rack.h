// SPDX-License-Identifier: Apache-2.0
// Records of an agent's own: a rack with its sensors, and a kind of network device.
#ifndef RACK_H
#define RACK_H

#include <string>
#include <vector>

#include <boost/smart_ptr/shared_ptr.hpp>

#include <KFLFunctionality/KFLNetDevice.h>
#include <KFLMessage/KFLDerivedParsers.h>
#include <KFLMessage/KFLRecordFields.h>

namespace rack {

inline constexpr const char* kRackURI = "http://agent.example.com/rack/1.0.0/types";

// A base of one's own: what every sensor is, and no fields.
class Sensor {
 public:
  virtual ~Sensor();
  static const KFL::KFLFieldTable& elements();
  virtual std::string describe() const = 0;
};

// One kind of sensor.
class Thermometer : public Sensor {
 public:
  ~Thermometer() override;
  static const KFL::KFLFieldTable& fields();
  using Writer = KFL::KFLRecordWriter<Thermometer>;
  using Reader = KFL::KFLRecordReader<Thermometer>;
  std::string describe() const override;

  int celsius = 0;
};

// A record that holds sensors of any kind.
class Rack {
 public:
  static const KFL::KFLFieldTable& fields();
  using Writer = KFL::KFLRecordWriter<Rack>;
  using Reader = KFL::KFLRecordReader<Rack>;

  std::string name;
  KFL::KFLOptionalProperty<int> units;
  std::vector<boost::shared_ptr<Sensor>> sensors;
};

// A kind of network device: a class derived from one of the core's.
class Bond : public KFL::KFLNetDevice {
 public:
  Bond() = default;
  Bond(const Bond&) = default;
  Bond(Bond&&) = default;
  Bond& operator=(const Bond&) = default;
  Bond& operator=(Bond&&) = default;
  ~Bond() override;
  static const KFL::KFLFieldTable& fields();
  using Writer = KFL::KFLRecordWriter<Bond>;
  using Reader = KFL::KFLRecordReader<Bond>;

  std::string name;
  std::vector<std::string> members;
};

}  // namespace rack

KFL_DECLARE_DERIVED_REGISTRY(rack::Sensor)

#endif
