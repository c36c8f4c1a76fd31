// SPDX-License-Identifier: Apache-2.0
// A manager of processes for kfad --load: those of an environment are those whose root folder is the environment's.
// Where that is, the manager of environments knows, which the agent has by the time that somebody asks.
#include <dirent.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <boost/make_shared.hpp>

#include <KFAFunctionality/access/KFAEnvM.h>
#include <KFAFunctionality/access/KFALibFunctionality.h>
#include <KFAFunctionality/access/KFAProcessM.h>
#include <KFAFunctionality/environment/KFAEnvConfig.h>
#include <KFLCommon/KFLError.h>

using namespace KFA;

namespace {

std::string folderOf(int pid) {
  return "/proc/" + std::to_string(pid);
}

std::string contentOf(const std::string& path) {
  std::ifstream in(path);
  return {std::istreambuf_iterator<char>(in), {}};
}

// What /proc tells of a process; false when it has ended.
bool readProcess(int pid, KFAProcess& process) {
  std::istringstream stat(contentOf(folderOf(pid) + "/stat"));
  // The name stands between parentheses and may hold anything.
  std::string rest;
  std::getline(stat, rest, '\0');
  const std::size_t end = rest.rfind(')');
  if (end == std::string::npos) return false;
  std::istringstream fields(rest.substr(end + 1));
  std::string skipped;
  long user = 0, system = 0, pages = 0;
  fields >> process.state >> process.parentPid;
  for (int field = 5; field < 14; ++field)
    fields >> skipped;
  fields >> user >> system;
  for (int field = 16; field < 24; ++field)
    fields >> skipped;
  fields >> pages;
  process.pid = pid;
  process.command = contentOf(folderOf(pid) + "/cmdline");
  process.residentBytes = static_cast<std::int64_t>(pages) * sysconf(_SC_PAGESIZE);
  process.cpuMilliseconds = (user + system) * 1000 / sysconf(_SC_CLK_TCK);
  return true;
}

class Processes : public KFAProcessM {
 public:
  Processes(const KFALibFunctionality& managers, const std::string& implementation)
      : managers_(managers), implementation_(implementation) {}

  int list(const KFLEID& eid, std::vector<KFAProcess>& processes) override {
    std::string root;
    if (const int code = findRoot(eid, root); code != KFAManagerDone) return code;
    std::map<int, KFAProcess> found;
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir("/proc"), &closedir);
    while (const dirent* const entry = folder ? readdir(folder.get()) : nullptr) {
      const int pid = std::atoi(entry->d_name);
      KFAProcess process;
      if (pid > 0 && isBelow(pid, root) && readProcess(pid, process)) found.emplace(pid, process);
    }
    processes.clear();
    for (const auto& [pid, process] : found)
      processes.push_back(process);
    return KFAManagerDone;
  }
  int get(const KFLEID& eid, int pid, KFAProcess& process) override {
    std::string root;
    if (const int code = findRoot(eid, root); code != KFAManagerDone) return code;
    KFAProcess read;
    if (pid <= 0 || !isBelow(pid, root) || !readProcess(pid, read)) return noProcess(pid);
    process = read;
    return KFAManagerDone;
  }
  int signal(const KFLEID& eid, int pid, int number) override {
    KFAProcess process;
    if (const int code = get(eid, pid, process); code != KFAManagerDone) return code;
    if (kill(pid, number) == 0) return KFAManagerDone;
    KFL::setErrorMessage("the signal %d cannot be sent to the process %d: %s", number, pid,
                         std::strerror(errno));
    return KFAManagerFailed;
  }
  int execute(const KFLEID&, const std::vector<std::string>&, KFACommandResult&) override {
    KFL::setErrorMessage("running programs is not offered by this agent");
    return KFAManagerFailed;
  }

 private:
  static int noProcess(int pid) {
    KFL::setErrorMessage("the environment has no process %d", pid);
    return KFAManagerNotFound;
  }
  static bool isBelow(int pid, const std::string& root) {
    char path[PATH_MAX];
    const ssize_t length = readlink((folderOf(pid) + "/root").c_str(), path, sizeof path);
    return length > 0 && std::string(path, static_cast<std::size_t>(length)) == root;
  }
  int findRoot(const KFLEID& eid, std::string& root) const {
    const auto environments = managers_.getKFAEnvMLocal(nullptr, implementation_);
    KFAEnvConfig config;
    if (!environments) return noProcess(0);
    if (const int code = environments->getConfig(eid, config); code != KFAManagerDone) return code;
    if (config.getVERoot(root) == 0) return KFAManagerDone;
    KFL::setErrorMessage("the environment has no root folder");
    return KFAManagerFailed;
  }

  const KFALibFunctionality& managers_;
  const std::string implementation_;
};

struct Factory : KFLLocalFactory<boost::shared_ptr<KFAProcessM>> {
  explicit Factory(const boost::shared_ptr<KFAProcessM>& made) : manager(made) {}
  boost::shared_ptr<KFAProcessM> create(const KFLAccessProviderSP&) override { return manager; }
  const boost::shared_ptr<KFAProcessM> manager;
};

}  // namespace

extern "C" int kfaRegisterManagers(KFALibFunctionality& managers, const char* implementation) {
  return managers.multiplexer<KFAProcessM>().registerLocal(
      implementation, boost::make_shared<Factory>(boost::make_shared<Processes>(managers, implementation)));
}
