// SPDX-License-Identifier: Apache-2.0
// KEY="value" files beside the floor (the standard line reader with a copy of each line kept, or each line written
// again), GKeyFile, and the shell-variables lens of Augeas. Size 57 is a real file of 57 lines and 2.2 KB; other sizes
// are made. All work on texts in memory, but for Load, which begins with a file on disk.
//
// GKeyFile knows no shell syntax and wants a group, so it gets a group line in front; Augeas keeps the text in its tree.
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <augeas.h>
#include <benchmark/benchmark.h>
#include <glib.h>

#include <KFLFunctionality/KFLVocMap.h>
#include <KFLMessage/KFLMessage.h>

#include <KFAFunctionality/environment/KFAEnvConfig.h>
#include <KFAFunctionality/files/KFAEnvConfigBashParser.h>
#include <KFAFunctionality/files/KFARawConfigBashParser.h>

namespace {

using Values = std::map<std::string, std::string>;

const char* const kPath = KFA_SOURCE_DIR "/examples/node/conf/110.conf";
constexpr std::int64_t kRealSize = 57;

// The real file for its size; for any other as many assignments, each with a comment.
std::string textOf(std::int64_t lines) {
  std::ostringstream out;
  if (lines == kRealSize) {
    out << std::ifstream(kPath).rdbuf();
    return out.str();
  }
  for (std::int64_t i = 0; i < lines; ++i)
    out << "KEY_" << i << "=\"value " << i << "\"   # comment\n";
  return out.str();
}

std::size_t valuesOf(std::int64_t lines) {
  constexpr std::size_t kRealValues = 42;
  return lines == kRealSize ? kRealValues : static_cast<std::size_t>(lines);
}

const KFA::KFARawConfigBashParser& rawParser() {
  static const auto parser = KFA::KFARawConfigBashParser::getInstance();
  return *parser;
}

const KFA::KFAEnvConfigBashParser& envParser() {
  static const auto parser =
      KFA::KFAEnvConfigBashParser::getInstance(KFL::KFLVocMap::load(KFA_SOURCE_DIR "/data/vocabulary.xml"));
  return *parser;
}

void finish(benchmark::State& state, bool isRight) {
  if (!isRight) state.SkipWithError("a wrong result");
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->Arg(kRealSize)->RangeMultiplier(10)->Range(10, 1000000);
}

// --- Reading -------------------------------------------------------------------------------------------------------

std::size_t keepLines(std::istream& in) {
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);)
    lines.push_back(line);
  benchmark::DoNotOptimize(lines);
  return lines.size();
}

std::size_t keepValues(std::istream& in) {
  Values values;
  rawParser().getConfig(in, values);
  benchmark::DoNotOptimize(values);
  return values.size();
}

void ReadOurs(benchmark::State& state) {
  const std::string text = textOf(state.range(0));
  bool isRight = true;
  for (auto _ : state) {
    std::istringstream in(text);
    isRight &= keepValues(in) == valuesOf(state.range(0));
  }
  finish(state, isRight);
}

void readFloor(benchmark::State& state) {
  const std::string text = textOf(state.range(0));
  bool isRight = true;
  for (auto _ : state) {
    std::istringstream in(text);
    isRight &= keepLines(in) == static_cast<std::size_t>(state.range(0));
  }
  finish(state, isRight);
}

void ReadFloor(benchmark::State& state) {
  readFloor(state);
}

void ReadGKeyFile(benchmark::State& state) {
  const std::string text = "[file]\n" + textOf(state.range(0));
  bool isRight = true;
  for (auto _ : state) {
    GKeyFile* const file = g_key_file_new();
    isRight &=
        g_key_file_load_from_data(file, text.data(), text.size(), G_KEY_FILE_KEEP_COMMENTS, nullptr) != 0;
    g_key_file_free(file);
  }
  finish(state, isRight);
}

augeas* openAugeas(const std::string& text) {
  augeas* const peer = aug_init("/", nullptr, AUG_NO_LOAD | AUG_NO_MODL_AUTOLOAD);
  aug_set(peer, "/text", text.c_str());
  return peer;
}

void ReadAugeas(benchmark::State& state) {
  augeas* const peer = openAugeas(textOf(state.range(0)));
  bool isRight = true;
  for (auto _ : state)
    isRight &= aug_text_store(peer, "Shellvars.lns", "/text", "/file") == 0;
  aug_close(peer);
  finish(state, isRight);
}

void LoadOurs(benchmark::State& state) {
  bool isRight = true;
  for (auto _ : state) {
    std::ifstream in(kPath);
    isRight &= keepValues(in) == valuesOf(state.range(0));
  }
  finish(state, isRight);
}

void LoadFloor(benchmark::State& state) {
  bool isRight = true;
  for (auto _ : state) {
    std::ifstream in(kPath);
    isRight &= keepLines(in) == static_cast<std::size_t>(state.range(0));
  }
  finish(state, isRight);
}

void RecordOurs(benchmark::State& state) {
  const std::string text = textOf(state.range(0));
  bool isRight = true;
  for (auto _ : state) {
    std::istringstream in(text);
    KFA::KFAEnvConfig record;
    isRight &= envParser().getConfig(in, record) == 0;
    benchmark::DoNotOptimize(record);
  }
  finish(state, isRight);
}

void RecordFloor(benchmark::State& state) {
  readFloor(state);
}

// --- Rewriting: one value given, and (Merge) all values given with one of them changed ------------------------------

void rewrite(benchmark::State& state, const std::string& text, const Values& values) {
  bool isRight = true;
  for (auto _ : state) {
    std::istringstream in(text);
    std::ostringstream out;
    isRight &= rawParser().putConfig(values, out, &in, true) == 0;
    benchmark::DoNotOptimize(out);
  }
  finish(state, isRight);
}

void RewriteOurs(benchmark::State& state) {
  rewrite(state, textOf(state.range(0)), {{state.range(0) == kRealSize ? "onboot" : "key_5", "no"}});
}

void MergeOurs(benchmark::State& state) {
  const std::string text = textOf(state.range(0));
  std::istringstream in(text);
  Values values;
  rawParser().getConfig(in, values);
  values["onboot"] = "no";
  rewrite(state, text, values);
}

void rewriteFloor(benchmark::State& state) {
  const std::string text = textOf(state.range(0));
  for (auto _ : state) {
    std::istringstream in(text);
    std::ostringstream out;
    for (std::string line; std::getline(in, line);)
      out << line << '\n';
    benchmark::DoNotOptimize(out);
  }
  finish(state, true);
}

void RewriteFloor(benchmark::State& state) {
  rewriteFloor(state);
}
void MergeFloor(benchmark::State& state) {
  rewriteFloor(state);
}

void RewriteAugeas(benchmark::State& state) {
  augeas* const peer = openAugeas(textOf(state.range(0)));
  bool isRight = aug_text_store(peer, "Shellvars.lns", "/text", "/file") == 0;
  aug_set(peer, "/file/ONBOOT", "no");
  for (auto _ : state)
    isRight &= aug_text_retrieve(peer, "Shellvars.lns", "/text", "/file", "/out") == 0;
  aug_close(peer);
  finish(state, isRight);
}

// --- Devices: a NETIF line read into the record, the list read from it, and taken out --------------------------------

void DevicesOurs(benchmark::State& state) {
  std::string line = "NETIF=\"";
  for (std::int64_t i = 0; i < state.range(0); ++i)
    line += "ifname=eth" + std::to_string(i) + ",network=,mac=02:00:5e:10:10:01,ip=10.0.0.1/24,dhcp=no;";
  line += "\"\n";
  bool isRight = true;
  for (auto _ : state) {
    std::istringstream in(line);
    KFA::KFAEnvConfig record;
    KFA::KFAEnvConfig::NetVEths devices;
    isRight &= envParser().getConfig(in, record) == 0 && record.getNetVEths(devices) == 0;
    isRight &= devices.getValue().size() == static_cast<std::size_t>(state.range(0)) + 1;
    record.setNetVEths({});
    benchmark::DoNotOptimize(record);
  }
  finish(state, isRight);
}

// --- Setting: properties of configurations that are bound in one tree, and (Floor) of as many with trees of their own ---

using Records = std::vector<KFA::KFAEnvConfig>;

void set(benchmark::State& state, Records& records) {
  const std::string text = textOf(kRealSize);
  for (KFA::KFAEnvConfig& record : records) {
    std::istringstream in(text);
    envParser().getConfig(in, record);
  }
  std::size_t at = 0;
  for (auto _ : state) {
    KFA::KFAEnvConfig& record = records[at++ % records.size()];
    record.setHostname(std::string("app1.example.com"));
    record.setOnBoot(true);
    record.setSearchDomains(std::set<std::string>{"booking.example.com", "example.com"});
  }
}

void SetOurs(benchmark::State& state) {
  KFL::KFLMessageIterator it = KFL::KFLMessage().getIterator();
  Records records;
  for (std::int64_t i = 0; i < state.range(0); ++i) {
    it.addChild("virtual_config");
    records.emplace_back(&it, KFL::EnvConfigVirtual);
    it.leaveChild();
  }
  set(state, records);
}

void SetFloor(benchmark::State& state) {
  Records records(static_cast<std::size_t>(state.range(0)));
  set(state, records);
}

BENCHMARK(ReadOurs)->Apply(sizes);
BENCHMARK(ReadFloor)->Apply(sizes);
BENCHMARK(ReadGKeyFile)->Arg(kRealSize);
BENCHMARK(ReadAugeas)->Arg(kRealSize)->Iterations(20);
BENCHMARK(LoadOurs)->Arg(kRealSize);
BENCHMARK(LoadFloor)->Arg(kRealSize);
BENCHMARK(RecordOurs)->Arg(kRealSize);
BENCHMARK(RecordFloor)->Arg(kRealSize);
BENCHMARK(RewriteOurs)->Apply(sizes);
BENCHMARK(RewriteFloor)->Apply(sizes);
BENCHMARK(RewriteAugeas)->Arg(kRealSize)->Iterations(20);
BENCHMARK(MergeOurs)->Arg(kRealSize);
BENCHMARK(MergeFloor)->Arg(kRealSize);
BENCHMARK(SetOurs)->Arg(1)->Arg(10000);
BENCHMARK(SetFloor)->Arg(1)->Arg(10000);
BENCHMARK(DevicesOurs)->RangeMultiplier(10)->Range(10, 100000);

}  // namespace
