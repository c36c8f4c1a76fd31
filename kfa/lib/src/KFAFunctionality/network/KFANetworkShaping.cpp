// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/network/KFANetworkShaping.h>

#include <KFLMessage/KFLRecordRegistry.h>

namespace KFA {

namespace {

const KFLRecordRegistration<KFANetworkShapingClass> recordShapingClass("KFANetworkShapingClass");
const KFLRecordRegistration<KFANetworkShapingIPRange> recordShapingIPRange("KFANetworkShapingIPRange");
const KFLRecordRegistration<KFANetworkInterfaceShaping> recordInterfaceShaping("KFANetworkInterfaceShaping");
const KFLRecordRegistration<KFANetConfiguration> recordNetConfiguration("KFANetConfiguration");

}  // namespace

const KFLFieldTable& KFANetworkShapingClass::fields() {
  using R = KFANetworkShapingClass;
  static constexpr KFLField rows[] = {
      field<R, &R::id_>(1010).required(),
      field<R, &R::guaranteedRate_>(1251),
      field<R, &R::maximumRate_>(1252),
  };
  static constexpr KFLFieldTable table{"KFANetworkShapingClass", kTypesURI, "", rows};
  return table;
}

const KFLFieldTable& KFANetworkShapingIPRange::fields() {
  using R = KFANetworkShapingIPRange;
  static constexpr KFLField rows[] = {
      field<R, &R::shapingClassID_>(1417).required(),
      field<R, &R::address_>(2047).required().orEmptyItem(),
      field<R, &R::mask_>(1034),
  };
  static constexpr KFLFieldTable table{"KFANetworkShapingIPRange", kTypesURI, "", rows};
  return table;
}

const KFLFieldTable& KFANetworkInterfaceShaping::fields() {
  using R = KFANetworkInterfaceShaping;
  static constexpr KFLField rows[] = {
      field<R, &R::device_>("net_device_id").required(),
      field<R, &R::bandwidth_>(1070).required(),
  };
  static constexpr KFLFieldTable table{"KFANetworkInterfaceShaping", kTypesURI, "", rows};
  return table;
}

const KFLFieldTable& KFANetConfiguration::fields() {
  using R = KFANetConfiguration;
  static constexpr KFLField rows[] = {
      presence<R, &R::enabled_>(1248),
      list<R, &R::ranges_>(1253).required(),
      list<R, &R::classes_>(1094).required(),
      list<R, &R::devices_>(1250).required(),
  };
  static constexpr KFLFieldTable table{"KFANetConfiguration", kTypesURI, "", rows};
  return table;
}

}  // namespace KFA
