// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/templates/KFATemplateObject.h>

#include <KFLMessage/KFLRecordRegistry.h>

namespace KFA {

static const KFLRecordRegistration<KFATemplateObject> recordKFATemplateObject("KFATemplateObject");

namespace {

int putStringID(KFLMessageIterator& it, const KFATemplateObject& object, const KFLField& row) {
  return it.putValue(object.getStringID(), row.id);
}
int getNothing(const KFLMessageIterator&, KFATemplateObject&, const KFLField&) {
  return 0;
}

int putPackage(KFLMessageIterator& it, const KFATemplateObject& object, const KFLField& row) {
  return it.putObj(static_cast<const KFAPackageKFTemplate&>(object), row.id);
}
int getPackage(const KFLMessageIterator& it, KFATemplateObject& object, const KFLField& row) {
  return it.getObj(static_cast<KFAPackageKFTemplate&>(object), row.id);
}

std::string textOf(const KFLPackage::Text& text) {
  return text.isSpecified() ? text.getValue() : std::string();
}

}  // namespace

KFATemplateObject::~KFATemplateObject() = default;

const KFLFieldTable& KFATemplateObject::fields() {
  using R = KFATemplateObject;
  static constexpr KFLField rows[] = {
      special<R, std::string, &putStringID, &getNothing>(1010),
      list<R, &R::environments_>(1899),
      special<R, KFAPackageKFTemplate, &putPackage, &getPackage>(1295).required().atLeastOne().mustWrite(),
  };
  static constexpr KFLFieldTable table{"KFATemplateObject", kTypesURI, "", rows};
  return table;
}

std::string KFATemplateObject::getStringID() const {
  std::string id = getName() + '.' + getKind() + '.' + getArchitecture() + '.';
  if (!getOsTemplate()) id += textOf(getOS());
  id += '.' + textOf(getVersion());
  if (!environments_.empty()) id += '.' + environments_.begin()->toString();
  return id;
}

}  // namespace KFA
