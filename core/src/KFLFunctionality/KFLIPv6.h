// SPDX-License-Identifier: Apache-2.0
// An IPv6 address, and the form in which it carries an IPv4 address. Plain values; the default is "::", which
// stands for any address.
#ifndef KFLFUNCTIONALITY_KFLIPV6_H
#define KFLFUNCTIONALITY_KFLIPV6_H

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <KFLFunctionality/KFLIPv4.h>
#include <KFLMessage/KFLRecordFields.h>

namespace KFL {

class KFLIPv6 {
 public:
  using Bytes = std::array<std::uint8_t, 16>;
  using Writer = KFLTextWriter<KFLIPv6>;
  using Reader = KFLTextReader<KFLIPv6>;

  constexpr KFLIPv6() = default;
  constexpr explicit KFLIPv6(const Bytes& bytes) : bytes_(bytes) {}
  // From its text form; any address when the text is not one.
  explicit KFLIPv6(const std::string& text);

  // The address that a text is; nothing, without an error text, when it is none.
  static std::optional<KFLIPv6> parse(std::string_view text);

  // Reads an IPv6 address in any of its usual forms, without a zone. 0, or -1 with an error text and the
  // address as it was.
  int fromString(const std::string& text);
  // The shortest form, in lower case.
  std::string toString() const;

  constexpr bool isAny() const { return bytes_ == Bytes{}; }
  // In network order.
  constexpr const Bytes& bytes() const { return bytes_; }

  // Whether a text looks like an IPv6 address, with or without a network part: there is a colon in its
  // address part. The rest of the text is not examined.
  static bool isResembling(const std::string& text);

  friend constexpr auto operator<=>(const KFLIPv6&, const KFLIPv6&) = default;

 private:
  Bytes bytes_{};
};

namespace IPv6Format {

// Addresses whose first 96 bits are zero carry an IPv4 address in the others; "::" and "::1" have meanings of
// their own and carry none.
struct IPv4Compatible {
  // The IPv4 address that is carried; nothing when none is.
  static std::optional<KFLIPv4> test(const KFLIPv6& address);
  // The text of the IPv4 address that is carried, or else of the IPv6 address.
  static std::string format(const KFLIPv6& address);
};

}  // namespace IPv6Format

}  // namespace KFL

#endif
