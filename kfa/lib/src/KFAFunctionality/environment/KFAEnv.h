// SPDX-License-Identifier: Apache-2.0
// One environment of the container technology. The agent makes such objects through the child factory that
// this library registers under the name in KFAEnv::type.
#ifndef KFAFUNCTIONALITY_ENVIRONMENT_KFAENV_H
#define KFAFUNCTIONALITY_ENVIRONMENT_KFAENV_H

#include <cstddef>
#include <string>

#include <boost/smart_ptr/shared_ptr.hpp>

#include <KFLCommon/KFLLimitedString.h>
#include <KFLFunctionality/KFLEnv.h>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/environment/KFAEnvConfig.h>

namespace KFA {

class KFAEnv : public KFLEnv {
 public:
  struct Writer;

  // The name of the technology.
  static const limited_length_string<16> type;

  KFAEnv() = default;
  explicit KFAEnv(const boost::shared_ptr<KFLEnvCoreBasic>& core);
  KFAEnv(const KFLEID& eid, const boost::shared_ptr<KFAEnvConfig>& config);
  // From any environment, with which it shares the configurations.
  explicit KFAEnv(const KFLEnv& other);

  // The VEID; 0, with an error in the log, when it cannot be read.
  std::size_t getSortKey() const override;
  // The name, else the host name, else # and the VEID, else the first address, else the id. Of the two
  // configurations the virtual one is asked first.
  std::string getTitle() const override;
};

// Names the technology's type; the environment is written by the writer of the base class.
struct KFAEnv::Writer {
  static int getNSID() { return 0; }
  static const char* getStrNSID() { return kTypesURI; }
  static int getTypeID() { return 0; }
  static const char* getStrTypeID() { return "envType"; }
  int operator()(KFLMessageIterator& it, const KFLEnv& env) const;
};

}  // namespace KFA

#endif
