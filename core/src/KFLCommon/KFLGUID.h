// SPDX-License-Identifier: Apache-2.0
// A 16-byte globally unique identifier. The default is all zero, which is the one invalid GUID. A plain
// value.
#ifndef KFLCOMMON_KFLGUID_H
#define KFLCOMMON_KFLGUID_H

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include <KFLCommon/KFLLanguage.h>

namespace KFL {

class KFLGUID {
 public:
  using Bytes = std::array<std::uint8_t, 16>;

  constexpr KFLGUID() = default;
  constexpr explicit KFLGUID(const Bytes& bytes) : bytes_(bytes) {}
  // From its text form; invalid when the text is not one (without an error text).
  explicit KFLGUID(std::string_view text);

  // A random GUID (version 4); invalid, with an error text, when the system has no random numbers to give.
  static KFLGUID generate();

  constexpr bool isValid() const { return bytes_ != Bytes{}; }

  // Reads 8-4-4-4-12 hexadecimal digits of any case, with or without braces around them. 0, or -1 with an
  // error text and the GUID as it was.
  int fromString(std::string_view text);
  // Lower case, with hyphens, without braces.
  std::string toString() const;

  constexpr const Bytes& bytes() const { return bytes_; }

  friend constexpr auto operator<=>(const KFLGUID&,
                                    const KFLGUID&) = default;  // NOLINT(modernize-use-nullptr)

 private:
  bool read(std::string_view text);

  Bytes bytes_{};
};

// The name by which the GUID's own operations are known where it is the base of other identifiers.
using KFLGUIDBase = KFLGUID;

}  // namespace KFL

template <>
struct std::hash<KFL::KFLGUID> {
  std::size_t operator()(const KFL::KFLGUID& guid) const noexcept {
    const auto& bytes = guid.bytes();
    return std::hash<std::string_view>()({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
  }
};

#endif
