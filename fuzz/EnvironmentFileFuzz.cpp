// SPDX-License-Identifier: Apache-2.0
// Environment files: the check finds why one is not read; what is read and written reads back as the same record, into a
// new file and over the old one; and a value that is set leaves each other one as it was. A file of lines whose meaning is
// known brings the message that they mean, and is written with the same lines. The input is lines KEY=VALUE, a
// line "--", and the file; its bytes also make a file of their own.
#include <algorithm>
#include <initializer_list>
#include <iterator>
#include <map>
#include <numeric>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <KFLBash/KFLBashStr.h>
#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>
#include <KFLMessage/KFLMessage.h>

#include <KFAFunctionality/files/KFAConfigCheck.h>
#include <KFAFunctionality/files/KFAConfigFile.h>
#include <KFAFunctionality/files/KFAMemoryStream.h>
#include <KFAFunctionality/files/KFARawConfigBashParser.h>
#include <KFAFunctionality/node/KFAEnvironmentText.h>

#include "Environments.h"

namespace {

using KFA::KFAEnvConfig;
using kfl_fuzz::environmentParser;
using kfl_fuzz::environmentRules;
using kfl_fuzz::require;

bool read(const std::string& text, KFAEnvConfig& record) {
  KFA::KFAMemoryStream in(text);
  return environmentParser().getConfig(in, record) == 0;
}

void requireFindings(const std::string& text, bool isRead) {
  bool isMalformed = false;
  for (const KFA::KFAConfigFinding& finding : KFA::checkConfig(environmentRules(), text)) {
    require(finding.line > 0 && finding.column > 0 && !finding.text.empty(), "a finding has its place", text);
    require(finding.column <= finding.lineText.size() + 1, "its place lies in its line", finding.text);
    isMalformed |= finding.severity == KFA::KFAConfigFinding::Severity::Error;
  }
  require(isRead || isMalformed, "the check finds why a file is not read", text);
}

// The lines of a record's message, in no order: that of its elements is the order in which they were set. A file says that
// there are no addresses where the record says nothing.
std::string messageOf(const KFAEnvConfig& record) {
  KFL::KFLMessage message;
  auto it = message.getIterator();
  require(it.putObj(record) == 0, "a record is written into a message");
  std::vector<std::string> lines;
  std::istringstream in(message.toPrettyString());
  for (std::string line; std::getline(in, line);)
    if (!line.starts_with("  <address ") || !line.ends_with("/>")) lines.push_back(line + "\n");
  std::sort(lines.begin(), lines.end());
  return std::accumulate(lines.begin(), lines.end(), std::string());
}

std::string all(std::initializer_list<std::string_view> parts) {
  std::string text;
  for (const std::string_view part : parts)
    text.append(part).append("--\n");
  return text;
}

// Whether a device but venet0 is the first that is host-routed: its addresses become those of IP_ADDRESS when the record is
// written, and then those of venet0.
bool isRoutedElsewhere(const KFAEnvConfig& record) {
  KFAEnvConfig::NetVEths devices;
  require(record.getNetVEths(devices) == 0, "a record has its devices");
  for (const KFA::KFANetVEth& device : devices.getValue())
    if (device.getHostRouted()) return device.getName() != "venet0";
  return false;
}

// What was read from a file can be written into one, if only shells read its values back. A template's name can be read that
// no text stands for: of "a//" it is "a/", which reads as "a".
void requireWritable(const std::string& text, const KFAEnvConfig& record) {
  const KFAEnvConfig whole = KFA::withoutCompletion(kfl_fuzz::environmentParser(), record);
  if (KFA::checkWritable(kfl_fuzz::environmentParser(), whole, {}, "f") == 0) return;
  const std::string fault = KFL::getErrorMessage();
  const bool isTemplate = fault.find(" would be read otherwise; NAME") != std::string::npos;
  require(isTemplate || fault.find("would be read") == std::string::npos, "what was read can be written",
          text + fault);
}

// The record of a file that gives cause to no word.
void requireSameAgain(const std::string& text, const KFAEnvConfig& record) {
  for (const std::string& written : {kfl_fuzz::writtenFile(record), kfl_fuzz::mergedFile(record, text)}) {
    KFAEnvConfig again;
    require(read(written, again), "what is written is read", written);
    require(kfl_fuzz::differences(record, again).empty() && kfl_fuzz::differences(again, record).empty(),
            "what is written reads back as the same record",
            all({text, written, kfl_fuzz::differences(record, again)}));
    // That a device asks for its addresses is told by IP_ADDRESS alone, which then has none to tell.
    const std::string message = messageOf(record);
    const bool isOther = message.find(">dhcp<") != std::string::npos || isRoutedElsewhere(record);
    require(isOther || message == messageOf(again), "what is written brings the same message",
            all({text, message, written, messageOf(again)}));
  }
  const std::string written = kfl_fuzz::writtenFile(record);
  KFAEnvConfig again;
  read(written, again);
  require(kfl_fuzz::writtenFile(again) == written, "a second writing is the first", written);
}

void check(const std::string& text) {
  KFAEnvConfig record;
  const bool isRead = read(text, record);
  requireFindings(text, isRead);
  if (!isRead) return;
  requireWritable(text, record);
  if (kfl_fuzz::isFaultless(text))
    requireSameAgain(text, record);
  else
    kfl_fuzz::mergedFile(record, text);
}

// What a line means, in a message without namespaces; it is written as it stands.
struct Meaning {
  const char* key;
  const char* value;
  const char* elements;
};

constexpr Meaning kMeanings[] = {
    {"ONBOOT", "no", "<on_boot>false</on_boot>"},
    {"DISABLED", "yes", "<disabled>true</disabled>"},
    {"OFFLINE_MANAGEMENT", "yes", "<offline_management>true</offline_management>"},
    {"RATEBOUND", "yes", "<rate_bound>true</rate_bound>"},
    {"OSTEMPLATE", "debian/12", "<os_template><version>12</version><name>debian</name></os_template>"},
    {"DISTRIBUTION", "a-b-1", "<distribution><version>1</version><name>a-b</name></distribution>"},
    {"TEMPLATES", "php mysql/5",
     "<template><version/><name>php</name></template><template><version>5</version><name>mysql</name></"
     "template>"},
    {"VE_TYPE", "repair:5", "<ve_type><veid>5</veid><kind>4</kind></ve_type>"},
    {"VE_TYPE", "repaired:6", "<ve_type><veid>6</veid><kind>5</kind></ve_type>"},
    {"IP_ADDRESS", "dhcp", "<name>venet0</name><dhcp>true</dhcp>"},
    {"IP_ADDRESS", "10.0.0.1 fe80::1/64",
     "<name>venet0</name><ip_address>10.0.0.1</ip_address><ip_address>fe80::1/64</ip_address>"},
    {"IP_ADDRESS", "10.0.0.1 10.0.0.5/24", "<address>10.0.0.1</address><address>10.0.0.5/24</address>"},
    {"NAMESERVER", "10.0.0.2 ns.example.com",
     "<nameserver>10.0.0.2</nameserver><nameserver>ns.example.com</nameserver><host_routed/></net_device>"},
    {"NETIF",
     "ifname=eth0,network=n,mac=00:11:22:33:44:55,nettype=bridged,gw=10.0.0.1,gw6=fe80::2,ip=10.0.0.5/"
     "24:10.0.1.5,dhcp=no,dhcp6=yes,ip6=fe80::1/64,fe80::3,",
     "<net_device><name>eth0</name><ip_address>10.0.0.5/24</ip_address><ip_address>10.0.1.5</"
     "ip_address><ip_address>fe80::1/64</ip_address><ip_address>fe80::3</ip_address><network>n</"
     "network><gateway>10.0.0.1</gateway><gateway_v6>fe80::2</gateway_v6><dhcp_v6>true</"
     "dhcp_v6><mac>00:11:22:33:44:55</mac></net_device>"},
    {"OFFLINE_SERVICE", "a b", "<offline_service>a</offline_service><offline_service>b</offline_service>"},
    {"IPTABLES", "a b", "<iptables>a</iptables><iptables>b</iptables>"},
    {"ROLES", "db web", "<role>db</role><role>web</role>"},
    {"SEARCHDOMAIN", "a b", "<search_domain>a</search_domain><search_domain>b</search_domain>"},
    {"RATE", "eth0:1:1024 *:2:64",
     "<interface_rate>eth0:1:1024</interface_rate><interface_rate>*:2:64</interface_rate>"},
    {"SLMMODE", "slm", "<slm_mode>slm</slm_mode>"},
    {"UUID", "x", "<uuid>x</uuid>"},
    {"ORIGIN_SAMPLE", "basic", "<origin_sample>basic</origin_sample>"},
    {"VE_ROOT", "/r", "<ve_root>/r</ve_root>"},
    {"VE_PRIVATE", "/p/${VEID}", "<ve_private>/p/${VEID}</ve_private>"},
    {"HOSTNAME", "web1", "<hostname>web1</hostname>"},
    {"NAME", "web", "<name>web</name>"},
    {"DESCRIPTION", " a  <b> ", "<description> a  &lt;b&gt; </description>"},
    {"PLATFORM", "linux", "<os><platform>linux</platform></os>"},
    {"ARCH", "x86", "<architecture>i386</architecture>"},
    {"NUMPROC", "100:200", "<qos><id>numproc</id><soft>100</soft><hard>200</hard></qos>"},
    {"NUMPROC", "-1:9223372036854775807",
     "<qos><id>numproc</id><soft>-1</soft><hard>9223372036854775807</hard></qos>"},
    {"NUMPROC", "7", "<qos><id>numproc</id><hard>7</hard></qos>"},
    {"CPUWEIGHT", "1000", "<qos><id>cpuweight</id><hard>1000</hard></qos>"},
    {"CPULIMIT", "12.5", "<qos><id>cpulimit</id><hard>1250</hard></qos>"},
    {"CPULIMIT", "-1.75", "<qos><id>cpulimit</id><hard>-175</hard></qos>"},
};

std::string withoutAttributes(const std::string& xml) {
  std::string text;
  for (std::size_t at = 0; at < xml.size();) {
    const std::size_t blank = std::min(xml.find_first_of(" >", at), xml.size());
    const bool isAttribute = blank < xml.size() && xml[blank] == ' ' &&
                             (xml.compare(blank, 6, " xmlns") == 0 || xml.compare(blank, 5, " xsi:") == 0);
    text += xml.substr(at, blank + (isAttribute ? 0 : 1) - at);
    at = isAttribute ? xml.find('"', xml.find('"', blank) + 1) + 1 : blank + 1;
  }
  return text;
}

void checkMeanings(kfl_fuzz::Choices& choices) {
  std::string text;
  std::map<std::string, const Meaning*> chosen;
  for (std::size_t more = choices.below(12) + 1; more > 0; --more) {
    const Meaning& meaning = kMeanings[choices.below(std::size(kMeanings))];
    if (!chosen.emplace(meaning.key, &meaning).second) continue;
    text += choices.oneOf({"", "", "# why\n", "FOREIGN=\"1\"\n"}) + std::string(meaning.key) + "=\"" +
            meaning.value + "\"" + choices.oneOf({"", " ", "  # so"}) + "\n";
    require(environmentRules().accept(KFL::toLower(meaning.key), meaning.value) == 0,
            "a value of its form is taken", text);
  }
  KFAEnvConfig record;
  require(read(text, record), "lines of their forms are read", text);
  KFL::KFLMessage message;
  auto it = message.getIterator();
  require(it.putObj(record) == 0, "a record is written into a message", text);
  const std::string said = withoutAttributes(message.toString());
  const std::string written = "\n" + kfl_fuzz::writtenFile(record);
  for (const auto& [key, meaning] : chosen) {
    require(said.find(meaning->elements) != std::string::npos, "a line means what is known",
            text + said + "\n" + meaning->elements);
    // Of a device that asks for its addresses there are none to write; behind those of NETIF stands the one without a text.
    const std::string line = "\n" + key + "=\"" + meaning->value + (key == "NETIF" ? ";\"\n" : "\"\n");
    const bool isWritten = written.find(line) != std::string::npos;
    require(isWritten || meaning->value == std::string("dhcp"), "a line is written as it stood",
            text + written);
  }
}

std::map<std::string, std::string> rawOf(const std::string& text) {
  std::map<std::string, std::string> values;
  KFA::KFAMemoryStream in(text);
  require(KFA::KFARawConfigBashParser::getInstance()->getConfig(in, values) == 0, "a set file is read", text);
  return values;
}

void checkSetting(const std::string& line, const std::string& text) {
  const std::string key = line.substr(0, line.find('='));
  const std::string value = line.substr(std::min(line.size(), key.size() + 1));
  std::string result;
  if (KFA::setConfigValues(environmentRules(), {{key, value}}, {}, text, "f", result) != 0) return;
  auto before = rawOf(text);
  auto after = rawOf(result);
  require(after[KFL::toLower(key)] == value, "the file has the value that was set", result);
  before.erase(KFL::toLower(key));
  after.erase(KFL::toLower(key));
  require(before == after, "each other value stays", result);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kfl_fuzz::LinesAndContent input = kfl_fuzz::splitInput(kfl_fuzz::viewOf(data, size));
  std::erase(input.content, '\0');
  kfl_fuzz::Choices choices(input.content);
  checkMeanings(choices);
  for (const std::string& text : {input.content, kfl_fuzz::environmentFile(choices)}) {
    check(text);
    for (const std::string& line : input.lines)
      checkSetting(line, text);
  }
  return 0;
}
