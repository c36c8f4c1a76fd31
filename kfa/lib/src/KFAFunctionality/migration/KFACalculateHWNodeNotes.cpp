// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/migration/KFACalculateHWNodeNotes.h>

#include <KFLMessage/KFLRecordRegistry.h>

namespace KFA {

static KFLDerivedParserFactoryT<KFACalculateHWNodeNotes, KFLCalculateHWNodeNotes, std::string,
                                KFACalculateHWNodeNotes::Reader, KFACalculateHWNodeNotes::Writer>
    factoryKFACalculateHWNodeNotes;
static const KFLRecordRegistration<KFACalculateHWNodeNotes> recordKFACalculateHWNodeNotes(
    "KFACalculateHWNodeNotes");
static const KFLRecordRegistration<KFACalculateHWNodeWarning> recordKFACalculateHWNodeWarning(
    "KFACalculateHWNodeWarning");
static const KFLRecordRegistration<KFAExcludePath> recordKFAExcludePath("KFAExcludePath");

const KFLFieldTable& KFACalculateHWNodeWarning::fields() {
  using R = KFACalculateHWNodeWarning;
  static constexpr KFLField rows[] = {
      field<R, &R::message_>(1224),
      field<R, &R::code_>(1405),
  };
  static constexpr KFLFieldTable table{"KFACalculateHWNodeWarning", kRelocatorURI, "", rows};
  return table;
}

const KFLFieldTable& KFAExcludePath::fields() {
  using R = KFAExcludePath;
  static constexpr KFLField rows[] = {
      field<R, &R::path_>(1156),
      field<R, &R::limit_>(1818),
  };
  static constexpr KFLFieldTable table{"KFAExcludePath", kRelocatorURI, "", rows};
  return table;
}

KFACalculateHWNodeNotes::~KFACalculateHWNodeNotes() = default;

const KFLFieldTable& KFACalculateHWNodeNotes::fields() {
  using R = KFACalculateHWNodeNotes;
  static constexpr KFLField rows[] = {
      base<R, KFLCalculateHWNodeNotes>(),
      list<R, &R::excludes_>(1346),
      list<R, &R::warnings_>(1480),
  };
  static constexpr KFLFieldTable table{"KFACalculateHWNodeNotes", kRelocatorURI, "hw_notesType", rows};
  return table;
}

}  // namespace KFA
