// SPDX-License-Identifier: Apache-2.0
// What a calculation of a node's capacity found on a container node: warnings, and paths that are better left out.
// Plain values.
#ifndef KFAFUNCTIONALITY_MIGRATION_KFACALCULATEHWNODENOTES_H
#define KFAFUNCTIONALITY_MIGRATION_KFACALCULATEHWNODENOTES_H

#include <string>
#include <vector>

#include <KFLCommon/KFLProperty.h>
#include <KFLFunctionality/KFLCalculateHWNodeNotes.h>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

// One thing that a person should know before the node is migrated.
class KFACalculateHWNodeWarning {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFACalculateHWNodeWarning>;
  // Never fails; what is absent is empty, or 0.
  using Reader = KFLRecordReader<KFACalculateHWNodeWarning>;

  // The kind of warning, for programs.
  int getCode() const { return code_; }
  void setCode(int code) { code_ = code; }
  // The warning, for people.
  const std::string& getMessage() const { return message_; }
  void setMessage(const std::string& message) { message_ = message; }

 private:
  int code_ = 0;
  std::string message_;
};

// A path that may be left out when the node's data is copied.
class KFAExcludePath {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFAExcludePath>;
  // Never fails; what is absent is empty, or not specified.
  using Reader = KFLRecordReader<KFAExcludePath>;

  const std::string& getPath() const { return path_; }
  void setPath(const std::string& path) { path_ = path; }
  // Files larger than this, in megabytes, are left out; all files when it is not specified.
  const KFLOptionalProperty<int>& getLimit() const { return limit_; }
  void setLimit(const KFLOptionalProperty<int>& limit) { limit_ = limit; }

 private:
  std::string path_;
  KFLOptionalProperty<int> limit_;
};

class KFACalculateHWNodeNotes : public KFLCalculateHWNodeNotes {
 public:
  static const KFLFieldTable& fields();
  using Writer = KFLRecordWriter<KFACalculateHWNodeNotes>;
  // Fails only where the base part does.
  using Reader = KFLRecordReader<KFACalculateHWNodeNotes>;

  KFACalculateHWNodeNotes() = default;
  KFACalculateHWNodeNotes(const KFACalculateHWNodeNotes&) = default;
  KFACalculateHWNodeNotes(KFACalculateHWNodeNotes&&) = default;
  KFACalculateHWNodeNotes& operator=(const KFACalculateHWNodeNotes&) = default;
  KFACalculateHWNodeNotes& operator=(KFACalculateHWNodeNotes&&) = default;
  ~KFACalculateHWNodeNotes() override;

  const std::vector<KFACalculateHWNodeWarning>& getWarnings() const { return warnings_; }
  void setWarnings(const std::vector<KFACalculateHWNodeWarning>& warnings) { warnings_ = warnings; }
  const std::vector<KFAExcludePath>& getExcludes() const { return excludes_; }
  void setExcludes(const std::vector<KFAExcludePath>& excludes) { excludes_ = excludes; }

 private:
  std::vector<KFACalculateHWNodeWarning> warnings_;
  std::vector<KFAExcludePath> excludes_;
};

}  // namespace KFA

#endif
