// SPDX-License-Identifier: Apache-2.0
#include <KFLFunctionality/KFLVEnvConfig.h>

#include <algorithm>
#include <iterator>
#include <string_view>

#include <KFLCommon/KFLText.h>
#include <KFLMessage/KFLRecordElements.h>
#include <KFLMessage/KFLRecordRegistry.h>

namespace KFL {

static const KFLRecordRegistration<KFLVEnvConfig> recordKFLVEnvConfig("KFLVEnvConfig");

namespace {

constexpr const char* kDisabled = "disabled";
constexpr const char* kConfigCustomized = "config_customized";
constexpr const char* kClassID = "class_id";
constexpr const char* kQoS = "qos";
constexpr int kIdOfQoS = 1010;
constexpr int kSoftOfQoS = 1066;
constexpr int kHardOfQoS = 1067;

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
int KFLVEnvConfig::setOrderedQoSes(const std::vector<QoSValue>& qoses) {
  // What the writer of a parameter writes, which stands in the namespace of the property itself.
  return setItems({kQoS}, &qoses, [](KFLMessageIterator& it, const QoSValue& qos) {
    int result = it.putValue(qos.id, kIdOfQoS);
    if (result == 0 && qos.soft.isSpecified()) result = it.putValue(qos.soft.getValue(), kSoftOfQoS);
    return result != 0 ? result : it.putValue(qos.hard, kHardOfQoS);
  });
}

int KFLVEnvConfig::getQoS(const std::string& id, KFLOptionalProperty<KFLQoS>& qos) const {
  if (!hasMsg()) return failWithoutMessage();
  qos.setSpecified(false);
  KFLMessageIterator found;
  KFLMessageIterator at(it_);
  bool isSpelled = false;
  for (int left = at.findChild(kQoS); left == 0 && !isSpelled; left = at.findNextChild(kQoS)) {
    if (at.findChild(kIdOfQoS) != 0) continue;
    isSpelled = at.getText() == id;
    const bool isFound = isSpelled || (!found.isValid() && equalsIgnoreCase(at.getText(), id));
    at.leaveChild();
    if (isFound) found = at;
  }
  if (!found.isValid()) return 0;
  KFLQoS read;
  const int result = found.getObj(read);
  if (result == 0) qos.setValue(std::move(read));
  return result;
}
int KFLVEnvConfig::getQoS(KFLOptionalProperty<KFLQoS>& qos) const {
  const std::string id = qos.getValue().getID();
  return getQoS(id, qos);
}
int KFLVEnvConfig::setQoS(const KFLOptionalProperty<KFLQoS>& qos) {
  QoSes all;
  initMsg();
  if (getQoSes(all) != 0) return -1;
  if (!qos.isSpecified() && !all.isSpecified()) return 0;
  if (const KFLQoS* const former = findQoS(all.getValue(), qos.getValue().getID()); former != nullptr)
    all.value().erase(KFLQoS(*former));
  if (qos.isSpecified()) all.value().insert(qos.getValue());
  all.setSpecified(true);
  return setQoSes(all);
}

const KFLQoS* findQoS(const std::set<KFLQoS>& qoses, std::string_view id) {
  if (const auto spelled = qoses.find(KFLQoS(std::string(id))); spelled != qoses.end()) return &*spelled;
  const auto found =
      std::ranges::find_if(qoses, [id](const KFLQoS& qos) { return equalsIgnoreCase(qos.getID(), id); });
  return found == qoses.end() ? nullptr : &*found;
}

}  // namespace KFL
