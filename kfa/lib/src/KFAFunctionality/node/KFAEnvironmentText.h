// SPDX-License-Identifier: Apache-2.0
// Whole environment files as records, and records as whole files. Nothing is printed; any thread.
#ifndef KFAFUNCTIONALITY_NODE_KFAENVIRONMENTTEXT_H
#define KFAFUNCTIONALITY_NODE_KFAENVIRONMENTTEXT_H

#include <string>
#include <string_view>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/environment/KFAEnvConfig.h>
#include <KFAFunctionality/files/KFAConfigFile.h>
#include <KFAFunctionality/files/KFAEnvConfigBashParser.h>

namespace KFA {

// Reads the text of a file into a fresh record, with the VEID that the name has, if any. 0, or -1 with an error text that
// names the malformed line as NAME:LINE:COLUMN.
int readEnvironment(const KFAEnvConfigBashParser& parser, std::string_view text, const std::string& name,
                    KFAEnvConfig& config);

// The configuration without the network device venet0, when that is the one with which reading a file completes the
// list: written without it, the file reads as the same record.
KFAEnvConfig withoutCompletion(const KFAEnvConfigBashParser& parser, const KFAEnvConfig& config);

// Whether a shell reads each value of the record back as it stands, and a file gives its network devices, its lists and its
// templates back, now and when what it gives is written once more; options.allowUnsafe lets both pass. 0, or -1 with an
// error text that begins with the name and the key.
int checkWritable(const KFAEnvConfigBashParser& parser, const KFAEnvConfig& config,
                  const KFASetOptions& options, const std::string& name);

// The text of a file that holds the whole record, checkWritable() or not. With an existing text the lines of that are kept,
// with the record's values; a line in which something is left open is then refused unless options.force is set. 0, or -1
// with an error text that begins with the existing one's name (and line).
int writeEnvironment(const KFAEnvConfigBashParser& parser, const KFAEnvConfig& config,
                     const KFASetOptions& options, const std::string* existing, const std::string& name,
                     std::string& result);

}  // namespace KFA

#endif
