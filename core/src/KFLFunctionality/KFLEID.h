// SPDX-License-Identifier: Apache-2.0
// The identifier of an environment: a GUID that names the same environment on every node. A plain value; the
// default one is invalid and names none.
#ifndef KFLFUNCTIONALITY_KFLEID_H
#define KFLFUNCTIONALITY_KFLEID_H

#include <functional>
#include <string_view>

#include <KFLCommon/KFLGUID.h>
#include <KFLMessage/KFLRecordFields.h>

namespace KFL {

class KFLEID : public KFLGUID {
 public:
  using Writer = KFLTextWriter<KFLEID>;
  // A text that is no GUID cannot be read.
  using Reader = KFLTextReader<KFLEID>;

  constexpr KFLEID() = default;
  constexpr explicit KFLEID(const KFLGUID& guid) : KFLGUID(guid) {}
  // From its text form; invalid when the text is not one.
  explicit KFLEID(std::string_view text) : KFLGUID(text) {}

  static KFLEID generate() { return KFLEID(KFLGUID::generate()); }
};

}  // namespace KFL

template <>
struct std::hash<KFL::KFLEID> : std::hash<KFL::KFLGUID> {};

#endif
