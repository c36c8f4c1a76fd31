// SPDX-License-Identifier: Apache-2.0
// The settings of the container technology on a node. A value, read from and written into messages and the
// global configuration file.
#ifndef KFAFUNCTIONALITY_ENVIRONMENT_KFAVTSETTINGS_H
#define KFAFUNCTIONALITY_ENVIRONMENT_KFAVTSETTINGS_H

#include <map>
#include <set>
#include <string>
#include <vector>

#include <KFLCommon/KFLProperty.h>
#include <KFLFunctionality/KFLVtSettings.h>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

// A service that serves environments while they are managed offline. A message carries the name; one that was
// read from a message is enabled.
struct KFAOfflineService {
  std::string name;
  bool enabled = true;

  friend bool operator==(const KFAOfflineService&, const KFAOfflineService&) = default;
};

class KFAVtSettings : public KFLVtSettings {
 public:
  using Text = KFLOptionalProperty<std::string>;
  using OfflineServices = KFLOptionalProperty<std::vector<KFAOfflineService>>;

  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFAVtSettings>;
  using Reader = KFLRecordReader<KFAVtSettings>;

  KFAVtSettings() = default;
  KFAVtSettings(const KFAVtSettings&) = default;
  KFAVtSettings(KFAVtSettings&&) = default;
  KFAVtSettings& operator=(const KFAVtSettings&) = default;
  KFAVtSettings& operator=(KFAVtSettings&&) = default;
  ~KFAVtSettings() override;

  const Text& getLockDir() const { return lockDir_; }
  void setLockDir(const Text& folder) { lockDir_ = folder; }
  const Text& getTemplateDir() const { return templateDir_; }
  void setTemplateDir(const Text& folder) { templateDir_ = folder; }
  // All services that there are, the enabled ones marked.
  const OfflineServices& getOfflineServices() const { return offlineServices_; }
  void setOfflineServices(const OfflineServices& services) { offlineServices_ = services; }
  // Enables the services of the list that are among the names and disables the others; none is added.
  void enableOfflineServices(const std::set<std::string>& names);
  // Every key of the global configuration file with its text.
  const std::map<std::string, std::string>& getValues() const { return values_; }
  void setValues(const std::map<std::string, std::string>& values) { values_ = values; }
  // A key that is there keeps its text.
  void addValue(const std::string& key, const std::string& value) { values_.emplace(key, value); }
  // The ids of the resource parameters that the technology has.
  const std::set<std::string>& getQoSes() const { return qoses_; }
  void setQoSes(const std::set<std::string>& qoses) { qoses_ = qoses; }

 private:
  struct Binding;

  Text lockDir_;
  Text templateDir_;
  OfflineServices offlineServices_;
  std::map<std::string, std::string> values_;
  std::set<std::string> qoses_;
};

}  // namespace KFA

#endif
