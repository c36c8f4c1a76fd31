// SPDX-License-Identifier: Apache-2.0
// Keys with their values, as the `get` commands print them.
#ifndef KFACTL_VALUES_H
#define KFACTL_VALUES_H

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace kfactl {

class Session;

// Lower-case keys with their values.
using Values = std::vector<std::pair<std::string, std::string>>;

// Lines KEY="value", or an object from key to text.
void printValues(Session& session, const Values& values);

// Prints the values of the keys of one file; a key alone as its bare value. `find` takes a key in lower case. Status 1,
// with a line on standard error, when one has no value.
int printAskedValues(Session& session, const std::string& file, const std::vector<std::string>& keys,
                     const std::function<bool(const std::string& key, std::string& value)>& find);

// For a command FILE [KEY...]: prints the values of the keys that are named, or all.
int printNamedOrAll(Session& session, const std::map<std::string, std::string>& values);

}  // namespace kfactl

#endif
