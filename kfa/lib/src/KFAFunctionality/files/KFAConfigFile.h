// SPDX-License-Identifier: Apache-2.0
// KEY="value" files on disk: read, changed and replaced so that not a byte that was not asked for is different.
//
// Error texts name the file, and the line and column where there is one: "FILE:LINE:COLUMN: what; what would be right".
// Nothing is printed. An object holds only the file's name; any threads and processes may change the same file at
// once, and all changes take effect.
//
//   KFAConfigFile file("/etc/kfa/conf/101.conf");
//   if (file.set(rules, {{"ONBOOT", "yes"}}, {}, {}) != 0) puts(KFL::getErrorMessage().c_str());
#ifndef KFAFUNCTIONALITY_FILES_KFACONFIGFILE_H
#define KFAFUNCTIONALITY_FILES_KFACONFIGFILE_H

#include <cstddef>
#include <istream>
#include <string>
#include <string_view>

#include <boost/function.hpp>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/files/KFAConfigRules.h>
#include <KFAFunctionality/files/KFAFileReplacement.h>

namespace KFA {

// The longest file that is read.
inline constexpr std::size_t kMaxConfigFileSize = std::size_t{1} << 30;

struct KFASetOptions {
  // Takes values that a shell would not read back as they stand, as long as it can read the file; a newline never.
  bool allowUnsafe = false;
  // Rewrites a file in which a quote or a line is left open, or that cannot be read.
  bool force = false;
};

// Gives the keys their values in the text of a file. Only the value stretches of these keys change; keys that no line
// has are appended in upper case. 0, or -1 with an error text that begins with the name (and line) when a key or value
// is refused, when the text has a malformed or open line, or when it would not read back with the values asked for.
int setConfigValues(const KFAConfigRules& rules, const KFAConfigChanges& changes,
                    const KFASetOptions& options, const std::string& text, const std::string& name,
                    std::string& result);

// Reads a text with one of the parsers' getConfig; a malformed line is named as NAME:LINE:COLUMN in the error text.
int readConfigText(std::string_view text, const std::string& name,
                   const boost::function<int(std::istream&)>& getConfig);

// For what getConfig refused: the error text names the first malformed line as NAME:LINE:COLUMN; where there is none, it
// keeps its reason behind the name. Always -1.
int nameMalformedLine(std::string_view text, const std::string& name);

// The VEID that a file is named after, as 101.conf is: a number without leading zeros, and ".conf".
bool parseVeidOfName(std::string_view name, int& veid);
// The VEID in a path such as /etc/kfa/conf/101.conf: 0, or -1 with an error text when there is none.
int getVeidOfPath(const std::string& path, int& veid);

// Memory that runs out passes through as std::bad_alloc, from all of them and from the functions above. Then the file is
// the old one or the new one, nothing lies beside it, and no lock is held.
class KFAConfigFile {
 public:
  // Turns the old text into the new one: 0, or -1 with an error text.
  using Edit = boost::function<int(const std::string& before, std::string& after)>;

  explicit KFAConfigFile(const std::string& path) : path_(path) {}

  const std::string& getPath() const { return path_; }

  // The whole content. 0, or -1 with an error text: missing, unreadable, a folder, too large.
  int read(std::string& text) const;
  // The content through one of the parsers' getConfig.
  int read(const boost::function<int(std::istream&)>& getConfig) const;

  // Gives the keys their values.
  int set(const KFAConfigRules& rules, const KFAConfigChanges& changes, const KFASetOptions& options,
          const KFAReplaceOptions& how) const;

  // Reads, edits and replaces the file while no other writer does. A file that is not changed is not touched.
  int update(const Edit& edit, const KFAReplaceOptions& how) const;

  // Makes the text the file's content, whether or not there is a file. A new file gets the mode less the umask.
  int replace(const std::string& text, const KFAReplaceOptions& how, mode_t createMode = 0666) const;

  // Writes the edited content to another file and leaves this one alone. A new file gets this one's mode. When both
  // names lead to the same file, it is updated.
  int copyTo(const std::string& output, const Edit& edit, const KFAReplaceOptions& how) const;

 private:
  std::string path_;
};

}  // namespace KFA

#endif
