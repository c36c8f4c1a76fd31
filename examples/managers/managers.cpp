// SPDX-License-Identifier: Apache-2.0
// The manager of sample configurations on two nodes, got in each of the three ways. The agent of the other node stands
// in this process too, where its factory finds it by its extra data. The connection only tells whose the environments
// are: a stand-in that reaches another process brings its own means of sending.
#include <cstdio>
#include <initializer_list>
#include <map>
#include <string>
#include <vector>

#include <boost/make_shared.hpp>

#include <KFAFunctionality/access/KFALibFunctionality.h>
#include <KFAFunctionality/access/KFASampleM.h>
#include <KFAFunctionality/environment/KFAEnvConfig.h>
#include <KFLCommon/KFLError.h>
#include <KFLConnection/KFLProcessConnection.h>
#include <KFLFunctionality/KFLVocMap.h>

using namespace KFA;
using SampleMSP = boost::shared_ptr<KFASampleM>;

namespace {

// Works in its own process. One object serves every caller; what would be changed by several threads needs a lock.
class Samples : public KFASampleM {
 public:
  int list(std::vector<std::string>& names) override {
    names.clear();
    for (const auto& [name, sample] : samples_)
      names.push_back(name);
    return KFAManagerDone;
  }
  int get(const std::string& name, KFAEnvConfig& sample) override {
    const auto found = samples_.find(name);
    if (found == samples_.end()) return noSample(name);
    sample = found->second;
    return KFAManagerDone;
  }
  int set(const std::string& name, const KFAEnvConfig& sample) override {
    samples_.insert_or_assign(name, sample);
    return KFAManagerDone;
  }
  int remove(const std::string& name) override {
    return samples_.erase(name) != 0 ? KFAManagerDone : noSample(name);
  }
  int check(const KFAEnvConfig& config, KFAQoSValidationList& violations) override {
    KFAQoSValidationList found;
    const KFLVocMapSP vocabulary = KFLVocMap::load(KFLVocMap::defaultPath());
    if (!vocabulary || validateQoSes(&found, vocabulary, config) < 0) return KFAManagerFailed;
    violations.swap(found);
    return KFAManagerDone;
  }

 private:
  static int noSample(const std::string& name) {
    KFL::setErrorMessage("there is no sample \"%s\"", name.c_str());
    return KFAManagerNotFound;
  }

  std::map<std::string, KFAEnvConfig> samples_;
};

// Hands out the one manager of its node.
struct SamplesFactory : KFLLocalFactory<SampleMSP> {
  SampleMSP create(const KFLAccessProviderSP&) override { return samples; }
  const SampleMSP samples = boost::make_shared<Samples>();
};

// Reaches the manager of another node. This one knows which by its extra data alone.
struct OtherAgentFactory : KFLAgentFactory<SampleMSP> {
  explicit OtherAgentFactory(const std::map<std::string, const KFALibFunctionality*>& all) : agents(all) {}
  SampleMSP create(const KFLEID&, const KFLAccessProviderSP& ap, const std::string& node) override {
    const auto agent = agents.find(node);
    return agent == agents.end() ? SampleMSP() : agent->second->getKFASampleMLocal(ap, kTechnology);
  }
  SampleMSP create(const KFLEID&, const KFLAccessProviderSP&) override { return SampleMSP(); }
  const std::map<std::string, const KFALibFunctionality*> agents;
};

struct Provider : KFLAccessProviderPrototype {
  explicit Provider(const KFLConnectionSP& to) : connection(to) {}
  KFLConnectionSP getConnection() const override { return connection; }
  const KFLConnectionSP connection;
};

// Makes a node's agent know its samples.
void equip(KFALibFunctionality& agent, std::initializer_list<const char*> names) {
  const auto factory = boost::make_shared<SamplesFactory>();
  for (const char* const name : names)
    factory->samples->set(name, KFAEnvConfig());
  agent.multiplexer<KFASampleM>().registerLocal(kTechnology, factory);
}

void print(const char* how, const SampleMSP& manager) {
  std::vector<std::string> names;
  std::printf("%s:", how);
  if (!manager || manager->list(names) != KFAManagerDone) std::printf(" no manager");
  for (const std::string& name : names)
    std::printf(" %s", name.c_str());
  std::printf("\n");
}

}  // namespace

int main() {
  KFALibFunctionality here, there;
  equip(here, {"basic", "web"});
  equip(there, {"mail"});
  auto& samples = here.multiplexer<KFASampleM>();
  samples.setExtraData(kTechnology, "node2");
  const auto others = boost::make_shared<OtherAgentFactory>(
      std::map<std::string, const KFALibFunctionality*>{{"node2", &there}});
  if (samples.registerAgent(kTechnology, others) != 0) {
    std::fprintf(stderr, "managers: %s\n", KFL::getErrorMessage().c_str());
    return 1;
  }

  const boost::intrusive_ptr<KFL::KFLProcessConnection> connection(new KFL::KFLProcessConnection);
  const KFLEID ours = KFLEID::generate(), theirs = KFLEID::generate();
  connection->serve(ours);
  const KFALibFunctionality::AccessProviderSP ap(new Provider(connection));

  print("an environment of this node", here.getKFASampleM(ours, ap, kTechnology));
  print("an environment of another node", here.getKFASampleM(theirs, ap, kTechnology));
  print("no provider", here.getKFASampleM(theirs, nullptr, kTechnology));
  print("through the agent", here.getKFASampleMAgent(ours, ap, kTechnology));
  print("in this process", here.getKFASampleMLocal(ap, kTechnology));
  print("another technology", here.getKFASampleM(ours, ap, "other"));
  return 0;
}
