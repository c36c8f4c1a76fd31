// SPDX-License-Identifier: Apache-2.0
// A law of every value with a text form: the text that is read may be a piece of the object itself. The laws of records
// are those of the fuzz target RecordFuzz, which every build holds them to.
#include <initializer_list>
#include <string>
#include <typeinfo>

#include <gtest/gtest.h>

#include <KFAFunctionality/network/KFANetVEth.h>
#include <KFAFunctionality/templates/KFADistribution.h>
#include <KFLFunctionality/KFLInterfaceRate.h>

namespace {

using KFA::KFADistribution, KFA::KFANetVEth, KFA::KFATemplate, KFL::KFLIPAddress, KFL::KFLInterfaceRate;

// Reads each piece of the value into the value itself; a copy of the piece read into a copy of the value says what
// is right. The pieces are long enough to stand outside the objects.
template <class T>
void expectOwnPieces(const T& value, std::initializer_list<const std::string& (*)(const T&)> pieces) {
  for (const auto& piece : pieces) {
    T wanted(value);
    wanted.fromString(std::string(piece(value)));
    T own(value);
    own.fromString(piece(own));
    EXPECT_EQ(own.toString(), wanted.toString()) << typeid(T).name();
  }
}

#define PIECE(T, call) [](const T& value) -> const std::string& { return value.call; }

TEST(RecordLaws, TextsMayBePiecesOfTheObject) {
  const std::string entry =
      "ifname=a-long-interface,network=a-long-network-name,mac=00:11:22:33:44:55,ip=10.0.0.1,gw=10.0.0.254";
  const std::string name = "a-template-with-a-long-name/of-parts-1.5-and-2/3.25-of-a-long-version";
  KFANetVEth device;
  device.setName(entry);
  device.setNetwork(entry);
  device.setMAC(entry);
  device.setGateway(entry);
  device.setGatewayV6(entry);
  device.setIPAddresses({entry, entry});
  device.setWinsServers({entry});
  device.setNameServers({entry});
  expectOwnPieces<KFANetVEth>(
      device, {PIECE(KFANetVEth, getName()), PIECE(KFANetVEth, getNetwork()), PIECE(KFANetVEth, getMAC()),
               PIECE(KFANetVEth, getGateway()), PIECE(KFANetVEth, getGatewayV6()),
               PIECE(KFANetVEth, getIPAddresses().back().toString()),
               PIECE(KFANetVEth, getWinsServers().front()), PIECE(KFANetVEth, getNameServers().front())});
  expectOwnPieces<KFATemplate>(KFATemplate(name, name),
                               {PIECE(KFATemplate, getName()), PIECE(KFATemplate, getVersion())});
  expectOwnPieces<KFADistribution>(KFADistribution(name, name),
                                   {PIECE(KFADistribution, getName()), PIECE(KFADistribution, getVersion())});
  expectOwnPieces<KFLIPAddress>(entry, {PIECE(KFLIPAddress, toString())});
  expectOwnPieces<KFLInterfaceRate>(KFLInterfaceRate(entry), {PIECE(KFLInterfaceRate, toString())});
}

}  // namespace
