// SPDX-License-Identifier: Apache-2.0
#include <KFLFunctionality/KFLVEnvConfig.h>

#include <algorithm>
#include <iterator>
#include <string_view>

#include <KFLMessage/KFLRecordElements.h>
#include <KFLMessage/KFLRecordRegistry.h>

namespace KFL {

static const KFLRecordRegistration<KFLVEnvConfig> recordKFLVEnvConfig("KFLVEnvConfig");

namespace {

constexpr const char* kDisabled = "disabled";
constexpr const char* kConfigCustomized = "config_customized";
constexpr const char* kClassID = "class_id";
constexpr const char* kQoS = "qos";

// They follow the properties of the base class.
constexpr std::string_view kOrder[] = {kDisabled, kConfigCustomized, kClassID, kQoS};
constexpr int kFirstPosition = 9;

}  // namespace

int KFLVEnvConfig::getPositionOfTheTag(const std::string& tag) const {
  const auto* const found = std::ranges::find(kOrder, tag);
  if (found == std::end(kOrder)) return KFLEnvConfig::getPositionOfTheTag(tag);
  return kFirstPosition + static_cast<int>(found - std::begin(kOrder));
}

const KFLFieldTable& KFLVEnvConfig::elements() {
  static constexpr KFLField rows[] = {
      elementsOf<KFLEnvConfig>(), element<bool>(kDisabled),  element<bool>(kConfigCustomized),
      element<int>(kClassID),     elementList<KFLQoS>(kQoS),
  };
  static constexpr auto table =
      KFLFieldTable{"KFLVEnvConfig", kTypesNamespaceURI, "venv_configType", rows}.inAnyOrder();
  return table;
}

int KFLVEnvConfig::getDisabled(bool& disabled) const {
  bool read = false;
  const int result = getMandatory({kDisabled}, read);
  if (hasMsg()) disabled = read;
  return result;
}
int KFLVEnvConfig::setDisabled(const bool& disabled) {
  return putMandatory({kDisabled}, disabled);
}
int KFLVEnvConfig::getConfigCustomized(KFLOptionalProperty<bool>& customized) const {
  return getProperty({kConfigCustomized}, customized);
}
int KFLVEnvConfig::setConfigCustomized(const KFLOptionalProperty<bool>& customized) {
  return setProperty({kConfigCustomized}, customized);
}
int KFLVEnvConfig::getClassID(KFLOptionalProperty<int>& id) const {
  return getProperty({kClassID}, id);
}
int KFLVEnvConfig::setClassID(const KFLOptionalProperty<int>& id) {
  return setProperty({kClassID}, id);
}

int KFLVEnvConfig::getQoSes(QoSes& qoses) const {
  return getListProperty({kQoS}, qoses);
}
int KFLVEnvConfig::setQoSes(const QoSes& qoses) {
  return setListProperty({kQoS}, qoses);
}

int KFLVEnvConfig::getQoS(const std::string& id, KFLOptionalProperty<KFLQoS>& qos) const {
  if (!hasMsg()) return failWithoutMessage();
  qos.setSpecified(false);
  const KFLMessageIterator it(it_);
  if (it.findChild(kQoS) != 0) return 0;
  constexpr int kIdOfQoS = 1010;
  bool isFound = false;
  do {
    if (it.findChild(kIdOfQoS) != 0) continue;
    isFound = it.getText() == id;
    it.leaveChild();
  } while (!isFound && it.findNextChild(kQoS) == 0);
  if (!isFound) return 0;
  KFLQoS read;
  const int result = it.getObj(read);
  if (result == 0) qos.setValue(std::move(read));
  return result;
}
int KFLVEnvConfig::getQoS(KFLOptionalProperty<KFLQoS>& qos) const {
  const std::string id = qos.getValue().getID();
  return getQoS(id, qos);
}
int KFLVEnvConfig::setQoS(const KFLOptionalProperty<KFLQoS>& qos) {
  return setMember({kQoS}, qos);
}

}  // namespace KFL
