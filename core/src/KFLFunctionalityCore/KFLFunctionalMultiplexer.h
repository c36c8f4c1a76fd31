// SPDX-License-Identifier: Apache-2.0
// Where the managers of one interface come from: implementations by name, each made in this process by a local
// factory, or by an agent factory as a stand-in that reaches another agent in a way of its own: neither the
// multiplexer nor the connection sends anything.
//
//   KFLFunctionalMultiplexer<boost::shared_ptr<KFAEnvM>> managers;
//   managers.registerLocal("kelvarium", factory);
//   boost::shared_ptr<KFAEnvM> manager = managers.get(eid, ap, "kelvarium");
//
// Any thread may register, take out and get at the same time. The lock is held for looking a name up and for
// changing a map, never while a factory works or goes away: a factory may itself get and register, and a slow one
// keeps nobody waiting. A factory that is taken out while a call is in it lives until that call is done. Nothing
// is cached: each call asks the factory, and a factory that hands out one shared manager is free to.
#ifndef KFLFUNCTIONALITYCORE_KFLFUNCTIONALMULTIPLEXER_H
#define KFLFUNCTIONALITYCORE_KFLFUNCTIONALMULTIPLEXER_H

#include <map>
#include <optional>
#include <string>
#include <utility>

#include <boost/smart_ptr/shared_ptr.hpp>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLLock.h>
#include <KFLFunctionalityCore/KFLAccessProviderPrototype.h>

namespace KFL {

// Makes managers that work in this process. Called from any thread; `ap` may be empty.
template <class Product>
class KFLLocalFactory {
 public:
  virtual ~KFLLocalFactory() = default;
  virtual Product create(const KFLAccessProviderSP& ap) = 0;
};

// Makes managers that reach the agent which serves an environment. Called from any thread; `ap` may be empty.
template <class Product>
class KFLAgentFactory {
 public:
  virtual ~KFLAgentFactory() = default;
  // For a name that has extra data: a text that only this factory understands, such as an address.
  virtual Product create(const KFLEID& eid, const KFLAccessProviderSP& ap, const std::string& extraData) = 0;
  virtual Product create(const KFLEID& eid, const KFLAccessProviderSP& ap) = 0;
};

// Product is a boost::shared_ptr of the managers' interface.
template <class Product>
class KFLFunctionalMultiplexer {
 public:
  using LocalFactory = KFLLocalFactory<Product>;
  using LocalFactorySP = boost::shared_ptr<LocalFactory>;
  using AgentFactory = KFLAgentFactory<Product>;
  using AgentFactorySP = boost::shared_ptr<AgentFactory>;

  KFLFunctionalMultiplexer() = default;
  KFLFunctionalMultiplexer(const KFLFunctionalMultiplexer&) = delete;
  KFLFunctionalMultiplexer& operator=(const KFLFunctionalMultiplexer&) = delete;

  // Puts a factory under a name: 0, or -1 with an error text when the pointer is empty or the name is taken.
  int registerLocal(const std::string& name, const LocalFactorySP& factory) KFL_EXCLUDES(lock_) {
    const KFLLockGuard guard(lock_);
    return add(local_, name, factory, "local");
  }
  int registerAgent(const std::string& name, const AgentFactorySP& factory) KFL_EXCLUDES(lock_) {
    const KFLLockGuard guard(lock_);
    return add(agent_, name, factory, "agent");
  }
  // Takes the factory out if it is the one under this name: 0, else -1 with an error text. Extra data stays.
  int unregisterLocal(const std::string& name, const LocalFactorySP& factory) KFL_EXCLUDES(lock_) {
    const KFLLockGuard guard(lock_);
    return remove(local_, name, factory, "local");
  }
  int unregisterAgent(const std::string& name, const AgentFactorySP& factory) KFL_EXCLUDES(lock_) {
    const KFLLockGuard guard(lock_);
    return remove(agent_, name, factory, "agent");
  }
  // The extra data of a name, for its agent factory; in place of what the name had, and before or after the
  // factory is registered.
  void setExtraData(const std::string& name, std::string extraData) KFL_EXCLUDES(lock_) {
    const KFLLockGuard guard(lock_);
    extraData_[name] = std::move(extraData);
  }
  // False when the name had none.
  bool removeExtraData(const std::string& name) KFL_EXCLUDES(lock_) {
    const KFLLockGuard guard(lock_);
    return extraData_.erase(name) != 0;
  }

  // The local manager where the environment is served in this process (isReachedLocally), else the agent's. The
  // three give an empty pointer for a name that has no such factory.
  Product get(const KFLEID& eid, const KFLAccessProviderSP& ap, const std::string& name) const {
    return isReachedLocally(eid, ap) ? getLocal(ap, name) : getAgent(eid, ap, name);
  }
  Product getLocal(const KFLAccessProviderSP& ap, const std::string& name) const KFL_EXCLUDES(lock_) {
    const LocalFactorySP factory = findLocal(name);
    return factory ? factory->create(ap) : Product();
  }
  Product getAgent(const KFLEID& eid, const KFLAccessProviderSP& ap, const std::string& name) const
      KFL_EXCLUDES(lock_) {
    const auto [factory, extraData] = findAgent(name);
    if (!factory) return Product();
    return extraData ? factory->create(eid, ap, *extraData) : factory->create(eid, ap);
  }

 private:
  template <class Value>
  using Map = std::map<std::string, Value>;

  LocalFactorySP findLocal(const std::string& name) const KFL_EXCLUDES(lock_) {
    const KFLLockGuard guard(lock_);
    const auto found = local_.find(name);
    return found == local_.end() ? LocalFactorySP() : found->second;
  }
  // The factory with the extra data that it has at this moment.
  std::pair<AgentFactorySP, std::optional<std::string>> findAgent(const std::string& name) const
      KFL_EXCLUDES(lock_) {
    const KFLLockGuard guard(lock_);
    const auto found = agent_.find(name);
    if (found == agent_.end()) return {};
    const auto extra = extraData_.find(name);
    return {found->second, extra == extraData_.end() ? std::nullopt : std::optional(extra->second)};
  }

  // `map` is one of the maps below, whose lock is held; `kind` names it in error texts.
  template <class Factory>
  static int add(Map<boost::shared_ptr<Factory>>& map, const std::string& name,
                 const boost::shared_ptr<Factory>& factory, const char* kind) {
    if (!factory) {
      setErrorMessage("no %s factory was given for the implementation \"%s\"", kind, name.c_str());
      return -1;
    }
    if (map.emplace(name, factory).second) return 0;
    setErrorMessage(
        "the implementation \"%s\" has a %s factory; it must be taken out before another is registered",
        name.c_str(), kind);
    return -1;
  }
  // The caller's pointer keeps the factory alive beyond the lock.
  template <class Factory>
  static int remove(Map<boost::shared_ptr<Factory>>& map, const std::string& name,
                    const boost::shared_ptr<Factory>& factory, const char* kind) {
    const auto found = map.find(name);
    if (factory && found != map.end() && found->second == factory) {
      map.erase(found);
      return 0;
    }
    setErrorMessage("this is not the %s factory of the implementation \"%s\"", kind, name.c_str());
    return -1;
  }

  mutable KFLLock lock_;
  Map<LocalFactorySP> local_ KFL_GUARDED_BY(lock_);
  Map<AgentFactorySP> agent_ KFL_GUARDED_BY(lock_);
  Map<std::string> extraData_ KFL_GUARDED_BY(lock_);
};

}  // namespace KFL

#endif
