// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/templates/KFAPackageVersion.h>

#include <KFLMessage/KFLRecordRegistry.h>

namespace KFA {

static const KFLRecordRegistration<KFAPackageVersion> recordKFAPackageVersion("KFAPackageVersion");

const KFLFieldTable& KFAPackageVersion::fields() {
  using R = KFAPackageVersion;
  static constexpr KFLField rows[] = {
      field<R, &R::version_>(1497).required().mustWrite(),
      field<R, &R::standard_>(1498).required().mustWrite(),
      field<R, &R::cached_>(1499).mustWrite(),
      container<R, &R::dependencies_>(1509, 1295).mustWrite(),
  };
  static constexpr KFLFieldTable table{"KFAPackageVersion", kTypesURI, "", rows};
  return table;
}

const KFLFieldTable& KFAPackageVersion::optionalFields() {
  using R = KFAPackageVersion;
  static constexpr KFLField rows[] = {
      field<R, &R::version_>(1497).whenNotEmpty().mustWrite(),
      field<R, &R::standard_>(1498).mustWrite(),
      field<R, &R::cached_>(1499).mustWrite(),
      container<R, &R::dependencies_>(1509, 1295).mustWrite(),
  };
  static constexpr KFLFieldTable table{"KFAPackageVersion", kTypesURI, "", rows};
  return table;
}

const KFLFieldTable& KFAPackageVersion::configFields() {
  using R = KFAPackageVersion;
  static constexpr KFLField rows[] = {
      field<R, &R::version_>(1497).whenNotEmpty().mustWrite(),
      field<R, &R::standard_>(1498).required().mustWrite(),
      field<R, &R::cached_>(1499).mustWrite(),
      container<R, &R::dependencies_>(1509, 1295).mustWrite(),
  };
  static constexpr KFLFieldTable table{"KFATemplateConfigInfo::Version", kTypesURI, "", rows};
  return table;
}

int KFAPackageVersion::Writer::operator()(KFLMessageIterator& it, const KFAPackageVersion& version) const {
  return (mayBeAbsent_ ? optionalFields() : fields()).write(it, &version);
}

int KFAPackageVersion::Reader::operator()(const KFLMessageIterator& it, KFAPackageVersion& version) const {
  return readWhole(mayBeAbsent_ ? optionalFields() : fields(), it, version);
}

}  // namespace KFA
