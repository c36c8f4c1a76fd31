// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/files/KFAConfigRules.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <set>
#include <tuple>

#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/environment/KFAEnvConfig.h>
#include <KFAFunctionality/files/KFAConfigCheck.h>
#include <KFAFunctionality/files/KFAGlobalConfigRules.h>

#include "FilesTest.h"

namespace {

using KFA::KFAConfigChanges;

// A key, values that it takes, and values that it does not, with | between them.
const std::tuple<std::string, std::string, std::string> kAccepted[] = {
    {"arch", "x86|i386|x86_64|", "X86|I386"},
    {"description", "|Köln; it's \"west\"| spaces ", ""},
    {"disabled", "yes|no", "Yes|true|1|"},
    {"distribution", "debian-12|debian|a-b-2.0|", "debian-bookworm|debian-|centos-x86"},
    {"hostname", "|www.example.com", ""},
    {"ip_address", "|10.0.0.1/24 fe80::1|10.0.0.1/255.255.255.0|dhcp|10.0.0.1  10.0.0.2",
     "ten|10.0.0.256|10.0.0.1,10.0.0.2|dhcp 10.0.0.1"},
    {"iptables", "|b a|a a", ""},
    {"name", "|web", ""},
    {"nameserver", "|1.1.1.1 2001:db8::53|ns1.example.com 1.1.1.1/24", "a\\ "},
    {"netif",
     "|ifname=eth0|mac=00:11:22:33:44:55,ifname=eth0| ifname=eth0,dhcp=no; ifname=eth1"
     "|ifname=eth0,network=,mac=,nettype=bridged,gw=10.0.0.1,gw6=fe80::1,ip=10.0.0.5/"
     "24:10.0.1.5,dhcp=no,ip6=fe80::1/64,"
     "|ifname=eth0,dhcp=yes,dhcp6=yes|ifname=eth1,nettype=host-routed,ip=10.0.0.1"
     "|ifname=venet0,ip=10.0.0.1|ifname=eth0,,gw=,ip=|ifname=eth0,dhcp=no,mac=a,dhcp=no"
     "|ifname=eth0,ip=10.0.0.1,ip=,ip=10.0.0.2|ifname=eth0,dhcp=no,ip6=fe80::1,fe80::2",
     "eth0|ifname=eth0,speed=fast|mac=00:11:22:33:44:55|ifname=eth0; |ifname=eth0,dhcp="
     "|ifname=eth0,dhcp=Yes|ifname=eth0,dhcp=no |ifname=eth0,nettype=host"
     "|ifname=eth0,dhcp=yes,ip=10.0.0.1|ifname=venet0,nettype=host-routed,ip=10.0.0.1"
     "|ifname=eth0;ifname=venet0,nettype=host-routed|ifname=eth0,ip=2001:db8::1"
     "|ifname=eth0,ip6=fe80::1,mac=1|ifname=eth0,ip=10.0.0.999|ifname=eth0,gw=router"
     "|ifname=eth0,dhcp=no,dhcp=yes|ifname=eth0,dhcp6=yes, dhcp6=no|ifname=eth0,mac=,mac=aa"
     "|ifname=eth0,mac=aa,mac=|ifname=,ifname=eth0|ifname=eth0,nettype=bridged,nettype=host-routed"
     "|ifname=eth0,network=,network=x|ifname=eth0,gw=,gw=10.0.0.1|ifname=eth0,gw6=fe80::1,gw6="
     "|ifname=eth0,ifname=eth1|ifname=eth0,ip6=10.0.0.1"},
    {"offline_management", "yes", "on"},
    {"offline_service", "b a b", ""},
    {"onboot", "yes|no", "true|YES|yes |"},
    {"origin_sample", "|large", ""},
    {"ostemplate", "debian-12|debian-12-x86_64/20240301|a/b/1", "debian/bookworm|name/"},
    {"platform", "linux|", ""},
    {"rate", "|eth0:1:1024 *:2:8", "eth0|eth0:1:fast"},
    {"ratebound", "no", "0"},
    {"roles", "web cache|a\\ a\\b", "a\\ =|\\ "},
    {"searchdomain", "b.example a.example b.example", ""},
    {"slmmode", "all", ""},
    {"technologies", "x86_64|ia64|nptl x86|x86_64 nptl", "nptl|i386||x86 ia64|x86-64"},
    {"templates", "|a/1 b|a/1\tb", "a/x b"},
    {"uuid", "5b0c3f0e-8a55-4d27-9b7e-0d7f4a1c9e21", ""},
    {"ve_private", "/srv/private/${VEID}", ""},
    {"ve_root", "/srv/root/$VEID|", ""},
    {"ve_type", "regular|repair:107|repaired:1", "temporary|repair|repair:|repair:007|other|"},
    {"numproc", "1|1:2|-1:9223372036854775807", "|plenty|1:|:1|01|+1| 1|1:2:3|9223372036854775808"},
    {"diskgrace", "0|-3", "1:2|1.5|x"},
    {"cpulimit", "150|1.5|12.25|-0.5|1.50|012.5|1e2|+.5|5.|-0.00",
     "|12.345|x|1:2|0x10|1.5 |1..5|1e|inf|99.99|99.98000000000000000001"},
};

std::vector<std::string> valuesIn(const std::string& text) {
  std::vector<std::string> values;
  for (std::size_t at = 0, end = 0; at <= text.size() && !text.empty(); at = end + 1) {
    end = std::min(text.find('|', at), text.size());
    values.push_back(text.substr(at, end - at));
  }
  return values;
}

TEST(EnvConfigRules, TakeAValueThatTheRecordGivesBack) {
  std::size_t fixedKeys = 0;
  for (const auto& [key, good, bad] : kAccepted) {
    fixedKeys += KFA::KFAEnvConfigBashParser::getKeyTable().count(key);
    for (const std::string& value : valuesIn(good))
      EXPECT_EQ(envRules().accept(key, value), 0) << key << "=" << value << ": " << KFL::getErrorMessage();
    for (const std::string& value : valuesIn(bad)) {
      EXPECT_EQ(envRules().accept(key, value), -1) << key << "=" << value;
      const std::string text = KFL::getErrorMessage();
      EXPECT_TRUE(text.starts_with(KFL::toUpper(key) + ": ")) << text;
      // Of a NETIF entry the text names what the one field takes.
      const std::string form = key == "netif" ? std::string() : envRules().getAcceptedForm(key);
      EXPECT_NE(text.find(form + " is wanted"), std::string::npos) << text;
    }
  }
  EXPECT_EQ(fixedKeys, 27U);
  EXPECT_EQ(envRules().accept("onbot", "yes"), -1);
  EXPECT_EQ(envRules().accept("", "yes"), -1);
}

// The number that a refusal names as the nearest that is held.
double nearestHeld() {
  const std::string text = KFL::getErrorMessage();
  const std::size_t end = text.find(" is the nearest that is held");
  EXPECT_NE(end, std::string::npos) << text;
  return end == std::string::npos ? 0 : std::stod(text.substr(text.rfind(' ', end - 1) + 1));
}

// It is taken, and no number that is taken lies nearer, among those of two decimals from 0.00 to 200.00. Far from these it
// is near.
TEST(EnvConfigRules, TheNearestFractionIsTaken) {
  const auto accepts = [](double value) {
    return envRules().accept("cpulimit", KFL::doubleToStr(value)) == 0;
  };
  std::set<long> taken;
  for (long i = 0; i <= 20000; ++i)
    if (accepts(static_cast<double>(i) / 100)) taken.insert(i);
  EXPECT_LT(taken.size(), 20001U);
  for (long i = 0; i <= 20000; ++i) {
    if (taken.count(i) != 0) continue;
    ASSERT_FALSE(accepts(static_cast<double>(i) / 100));
    const double nearest = nearestHeld();
    ASSERT_TRUE(accepts(nearest)) << i << " hundredths: " << KFL::getErrorMessage();
    const long away = std::labs(std::lround(nearest * 100) - i);
    EXPECT_EQ(taken.upper_bound(i - away), taken.lower_bound(i + away)) << i << " hundredths: " << nearest;
  }
  for (const double value : {1234567.89, -99.99, 0.001, 33333333.33, 12345678901234.5, 1e15}) {
    if (accepts(value)) continue;
    const double nearest = nearestHeld();
    EXPECT_TRUE(accepts(nearest)) << value << ": " << KFL::getErrorMessage();
    EXPECT_NEAR(nearest, value, std::abs(value) * 1e-6 + 0.01);
  }
}

struct SetRow {
  const char* before;
  std::string changes;  // KEY=VALUE, with | between them
  const char* after;    // or the beginning of the error text, "f:"
  KFA::KFASetOptions options = {};
};

KFAConfigChanges changesOf(const std::string& text) {
  KFAConfigChanges changes;
  for (const std::string& change : valuesIn(text)) {
    const std::size_t equals = change.find('=');
    changes.emplace_back(change.substr(0, equals), change.substr(equals + 1));
  }
  return changes;
}

const KFA::KFASetOptions kUnsafe{true, false};
const KFA::KFASetOptions kForce{false, true};

const SetRow kSets[] = {
    {"ONBOOT=no # c\nNAME='x'", "OnBoot=yes", "ONBOOT=\"yes\" # c\nNAME='x'\n"},
    {"", "ve_type=regular|NUMPROC=1|avnumproc=2|ARCH=x86",
     "AVNUMPROC=\"2\"\nARCH=\"x86\"\nVE_TYPE=\"regular\"\nNUMPROC=\"1\"\n"},
    // A host-routed device and IP_ADDRESS must say the same.
    {"IP_ADDRESS=1.1.1.1\nNETIF='ifname=e,nettype=host-routed,ip=2.2.2.2'\n", "IP_ADDRESS=3.3.3.3",
     "f: IP_ADDRESS: the host-routed e of NETIF makes IP_ADDRESS \"2.2.2.2\"; the same addresses are wanted"},
    {"NETIF='ifname=eth0;ifname=venet0,nettype=host-routed,ip=2.2.2.2'\n", "IP_ADDRESS=dhcp",
     "f: IP_ADDRESS: the host-routed venet0 of NETIF makes"},
    {"IP_ADDRESS=1.1.1.1\n", "NETIF=ifname=eth0;ifname=eth1,nettype=host-routed",
     "f: NETIF: the host-routed eth1 of NETIF makes IP_ADDRESS \"\""},
    {"IP_ADDRESS=1.1.1.1\n",
     "NETIF=ifname=e,nettype=host-routed,ip=2.2.2.2:3.3.3.3|IP_ADDRESS=2.2.2.2 3.3.3.3",
     "IP_ADDRESS=\"2.2.2.2 3.3.3.3\"\nNETIF=\"ifname=e,nettype=host-routed,ip=2.2.2.2:3.3.3.3\"\n"},
    {"", "NETIF=ifname=e,nettype=host-routed,ip=2.2.2.2",
     "NETIF=\"ifname=e,nettype=host-routed,ip=2.2.2.2\"\n"},
    {"", "NETIF=ifname=eth0;mac=1,speed=2", "f: NETIF: \"mac=1,speed=2\" has no ifname; "},
    {"", "NETIF=ifname=eth0,mac=a,mac=b", "f: NETIF: \"mac=b\" is not taken; one mac is wanted"},
    {"", "NETIF=ifname=eth0,ip6=fe80::1,mac=aa",
     "f: NETIF: \"mac=aa\" is not taken behind ip6=, which comes last; an IPv6"},
    {"TECHNOLOGIES=x86\n", "ARCH=i386", "TECHNOLOGIES=x86\nARCH=\"i386\"\n"},
    {"TECHNOLOGIES=x86\n", "ARCH=ia64", "f: ARCH: \"ia64\" would be read as \"x86\", since TECHNOLOG"},
    {"TECHNOLOGIES=x\n", "ARCH=ia64|TECHNOLOGIES=ia64", "TECHNOLOGIES=\"ia64\"\nARCH=\"ia64\"\n"},
    {"", "ONBOOT=true", "f: ONBOOT: \"true\" would be read as \"no\"; yes or no is wanted"},
    {"", "ONBOT=yes", "f: ONBOT: not a key of an environment file"},
    {"", "ONBOOT=yes|onboot=no", "f: ONBOOT is given two values"},
    {"", "ONBOOT=yes|onboot=yes", "ONBOOT=\"yes\"\n"},
    {"", "NAME=$(reboot)", "f: NAME: character 1: "},
    {"", "NAME=a\nb", "f: NAME: character 2: a newline", kUnsafe},
    {"", std::string("NAME=a\0b", 8), "f: NAME: character 2: a NUL", kUnsafe},
    {"", "NAME=$(reboot)", "NAME=\"$(reboot)\"\n", kUnsafe},
    {"A=1\nNAME=\"x\nONBOOT=no\n", "ONBOOT=yes", "f:2:6: the double quote is not closed"},
    {"A=1\nNAME=\"x\nONBOOT=no\n", "ONBOOT=yes", "A=1\nNAME=\"x\nONBOOT=\"yes\"\n", kForce},
    {"echo \\\nONBOOT=no\n", "ONBOOT=yes", "f:1:6: the next line belongs to this one"},
    {"cat <<EOF\nONBOOT=no\nEOF\n", "ONBOOT=yes", "f:1:9: the next line belongs to this one"},
    {"# it's \\\nONBOOT=no\n", "ONBOOT=yes", "# it's \\\nONBOOT=\"yes\"\n"},
};

const SetRow kRawSets[] = {
    {"foo=1\n", "FOO=true|b_2=x y|A=", "foo=\"true\"\nA=\"\"\nB_2=\"x y\"\n"},
    {"", "2A=x", "f: 2A: not a name that a shell takes"},
    {"", "a-b=x", "f: A-B: not a name"},
    {"", "export a=x", "f: EXPORT A: not a name"},
    {"", "=x", "f: : not a name"},
    {"", "A=1|uid=0", "f: UID: a variable that bash itself sets"},
    {"", "groups=0", "f: GROUPS: a variable that bash itself sets"},
    {"", "_=1", "f: _: a variable that bash itself sets"},
    {"uid=1\n", "UID=0", "uid=\"0\"\n"},
    {"uid=1\n", "UID=0|FUNCNAME=x", "f: FUNCNAME: a variable"},
    {"b=1\nA=1\n", "A=x\"", "f:2:6: the double quote is not closed; nobody could read", kUnsafe},
    {"", "A=x\\", "f:1:3: the double quote is not closed; nobody could read", kUnsafe},
    {"", "A=\"b\"", "A=\"\"b\"\"\n", kUnsafe},
};

template <std::size_t N>
void expectSets(const KFA::KFAConfigRules& rules, const SetRow (&rows)[N]) {
  for (const SetRow& row : rows) {
    const bool refused = std::string(row.after).rfind("f:", 0) == 0;
    std::string after = "untouched";
    EXPECT_EQ(KFA::setConfigValues(rules, changesOf(row.changes), row.options, row.before, "f", after),
              refused ? -1 : 0)
        << row.after << "\n"
        << KFL::getErrorMessage();
    const std::string text = refused ? KFL::getErrorMessage() : after;
    EXPECT_EQ(refused ? text.substr(0, std::strlen(row.after)) : text, row.after);
    EXPECT_EQ(after == "untouched", refused);
  }
}

TEST(SetConfigValues, ChangesWhatItIsGivenOrRefuses) {
  expectSets(envRules(), kSets);
}

TEST(SetConfigValues, TakesAnyNameAndValueInARawFile) {
  expectSets(KFA::KFARawConfigRules(), kRawSets);
  EXPECT_EQ(KFA::KFAGlobalConfigRules().accept("2A", "x"), -1);
}

// A file, and LINE:COLUMN: SEVERITY: beginning of the text of each finding.
const std::pair<std::string, std::vector<std::string>> kChecks[] = {
    {"", {}},
    {"# c\n\nONBOOT=yes\n  export NAME='x'\n", {}},
    {"ONBOOT=yes\n OnBoot=no\n", {"2:2: warning: ONBOOT repeats line 1"}},
    {"ARCH=x86\nARCH=ia64\narch=x86\n",
     {"2:1: warning: ARCH repeats line 1; the first", "3:1: warning: ARCH repeats line 1"}},
    {"TECHNOLOGIES=x86\nTECHNOLOGIES=ia64\n", {"2:1: warning: TECHNOLOGIES repeats line 1; the last"}},
    {"TECHNOLOGIES=x86\nTECHNOLOGIES=foo\nTECHNOLOGIES=ia64\n",
     {"2:1: warning: TECHNOLOGIES repeats line 1; the first one counts, since this one gives nothing",
      "2:14: error: ", "3:1: warning: TECHNOLOGIES repeats line 1; the last one counts"}},
    {"CPULIMIT=5\nCPULIMIT=abc\n", {"2:1: warning: CPULIMIT repeats line 1; the first", "2:10: error: "}},
    {"CPULIMIT=x\nCPULIMIT=\n",
     {"1:10: error: ", "2:1: warning: CPULIMIT repeats line 1; the last", "2:10: error: "}},
    {"ONBOOT=yes\nONBOOT=maybe\n", {"2:1: warning: ONBOOT repeats line 1; the last", "2:8: error: "}},
    {"NAME='$(id)'\nDESCRIPTION=\"$VEID \\\"a\\\"\"\nIP_ADDRESS=\"`id`\"\n",
     {"1:6: warning: NAME cannot be written back between double quotes: character 1: a command",
      "2:13: warning: DESCRIPTION cannot be written back between double quotes: character 7: a double quote",
      "3:12: error: IP_ADDRESS: ", "3:12: warning: IP_ADDRESS cannot be"}},
    {"ARCH=ia64\nNETIF='ifname=e,nettype=host-routed,ip=2.2.2.2'\nIP_ADDRESS=1.1.1.1\nTECHNOLOGIES=x86\nX=\n",
     {"1:6: warning: ARCH: \"ia64\" would be read as \"x86\", since TECHNOLOGIES",
      "2:7: warning: NETIF: the host-routed e of NETIF makes IP_ADDRESS \"2.2.2.2\"",
      "3:12: warning: IP_ADDRESS: the host-routed e of NETIF makes", "5:1: note: "}},
    {"ROLES+=x\nROLES=(a)\nROLES =a\n",
     {"1:1: warning: +=", "2:1: warning: an array", "3:7: warning: a blank"}},
    {"HOSTNAME=a\r\n", {"1:11: warning: a carriage return"}},
    {"ONBOOT=yes\r\n", {"1:8: error: ONBOOT: \"yes\\x0d\" would be", "1:11: warning: a carriage return"}},
    {"ONBOOT=\x1b\n", {"1:8: error: ONBOOT: \"\\x1b\" would be", "1:8: warning: ONBOOT cannot be"}},
    {"ls \\\nONBOOT=yes\n", {"1:4: warning: the next line belongs"}},
    {"NAME=\"x\nONBOOT=yes\n", {"1:6: error: the double quote is not closed"}},
};

TEST(CheckConfig, FindsWhatIsWrong) {
  for (const auto& [text, expected] : kChecks) {
    const auto findings = KFA::checkConfig(envRules(), text);
    ASSERT_EQ(findings.size(), expected.size()) << text;
    for (std::size_t i = 0; i < findings.size(); ++i) {
      const std::string found = std::to_string(findings[i].line) + ":" + std::to_string(findings[i].column) +
                                ": " + KFA::toString(findings[i].severity) + ": " + findings[i].text;
      EXPECT_TRUE(found.starts_with(expected[i])) << found;
    }
  }
}

// The rules that a file is checked by, its text, and what is said of it.
TEST(CheckConfig, SaysWhichLineCountsInAMap) {
  const KFA::KFARawConfigRules raw;
  const KFA::KFAGlobalConfigRules global;
  const std::tuple<const KFA::KFAConfigRules*, std::string, std::string> rows[] = {
      {&raw, "A=1\na=2\n", "first one counts"},
      {&raw, "LOCKDIR=1\nLOCKDIR=2\n", "first one counts"},
      {&global, "A=1\na=2\n", "first one counts"},
      {&global, "LOCKDIR=/a\nLOCKDIR=/b\n", "last one counts"},
      {&global, "TEMPLATE=/a\nTEMPLATE=\n", "last one counts"},
      {&global, "OFFLINE_SERVICE=a\nOFFLINE_SERVICE='b c'\n", "last one counts"},
      {&global, "OFFLINE_SERVICE=\nOFFLINE_SERVICE=a\n", "last one counts"},
      {&global, "OFFLINE_SERVICE=a\nOFFLINE_SERVICE=\n", "first one counts, since this one gives nothing"}};
  for (const auto& [rules, text, expected] : rows) {
    const auto findings = KFA::checkConfig(*rules, text);
    ASSERT_EQ(findings.size(), 1U) << text << findings.back().text;
    EXPECT_EQ(findings.front().text, text.substr(0, text.find('=')) + " repeats line 1; the " + expected);
  }
}

// Counts how often a text is read; keys with an x are overruled.
class CountingRules : public KFA::KFARawConfigRules {
 public:
  int readsBack(const std::string&, const KFAConfigChanges& changes) const override {
    ++reads;
    for (const auto& [key, value] : changes) {
      if (!has(key, "x")) continue;
      KFL::setErrorMessage("%s is overruled", key.c_str());
      return -1;
    }
    return 0;
  }
  mutable std::size_t reads = 0;
};

TEST(CheckConfig, ReadsATextAFewTimesForEachValueThatIsOverruled) {
  const CountingRules rules;
  std::string text = "X1=\nX2=\n";
  for (int i = 0; i < 4000; ++i)
    text += "K" + std::to_string(i) + "=\n";
  const auto findings = KFA::checkConfig(rules, text + "X3=\n");
  ASSERT_EQ(findings.size(), 3U);
  for (std::size_t i = 0; i < findings.size(); ++i)
    EXPECT_EQ(findings[i].text, "x" + std::to_string(i + 1) + " is overruled");
  EXPECT_LT(rules.reads, 100U);
}

}  // namespace
