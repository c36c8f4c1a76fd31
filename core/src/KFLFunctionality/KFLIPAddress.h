// SPDX-License-Identifier: Apache-2.0
// An IP address of an environment or a server as somebody wrote it: `10.0.0.5`, `10.0.0.5/24`,
// `10.0.0.5/255.255.255.0`, `fe80::1/64`, `dhcp`, or anything else.
//
// The text is the value: it is kept as it stands, also when it is no address, so that nothing in a
// configuration is lost. What it means as an address is worked out when asked for. A plain value, compared
// and ordered by its text.
#ifndef KFLFUNCTIONALITY_KFLIPADDRESS_H
#define KFLFUNCTIONALITY_KFLIPADDRESS_H

#include <compare>
#include <optional>
#include <string>
#include <utility>

#include <KFLFunctionality/KFLIPv4.h>
#include <KFLFunctionality/KFLIPv6.h>
#include <KFLMessage/KFLRecordFields.h>

namespace KFL {

class KFLIPAddress {
 public:
  using Writer = KFLTextWriter<KFLIPAddress>;
  // An empty element is no address: reading it fails.
  using Reader = KFLTextReader<KFLIPAddress>;

  KFLIPAddress() = default;
  KFLIPAddress(std::string text) : text_(std::move(text)) {}  // NOLINT(google-explicit-constructor)
  KFLIPAddress(const char* text) : text_(text) {}             // NOLINT(google-explicit-constructor)

  // Keeps the text, whatever it is. 0, or -1 with an error text and the value as it was for the empty text.
  int fromString(const std::string& text);
  // The text as it was written.
  const std::string& toString() const { return text_; }
  // The address with its network part, both as they were written; a text without a network part has none.
  const std::string& toStringWithNetwork() const { return text_; }
  // The address without its network part.
  std::string toStringWithoutNetwork() const;

  // Whether the text is an IPv4 or IPv6 address, alone or with a sound network part.
  bool isValid() const;
  // Whether the text is an IPv6 address in that sense.
  bool isIPv6() const;
  // The address; nothing when the text is not a valid address of that kind.
  std::optional<KFLIPv4> getIPv4() const;
  std::optional<KFLIPv6> getIPv6() const;
  // The number of bits that name the network, from a prefix length or a netmask; -1 when the text has no
  // network part or is not valid.
  int getPrefixLength() const;

  friend bool operator==(const KFLIPAddress&, const KFLIPAddress&) = default;
  friend auto operator<=>(const KFLIPAddress&, const KFLIPAddress&) = default;

 private:
  std::string text_;
};

}  // namespace KFL

#endif
