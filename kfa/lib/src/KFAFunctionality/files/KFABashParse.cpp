// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/files/KFABashParse.h>

#include <cstdio>
#include <string_view>

#include <KFLFunctionality/KFLOS.h>

#include <KFAFunctionality/environment/KFAVPSType.h>
#include <KFAFunctionality/templates/KFAArchitectureSelector.h>

namespace KFA {

namespace {

using Text = KFL::KFLOptionalProperty<std::string>;

// Files say x86 where records say i386.
Text architectureOfFile(std::string_view word) {
  return Text(std::string(KFL::equalsIgnoreCase(word, "x86") ? std::string_view("i386") : word));
}

int kindOf(std::string_view text) {
  struct Row {
    std::string_view word;
    int kind;
  };
  // The first word that the text contains decides, and the longer one comes first.
  constexpr Row kRows[] = {{"repaired", KFAVPSType::kRepaired},
                           {"repair", KFAVPSType::kRepair},
                           {"temporary", KFAVPSType::kTemporary}};
  for (const Row& row : kRows) {
    if (text.find(row.word) != std::string_view::npos) return row.kind;
  }
  return KFAVPSType::kRegular;
}

}  // namespace

KFABashParse::~KFABashParse() = default;

FromStringConverter<KFL::KFLOptionalProperty<KFAVPSType>>::operator KFL::KFLOptionalProperty<KFAVPSType>()
    const {
  const std::size_t colon = text_.find(':');
  int number = 0;
  if (colon != std::string::npos && std::sscanf(text_.c_str() + colon + 1, "%d", &number) != 1) number = 0;
  return KFL::KFLOptionalProperty<KFAVPSType>(KFAVPSType(kindOf(text_), number));
}

ToStringConverter<KFL::KFLOptionalProperty<KFAVPSType>>::operator std::string() const {
  const KFAVPSType& type = type_.getValue();
  switch (type.getType()) {
    case KFAVPSType::kRepair:
      return "repair:" + std::to_string(type.getSubType());
    case KFAVPSType::kRepaired:
      return "repaired:" + std::to_string(type.getSubType());
    default:
      return "regular";
  }
}

int KFABashParsePlatform::operator()(const char*, const char* value, KFL::KFLEnvConfig& record) {
  KFL::KFLOptionalProperty<KFL::KFLOS> os;
  record.getOS(os);
  KFL::KFLOS description = os.getValue();
  description.setPlatform(std::string(value));
  return record.setOS(description);
}

int KFABashParsePlatform::operator()(const char*, const KFL::KFLEnvConfig& record, std::string& value) const {
  KFL::KFLOptionalProperty<KFL::KFLOS> os;
  if (record.getOS(os) != 0 || !os.isSpecified()) return -1;
  const Text& platform = os.getValue().getPlatform();
  if (!platform.isSpecified()) return -1;
  value = platform.getValue();
  return 0;
}

int KFABashParseArch::operator()(const char*, const char* value, KFL::KFLEnvConfig& record) {
  Text there;
  record.getArchitecture(there);
  if (there.isSpecified()) return 0;
  return record.setArchitecture(architectureOfFile(value)) == 0 ? 0 : 1;
}

int KFABashParseArch::operator()(const char*, const KFL::KFLEnvConfig& record, std::string& value) const {
  Text architecture;
  if (record.getArchitecture(architecture) != 0 || !architecture.isSpecified()) return -1;
  value = KFL::equalsIgnoreCase(architecture.getValue(), "i386") ? "x86" : architecture.getValue();
  return 0;
}

int KFABashParseTechnologies::operator()(const char*, const char* value, KFL::KFLEnvConfig& record) {
  KFL::getToken words(value, " \t\n\v\f\r", 0);
  while (const char* word = words.get(nullptr)) {
    if (KFAArchitectureSelector()(word)) return record.setArchitecture(architectureOfFile(word));
  }
  return 0;
}

int KFABashParseTechnologies::operator()(const char*, const KFL::KFLEnvConfig&, std::string&) const {
  return -1;
}

}  // namespace KFA
