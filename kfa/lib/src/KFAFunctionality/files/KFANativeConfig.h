// SPDX-License-Identifier: Apache-2.0
// The global configuration of the container technology as one text, for tools that edit it as it stands. A plain
// value, found by its type tag among the native configurations of all technologies.
#ifndef KFAFUNCTIONALITY_FILES_KFANATIVECONFIG_H
#define KFAFUNCTIONALITY_FILES_KFANATIVECONFIG_H

#include <string>

#include <KFLFunctionality/KFLNativeConfig.h>
#include <KFLMessage/KFLRecordFields.h>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

class KFANativeConfig : public KFLNativeConfig {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFANativeConfig>;
  // -1 without the text.
  using Reader = KFLRecordReader<KFANativeConfig>;

  KFANativeConfig() = default;
  KFANativeConfig(const KFANativeConfig&) = default;
  KFANativeConfig(KFANativeConfig&&) = default;
  KFANativeConfig& operator=(const KFANativeConfig&) = default;
  KFANativeConfig& operator=(KFANativeConfig&&) = default;
  ~KFANativeConfig() override;

  // The content of the global file.
  const std::string& getText() const { return text_; }
  void setText(const std::string& text) { text_ = text; }

 private:
  std::string text_;
};

}  // namespace KFA

#endif
