// SPDX-License-Identifier: Apache-2.0
// Texts of templates, distributions, addresses, rates and GUIDs against plain readings of the same rules, and what is
// written against what was read. The input is lines; its bytes also make texts that are values, or nearly.
#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <KFLCommon/KFLGUID.h>
#include <KFLFunctionality/KFLIPAddress.h>
#include <KFLFunctionality/KFLInterfaceRate.h>

#include <KFAFunctionality/templates/KFADistribution.h>
#include <KFAFunctionality/templates/KFATemplate.h>

#include "Fuzzing.h"

namespace {

using kfl_fuzz::require;
using Texts = std::vector<std::string>;

Texts split(const std::string& text, char separator) {
  Texts pieces(1);
  for (const char c : text) {
    if (c == separator)
      pieces.emplace_back();
    else
      pieces.back() += c;
  }
  return pieces;
}

// A text of so many digits at most as a number; -1 for another text.
long long decimal(const std::string& text, std::size_t most) {
  if (text.empty() || text.size() > most) return -1;
  long long value = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') return -1;
    value = 10 * value + (c - '0');
  }
  return value;
}

int hexDigit(char c) {
  const std::size_t at = std::string("0123456789abcdef0123456789ABCDEF").find(c);
  return at == std::string::npos || c == '\0' ? -1 : static_cast<int>(at % 16);
}

// --- Addresses ------------------------------------------------------------------------------------------------------

using Bytes = std::vector<std::uint8_t>;

std::optional<Bytes> readIPv4(const std::string& text) {
  Bytes bytes;
  for (const std::string& part : split(text, '.')) {
    const long long value = decimal(part, 3);
    if (value < 0 || value > 255 || (part.size() > 1 && part.front() == '0')) return {};
    bytes.push_back(static_cast<std::uint8_t>(value));
  }
  return bytes.size() == 4 ? std::optional(bytes) : std::nullopt;
}

// Groups with colons between them, the last perhaps an IPv4 address.
std::optional<Bytes> readGroups(const std::string& text, bool isLast) {
  Bytes bytes;
  if (text.empty()) return bytes;
  const Texts groups = split(text, ':');
  for (std::size_t i = 0; i < groups.size(); ++i) {
    if (isLast && i + 1 == groups.size() && groups[i].find('.') != std::string::npos) {
      const auto four = readIPv4(groups[i]);
      if (!four) return {};
      bytes.insert(bytes.end(), four->begin(), four->end());
      continue;
    }
    if (groups[i].empty() || groups[i].size() > 4) return {};
    int value = 0;
    for (const char c : groups[i]) {
      if (hexDigit(c) < 0) return {};
      value = 16 * value + hexDigit(c);
    }
    bytes.push_back(static_cast<std::uint8_t>(value / 256));
    bytes.push_back(static_cast<std::uint8_t>(value % 256));
  }
  return bytes;
}

std::optional<Bytes> readIPv6(const std::string& text) {
  const std::size_t gap = text.find("::");
  if (gap == std::string::npos) {
    const auto bytes = readGroups(text, true);
    return bytes && bytes->size() == 16 ? bytes : std::nullopt;
  }
  auto bytes = readGroups(text.substr(0, gap), false);
  const auto tail = readGroups(text.substr(gap + 2), true);
  if (!bytes || !tail || bytes->size() + tail->size() > 14) return {};
  bytes->resize(16 - tail->size());
  bytes->insert(bytes->end(), tail->begin(), tail->end());
  return bytes;
}

// The bits of a network part, -1 when it is none.
int readPrefix(const std::string& text, const Bytes& address) {
  const auto width = static_cast<int>(8 * address.size());
  const std::size_t digits = std::min(text.find_first_not_of('0'), text.empty() ? 0 : text.size() - 1);
  const long long length = decimal(text.substr(digits), 3);
  if (length >= 0) return length <= width ? static_cast<int>(length) : -1;
  const auto mask = width == 32 ? readIPv4(text) : readIPv6(text);
  if (!mask) return -1;
  int ones = 0;
  while (ones < width && ((*mask)[static_cast<std::size_t>(ones / 8)] & (128 >> (ones % 8))) != 0)
    ++ones;
  for (int bit = ones; bit < width; ++bit)
    if (((*mask)[static_cast<std::size_t>(bit / 8)] & (128 >> (bit % 8))) != 0) return -1;
  return ones;
}

void checkAddress(const std::string& text) {
  const KFL::KFLIPAddress address(text);
  require(address.toString() == text, "an address keeps its text", text);
  const std::size_t slash = text.find('/');
  const std::string host = text.substr(0, slash);
  const auto four = readIPv4(host);
  const auto bytes = four ? four : readIPv6(host);
  const int prefix = bytes && slash != std::string::npos ? readPrefix(text.substr(slash + 1), *bytes) : -1;
  const bool isValid = bytes && (slash == std::string::npos || prefix >= 0);
  require(address.isValid() == isValid, "an address is valid when it reads as one", text);
  require(address.isIPv6() == (isValid && !four), "an address tells its kind", text);
  require(address.getPrefixLength() == (isValid ? prefix : -1), "an address tells its prefix", text);
  require(!isValid || address.toStringWithoutNetwork() == host, "an address is told without its network",
          text);
  if (isValid && four) {
    require(std::equal(four->begin(), four->end(), address.getIPv4()->bytes().begin()), "bytes are as read",
            text);
    require(address.getIPv4()->toString() == host, "an IPv4 address has one text", text);
  } else if (isValid) {
    require(std::equal(bytes->begin(), bytes->end(), address.getIPv6()->bytes().begin()), "bytes are as read",
            text);
    require(readIPv6(address.getIPv6()->toString()) == bytes, "an IPv6 address is written as it is", text);
  }
}

// --- The others -----------------------------------------------------------------------------------------------------

template <class Value>
void checkTemplate(const std::string& text, char separator) {
  Value value("former", "9");
  value.fromString(text);
  const std::size_t at = text.rfind(separator);
  const bool hasVersion = at != std::string::npos && decimal(text.substr(at + 1, 1), 1) >= 0;
  require(value.getName() == text.substr(0, at), "the name stands before the last separator", text);
  require(value.getVersion() == (hasVersion ? text.substr(at + 1) : ""), "a version begins with a digit",
          text);
  const std::string version = hasVersion ? separator + value.getVersion() : "";
  require(value.toString() == (at == 0 || text.empty() ? "" : value.getName()) + (at == 0 ? "" : version),
          "what has no name has no text", text);
  Value again;
  again.fromString(value.toString());
  const bool isWhole = hasVersion || value.getName().find(separator) == std::string::npos;
  require(!isWhole || value.getName().empty() || again == value, "what is written reads as the same", text);
}

// DEVICE:CLASS:RATE, where a device may hold colons itself.
void checkRate(const std::string& text) {
  const KFL::KFLInterfaceRate rate(text);
  const Texts parts = split(text, ':');
  const std::size_t count = parts.size();
  const long long id = count < 3 ? -1 : decimal(parts[count - 2], 18);
  const long long speed = count < 3 ? -1 : decimal(parts[count - 1], 18);
  const std::size_t rest = count < 3 ? 0 : parts[count - 2].size() + parts[count - 1].size() + 2;
  const bool isRate = text.size() > rest && id >= 0 && id <= 2147483647 && speed >= 0;
  require(rate.toString() == text, "a rate keeps its text", text);
  if (count > 2 && (parts[count - 2].size() > 18 || parts[count - 1].size() > 18)) return;
  require(rate.isValid() == isRate, "a rate has three parts", text);
  require(rate.getDevice() == (isRate ? text.substr(0, text.size() - rest) : ""), "the first is the device",
          text);
  require(rate.getClassID() == (isRate ? id : -1), "the second is the class", text);
  require(rate.getRate() == (isRate ? speed : -1), "the last is the speed", text);
  if (!isRate) return;
  const std::string made =
      KFL::KFLInterfaceRate(rate.getDevice(), rate.getClassID(), rate.getRate()).toString();
  require(KFL::KFLInterfaceRate(made).getRate() == speed, "a rate of the same parts is the same", text);
}

void checkGuid(const std::string& text) {
  std::string digits = text;
  if (digits.size() == 38 && digits.front() == '{' && digits.back() == '}') digits = digits.substr(1, 36);
  bool isGuid = digits.size() == 36;
  KFL::KFLGUID::Bytes bytes{};
  std::size_t count = 0;
  for (std::size_t i = 0; isGuid && i < digits.size(); ++i) {
    if (i == 8 || i == 13 || i == 18 || i == 23) {
      isGuid = digits[i] == '-';
      continue;
    }
    isGuid = hexDigit(digits[i]) >= 0;
    if (isGuid) bytes[count / 2] = static_cast<std::uint8_t>(bytes[count / 2] * 16 + hexDigit(digits[i]));
    ++count;
  }
  KFL::KFLGUID guid;
  require((guid.fromString(text) == 0) == isGuid, "a GUID is read when it is one", text);
  require(guid.bytes() == (isGuid ? bytes : KFL::KFLGUID::Bytes{}), "a GUID has the bytes of its digits",
          text);
  require(KFL::KFLGUID(guid.toString()) == guid, "what is written reads as the same", text);
}

// --- Texts that are values, or nearly ---------------------------------------------------------------------------------

std::string joined(kfl_fuzz::Choices& choices, const char* words, char separator, std::size_t usual) {
  const std::size_t count = choices.oneIn(8) ? choices.below(usual + 3) : usual;
  std::string text;
  for (std::size_t i = 0; i < count; ++i)
    text += (i == 0 ? "" : std::string(1, separator)) + choices.wordOf(words);
  return text;
}

// A mask has some full parts, one that is partly full, and empty ones; sometimes one is wrong.
std::string mask(kfl_fuzz::Choices& choices, std::size_t parts, const char* full, const char* some,
                 char separator) {
  const std::size_t ones = choices.below(parts + 1);
  std::string text;
  for (std::size_t i = 0; i < parts; ++i) {
    const std::string part = i < ones ? full : i == ones ? choices.wordOf(some) : "0";
    text += (i == 0 ? "" : std::string(1, separator)) + (choices.oneIn(16) ? choices.wordOf(some) : part);
  }
  return text;
}

std::string addressFrom(kfl_fuzz::Choices& choices) {
  constexpr const char* kLengths = "0|1|8|24|31|32|33|64|127|128|129|024||-1|+8|4294967297";
  if (choices.oneIn(2)) {
    const std::string text = joined(choices, "0|1|9|10|99|100|199|255|256|01|1000|", '.', 4);
    if (choices.oneIn(3)) return text;
    return text + "/" +
           (choices.oneIn(2) ? choices.wordOf(kLengths)
                             : mask(choices, 4, "255", "0|128|192|254|255|127|129", '.'));
  }
  std::string text = joined(choices, "0|1|ffff|abcd|FE80|00|12345|g|", ':', 8);
  if (choices.oneIn(2))
    text = joined(choices, "0|1|ffff", ':', 1 + choices.below(3)) +
           "::" + joined(choices, "1|fe80|0", ':', choices.below(4));
  if (choices.oneIn(8)) text += choices.oneOf({":10.0.0.1", "10.0.0.256", "1.2.3.4"});
  if (choices.oneIn(3)) return text;
  return text + "/" +
         (choices.oneIn(2) ? choices.wordOf(kLengths)
                           : mask(choices, 8, "ffff", "0|8000|fff0|fffe|ffff|7fff|8001", ':'));
}

std::string textFrom(kfl_fuzz::Choices& choices) {
  switch (choices.below(4)) {
    case 0: {
      std::string digits = joined(choices, "00|1F|aF|9a|f0|A0", '0', 16).substr(0, 32);
      for (const std::size_t at : {8, 13, 18, 23})
        if (digits.size() >= at) digits.insert(at, choices.oneIn(24) ? "" : "-");
      digits.resize(std::min<std::size_t>(digits.size(), choices.oneIn(8) ? choices.below(40) : 36));
      return choices.oneIn(4) ? "{" + digits + choices.oneOf({"}", "", "}}"}) : digits;
    }
    case 1:
      return joined(choices, "eth0|*|venet0|0|1|1024|2147483647|2147483648|007|-1|x|", ':', 3);
    case 2:
      return joined(choices, "debian|12|12.4|x86_64|centos||7a|a", choices.oneIn(2) ? '/' : '-', 2);
    default:
      return addressFrom(choices);
  }
}

void checkAll(const std::string& text) {
  checkAddress(text);
  checkTemplate<KFA::KFATemplate>(text, '/');
  checkTemplate<KFA::KFADistribution>(text, '-');
  checkRate(text);
  checkGuid(text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input = kfl_fuzz::viewOf(data, size);
  for (const std::string& text : split(std::string(input), '\n'))
    checkAll(text);
  kfl_fuzz::Choices choices(input);
  for (int more = 0; more < 16 && !choices.isAtEnd(); ++more)
    checkAll(textFrom(choices));
  return 0;
}
