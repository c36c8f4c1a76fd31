// SPDX-License-Identifier: Apache-2.0
#include <KFLFunctionality/KFLIPv4.h>

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>

#include <KFLCommon/KFLError.h>
#include <KFLMessage/KFLRecordRegistry.h>

namespace KFL {

static const KFLRecordRegistration<KFLIPv4> recordKFLIPv4("KFLIPv4");

std::optional<KFLIPv4> KFLIPv4::parse(std::string_view text) {
  char terminated[INET_ADDRSTRLEN] = {};
  if (text.size() >= sizeof terminated || text.find('\0') != std::string_view::npos) return std::nullopt;
  std::copy(text.begin(), text.end(), terminated);
  Bytes bytes{};
  if (inet_pton(AF_INET, terminated, bytes.data()) != 1) return std::nullopt;
  return KFLIPv4(bytes);
}

KFLIPv4::KFLIPv4(const std::string& text) : KFLIPv4(parse(text).value_or(KFLIPv4())) {}

int KFLIPv4::fromString(const std::string& text) {
  const std::optional<KFLIPv4> parsed = parse(text);
  if (!parsed) {
    setErrorMessage("'%s' is no IPv4 address; four numbers up to 255 with dots between them would be",
                    text.c_str());
    return -1;
  }
  *this = *parsed;
  return 0;
}

std::string KFLIPv4::toString() const {
  char text[INET_ADDRSTRLEN];
  return inet_ntop(AF_INET, bytes_.data(), text, sizeof text);
}

}  // namespace KFL
