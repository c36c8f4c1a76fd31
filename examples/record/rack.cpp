// SPDX-License-Identifier: Apache-2.0
#include "rack.h"

#include <KFLMessage/KFLRecordDerivedFields.h>
#include <KFLMessage/KFLRecordRegistry.h>

// The registry of the base stands in the library that owns it, and in no other.
KFL_DERIVED_REGISTRY(rack::Sensor)

namespace rack {

using namespace KFL;

Sensor::~Sensor() = default;

const KFLFieldTable& Sensor::elements() {
  static constexpr KFLFieldTable table{"rack::Sensor", kRackURI, "", {}};
  return table;
}

Thermometer::~Thermometer() = default;

const KFLFieldTable& Thermometer::fields() {
  static constexpr KFLField rows[] = {field<Thermometer, &Thermometer::celsius>("celsius").required()};
  static constexpr KFLFieldTable table{"Thermometer", kRackURI, "thermometerType", rows};
  return table;
}

std::string Thermometer::describe() const {
  return std::to_string(celsius) + " degrees";
}

const KFLFieldTable& Rack::fields() {
  static constexpr KFLField rows[] = {
      field<Rack, &Rack::name>("name").required(),
      field<Rack, &Rack::units>("units"),
      derivedList<Rack, Sensor, &Rack::sensors>("sensor"),
  };
  static constexpr KFLFieldTable table{"Rack", kRackURI, "rackType", rows};
  return table;
}

Bond::~Bond() = default;

const KFLFieldTable& Bond::fields() {
  static constexpr KFLField rows[] = {
      field<Bond, &Bond::name>("name").required(),
      list<Bond, &Bond::members>("member"),
  };
  static constexpr KFLFieldTable table{"Bond", kRackURI, "bondType", rows};
  return table;
}

// By name for the tools, and each derived class in the registry of its base.
static const KFLRecordRegistration<Rack> recordRack("Rack");
static const KFLRecordRegistration<Thermometer> recordThermometer("Thermometer");
static const KFLRecordRegistration<Bond> recordBond("Bond");
static KFLDerivedParserFactoryT<Thermometer, Sensor, std::string, Thermometer::Reader, Thermometer::Writer>
    factoryThermometer;
static KFLDerivedParserFactoryT<Bond, KFLNetDevice, std::string, Bond::Reader, Bond::Writer> factoryBond;

}  // namespace rack
