// SPDX-License-Identifier: Apache-2.0
#include <KFLFunctionality/KFLCalculateHWNodeNotes.h>

#include <KFLMessage/KFLRecordRegistry.h>

KFL_DERIVED_REGISTRY(KFL::KFLCalculateHWNodeNotes)

namespace KFL {

static KFLDerivedParserFactoryT<KFLCalculateHWNodeNotes, KFLCalculateHWNodeNotes, std::string,
                                KFLCalculateHWNodeNotes::Reader, KFLCalculateHWNodeNotes::Writer>
    factoryKFLCalculateHWNodeNotes;
static const KFLRecordRegistration<KFLCalculateHWNodeNotes> recordKFLCalculateHWNodeNotes(
    "KFLCalculateHWNodeNotes");

KFLCalculateHWNodeNotes::~KFLCalculateHWNodeNotes() = default;

const KFLFieldTable& KFLCalculateHWNodeNotes::fields() {
  using R = KFLCalculateHWNodeNotes;
  static constexpr KFLField rows[] = {
      field<R, &R::size_>(1024),
      list<R, &R::eids_>(1899).required().mustWrite(),
  };
  static constexpr KFLFieldTable table{"KFLCalculateHWNodeNotes", kRelocatorNamespaceURI, "hw_notesType",
                                       rows};
  return table;
}

}  // namespace KFL
