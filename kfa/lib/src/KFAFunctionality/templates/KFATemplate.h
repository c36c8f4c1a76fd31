// SPDX-License-Identifier: Apache-2.0
// The identity of a template: its name and, where it has one, its version. A plain value.
//
// The text form is `name/version`, or the name alone. The trap: what follows the last slash is a version only
// when it begins with a digit; otherwise it is dropped, so that `foo/bar` reads as `foo`.
#ifndef KFAFUNCTIONALITY_TEMPLATES_KFATEMPLATE_H
#define KFAFUNCTIONALITY_TEMPLATES_KFATEMPLATE_H

#include <string>

#include <KFLMessage/KFLRecordFields.h>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

class KFATemplate {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFATemplate>;
  // A template without a name cannot be read; without a version it can.
  using Reader = KFLRecordReader<KFATemplate>;

  KFATemplate() = default;
  explicit KFATemplate(const std::string& name, const std::string& version = std::string())
      : name_(name), version_(version) {}

  const std::string& getName() const { return name_; }
  void setName(const std::string& name) { name_ = name; }
  const std::string& getVersion() const { return version_; }
  void setVersion(const std::string& version) { version_ = version; }

  // Replaces name and version.
  void fromString(const std::string& text);
  // Empty when the name is, whatever the version.
  std::string toString() const;

  friend bool operator==(const KFATemplate&, const KFATemplate&) = default;

 private:
  std::string name_;
  std::string version_;
};

// The text form with any separator between name and version; instantiated for '/' and '-'.
template <char Separator>
std::string toString(const KFATemplate& what);
template <char Separator>
void fromString(KFATemplate& what, const std::string& text);

extern template std::string toString<'/'>(const KFATemplate& what);
extern template std::string toString<'-'>(const KFATemplate& what);
extern template void fromString<'/'>(KFATemplate& what, const std::string& text);
extern template void fromString<'-'>(KFATemplate& what, const std::string& text);

}  // namespace KFA

#endif
