// SPDX-License-Identifier: Apache-2.0
// One version of a package, with what it depends on. A plain value.
#ifndef KFAFUNCTIONALITY_TEMPLATES_KFAPACKAGEVERSION_H
#define KFAFUNCTIONALITY_TEMPLATES_KFAPACKAGEVERSION_H

#include <string>
#include <vector>

#include <KFLMessage/KFLRecordFields.h>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

class KFAPackageVersion {
 public:
  static const KFLFieldTable& fields();

  // Writes an empty version text unless the version may be absent.
  class Writer : public KFLRecordWriter<KFAPackageVersion> {
   public:
    explicit Writer(bool mayBeAbsent = false) : mayBeAbsent_(mayBeAbsent) {}
    int operator()(KFLMessageIterator& it, const KFAPackageVersion& version) const;

   private:
    bool mayBeAbsent_;
  };

  // Without a version text, or the flag for standard packages, fails unless the version may be absent.
  class Reader {
   public:
    explicit Reader(bool mayBeAbsent = false) : mayBeAbsent_(mayBeAbsent) {}
    int operator()(const KFLMessageIterator& it, KFAPackageVersion& version) const;

   private:
    bool mayBeAbsent_;
  };

  // The fields in a template's configuration, where the version may be absent.
  static const KFLFieldTable& configFields();

  const std::string& getVersion() const { return version_; }
  void setVersion(const std::string& version) { version_ = version; }
  bool getStandard() const { return standard_; }
  void setStandard(bool standard) { standard_ = standard; }
  bool getCached() const { return cached_; }
  void setCached(bool cached) { cached_ = cached; }
  // The names of the packages that it needs.
  const std::vector<std::string>& getDependencies() const { return dependencies_; }
  void setDependencies(const std::vector<std::string>& dependencies) { dependencies_ = dependencies; }
  // Where the package lies on this node; it does not travel.
  const std::string& getLocation() const { return location_; }
  void setLocation(const std::string& location) { location_ = location; }

 private:
  // The fields where version and flag may be absent.
  static const KFLFieldTable& optionalFields();

  std::string version_;
  bool standard_ = false;
  bool cached_ = false;
  std::vector<std::string> dependencies_;
  std::string location_;
};

}  // namespace KFA

#endif
