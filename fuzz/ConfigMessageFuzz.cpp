// SPDX-License-Identifier: Apache-2.0
// Configuration messages to a file and back: what the file can hold comes back as it was sent, and the file that is made
// of what came back is the same file. The input is the XML of a message, or bytes that make one.
#include <algorithm>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <KFLBash/KFLBashStr.h>
#include <KFLCommon/KFLLog.h>

#include <KFAFunctionality/files/KFABashConfig.h>
#include <KFAFunctionality/files/KFAMemoryStream.h>
#include <KFAFunctionality/node/KFAEnvironmentText.h>

#include "Environments.h"
#include "RecordMessages.h"

namespace {

using KFA::KFAEnvConfig;
using kfl_fuzz::require;

bool readMessage(const KFL::KFLMessage& message, KFAEnvConfig& config) {
  return message.getIterator().getObj(config) == 0;
}

// Whether each value can stand between double quotes.
bool isSafe(const KFAEnvConfig& config) {
  KFAEnvConfig copy(config);
  KFA::KFAEnvConfigBashParser::updateIp(&copy);
  KFA::KFAEnvConfigBashParser::ParameterParserGet keys(copy, kfl_fuzz::environmentParser());
  std::string value;
  for (std::string key; keys.getNext(key, key) == KFA::kParameterDone;)
    if (keys.get(key, value) == KFA::kParameterDone && !KFL::isBashSafe(value, nullptr)) return false;
  return true;
}

// The pieces of a value: devices, or words. A device without a text, as venet0 is, leaves its semicolon.
std::vector<std::string> piecesOf(const std::string& key, const std::string& value) {
  std::istringstream in(value);
  std::vector<std::string> pieces;
  if (key != "netif") return {std::istream_iterator<std::string>(in), {}};
  for (std::string device; std::getline(in, device, ';');)
    if (!device.empty()) pieces.push_back(device);
  return pieces;
}

// The keys that have a value, as a file holds it: words with one blank between two.
std::string valuesOf(const KFAEnvConfig& config) {
  KFAEnvConfig copy(config);
  KFA::KFAEnvConfigBashParser::updateIp(&copy);
  KFA::KFAEnvConfigBashParser::ParameterParserGet keys(copy, kfl_fuzz::environmentParser());
  std::string all;
  for (std::string key, value; keys.getNext(key, key) == KFA::kParameterDone; value.clear()) {
    if (keys.get(key, value) != KFA::kParameterDone) continue;
    std::vector<std::string> words = piecesOf(key, value);
    static const std::set<std::string> kSets = {"iptables", "offline_service", "roles", "searchdomain"};
    if (kSets.count(key) != 0) std::sort(words.begin(), words.end());
    if (words.empty()) continue;
    all.append(key).append(" =");
    for (const std::string& word : words)
      all.append(" ").append(word);
    all.append("\n");
  }
  return all;
}

bool readFile(const std::string& text, KFAEnvConfig& config) {
  KFA::KFAMemoryStream in(text);
  return kfl_fuzz::environmentParser().getConfig(in, config) == 0;
}

KFL::KFLMessage messageOf(const KFAEnvConfig& config) {
  KFL::KFLMessage message;
  auto it = message.getIterator();
  require(it.putObj(config) == 0, "a configuration is written into a message");
  return message;
}

void check(const KFL::KFLMessage& message) {
  KFAEnvConfig sent;
  if (!readMessage(message, sent) || !isSafe(sent)) return;
  const std::string file = kfl_fuzz::writtenFile(sent);
  KFAEnvConfig read;
  require(readFile(file, read), "the file of a message is read", file);
  const bool isWritable = KFA::checkWritable(kfl_fuzz::environmentParser(), sent, {}, "f") == 0;
  if (!isWritable || !kfl_fuzz::isFaultless(file)) return;
  const std::string before = valuesOf(sent), after = valuesOf(read);
  require(before == after, "a file holds what was sent", before + "--\n" + after);

  KFAEnvConfig received;
  const KFL::KFLMessage answer = messageOf(read);
  require(readMessage(answer, received), "the message of a file is read", answer.toPrettyString());
  require(kfl_fuzz::writtenFile(received) == kfl_fuzz::writtenFile(read), "file and message say the same",
          file + answer.toPrettyString());
  require(kfl_fuzz::differences(read, received).empty(), "a message brings what the file has", file);
  KFAEnvConfig again;
  require(readFile(kfl_fuzz::writtenFile(read), again) && kfl_fuzz::differences(read, again).empty(),
          "what came back goes through a file", file);
  KFAEnvConfig merged;
  require(readFile(kfl_fuzz::mergedFile(read, file), merged) && kfl_fuzz::differences(read, merged).empty(),
          "a record that is put over its own file stays as it was", file);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  KFL::setLogLevel(KFL::kLogFatal);
  const std::string_view input = kfl_fuzz::viewOf(data, size);
  KFL::KFLMessage message;
  if (!input.starts_with('<')) {
    kfl_fuzz::Choices choices(input);
    check(kfl_fuzz::randomMessage(*KFL::findRecordType("KFAEnvConfig"), choices));
  } else if (message.parse(std::string(input)) == 0) {
    check(message);
  }
  return 0;
}
