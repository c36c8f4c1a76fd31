// SPDX-License-Identifier: Apache-2.0
#include <KFLFunctionality/KFLIPv6.h>

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>

#include <KFLCommon/KFLError.h>
#include <KFLMessage/KFLRecordRegistry.h>

namespace KFL {

static const KFLRecordRegistration<KFLIPv6> recordKFLIPv6("KFLIPv6");

std::optional<KFLIPv6> KFLIPv6::parse(std::string_view text) {
  char terminated[INET6_ADDRSTRLEN] = {};
  if (text.size() >= sizeof terminated || text.find('\0') != std::string_view::npos) return std::nullopt;
  std::copy(text.begin(), text.end(), terminated);
  Bytes bytes{};
  if (inet_pton(AF_INET6, terminated, bytes.data()) != 1) return std::nullopt;
  return KFLIPv6(bytes);
}

KFLIPv6::KFLIPv6(const std::string& text) : KFLIPv6(parse(text).value_or(KFLIPv6())) {}

int KFLIPv6::fromString(const std::string& text) {
  const std::optional<KFLIPv6> parsed = parse(text);
  if (!parsed) {
    setErrorMessage(
        "'%s' is no IPv6 address; hexadecimal groups with colons between them, as in fe80::1, would be",
        text.c_str());
    return -1;
  }
  *this = *parsed;
  return 0;
}

std::string KFLIPv6::toString() const {
  char text[INET6_ADDRSTRLEN];
  return inet_ntop(AF_INET6, bytes_.data(), text, sizeof text);
}

bool KFLIPv6::isResembling(const std::string& text) {
  const auto mark = std::find_if(text.begin(), text.end(), [](char c) { return c == ':' || c == '/'; });
  return mark != text.end() && *mark == ':';
}

std::optional<KFLIPv4> IPv6Format::IPv4Compatible::test(const KFLIPv6& address) {
  constexpr KFLIPv4::Bytes any{};
  constexpr KFLIPv4::Bytes loopback{0, 0, 0, 1};
  const KFLIPv6::Bytes& bytes = address.bytes();
  const auto tail = bytes.end() - 4;
  if (std::any_of(bytes.begin(), tail, [](std::uint8_t byte) { return byte != 0; })) return std::nullopt;
  KFLIPv4::Bytes embedded{};
  std::copy(tail, bytes.end(), embedded.begin());
  if (embedded == any || embedded == loopback) return std::nullopt;
  return KFLIPv4(embedded);
}

std::string IPv6Format::IPv4Compatible::format(const KFLIPv6& address) {
  const std::optional<KFLIPv4> embedded = test(address);
  return embedded ? embedded->toString() : address.toString();
}

}  // namespace KFL
