// SPDX-License-Identifier: Apache-2.0
// kfad: the agent of a node. It serves what the node's files tell to those whose certificates are accepted.
#include <dlfcn.h>
#include <systemd/sd-daemon.h>
#include <systemd/sd-id128.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <google/protobuf/stubs/logging.h>
#include <grpc/support/log.h>
#include <CLI/CLI.hpp>
#include <boost/smart_ptr/make_shared.hpp>

#include <KFARemote/KFARemoteServer.h>
#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLLog.h>
#include <KFLFunctionality/KFLVocMap.h>

#include "NodeManagers.h"

namespace {

using namespace KFA;

struct Settings {
  kfad::NodePaths paths;
  KFARemoteServerOptions server;
  std::string id;
  std::string vocabulary = KFL::KFLVocMap::defaultPath();
  std::vector<std::string> libraries;
  int graceSeconds = 30;
};

// What a library of an agent exports to bring managers: registers them and gives 0, or -1 with an error text.
using RegisterManagers = int (*)(KFALibFunctionality& managers, const char* implementation);
constexpr const char* kRegisterManagers = "kfaRegisterManagers";

int fail(const std::string& what) {
  std::fprintf(stderr, "kfad: %s\n", what.c_str());
  return 2;
}

void declare(CLI::App& app, Settings& settings) {
  KFARemoteIdentity& identity = settings.server.identity;
  app.add_option("--node", settings.paths.environments, "The folder of the environments' VEID.conf files")
      ->required();
  app.add_option("--global", settings.paths.global, "The global configuration file");
  app.add_option("--samples", settings.paths.samples, "The folder of sample configurations, NAME.sample");
  app.add_option("--shaping", settings.paths.shaping, "The message with the shaping of the network");
  app.add_option("--updates", settings.paths.updates, "The message with the configuration of updates");
  app.add_option("--vocabulary", settings.vocabulary, "The vocabulary of resource parameters and formulas");
  app.add_option("--certificate", identity.certificate, "This agent's certificate (PEM)")->required();
  app.add_option("--key", identity.key, "The key of the certificate (PEM)")->required();
  app.add_option("--ca", identity.authority, "The authorities whose certificates are accepted (PEM)")
      ->required();
  app.add_option("--access", settings.server.accessFile,
                 "Who may do what: lines of NAME RIGHT [MANAGERS [ENVIRONMENTS]]")
      ->required();
  app.add_option("--listen", settings.server.addresses,
                 "HOST:PORT to listen on; without it and without sockets "
                 "from systemd, every address and the port of agents");
  app.add_option("--id", settings.id, "The id of the node; else it is made of the machine's");
  app.add_option("--load", settings.libraries, "A library that brings managers of its own");
  app.add_option("--grace", settings.graceSeconds, "How many seconds calls may go on after SIGTERM")
      ->check(CLI::NonNegativeNumber);
}

// Lines that the journal takes the level from.
void logForJournal(const KFL::LogRecord& record, void*) {
  constexpr const char* kLevels[] = {SD_CRIT, SD_ERR, SD_WARNING, SD_INFO, SD_DEBUG};
  std::fprintf(stderr, "%s%s: %.*s\n", kLevels[record.level], record.module,
               static_cast<int>(record.text.size()), record.text.data());
}

// gRPC's errors are those of callers that break off or are refused; what it says of a server that cannot be started,
// the error text of that says shorter.
std::atomic<bool> isServing = false;
void logForEngine(gpr_log_func_args* message) {
  const bool isGrave = message->severity == GPR_LOG_SEVERITY_ERROR && isServing;
  KFL::Log2("gRPC", message->file, message->line, "", "")
      .put(isGrave ? KFL::kLogWarning : KFL::kLogDebug, "%s", message->message);
}
// protobuf's are of requests that cannot be read.
void logForMessages(google::protobuf::LogLevel level, const char* file, int line, const std::string& text) {
  const bool isGrave = level >= google::protobuf::LOGLEVEL_WARNING;
  KFL::Log2("protobuf", file, line, "", "")
      .put(isGrave ? KFL::kLogWarning : KFL::kLogDebug, "%s", text.c_str());
}

// 0, or -1 with an error text.
int findNodeId(const std::string& given, KFLEID& id) {
  if (!given.empty()) return id.fromString(given);
  constexpr sd_id128_t kAgent =
      SD_ID128_ARRAY(6b, 1f, 0c, 52, 9e, 41, 4d, 0e, a5, 2d, 70, 3a, 88, 19, c4, f6);
  sd_id128_t machine;
  if (sd_id128_get_machine_app_specific(kAgent, &machine) < 0) {
    KFL::setErrorMessage("this machine has no id; --id would give the node one");
    return -1;
  }
  char text[SD_ID128_UUID_STRING_MAX];
  return id.fromString(sd_id128_to_uuid_string(machine, text));
}

int loadLibrary(const std::string& path, KFALibFunctionality& managers) {
  void* const library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  void* const symbol = library == nullptr ? nullptr : dlsym(library, kRegisterManagers);
  if (symbol == nullptr) {
    KFL::setErrorMessage("%s: %s", path.c_str(), dlerror());
    return -1;
  }
  if (reinterpret_cast<RegisterManagers>(symbol)(managers, kTechnology) == 0) return 0;
  const std::string reason = KFL::getErrorMessage();
  KFL::setErrorMessage("%s: %s", path.c_str(), reason.c_str());
  return -1;
}

// Puts the managers of libraries and then those of the files in: 0, or -1 with an error text.
int fillManagers(Settings& settings, KFALibFunctionality& managers) {
  for (const std::string& library : settings.libraries) {
    if (loadLibrary(library, managers) != 0) return -1;
  }
  const auto vocabulary = KFL::KFLVocMap::load(settings.vocabulary);
  if (!vocabulary) return -1;
  const auto parser = KFAEnvConfigBashParser::getInstance(vocabulary);
  if (!parser) return -1;
  const auto files =
      boost::make_shared<kfad::NodeFiles>(settings.paths, settings.server.node, vocabulary, parser);
  if (files->each([](int, kfad::NodeFiles::Entry&) { return 0; }) != KFAManagerDone) return -1;
  kfad::registerNodeManagers(managers, files);
  settings.server.files = kfad::makeFiles(settings.paths);
  settings.server.serves = [files](const KFLEID& eid) {
    int veid = 0;
    KFAEnvConfig config;
    return files->find(eid, veid, config) != KFAManagerNotFound;
  };
  return 0;
}

void takeSockets(KFARemoteServerOptions& options) {
  const int count = sd_listen_fds(1);
  for (int i = 0; i < count; ++i)
    options.listening.push_back(SD_LISTEN_FDS_START + i);
  if (options.listening.empty() && options.addresses.empty())
    options.addresses.push_back("[::]:" + std::to_string(kRemotePort));
}

// The signals that end the agent come to this thread alone: every other one is made after this.
sigset_t holdSignals() {
  sigset_t ending;
  sigemptyset(&ending);
  sigaddset(&ending, SIGTERM);
  sigaddset(&ending, SIGINT);
  pthread_sigmask(SIG_BLOCK, &ending, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
  return ending;
}

// Waits for a signal to end; tells a watchdog that all is well.
void waitForEnd(const sigset_t& ending) {
  std::uint64_t microseconds = 0;
  const bool isWatched = sd_watchdog_enabled(0, &microseconds) > 0;
  const std::uint64_t interval = isWatched ? microseconds / 2 : 3600ULL * 1000000;
  const timespec wait{static_cast<time_t>(interval / 1000000), static_cast<long>(interval % 1000000 * 1000)};
  while (sigtimedwait(&ending, nullptr, &wait) < 0) {
    if (errno == EAGAIN && isWatched) sd_notify(0, "WATCHDOG=1");
  }
}

int serve(Settings& settings) {
  const sigset_t ending = holdSignals();
  if (findNodeId(settings.id, settings.server.node) != 0) return fail(KFL::getErrorMessage());
  KFALibFunctionality managers;
  if (fillManagers(settings, managers) != 0) return fail(KFL::getErrorMessage());
  takeSockets(settings.server);
  KFARemoteServer server(managers, settings.server);
  gpr_set_log_function(&logForEngine);
  google::protobuf::SetLogHandler(&logForMessages);
  if (server.start() != 0) return fail(KFL::getErrorMessage());
  isServing = true;
  KFL_LOG("kfad", KFL::kLogInfo, "[%s] the node %s is served", __func__,
          settings.server.node.toString().c_str());
  sd_notify(0, "READY=1");
  waitForEnd(ending);
  sd_notify(0, "STOPPING=1");
  server.stop(std::chrono::seconds(settings.graceSeconds));
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Serves a node's environments, samples, templates, network and updates from its files.",
               "kfad");
  Settings settings;
  declare(app, settings);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);
    return fail(error.what());
  }
  if (std::getenv("KFA_LOG_LEVEL") == nullptr) KFL::setLogLevel(KFL::kLogInfo);
  if (std::getenv("JOURNAL_STREAM") != nullptr) KFL::setLogSink(&logForJournal, nullptr);
  return serve(settings);
}
