// SPDX-License-Identifier: Apache-2.0
// The one object through which an agent obtains its managers without caring where they work: in this process, or
// behind another agent that serves the environment.
//
// An agent makes one, puts the factories of its managers into the multiplexers, and hands it to those who ask:
//
//   KFALibFunctionality functionality;
//   functionality.multiplexer<KFAEnvM>().registerLocal(kTechnology, localFactory);
//   functionality.multiplexer<KFAEnvM>().registerAgent(kTechnology, agentFactory);
//   boost::shared_ptr<KFAEnvM> manager = functionality.getKFAEnvM(eid, ap, kTechnology);
//
// Each manager has three access points. getX chooses: local when there is no access provider, when the provider
// has no connection, and when the connection serves the environment in this process; else through an agent.
// getXAgent and getXLocal go one way whatever the connection. `name` is the implementation's; a name that nobody
// has registered for that way gives an empty pointer, without an error text. Every call asks the factory anew.
// No id stands for the node: getKFASupport(KFLEID(), ap, name) goes through an agent as soon as the provider has a
// connection that does not serve KFLEID() here. What concerns this node is got by getXLocal.
// A node's own id stands for it everywhere; the agent that a call goes to takes an empty id for its own node.
// Any thread may register and get at the same time; the object outlives all calls into it. Two objects are
// independent of each other.
#ifndef KFAFUNCTIONALITY_ACCESS_KFALIBFUNCTIONALITY_H
#define KFAFUNCTIONALITY_ACCESS_KFALIBFUNCTIONALITY_H

#include <string>
#include <tuple>

#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/shared_ptr.hpp>

#include <KFLFunctionality/KFLEID.h>
#include <KFLFunctionalityCore/KFLFunctionalMultiplexer.h>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

class KFAEnvM;
class KFANetworkM;
class KFAPkgM;
class KFAProcessM;
class KFAProcessMonitor;
class KFASampleM;
class KFASupport;
class KFATEM;
class KFAUp2date;

class KFALibFunctionality {
 public:
  using AccessProviderSP = boost::intrusive_ptr<KFLAccessProviderPrototype>;
  template <class Manager>
  using Multiplexer = KFLFunctionalMultiplexer<boost::shared_ptr<Manager>>;

  KFALibFunctionality();
  KFALibFunctionality(const KFALibFunctionality&) = delete;
  KFALibFunctionality& operator=(const KFALibFunctionality&) = delete;
  ~KFALibFunctionality();

  // Where the factories of one manager are registered and taken out.
  template <class Manager>
  Multiplexer<Manager>& multiplexer() {
    return std::get<Multiplexer<Manager>>(multiplexers_);
  }
  template <class Manager>
  const Multiplexer<Manager>& multiplexer() const {
    return std::get<Multiplexer<Manager>>(multiplexers_);
  }

  // Sample configurations.
  boost::shared_ptr<KFASampleM> getKFASampleM(const KFLEID& eid, AccessProviderSP ap,
                                              const std::string& name) const;
  boost::shared_ptr<KFASampleM> getKFASampleMAgent(const KFLEID& eid, AccessProviderSP ap,
                                                   const std::string& name) const;
  boost::shared_ptr<KFASampleM> getKFASampleMLocal(AccessProviderSP ap, const std::string& name) const;

  // Support: problem reports.
  boost::shared_ptr<KFASupport> getKFASupport(const KFLEID& eid, AccessProviderSP ap,
                                              const std::string& name) const;
  boost::shared_ptr<KFASupport> getKFASupportAgent(const KFLEID& eid, AccessProviderSP ap,
                                                   const std::string& name) const;
  boost::shared_ptr<KFASupport> getKFASupportLocal(AccessProviderSP ap, const std::string& name) const;

  // Updates of the node, the agent and the templates.
  boost::shared_ptr<KFAUp2date> getKFAUp2date(const KFLEID& eid, AccessProviderSP ap,
                                              const std::string& name) const;
  boost::shared_ptr<KFAUp2date> getKFAUp2dateAgent(const KFLEID& eid, AccessProviderSP ap,
                                                   const std::string& name) const;
  boost::shared_ptr<KFAUp2date> getKFAUp2dateLocal(AccessProviderSP ap, const std::string& name) const;

  // Processes of an environment.
  boost::shared_ptr<KFAProcessM> getKFAProcessM(const KFLEID& eid, AccessProviderSP ap,
                                                const std::string& name) const;
  boost::shared_ptr<KFAProcessM> getKFAProcessMAgent(const KFLEID& eid, AccessProviderSP ap,
                                                     const std::string& name) const;
  boost::shared_ptr<KFAProcessM> getKFAProcessMLocal(AccessProviderSP ap, const std::string& name) const;

  // Watching the processes of an environment.
  boost::shared_ptr<KFAProcessMonitor> getKFAProcessMonitor(const KFLEID& eid, AccessProviderSP ap,
                                                            const std::string& name) const;
  boost::shared_ptr<KFAProcessMonitor> getKFAProcessMonitorAgent(const KFLEID& eid, AccessProviderSP ap,
                                                                 const std::string& name) const;
  boost::shared_ptr<KFAProcessMonitor> getKFAProcessMonitorLocal(AccessProviderSP ap,
                                                                 const std::string& name) const;

  // Network devices and traffic shaping.
  boost::shared_ptr<KFANetworkM> getKFANetworkM(const KFLEID& eid, AccessProviderSP ap,
                                                const std::string& name) const;
  boost::shared_ptr<KFANetworkM> getKFANetworkMAgent(const KFLEID& eid, AccessProviderSP ap,
                                                     const std::string& name) const;
  boost::shared_ptr<KFANetworkM> getKFANetworkMLocal(AccessProviderSP ap, const std::string& name) const;

  // Packages in an environment.
  boost::shared_ptr<KFAPkgM> getKFAPkgM(const KFLEID& eid, AccessProviderSP ap,
                                        const std::string& name) const;
  boost::shared_ptr<KFAPkgM> getKFAPkgMAgent(const KFLEID& eid, AccessProviderSP ap,
                                             const std::string& name) const;
  boost::shared_ptr<KFAPkgM> getKFAPkgMLocal(AccessProviderSP ap, const std::string& name) const;

  // Environments and their configurations.
  boost::shared_ptr<KFAEnvM> getKFAEnvM(const KFLEID& eid, AccessProviderSP ap,
                                        const std::string& name) const;
  boost::shared_ptr<KFAEnvM> getKFAEnvMAgent(const KFLEID& eid, AccessProviderSP ap,
                                             const std::string& name) const;
  boost::shared_ptr<KFAEnvM> getKFAEnvMLocal(AccessProviderSP ap, const std::string& name) const;

  // Templates of the node.
  boost::shared_ptr<KFATEM> getTEM(const KFLEID& eid, AccessProviderSP ap, const std::string& name) const;
  boost::shared_ptr<KFATEM> getTEMAgent(const KFLEID& eid, AccessProviderSP ap,
                                        const std::string& name) const;
  boost::shared_ptr<KFATEM> getTEMLocal(AccessProviderSP ap, const std::string& name) const;

 private:
  // One for each manager, in the order in which agents number them.
  template <class... Managers>
  using MultiplexerOfEach = std::tuple<Multiplexer<Managers>...>;
  MultiplexerOfEach<KFATEM, KFAEnvM, KFAPkgM, KFAProcessM, KFANetworkM, KFAProcessMonitor, KFAUp2date,
                    KFASupport, KFASampleM>
      multiplexers_;
};

}  // namespace KFA

#endif
