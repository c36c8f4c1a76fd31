// SPDX-License-Identifier: Apache-2.0
// The environment factory: from the name of a technology to the factory of its environment classes.
//
// A technology's library registers its child factory when it is loaded and takes it out when it is unloaded.
// Any thread may look one up, without a lock; each change publishes a new table by one store. Objects that a
// child factory made must be gone before its library is unloaded.
#ifndef KFLFUNCTIONALITY_KFLENVFACTORY_H
#define KFLFUNCTIONALITY_KFLENVFACTORY_H

#include <atomic>
#include <string_view>
#include <vector>

#include <boost/smart_ptr/make_shared.hpp>
#include <boost/smart_ptr/shared_ptr.hpp>

#include <KFLCommon/KFLLimitedString.h>
#include <KFLFunctionality/KFLEnv.h>

namespace KFL {

// Makes the environments of one technology.
class KFLEnvChildFactory {
 public:
  virtual boost::shared_ptr<KFLEnv> createEnv() const = 0;
  virtual boost::shared_ptr<KFLEnv> createEnv(boost::shared_ptr<KFLEnvCoreBasic> core) const = 0;
  virtual boost::shared_ptr<KFLVEnvConfig> createVEnvConfig(
      boost::shared_ptr<KFLEnvCoreBasic> core) const = 0;
  virtual ~KFLEnvChildFactory() = default;
};

// The child factory of a technology whose classes are Env and Config.
template <class Env, class Config>
class KFLEnvChildFactoryT : public KFLEnvChildFactory {
 public:
  boost::shared_ptr<KFLEnv> createEnv() const override { return boost::make_shared<Env>(); }
  boost::shared_ptr<KFLEnv> createEnv(boost::shared_ptr<KFLEnvCoreBasic> core) const override {
    return boost::make_shared<Env>(core);
  }
  boost::shared_ptr<KFLVEnvConfig> createVEnvConfig(boost::shared_ptr<KFLEnvCoreBasic> core) const override {
    return boost::make_shared<Config>(core);
  }
};

class KFLEnvFactory {
 public:
  using TypeName = limited_length_string<16>;
  using ChildFactorySP = boost::shared_ptr<KFLEnvChildFactory>;

  KFLEnvFactory(const KFLEnvFactory&) = delete;
  KFLEnvFactory& operator=(const KFLEnvFactory&) = delete;

  // The one of this process.
  static KFLEnvFactory* getInstance();

  // 0, or -1 with an error text when the name is taken, empty or longer than a TypeName, or the pointer is null.
  int registerEnv(std::string_view name, const ChildFactorySP& factory);
  // Takes the factory out if it is the one under this name: 0, else -1 with an error text.
  int unregisterEnv(std::string_view name, const ChildFactorySP& factory);

  // Null for a name that nobody has registered, whatever its length.
  ChildFactorySP getFactory(std::string_view name) const;
  // All registered names, in their order.
  std::vector<TypeName> listTypes() const;

 private:
  struct Table;

  constexpr KFLEnvFactory() = default;
  ~KFLEnvFactory() = default;
  void publish(Table* table);

  // The newest table, from which the older ones hang: a reader may still be in any of them.
  std::atomic<const Table*> table_{nullptr};
};

}  // namespace KFL

#endif
