// SPDX-License-Identifier: Apache-2.0
// An environment file key by key: the values as a record gives them back, without the cost of a whole record.
//
// Only the keys that were asked for are converted, so that one question to thousands of files costs little more than
// splitting their lines. The network list is not completed by venet0. One object serves one thread, and any number of
// files one after the other.
//
//   KFAEnvironmentKeys keys(parser);
//   keys.want({"onboot", "hostname"});
//   if (keys.read(text, "101.conf") == 0 && keys.get("onboot", value)) ...
#ifndef KFAFUNCTIONALITY_NODE_KFAENVIRONMENTKEYS_H
#define KFAFUNCTIONALITY_NODE_KFAENVIRONMENTKEYS_H

#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <boost/shared_ptr.hpp>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/environment/KFAEnvConfig.h>
#include <KFAFunctionality/files/KFAEnvConfigBashParser.h>

namespace KFA {

class KFAEnvironmentKeys {
 public:
  explicit KFAEnvironmentKeys(const boost::shared_ptr<const KFAEnvConfigBashParser>& parser);

  // Only these keys, in lower case, are converted from now on; an empty set stands for all.
  void want(const std::set<std::string>& keys);
  // Another object that wants these keys, and has read nothing.
  KFAEnvironmentKeys another() const { return KFAEnvironmentKeys(parser_, wanted_); }

  // Takes a file's text in the place of the former one: 0, or -1 with an error text that names the malformed line; what
  // the lines before it say is kept.
  int read(std::string_view text, const std::string& name);

  // The value of a wanted key, in lower case, as the record gives it back; false when it has none.
  bool get(const std::string& key, std::string& value) const;
  // The same, or else, of a key that the record only takes (TECHNOLOGIES), the text that stands in the file.
  bool getOrText(const std::string& key, std::string& value) const;
  // The text of the line that counts, as a shell reads it; null when no line has the key.
  const std::string* getText(const std::string& key) const;
  // These texts by their keys, in lower case.
  const std::map<std::string, std::string>& getTexts() const { return texts_; }
  // The addresses that IP_ADDRESS has once host-routed network devices are looked at, as one text.
  std::string getEffectiveAddresses() const;
  // Each address of IP_ADDRESS and of the devices, once, in their order; "dhcp" where a server is asked.
  std::vector<std::string> getAddresses() const;

  // What was read, for the record's own accessors.
  const KFAEnvConfig& getRecord() const { return *record_; }
  const KFAEnvConfigBashParser& getParser() const { return *parser_; }

 private:
  using Wanted = std::shared_ptr<const std::set<std::string>>;
  KFAEnvironmentKeys(const boost::shared_ptr<const KFAEnvConfigBashParser>& parser, Wanted wanted);

  boost::shared_ptr<const KFAEnvConfigBashParser> parser_;
  Wanted wanted_;
  std::unique_ptr<KFAEnvConfig> record_;
  std::map<std::string, std::string> texts_;
};

// Each address of the record and of its devices, once, in their order; of a device that asks a server, "dhcp".
std::vector<std::string> addressesOf(const KFAEnvConfig& config);

}  // namespace KFA

#endif
