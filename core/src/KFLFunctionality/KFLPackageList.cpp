#include <KFLFunctionality/KFLPackageList.h>

#include <KFLMessage/KFLRecordRegistry.h>

namespace KFL {

static const KFLRecordRegistration<KFLPackageList> recordKFLPackageList("KFLPackageList");

namespace {

constexpr int kPackageElement = 1511;

int putPackages(KFLMessageIterator& it, const KFLPackageList& packages, const KFLField&) {
  return KFLWriterDerivedList<KFLPackage>(kPackageElement)(it, packages) == 0 ? 0 : -1;
}

int getPackages(const KFLMessageIterator& it, KFLPackageList& packages, const KFLField&) {
  packages.clear();
  return KFLReaderDerivedList<KFLPackage>(kPackageElement)(it, packages);
}

}  // namespace

const KFLFieldTable& KFLPackageList::fields() {
  static constexpr KFLField rows[] = {
      special<KFLPackageList, KFLPackage, &putPackages, &getPackages>(kPackageElement).required().mustWrite(),
  };
  static constexpr KFLFieldTable table{"KFLPackageList", kTypesNamespaceURI, "", rows};
  return table;
}

}  // namespace KFL
