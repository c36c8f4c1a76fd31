// SPDX-License-Identifier: Apache-2.0
#include <KFLFunctionality/KFLInterfaceRate.h>

#include <optional>
#include <string_view>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>
#include <KFLMessage/KFLRecordRegistry.h>

namespace KFL {

static const KFLRecordRegistration<KFLInterfaceRate> recordKFLInterfaceRate("KFLInterfaceRate");

namespace {

struct Parts {
  std::string_view device;
  int classID = -1;
  long long rate = -1;
};

// The parts of a text that has all three. A device may hold colons itself, as aliases do.
std::optional<Parts> split(std::string_view text) {
  const std::size_t rateAt = text.rfind(':');
  if (rateAt == std::string_view::npos || rateAt == 0) return std::nullopt;
  const std::size_t classAt = text.rfind(':', rateAt - 1);
  if (classAt == std::string_view::npos || classAt == 0) return std::nullopt;
  Parts parts;
  parts.device = text.substr(0, classAt);
  const std::string_view classText = text.substr(classAt + 1, rateAt - classAt - 1);
  if (parseInteger(classText, parts.classID) != 0 || parts.classID < 0) return std::nullopt;
  if (parseInteger(text.substr(rateAt + 1), parts.rate) != 0 || parts.rate < 0) return std::nullopt;
  return parts;
}

}  // namespace

KFLInterfaceRate::KFLInterfaceRate(const std::string& device, int classID, long long rate)
    : text_(device + ':' + std::to_string(classID) + ':' + std::to_string(rate)) {}

int KFLInterfaceRate::fromString(const std::string& text) {
  if (text.empty()) {
    setErrorMessage("an interface rate is empty; DEVICE:CLASS:RATE, as in eth0:1:1024, would be right");
    return -1;
  }
  text_ = text;
  return 0;
}

bool KFLInterfaceRate::isValid() const {
  return split(text_).has_value();
}

std::string KFLInterfaceRate::getDevice() const {
  return std::string(split(text_).value_or(Parts()).device);
}

int KFLInterfaceRate::getClassID() const {
  return split(text_).value_or(Parts()).classID;
}

long long KFLInterfaceRate::getRate() const {
  return split(text_).value_or(Parts()).rate;
}

}  // namespace KFL
