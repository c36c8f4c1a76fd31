// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/files/KFARawConfigBashParser.h>

#include <boost/make_shared.hpp>

#include <KFAFunctionality/files/KFABashConfig.h>

#include "KFABashLines.h"

namespace KFA {

boost::shared_ptr<KFARawConfigBashParser> KFARawConfigBashParser::getInstance() {
  static const boost::shared_ptr<KFARawConfigBashParser> instance =
      boost::make_shared<KFARawConfigBashParser>();
  return instance;
}

int KFARawConfigBashParser::getConfig(std::istream& in, std::map<std::string, std::string>& values) const {
  ParameterParserPut parser(values);
  return parseBashLikeConfig(parser, in);
}

int KFARawConfigBashParser::putConfig(const std::map<std::string, std::string>& values, std::ostream& out,
                                      std::istream* existing, bool merge) const {
  ParameterParserGet parser(values);
  return serializeBashLikeConfig(parser, out, existing, merge);
}

int KFARawConfigBashParser::ParameterParserPut::put(const std::string& key, const char* value) {
  values_.emplace(key, value);
  return kParameterDone;
}

int KFARawConfigBashParser::ParameterParserGet::get(const std::string& key, std::string& value) {
  const auto found = values_.find(key);
  if (found == values_.end()) return kParameterUnknown;
  value = found->second;
  return kParameterDone;
}

int KFARawConfigBashParser::ParameterParserGet::getNext(const std::string&, std::string& next) {
  while (next_ != values_.end() && !isAssignableKey(next_->first))
    ++next_;
  if (next_ == values_.end()) return kParameterFailed;
  next = next_->first;
  ++next_;
  return kParameterDone;
}

}  // namespace KFA
