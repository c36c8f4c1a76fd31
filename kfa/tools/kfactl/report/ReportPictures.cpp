// SPDX-License-Identifier: Apache-2.0
#include "report/ReportPictures.h"

#include <algorithm>

#include <KFLCommon/KFLText.h>

namespace kfactl {

namespace {

using Report = KFA::KFANodeReport;

// With one decimal, in the largest unit that leaves a number of at least 1.
std::string amountText(const Report::Sum& sum, long long amount) {
  const auto rounded = [](double number) {
    return KFL::doubleToStr(static_cast<double>(static_cast<long long>(number * 10 + 0.5)) / 10);
  };
  if (!sum.isBytes) return rounded(static_cast<double>(amount) / 100) + " %";
  constexpr const char* kUnits[] = {"bytes", "KiB", "MiB", "GiB", "TiB", "PiB"};
  auto number = static_cast<double>(amount);
  std::size_t unit = 0;
  for (; number >= 1024 && unit + 1 < std::size(kUnits); ++unit)
    number /= 1024;
  return rounded(number) + " " + kUnits[unit];
}

std::string comparisonText(const Report::Sum& sum) {
  std::string text = amountText(sum, sum.total);
  if (sum.has <= 0) return text + "; what the node has is not known";
  const auto percent =
      static_cast<long long>(100 * static_cast<double>(sum.total) / static_cast<double>(sum.has) + 0.5);
  return text + " of " + amountText(sum, sum.has) + ", " + std::to_string(percent) + " %";
}

// The largest by name: these are the ones to look at first.
std::string largestText(const Report& report, const Report::Sum& sum) {
  constexpr std::size_t kNamed = 3;
  std::string text;
  for (std::size_t i = 0; i < std::min(sum.shares.size(), kNamed); ++i)
    text += (i == 0 ? "largest: " : ", ") + callNameOf(report.environments[sum.shares[i].environment]) + " " +
            amountText(sum, sum.shares[i].amount);
  return text;
}

constexpr double kBarWidth = 1000;

void drawShares(Markup& page, const Report& report, const Report::Sum& sum, double scale) {
  constexpr std::size_t kDrawn = 100;
  double at = 0;
  for (std::size_t i = 0; i < std::min(sum.shares.size(), kDrawn); ++i) {
    const Report::Share& share = sum.shares[i];
    const double width = static_cast<double>(share.amount) * scale;
    if (width <= 0) break;
    page.html("<rect class=\"").text(i % 2 == 0 ? "a" : "b").html("\" x=\"").length(at);
    page.html("\" width=\"").length(width).html("\" height=\"10\"><title>");
    page.text(callNameOf(report.environments[share.environment]) + ": " + amountText(sum, share.amount));
    page.html("</title></rect>\n");
    at += width;
  }
  if (sum.shares.size() <= kDrawn) return;
  page.html("<rect class=\"rest\" x=\"").length(at).html("\" width=\"");
  page.length(static_cast<double>(sum.total) * scale - at).html("\" height=\"10\"><title>");
  page.text(sum.shares.size() - kDrawn).html(" others</title></rect>\n");
}

}  // namespace

std::string numberOf(const Report::Environment& environment) {
  return environment.file.veid >= 0 ? std::to_string(environment.file.veid) : environment.file.path;
}

std::string callNameOf(const Report::Environment& environment) {
  const std::string number = numberOf(environment);
  const std::string& title = environment.summary.title;
  return title.empty() || title == "#" + number ? number : number + " " + title;
}

std::string countText(std::size_t count, const char* word) {
  return std::to_string(count) + " " + word + (count == 1 ? "" : "s");
}

void drawSum(Markup& page, const Report& report, const Report::Sum& sum) {
  const long long whole = std::max(sum.total, sum.has);
  const double scale = whole > 0 ? kBarWidth / static_cast<double>(whole) : 0;
  const std::string comparison = comparisonText(sum);
  const std::string largest = largestText(report, sum);
  const auto id = &sum - report.sums.data();
  page.html("<div class=\"sum\"><h3>").text(sum.name).html("</h3>\n<p>").text(comparison).html("</p>\n");
  page.html("<svg role=\"img\" viewBox=\"0 0 1000 10\" preserveAspectRatio=\"none\" aria-labelledby=\"s");
  page.text(id).html("t s").text(id).html("d\">\n<title id=\"s").text(id).html("t\">").text(sum.name);
  page.html("</title><desc id=\"s").text(id).html("d\">").text(comparison);
  page.text(largest.empty() ? "" : "; " + largest).html("</desc>\n");
  drawShares(page, report, sum, scale);
  const bool isBeyond = sum.has > 0 && sum.total > sum.has;
  if (isBeyond) {
    const double edge = static_cast<double>(sum.has) * scale;
    if (sum.isPromised) {
      page.html("<rect class=\"over\" x=\"").length(edge).html("\" width=\"").length(kBarWidth - edge);
      page.html("\" height=\"10\"/>");
    }
    page.html("<path class=\"edge\" d=\"M").length(edge).html(" 0V10\"/>\n");
  }
  page.html("</svg>\n");
  if (isBeyond) {
    page.html(sum.isPromised ? Markup::Literal("<p class=\"beyond\">\xe2\x9a\xa0 ") : "<p>");
    page.text(amountText(sum, sum.total - sum.has)).html(" more than the node has");
    page.html(sum.isPromised ? Markup::Literal(".</p>\n") : ", should all reach their limits.</p>\n");
  }
  if (!largest.empty()) page.html("<p class=\"quiet\">").text(largest).html("</p>\n");
  if (sum.unlimited > 0)
    page.html("<p class=\"quiet\">")
        .text(countText(sum.unlimited, "environment"))
        .html(" without a limit, not counted.</p>\n");
  page.html("</div>\n");
}

void drawShare(Markup& page, double share) {
  if (share < 0) return;
  const bool isBeyond = share > 1;
  page.html("<svg aria-hidden=\"true\"><rect ").html(isBeyond ? Markup::Literal("class=\"over\" ") : "");
  page.html("height=\"100%\" width=\"").length(100 * std::min(share, 1.0)).html("%\"/></svg>");
}

// --- Networks ---------------------------------------------------------------------------------------------------------

//   =====================      the network
//   |   ___    ___    ___
//   +--[   ]--[   ]--[   ]     its members, row by row
//   |   ___
//   +--[   ]
namespace {

constexpr std::size_t kColumns = 5;
constexpr std::size_t kBoxWidth = 196;
constexpr std::size_t kBoxHeight = 44;
constexpr std::size_t kColumnWidth = 212;
constexpr std::size_t kRowHeight = 60;
constexpr std::size_t kLeft = 24;
constexpr std::size_t kTop = 26;

std::string addressText(const Report::Member& member) {
  if (!member.twin.empty()) return "\xe2\x9a\xa0 " + member.twin + " twice";
  std::string text = member.device;
  if (!member.addresses.empty()) text += (text.empty() ? "" : " ") + member.addresses.front();
  if (member.addresses.size() > 1) text += " +" + std::to_string(member.addresses.size() - 1);
  return text;
}

std::string wholeText(const Report& report, const Report::Member& member) {
  std::string text = callNameOf(report.environments[member.environment]);
  if (!member.device.empty()) text += ", " + member.device;
  for (const std::string& address : member.addresses)
    text += ", " + address;
  return member.twin.empty() ? text : text + "; another environment has " + member.twin + ", too";
}

void drawMember(Markup& page, const Report& report, const Report::Member& member, std::size_t x,
                std::size_t y) {
  page.html("<a href=\"#e").text(member.environment).html("\"><g");
  if (!member.twin.empty()) page.html(" class=\"twin\"");
  page.html("><title>").text(wholeText(report, member)).html("</title><rect class=\"box\" rx=\"6\" x=\"");
  page.text(x).html("\" y=\"").text(y).html("\" width=\"").text(kBoxWidth).html("\" height=\"");
  page.text(kBoxHeight).html("\"/><text x=\"").text(x + 10).html("\" y=\"").text(y + 18).html("\">");
  page.text(shortened(callNameOf(report.environments[member.environment]), 24));
  page.html("</text><text class=\"small\" x=\"").text(x + 10).html("\" y=\"").text(y + 35).html("\">");
  page.text(shortened(addressText(member), 24)).html("</text></g></a>\n");
}

void drawWires(Markup& page, std::size_t members) {
  const std::size_t rows = (members + kColumns - 1) / kColumns;
  page.html("<path class=\"wire\" d=\"M8 10V").text(kTop + (rows - 1) * kRowHeight + kBoxHeight / 2);
  for (std::size_t row = 0; row < rows; ++row) {
    const std::size_t inRow = std::min(members - row * kColumns, kColumns);
    page.html("M8 ").text(kTop + row * kRowHeight + kBoxHeight / 2).html("H");
    page.text(kLeft + (inRow - 1) * kColumnWidth + 1);
  }
  page.html("\"/>\n");
}

}  // namespace

std::string nameOf(const Report::Network& network) {
  if (network.kind == Report::Network::Kind::Named) return network.name;
  return network.kind == Report::Network::Kind::Routed ? "routed by the node" : "bridged, without a network";
}

void drawNetwork(Markup& page, const Report& report, const Report::Network& network) {
  const auto id = &network - report.networks.data();
  const std::size_t count = network.members.size();
  const std::size_t columns = std::min(count, kColumns);
  const std::size_t width = kLeft + columns * kColumnWidth;
  const std::size_t height = kTop + (count + kColumns - 1) / kColumns * kRowHeight;
  const auto twins = std::count_if(network.members.begin(), network.members.end(),
                                   [](const Report::Member& member) { return !member.twin.empty(); });
  page.html("<div class=\"scroll\"><svg role=\"group\" width=\"")
      .text(width)
      .html("\" height=\"")
      .text(height);
  page.html("\" viewBox=\"0 0 ").text(width).html(" ").text(height).html("\" aria-labelledby=\"n").text(id);
  page.html("t n").text(id).html("d\">\n<title id=\"n").text(id).html("t\">Network: ").text(nameOf(network));
  page.html("</title><desc id=\"n").text(id).html("d\">").text(countText(count, "member"));
  if (twins > 0)
    page.text(", " + std::to_string(twins) + " with an address that another environment has, too");
  page.html("</desc>\n<rect class=\"bus\" x=\"0\" y=\"4\" rx=\"4\" height=\"8\" width=\"").text(width - 16);
  page.html("\"/>\n");
  drawWires(page, count);
  for (std::size_t i = 0; i < count; ++i)
    drawMember(page, report, network.members[i], kLeft + i % kColumns * kColumnWidth,
               kTop + i / kColumns * kRowHeight);
  page.html("</svg></div>\n");
}

}  // namespace kfactl
