// SPDX-License-Identifier: Apache-2.0
#include "report/ReportPage.h"

#include <algorithm>
#include <array>
#include <string_view>

#include <KFLCommon/KFLText.h>

#include "qos/QosAdvise.h"
#include "report/Markup.h"
#include "report/PageParts.h"
#include "report/ReportPictures.h"
#include "terminal/Output.h"

namespace kfactl {

namespace {

using Report = KFA::KFANodeReport;
using Severity = KFA::KFANodeFinding::Severity;

// The digits of a hash in the form in which a policy names it.
std::string base64Of(std::string_view digits) {
  constexpr std::string_view kSigns = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  unsigned bits = 0;
  int count = 0;
  for (const char digit : digits) {
    bits = bits << 4 | static_cast<unsigned>(KFL::isDigit(digit) ? digit - '0' : digit - 'a' + 10);
    for (count += 4; count >= 6; count -= 6)
      text += kSigns[bits >> (count - 6) & 63U];
  }
  if (count > 0) text += kSigns[bits << (6 - count) & 63U];
  text.append((4 - text.size() % 4) % 4, '=');
  return text;
}

class Page {
 public:
  Page(const Report& report, const std::string& node, const std::string& made)
      : report_(report), node_(node), made_(made) {}

  std::string write() {
    writeHead();
    writeFigures();
    writeSums();
    writeList();
    writeNetworks();
    writeEnvironments();
    page_.html("</main>\n<footer><p>Made by kfactl report, ").text(made_).html(".</p></footer>\n<script>");
    page_.part(kPageScript.text).html("</script>\n</body>\n</html>\n");
    return page_.take();
  }

 private:
  void writeHead();
  void writeFigures();
  void writeFigure(Markup::Literal kind, std::size_t count, Markup::Literal name);
  void writeSums();
  void writeList();
  void writeRow(std::size_t index);
  void writeCount(std::size_t count, Severity severity);
  void writeNetworks();
  void writeEnvironments();
  void writeEnvironment(std::size_t index);
  void writeFindings(const Report::Environment& environment);
  void writeFinding(const Report::Finding& finding);
  void writeExcerpt(const Report::Finding& finding);
  void writeFormulas(const Report::Environment& environment);
  void writeAdvice(const Report::Environment& environment);
  void writeResources(const Report::Environment& environment);

  const Report& report_;
  const std::string& node_;
  const std::string& made_;
  Markup page_;
};

void Page::writeHead() {
  page_
      .html(
          "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
          "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src 'sha256-")
      .text(base64Of(kPageStyle.hash))
      .html("'; script-src 'sha256-")
      .text(base64Of(kPageScript.hash))
      .html(
          "'; base-uri 'none'; form-action 'none'\">\n"
          "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>Node ")
      .text(node_)
      .html("</title>\n<style>")
      .part(kPageStyle.text)
      .html(
          "</style>\n</head>\n<body>\n<a class=\"skip\" href=\"#list\">To the environments</a>\n"
          "<header><h1>Node report</h1>\n<p class=\"quiet\"><span class=\"path\">")
      .text(node_)
      .html("</span> \xc2\xb7 ")
      .text(made_)
      .html(
          "</p>\n<nav aria-label=\"Parts of this page\"><a href=\"#node\">Node</a> "
          "<a href=\"#environments\">Environments</a> <a href=\"#networks\">Networks</a> "
          "<a href=\"#details\">Details</a></nav></header>\n<main>\n");
}

void Page::writeFigure(Markup::Literal kind, std::size_t count, Markup::Literal name) {
  page_.html("<div");
  if (count > 0) page_.html(" class=\"").html(kind).html("\"");
  page_.html("><dt>").html(name).html("</dt><dd>").text(count).html("</dd></div>\n");
}

void Page::writeFigures() {
  page_.html("<dl class=\"figures\">\n");
  writeFigure("", report_.environments.size(), "environments");
  writeFigure("", report_.startedOnBoot, "start on boot");
  const auto unread = std::count_if(report_.environments.begin(), report_.environments.end(),
                                    [](const auto& environment) { return !environment.failure.empty(); });
  if (unread > 0) writeFigure("error", static_cast<std::size_t>(unread), "files that cannot be read");
  writeFigure("error", report_.count(Severity::Error), "errors");
  writeFigure("warning", report_.count(Severity::Warning), "warnings");
  writeFigure("", report_.count(Severity::Note), "notes");
  writeFigure("warning", report_.countViolations(), "violated formulas");
  page_.html("</dl>\n");
}

void Page::writeSums() {
  page_.html(
      "<section class=\"card\" id=\"node\"><h2>What the environments that start on boot take of the "
      "node</h2>\n<div class=\"sums\">\n");
  for (const Report::Sum& sum : report_.sums)
    drawSum(page_, report_, sum);
  page_.html("</div>\n");
  for (const KFA::KFANodeFinding& finding : report_.findings)
    page_.html("<p><span class=\"tag warning\">")
        .text(toString(finding.severity))
        .html("</span> ")
        .text(finding.text)
        .html("</p>\n");
  page_.html("</section>\n");
}

// --- The table --------------------------------------------------------------------------------------------------------

void Page::writeCount(std::size_t count, Severity severity) {
  page_.html("<td class=\"number");
  if (count > 0) page_.html(" ").text(toString(severity));
  page_.html("\">").text(count).html("</td>");
}

void Page::writeRow(std::size_t index) {
  const Report::Environment& environment = report_.environments[index];
  const KFA::KFAEnvironmentSummary& summary = environment.summary;
  page_.html("<tr id=\"r").text(index).html("\"><th scope=\"row\" class=\"number\"><a href=\"#e").text(index);
  page_.html("\">").text(numberOf(environment)).html("</a></th><td>");
  if (!environment.failure.empty()) {
    page_.html("cannot be read</td>");
    for (int i = 0; i < 8; ++i)
      page_.html("<td></td>");
    page_.html("</tr>\n");
    return;
  }
  page_.text(summary.title).html("</td><td>").text(summary.type).html("</td><td>");
  page_.text(summary.onBootText()).html("</td><td>").text(summary.osTemplate);
  page_.html("</td><td class=\"address mono\">");
  for (const std::string& address : summary.addresses)
    page_.text(&address == summary.addresses.data() ? "" : " ").text(address);
  page_.html("</td>");
  for (const Severity severity : {Severity::Error, Severity::Warning, Severity::Note})
    writeCount(environment.counts[static_cast<std::size_t>(severity)], severity);
  writeCount(environment.violations.size(), Severity::Warning);
  page_.html("</tr>\n");
}

void Page::writeList() {
  page_.html(
      "<section class=\"card\" id=\"environments\"><h2>Environments</h2>\n"
      "<div id=\"tools\" hidden><label for=\"filter\">Filter by words</label> "
      "<input id=\"filter\" type=\"search\" autocomplete=\"off\"> "
      "<span id=\"shown\" class=\"quiet\" role=\"status\"></span></div>\n<div class=\"scroll\">"
      "<table id=\"list\"><caption>Every environment with what was found: numbers of errors, warnings, notes "
      "and violated formulas.</caption>\n<thead><tr>"
      "<th scope=\"col\" class=\"number\" data-name=\"veid\">VEID</th>"
      "<th scope=\"col\" data-name=\"title\">Title</th><th scope=\"col\" data-name=\"type\">Type</th>"
      "<th scope=\"col\" data-name=\"onboot\">On boot</th>"
      "<th scope=\"col\" data-name=\"template\">Template</th>"
      "<th scope=\"col\" data-name=\"addresses\">Addresses</th>"
      "<th scope=\"col\" class=\"number\" data-name=\"errors\">Errors</th>"
      "<th scope=\"col\" class=\"number\" data-name=\"warnings\">Warnings</th>"
      "<th scope=\"col\" class=\"number\" data-name=\"notes\">Notes</th>"
      "<th scope=\"col\" class=\"number\" data-name=\"formulas\">Formulas</th></tr></thead>\n<tbody>\n");
  for (std::size_t index = 0; index < report_.environments.size(); ++index)
    writeRow(index);
  page_.html("</tbody></table></div></section>\n");
}

// --- Networks ---------------------------------------------------------------------------------------------------------

void Page::writeNetworks() {
  constexpr std::size_t kShown = 100;
  page_.html("<section class=\"card\" id=\"networks\"><h2>Networks</h2>\n");
  if (report_.networks.empty()) page_.html("<p>No environment has an address or a device.</p>\n");
  page_.html("<div class=\"nets\">\n");
  for (const Report::Network& network : report_.networks) {
    const bool isLarge = network.members.size() > kShown;
    page_.html(isLarge ? Markup::Literal("<details class=\"net\"><summary>") : "<div class=\"net\">");
    page_.html("<h3>").text(nameOf(network)).html("</h3> <span class=\"quiet\">");
    page_.text(countText(network.members.size(), "member")).html("</span>");
    page_.html(isLarge ? Markup::Literal("</summary>\n") : "\n");
    drawNetwork(page_, report_, network);
    page_.html(isLarge ? Markup::Literal("</details>\n") : "</div>\n");
  }
  page_.html("</div></section>\n");
}

// --- One environment --------------------------------------------------------------------------------------------------

void Page::writeEnvironments() {
  page_.html("<section class=\"card\" id=\"details\"><h2>Details</h2>\n");
  for (std::size_t index = 0; index < report_.environments.size(); ++index)
    writeEnvironment(index);
  page_.html("</section>\n");
}

void Page::writeEnvironment(std::size_t index) {
  const Report::Environment& environment = report_.environments[index];
  const bool isSound =
      environment.failure.empty() && environment.findings.empty() && environment.violations.empty();
  page_.html("<details class=\"env\" id=\"e").text(index);
  page_.html(isSound ? Markup::Literal("\">") : "\" open>").html("<summary><h3><span class=\"number\">");
  page_.text(numberOf(environment)).html("</span> ").text(environment.summary.title).html("</h3>");
  for (const Severity severity : {Severity::Error, Severity::Warning, Severity::Note}) {
    const std::size_t count = environment.counts[static_cast<std::size_t>(severity)];
    if (count == 0) continue;
    page_.html(" <span class=\"tag ").text(toString(severity)).html("\">");
    page_.text(countText(count, toString(severity))).html("</span>");
  }
  if (!environment.violations.empty())
    page_.html(" <span class=\"tag warning\">")
        .text(countText(environment.violations.size(), "violated formula"))
        .html("</span>");
  if (!environment.failure.empty()) page_.html(" <span class=\"tag error\">cannot be read</span>");
  page_.html("</summary>\n<div class=\"inside\"><p class=\"path quiet\">").text(environment.file.path);
  page_.html("</p>\n");
  if (!environment.failure.empty()) page_.html("<p>").text(environment.failure).html("</p>\n");
  writeFindings(environment);
  writeFormulas(environment);
  writeResources(environment);
  page_.html("</div></details>\n");
}

void Page::writeExcerpt(const Report::Finding& finding) {
  const KFA::KFANodeFinding& found = finding.finding;
  const std::size_t digits = std::to_string(finding.firstLine + finding.lines.size()).size();
  page_.html("<pre>");
  for (std::size_t i = 0; i < finding.lines.size(); ++i) {
    const std::size_t number = finding.firstLine + i;
    const std::string shown = std::to_string(number);
    const std::string front = std::string(digits - shown.size(), ' ') + shown + " | ";
    if (number != found.line) {
      page_.text("  " + front).text(finding.lines[i]).html("\n");
      continue;
    }
    const std::string_view before =
        std::string_view(finding.lines[i]).substr(0, found.column > 0 ? found.column - 1 : 0);
    page_.html("<mark>\xe2\x96\xb8 ").text(front).text(finding.lines[i]).html("\n");
    page_.text(std::string(2 + front.size() + displayWidth(printable(before)), ' ')).html("^</mark>\n");
  }
  page_.html("</pre>");
}

void Page::writeFinding(const Report::Finding& finding) {
  const KFA::KFANodeFinding& found = finding.finding;
  page_.html("<li class=\"").text(toString(found.severity)).html("\"><p><span class=\"kind\">");
  page_.text(toString(found.severity)).html("</span> ");
  if (found.line > 0) page_.html("line ").text(found.line).html(", column ").text(found.column).html(": ");
  page_.text(found.text).html(" <span class=\"quiet\">(").text(found.rule).html(")</span></p>");
  if (!finding.lines.empty()) writeExcerpt(finding);
  page_.html("</li>\n");
}

void Page::writeFindings(const Report::Environment& environment) {
  if (environment.findings.empty()) return;
  page_.html("<h4>Findings</h4>\n<ul>\n");
  for (const Report::Finding& finding : environment.findings)
    writeFinding(finding);
  page_.html("</ul>\n");
}

void Page::writeAdvice(const Report::Environment& environment) {
  if (!environment.advice.empty())
    page_.html("<p>The smallest change that cures them:</p>\n<pre>")
        .text(commandFor(environment.file.path, environment.advice))
        .html("</pre>\n");
  if (!environment.left.empty())
    page_.html("<p>No change was found for: ").text(numbersOf(environment.left)).html(".</p>\n");
}

void Page::writeFormulas(const Report::Environment& environment) {
  if (!environment.isJudged)
    page_.html("<p>Its formulas are not judged: errors in the file leave parameters without values.</p>\n");
  if (environment.violations.empty()) return;
  page_.html("<h4>Violated formulas</h4>\n<ul>\n");
  for (const Report::Violation& violation : environment.violations) {
    page_.html("<li class=\"warning\"><p><span class=\"kind\">violated</span> ").text(violation.number);
    page_.html(": <code>").text(violation.expression).html("</code></p>\n<p>").text(violation.comment);
    page_.html("</p>\n");
    for (const std::string& detail : violation.details)
      page_.html("<p class=\"mono quiet\">").text(detail).html("</p>\n");
    page_.html("</li>\n");
  }
  page_.html("</ul>\n");
  writeAdvice(environment);
}

// Of tens of thousands of rows every byte counts, so they have no end tags.
void Page::writeResources(const Report::Environment& environment) {
  if (environment.resources.empty()) return;
  page_.html(
      "<h4>Resources</h4>\n<div class=\"scroll\"><table class=\"res\"><caption>Barrier and limit, or one "
      "value; a bar shows the barrier in its limit, or the value in what the node has.</caption>\n");
  for (const Report::Resource& resource : environment.resources) {
    page_.html("<tr><th scope=\"row\">").text(resource.key).html("<td>").text(resource.text).html("<td>");
    drawShare(page_, resource.share);
    page_.html("\n");
  }
  page_.html("</table></div>\n");
}

}  // namespace

std::string pageOf(const Report& report, const std::string& node, const std::string& made) {
  return Page(report, node, made).write();
}

}  // namespace kfactl
