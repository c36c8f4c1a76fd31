// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/templates/KFATemplate.h>

#include <KFLCommon/KFLText.h>
#include <KFLMessage/KFLRecordRegistry.h>

namespace KFA {

static const KFLRecordRegistration<KFATemplate> recordKFATemplate("KFATemplate");

const KFLFieldTable& KFATemplate::fields() {
  using R = KFATemplate;
  static constexpr KFLField rows[] = {
      field<R, &R::version_>(1223).mustWrite(),
      field<R, &R::name_>(1026).required().mustWrite(),
  };
  static constexpr KFLFieldTable table{"KFATemplate", kTypesURI, "", rows};
  return table;
}

template <char Separator>
std::string toString(const KFATemplate& what) {
  std::string text = what.getName();
  if (text.empty() || what.getVersion().empty()) return text;
  text.reserve(text.size() + 1 + what.getVersion().size());
  text += Separator;
  text += what.getVersion();
  return text;
}

template <char Separator>
void fromString(KFATemplate& what, const std::string& text) {
  const std::size_t at = text.rfind(Separator);
  const bool hasVersion = at != std::string::npos && at + 1 < text.size() && isDigit(text[at + 1]);
  // The text may be a piece of what is changed, which changes whole or not at all.
  what = KFATemplate(text.substr(0, at), hasVersion ? text.substr(at + 1) : std::string());
}

template std::string toString<'/'>(const KFATemplate& what);
template std::string toString<'-'>(const KFATemplate& what);
template void fromString<'/'>(KFATemplate& what, const std::string& text);
template void fromString<'-'>(KFATemplate& what, const std::string& text);

std::string KFATemplate::toString() const {
  return KFA::toString<'/'>(*this);
}

void KFATemplate::fromString(const std::string& text) {
  KFA::fromString<'/'>(*this, text);
}

}  // namespace KFA
