// SPDX-License-Identifier: Apache-2.0
// Packages of any class, held by counted pointers. In a message each is an element with the type tag of its
// class.
//
// A copy holds the same packages, not copies of them.
#ifndef KFLFUNCTIONALITY_KFLPACKAGELIST_H
#define KFLFUNCTIONALITY_KFLPACKAGELIST_H

#include <vector>

#include <boost/smart_ptr/shared_ptr.hpp>

#include <KFLFunctionality/KFLPackage.h>

namespace KFL {

class KFLPackageList : public std::vector<boost::shared_ptr<KFLPackage>> {
 public:
  using std::vector<boost::shared_ptr<KFLPackage>>::vector;

  static const KFLFieldTable& fields();
  // A null pointer, and a package of a class that is not registered, cannot be written.
  using Writer = KFLCoreRecordWriter<KFLPackageList>;
  // Replaces the packages. A package with a type tag that is not registered cannot be read.
  using Reader = KFLRecordReader<KFLPackageList>;
};

}  // namespace KFL

#endif
