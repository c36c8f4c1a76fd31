// SPDX-License-Identifier: Apache-2.0
// An IPv4 address. A plain value; the default is 0.0.0.0, which stands for any address.
#ifndef KFLFUNCTIONALITY_KFLIPV4_H
#define KFLFUNCTIONALITY_KFLIPV4_H

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <KFLMessage/KFLRecordFields.h>

namespace KFL {

class KFLIPv4 {
 public:
  using Bytes = std::array<std::uint8_t, 4>;
  using Writer = KFLTextWriter<KFLIPv4>;
  using Reader = KFLTextReader<KFLIPv4>;

  constexpr KFLIPv4() = default;
  constexpr explicit KFLIPv4(const Bytes& bytes) : bytes_(bytes) {}
  // From its text form; any address when the text is not one.
  explicit KFLIPv4(const std::string& text);

  // The address that a text is; nothing, without an error text, when it is none.
  static std::optional<KFLIPv4> parse(std::string_view text);

  // Reads four decimal numbers with dots between them. 0, or -1 with an error text and the address as it was.
  int fromString(const std::string& text);
  std::string toString() const;

  constexpr bool isAny() const { return bytes_ == Bytes{}; }
  // In network order.
  constexpr const Bytes& bytes() const { return bytes_; }

  friend constexpr auto operator<=>(const KFLIPv4&, const KFLIPv4&) = default;

 private:
  Bytes bytes_{};
};

}  // namespace KFL

#endif
