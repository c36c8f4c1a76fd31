// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/environment/KFAVtSettings.h>

#include <utility>

#include <KFLMessage/KFLRecordRegistry.h>

namespace KFA {

static const KFLRecordRegistration<KFAVtSettings> recordKFAVtSettings("KFAVtSettings");

// The offline services: one element per name, or the element that says that there are none.
struct KFAVtSettings::Binding {
  static constexpr const char* kNone = "no_offline_service";

  static int putServices(KFLMessageIterator& it, const KFAVtSettings& settings, const KFLField& row) {
    const OfflineServices& services = settings.offlineServices_;
    if (!services.isSpecified()) return 0;
    bool isEmpty = true;
    for (const KFAOfflineService& service : services.getValue()) {
      if (service.name.empty()) continue;
      it.putValue(service.name, row.id);
      isEmpty = false;
    }
    return isEmpty ? it.addEmptyChild(kNone) : 0;
  }

  static int getServices(const KFLMessageIterator& it, KFAVtSettings& settings, const KFLField& row) {
    const bool isEmpty = it.hasChild(kNone);
    const bool isGiven = isEmpty || it.hasChild(row.id);
    std::vector<std::string> names;
    const int result = isEmpty ? 0 : KFL::fields::getItems(it, names, row.id);
    settings.offlineServices_.value().clear();
    for (std::string& name : names)
      settings.offlineServices_.value().push_back({std::move(name), true});
    settings.offlineServices_.setSpecified(isGiven && result == 0);
    return result;
  }
};

KFAVtSettings::~KFAVtSettings() = default;

const KFLFieldTable& KFAVtSettings::fields() {
  using R = KFAVtSettings;
  static constexpr KFLField rows[] = {
      field<R, &R::lockDir_>("lock_dir"),
      field<R, &R::templateDir_>("template_dir"),
      entries<R, &R::values_>(1017, 1018, 1010),
      special<R, std::string, &Binding::putServices, &Binding::getServices>(1747).atMost(0).orMarker(
          Binding::kNone),
      container<R, &R::qoses_>("qoses", 1476),
      base<R, KFLVtSettings>(),
  };
  static constexpr KFLFieldTable table{"KFAVtSettings", kTypesURI, "vt_settingsType", rows};
  return table;
}

void KFAVtSettings::enableOfflineServices(const std::set<std::string>& names) {
  for (KFAOfflineService& service : offlineServices_.value())
    service.enabled = names.count(service.name) != 0;
}

}  // namespace KFA
