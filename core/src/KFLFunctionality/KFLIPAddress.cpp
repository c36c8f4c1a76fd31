// SPDX-License-Identifier: Apache-2.0
#include <KFLFunctionality/KFLIPAddress.h>

#include <bit>
#include <charconv>
#include <span>
#include <string_view>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>
#include <KFLMessage/KFLRecordRegistry.h>

namespace KFL {

static const KFLRecordRegistration<KFLIPAddress> recordKFLIPAddress("KFLIPAddress");

namespace {

constexpr int kNoPrefix = -1;
constexpr int kMalformed = -2;

struct Parts {
  std::string_view address;
  std::string_view network;
  bool hasNetwork;
};

Parts split(std::string_view text) {
  const std::size_t slash = text.find('/');
  if (slash == std::string_view::npos) return {text, {}, false};
  return {text.substr(0, slash), text.substr(slash + 1), true};
}

// The number of leading ones; kMalformed when a one follows a zero.
int prefixOfMask(std::span<const std::uint8_t> mask) {
  int ones = 0;
  std::size_t at = 0;
  for (; at < mask.size() && mask[at] == 0xff; ++at)
    ones += 8;
  if (at == mask.size()) return ones;
  const int leading = std::countl_one(mask[at]);
  if (static_cast<std::uint8_t>(mask[at] << leading) != 0) return kMalformed;
  for (++at; at < mask.size(); ++at) {
    if (mask[at] != 0) return kMalformed;
  }
  return ones + leading;
}

// The prefix length that the network part of an address of this kind tells, kNoPrefix or kMalformed.
template <class Address>
int prefixOf(const Parts& parts) {
  if (!parts.hasNetwork) return kNoPrefix;
  constexpr unsigned bits = std::tuple_size_v<typename Address::Bytes> * 8;
  unsigned length = 0;
  if (parseInteger(parts.network, length) == 0) return length <= bits ? static_cast<int>(length) : kMalformed;
  const std::optional<Address> mask = Address::parse(parts.network);
  return mask ? prefixOfMask(mask->bytes()) : kMalformed;
}

template <class Address>
std::optional<Address> addressOf(const std::string& text, int& prefix) {
  const Parts parts = split(text);
  std::optional<Address> address = Address::parse(parts.address);
  if (address) prefix = prefixOf<Address>(parts);
  if (prefix == kMalformed) return std::nullopt;
  return address;
}

}  // namespace

int KFLIPAddress::fromString(const std::string& text) {
  if (text.empty()) {
    setErrorMessage("an IP address is empty; an address such as 10.0.0.5/24 or fe80::1/64 would be right");
    return -1;
  }
  text_ = text;
  return 0;
}

std::string KFLIPAddress::toStringWithoutNetwork() const {
  return std::string(split(text_).address);
}

bool KFLIPAddress::isValid() const {
  return getIPv4().has_value() || isIPv6();
}

bool KFLIPAddress::isIPv6() const {
  return getIPv6().has_value();
}

std::optional<KFLIPv4> KFLIPAddress::getIPv4() const {
  int prefix = kNoPrefix;
  return addressOf<KFLIPv4>(text_, prefix);
}

std::optional<KFLIPv6> KFLIPAddress::getIPv6() const {
  int prefix = kNoPrefix;
  return addressOf<KFLIPv6>(text_, prefix);
}

int KFLIPAddress::getPrefixLength() const {
  int prefix = kNoPrefix;
  if (addressOf<KFLIPv4>(text_, prefix) || addressOf<KFLIPv6>(text_, prefix)) return prefix;
  return kNoPrefix;
}

}  // namespace KFL
