// SPDX-License-Identifier: Apache-2.0
// The manager of templates: those that the node has, where an environment's system and applications come from.
// Results and threads: KFAManagerResult.h.
#ifndef KFAFUNCTIONALITY_ACCESS_KFATEM_H
#define KFAFUNCTIONALITY_ACCESS_KFATEM_H

#include <vector>

#include <boost/smart_ptr/shared_ptr.hpp>

#include <KFLFunctionality/KFLEID.h>
#include <KFLFunctionalityCore/KFLFunctional.h>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/access/KFAManagerResult.h>

namespace KFA {

class KFAPackageKFTemplate;
class KFATemplate;
class KFATemplateConfigInfo;

class KFATEM : public KFLFunctional {
 public:
  using PackageSP = boost::shared_ptr<KFAPackageKFTemplate>;

  // The templates of the node, operating systems and applications, each of its own class.
  virtual int list(std::vector<PackageSP>& templates) = 0;
  // What a template is made of: its options, packages and technologies.
  virtual int get(const KFATemplate& of, KFATemplateConfigInfo& info) = 0;

  // Puts a template on the node; one that is there already is brought up to date.
  virtual int install(const KFATemplate& which) = 0;
  // Takes a template off the node. One that an environment uses is refused, and the text names the environment.
  virtual int remove(const KFATemplate& which) = 0;

  // The application templates that an environment was given, and giving it more and taking them away.
  virtual int listOf(const KFLEID& eid, std::vector<KFATemplate>& templates) = 0;
  virtual int addTo(const KFLEID& eid, const std::vector<KFATemplate>& templates) = 0;
  virtual int removeFrom(const KFLEID& eid, const std::vector<KFATemplate>& templates) = 0;
};

}  // namespace KFA

#endif
