// SPDX-License-Identifier: Apache-2.0
#include "qos/QosParameters.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include <KFLBash/KFLBashStr.h>
#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/files/KFABashConfig.h>
#include <KFAFunctionality/files/KFAConfigCheck.h>
#include <KFAFunctionality/files/KFAConfigFile.h>
#include <KFAFunctionality/files/KFAEnvConfigBashParser.h>

#include "terminal/Session.h"
#include "terminal/Trouble.h"

namespace kfactl {

namespace {

// The key of a line that assigns, in lower case.
std::string keyOf(std::string line) {
  char* name = nullptr;
  char* value = nullptr;
  unsigned int first = 0, last = 0;
  return KFL::parseBashStr(line.data(), &name, &value, &first, &last) == 0 ? KFL::toLower(name)
                                                                           : std::string();
}

// Refuses the first line with a resource parameter whose value is no number: it reads as another one, or as none, and
// what is said would be about a file that is not there.
void refuseUnreadable(const boost::shared_ptr<const KFA::KFAEnvConfigBashParser>& parser,
                      const Input& input) {
  for (const auto& finding : checkConfig(KFA::KFAEnvConfigRules(parser), input.text)) {
    if (finding.severity == KFA::KFAConfigFinding::Severity::Error &&
        parser->getQoSMap().count(keyOf(finding.lineText)) != 0)
      throw Trouble(input.name + ":" + std::to_string(finding.line) + ":" + std::to_string(finding.column) +
                    ": " + finding.text);
  }
}

// Whether a value is one or two numbers that are read as they stand: digits, not more than 64 bits hold, or for a
// fraction single precision.
bool isPlain(const KFA::KFAEnvConfigBashParser::QoSDefinition& form, std::string_view value) {
  const std::size_t most = form.valueType == 1 ? 18 : 7;
  const auto isNumber = [most](std::string_view digits) {
    return !digits.empty() && digits.size() <= most && (digits.size() == 1 || digits.front() != '0') &&
           std::all_of(digits.begin(), digits.end(), [](char c) { return KFL::isDigit(c); });
  };
  const std::size_t colon = form.kind == 2 ? value.find(':') : std::string_view::npos;
  if (colon == std::string_view::npos) return isNumber(value);
  return isNumber(value.substr(0, colon)) && isNumber(value.substr(colon + 1));
}

// What of an environment the formulas need; the rest of its file is passed over.
class Parameters {
 public:
  explicit Parameters(const boost::shared_ptr<const KFA::KFAEnvConfigBashParser>& parser)
      : parser_(*parser), rules_(parser), put_(config_, *parser) {
    config_.initMsg();
  }

  int put(const std::string& key, const char* value) {
    const auto known = parser_.getQoSMap().find(key);
    if (known == parser_.getQoSMap().end())
      return key == kMode ? put_.put(key, value) : KFA::kParameterUnknown;
    isRead_ = isRead_ && (isPlain(known->second, value) || rules_.accept(key, value) == 0);
    return put_.put(key, value);
  }

  // Whether every value is read as it stands.
  bool isRead() const { return isRead_; }
  Resources take() { return {std::move(config_), std::move(put_.getQoSes().value())}; }

 private:
  static constexpr const char* kMode = "slmmode";

  const KFA::KFAEnvConfigBashParser& parser_;
  KFA::KFAEnvConfigRules rules_;
  KFA::KFAEnvConfig config_;
  KFA::KFAEnvConfigBashParser::ParameterParserPut put_;
  bool isRead_ = true;
};

}  // namespace

const char* wordFor(KFA::KFAQoSMemoryMode mode) {
  constexpr const char* kModes[] = {"formulas", "managed", "limit_missing"};
  return kModes[static_cast<std::size_t>(mode)];
}

const char* textOf(KFA::KFAQoSMemoryMode mode) {
  return mode == KFA::KFAQoSMemoryMode::Managed
             ? "the memory mode leaves all to slmmemorylimit; no formula applies"
             : "the memory mode is slm, but slmmemorylimit has no value; no formula applies";
}

Resources readResources(Session& session, const Input& input) {
  const auto parser = session.environmentParser();
  Parameters parameters(parser);
  must(KFA::readConfigText(input.text, input.name,
                           [&](std::istream& in) { return KFA::parseBashLikeConfig(parameters, in); }));
  if (!parameters.isRead()) refuseUnreadable(parser, input);
  return parameters.take();
}

}  // namespace kfactl
