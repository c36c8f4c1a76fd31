// SPDX-License-Identifier: Apache-2.0
// What a calculation of a node's capacity found: the base of every technology's notes. A value with a virtual
// destructor.
#ifndef KFLFUNCTIONALITY_KFLCALCULATEHWNODENOTES_H
#define KFLFUNCTIONALITY_KFLCALCULATEHWNODENOTES_H

#include <vector>

#include <KFLCommon/KFLProperty.h>
#include <KFLFunctionality/KFLEID.h>
#include <KFLMessage/KFLDerivedParsers.h>
#include <KFLMessage/KFLRecordFields.h>

namespace KFL {

class KFLCalculateHWNodeNotes {
 public:
  using Size = KFLOptionalProperty<long long>;

  static const KFLFieldTable& fields();
  using Writer = KFLCoreRecordWriter<KFLCalculateHWNodeNotes, kRelocatorNamespace, 307>;
  // -1 at an id that is no GUID.
  using Reader = KFLRecordReader<KFLCalculateHWNodeNotes>;

  KFLCalculateHWNodeNotes() = default;
  KFLCalculateHWNodeNotes(const KFLCalculateHWNodeNotes&) = default;
  KFLCalculateHWNodeNotes(KFLCalculateHWNodeNotes&&) = default;
  KFLCalculateHWNodeNotes& operator=(const KFLCalculateHWNodeNotes&) = default;
  KFLCalculateHWNodeNotes& operator=(KFLCalculateHWNodeNotes&&) = default;
  virtual ~KFLCalculateHWNodeNotes();

  // The disk space that the node's data takes, in bytes.
  const Size& getSize() const { return size_; }
  void setSize(const Size& size) { size_ = size; }
  // The environments that were counted.
  const std::vector<KFLEID>& getEIDs() const { return eids_; }
  void setEIDs(const std::vector<KFLEID>& eids) { eids_ = eids; }

 private:
  Size size_;
  std::vector<KFLEID> eids_;
};

}  // namespace KFL

KFL_DECLARE_DERIVED_REGISTRY(KFL::KFLCalculateHWNodeNotes)

#endif
