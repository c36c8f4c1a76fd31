// SPDX-License-Identifier: Apache-2.0
// A folder of environment files, each named VEID.conf.
//
// A reader keeps its buffers from file to file, so a folder of thousands costs little more than reading the bytes. It
// serves one thread.
#ifndef KFAFUNCTIONALITY_FILES_KFACONFIGFOLDER_H
#define KFAFUNCTIONALITY_FILES_KFACONFIGFOLDER_H

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <boost/shared_ptr.hpp>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/files/KFAMemoryStream.h>

namespace KFA {

class KFAEnvConfig;
class KFAEnvConfigBashParser;

class KFAConfigFolder {
 public:
  KFAConfigFolder(const std::string& path, const boost::shared_ptr<const KFAEnvConfigBashParser>& parser);
  KFAConfigFolder(const KFAConfigFolder&) = delete;
  KFAConfigFolder& operator=(const KFAConfigFolder&) = delete;
  ~KFAConfigFolder();

  // The VEIDs of the files, ascending. 0, or -1 with an error text when the folder cannot be read.
  int list(std::vector<int>& veids);
  // Reads one environment's file into a fresh record, its VEID included. 0, or -1 with an error text that names the
  // file (and line).
  int read(int veid, KFAEnvConfig& record);
  // The same for these keys alone, in lower case; the record gets nothing else but its VEID. For who goes through many
  // files for little of each.
  int readKeys(int veid, std::span<const std::string_view> keys, KFAEnvConfig& record);
  std::string getPath(int veid) const;

 private:
  int openFolder();
  int readText(int veid, std::size_t& length);
  template <class Read>
  int readWith(int veid, KFAEnvConfig& record, Read read);

  std::string path_;
  boost::shared_ptr<const KFAEnvConfigBashParser> parser_;
  int folder_ = -1;
  std::string text_;
  KFAMemoryStream stream_;
};

}  // namespace KFA

#endif
