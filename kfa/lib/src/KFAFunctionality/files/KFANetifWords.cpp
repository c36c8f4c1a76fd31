// SPDX-License-Identifier: Apache-2.0
#include "KFANetifWords.h"

#include <algorithm>
#include <map>
#include <string_view>
#include <vector>

#include <KFLCommon/KFLText.h>
#include <KFLFunctionality/KFLIPAddress.h>

#include "KFABashLines.h"

namespace KFA {

namespace {

// Field name to its values: one for most, several addresses.
using Fields = std::map<std::string, std::vector<std::string>, std::less<>>;

struct Row {
  std::string_view name;
  std::string_view unless;  // the value that need not be written
  enum class Kind { Text, Flag, Address, V4List, V6List } kind;
  const char* form = nullptr;  // what is wanted, where not any text is
};

constexpr const char* kYesNo = "yes or no";

constexpr Row kRows[] = {
    {"ifname", "", Row::Kind::Text},
    {"network", "", Row::Kind::Text},
    {"mac", "", Row::Kind::Text},
    {"nettype", "bridged", Row::Kind::Flag, "bridged or host-routed"},
    {"gw", "", Row::Kind::Address, "an IP address such as 192.0.2.1"},
    {"gw6", "", Row::Kind::Address, "an IP address such as 2001:db8::1"},
    {"ip", "", Row::Kind::V4List, "an IPv4 address such as 192.0.2.5/24, several with colons between them,"},
    {"dhcp", "no", Row::Kind::Flag, kYesNo},
    {"dhcp6", "no", Row::Kind::Flag, kYesNo},
    {"ip6", "", Row::Kind::V6List, "an IPv6 address such as 2001:db8::5/64"},
};

const Row* findRow(std::string_view name) {
  const Row* const row =
      std::find_if(std::begin(kRows), std::end(kRows), [&](const Row& r) { return r.name == name; });
  return row == std::end(kRows) ? nullptr : row;
}

std::vector<std::string> split(std::string_view text, char separator) {
  std::vector<std::string> pieces;
  const std::string delimiter(1, separator);
  const std::string copy(text);
  KFL::getToken tokens(copy.c_str(), delimiter.c_str(), 0);
  for (std::string_view piece; tokens.next(piece);)
    pieces.emplace_back(piece);
  return pieces;
}

std::string_view trimFront(std::string_view text) {
  while (!text.empty() && KFL::isSpace(text.front()))
    text.remove_prefix(1);
  return text;
}

void addField(Fields& fields, std::string_view field) {
  const std::size_t equals = field.find('=');
  const std::string_view name = field.substr(0, equals);
  const std::string_view value =
      equals == std::string_view::npos ? std::string_view() : field.substr(equals + 1);
  const Row* const row = equals == std::string_view::npos ? nullptr : findRow(name);
  if (row == nullptr) {
    fields[std::string(field)].emplace_back();
  } else if (row->kind == Row::Kind::V4List) {
    for (std::string& address : split(value, ':'))
      fields[std::string(name)].push_back(std::move(address));
  } else if (value != row->unless) {
    fields[std::string(name)].emplace_back(value);
  }
}

Fields fieldsOf(std::string_view entry) {
  Fields fields;
  while (!entry.empty()) {
    const std::string_view field = trimFront(entry.substr(0, entry.find(',')));
    if (field.starts_with("ip6=")) {
      const auto at = static_cast<std::size_t>(field.data() - entry.data()) + 4;
      std::vector<std::string> addresses = split(entry.substr(at), ',');
      if (!addresses.empty()) fields["ip6"] = std::move(addresses);
      break;
    }
    if (!field.empty()) addField(fields, field);
    const std::size_t comma = entry.find(',');
    entry.remove_prefix(comma == std::string_view::npos ? entry.size() : comma + 1);
  }
  return fields;
}

bool isSound(const Row& row, const std::string& value) {
  const KFL::KFLIPAddress address(value);
  switch (row.kind) {
    case Row::Kind::Address:
      return address.isValid();
    case Row::Kind::V4List:
      return address.isValid() && !address.isIPv6();
    case Row::Kind::V6List:
      return address.isIPv6();
    default:
      return true;
  }
}

std::string describe(const std::string& name, const std::string& value) {
  const Row* const row = findRow(name);
  const std::string fault = quoteText(row == nullptr ? name : name + "=" + value) + " is not taken";
  return row == nullptr || row->form == nullptr ? fault : fault + "; " + row->form + " is wanted";
}

// A field but that of addresses, which add up, that is given two values: the last one alone would be kept.
std::string findNamedTwice(std::string_view entry) {
  std::map<std::string_view, std::string_view> values;
  while (!entry.empty()) {
    const std::string_view field = trimFront(entry.substr(0, entry.find(',')));
    const std::size_t equals = field.find('=');
    const std::string_view name = field.substr(0, equals);
    if (name == "ip6") break;
    const bool isSingle = equals != std::string_view::npos && name != "ip" && findRow(name) != nullptr;
    const auto value = isSingle ? field.substr(equals + 1) : std::string_view();
    if (isSingle && values.emplace(name, value).first->second != value)
      return quoteText(std::string(field)) + " is not taken; one " + std::string(name) + " is wanted";
    entry.remove_prefix(std::min(entry.find(','), entry.size() - 1) + 1);
  }
  return {};
}

// A sound address can only be lost to a server that gives it.
std::string describeLost(const Fields& asked, const std::string& name, const std::string& value) {
  auto server = asked.find("dhcp");
  if (server == asked.end()) server = asked.find("dhcp6");
  const Row* const row = findRow(name);
  const bool isAddress = (name == "ip" || name == "ip6") && isSound(*row, value);
  if (!isAddress || server == asked.end() || server->second.front() != "yes") return describe(name, value);
  return quoteText(name + "=" + value) + " is not kept beside " + server->first +
         "=yes, since a server gives the address; one of the two is wanted";
}

}  // namespace

std::string findLostNetifWord(const std::string& asked, const std::string& given) {
  const Fields there = fieldsOf(given);
  if (std::string twice = findNamedTwice(asked); !twice.empty()) return twice;
  const Fields here = fieldsOf(asked);
  for (const auto& [name, values] : here) {
    const Row* const row = findRow(name);
    for (const std::string& value : values) {
      if (row != nullptr && isSound(*row, value)) continue;
      const bool isBehind = row != nullptr && row->kind == Row::Kind::V6List && &value != &values.front();
      return isBehind ? quoteText(value) + " is not taken behind ip6=, which comes last; " + row->form +
                            " is wanted"
                      : describe(name, value);
    }
    const auto found = there.find(name);
    if (found == there.end() || found->second != values) return describeLost(here, name, values.front());
  }
  return {};
}

}  // namespace KFA
