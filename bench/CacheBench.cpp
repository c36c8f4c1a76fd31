// SPDX-License-Identifier: Apache-2.0
// The cache file beside LMDB, which also lets processes share a sorted store through one mapped file: 10,000 items with
// keys of 255 characters and values of 1 KB.
//
// Targets: finding in a held snapshot and copying out <= 0.8 of an LMDB get in an open read transaction, and <= 1.3 of
// std::lower_bound over an array of the same records in the process; finding with a snapshot of its own <= 0.8 of a renewed
// read transaction and get, in 1, 2 and 4 processes too; opening and the first get <= 1.5 of LMDB's; the proof linear in
// blocks and keys; replacing one item <= 1.0 of LMDB's transaction, and 10,000 puts into a new file as one batch <= 1.0 of
// its one transaction, both without and with sync; 10,000 inserted among 100,000 <= 1.2.
#include <benchmark/benchmark.h>
#include <lmdb.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <numeric>
#include <random>
#include <span>
#include <string>
#include <vector>

#include <boost/intrusive_ptr.hpp>

#include <KFLCommon/KFLError.h>
#include <KFLCore/KFLCacheFile.h>
#include <KFLCore/KFLCacheProof.h>
#include <KFLCore/KFLCacheSnapshot.h>

namespace {

constexpr std::size_t kItems = 10000;
constexpr std::size_t kValueSize = 1024;
constexpr std::size_t kLookups = 1U << 14;

void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "%s: %s\n", what, KFL::getErrorMessage().c_str());
  std::abort();
}

// --- what is stored

// Keys as templates have them: the same beginnings, different in the middle, long.
std::string keyOf(std::size_t index) {
  const std::uint64_t scrambled = (index * 0x9E3779B97F4A7C15U) >> 24;
  std::string key = "template-" + std::to_string(scrambled) + ".os.x86_64.linux.";
  key.resize(KFL::kCacheKeySize - 1, '1');
  return key;
}

std::string valueOf(std::size_t index) {
  std::string value = "<template_object>" + std::to_string(index);
  value.resize(kValueSize, 'v');
  return value;
}

struct Item {
  std::string key;
  std::string value;
};

const std::vector<Item>& items(std::size_t count) {
  static std::map<std::size_t, std::vector<Item>> all;
  std::vector<Item>& made = all[count];
  for (std::size_t i = made.size(); i < count; ++i)
    made.push_back({keyOf(i), valueOf(i)});
  return made;
}

// Indexes in an order that no cache line foresees.
const std::vector<std::uint32_t>& lookups() {
  static const std::vector<std::uint32_t> order = [] {
    std::vector<std::uint32_t> made(kLookups);
    std::mt19937 random(7);
    for (std::uint32_t& index : made)
      index = static_cast<std::uint32_t>(random() % kItems);
    return made;
  }();
  return order;
}

// A folder that goes away with the program, on the disk that the working folder is on.
class Folder {
 public:
  Folder() : owner_(::getpid()) {
    char name[] = "cache-bench-XXXXXX";
    require(::mkdtemp(name) != nullptr, "a folder for the files");
    path_ = std::filesystem::absolute(name);
  }
  ~Folder() {
    std::error_code ignored;
    if (::getpid() == owner_) std::filesystem::remove_all(path_, ignored);
  }
  std::string path(const std::string& name) const { return path_ / name; }
  std::string fresh(const std::string& name) const {
    std::filesystem::remove_all(path_ / name);
    return path_ / name;
  }

 private:
  pid_t owner_;
  std::filesystem::path path_;
};

const Folder& folder() {
  static const Folder made;
  return made;
}

// --- ours

using Cache = boost::intrusive_ptr<KFL::KFLCacheFile>;

Cache openOurs(const std::string& path) {
  Cache cache(new KFL::KFLCacheFile(path));
  require(cache->initialize(true, false) == 0, "opening the cache");
  return cache;
}

KFL::KFLCacheChanges changesOf(const std::vector<Item>& all) {
  KFL::KFLCacheChanges changes;
  for (const Item& item : all)
    changes.put(item.key, item.value);
  return changes;
}

const std::string& fullOurs(std::size_t count) {
  static std::map<std::size_t, std::string> paths;
  std::string& path = paths[count];
  if (path.empty()) {
    path = folder().path("ours-" + std::to_string(count));
    const Cache cache = openOurs(path);
    require(cache->apply(changesOf(items(count))) == 0, "filling the cache");
  }
  return path;
}

// --- LMDB

void requireLmdb(int result, const char* what) {
  if (result == 0) return;
  std::fprintf(stderr, "lmdb: %s: %s\n", what, mdb_strerror(result));
  std::abort();
}

class Lmdb {
 public:
  Lmdb(const std::string& path, unsigned flags) {
    requireLmdb(mdb_env_create(&env_), "create");
    requireLmdb(mdb_env_set_mapsize(env_, std::size_t{1} << 30), "map size");
    requireLmdb(mdb_env_open(env_, path.c_str(), MDB_NOSUBDIR | flags, 0660), "open");
    MDB_txn* const txn = begin(MDB_RDONLY);
    const int found = mdb_dbi_open(txn, nullptr, 0, &dbi_);
    requireLmdb(found, "database");
    mdb_txn_commit(txn);
  }
  ~Lmdb() { mdb_env_close(env_); }
  Lmdb(const Lmdb&) = delete;
  Lmdb& operator=(const Lmdb&) = delete;

  MDB_txn* begin(unsigned flags) const {
    MDB_txn* txn = nullptr;
    requireLmdb(mdb_txn_begin(env_, nullptr, flags, &txn), "begin");
    return txn;
  }
  MDB_dbi dbi() const { return dbi_; }

  void put(std::span<const Item> all) const {
    MDB_txn* const txn = begin(0);
    for (const Item& item : all) {
      MDB_val key = valueFrom(item.key);
      MDB_val value = valueFrom(item.value);
      requireLmdb(mdb_put(txn, dbi_, &key, &value, 0), "put");
    }
    requireLmdb(mdb_txn_commit(txn), "commit");
  }

  static MDB_val valueFrom(const std::string& text) { return {text.size(), const_cast<char*>(text.data())}; }

 private:
  MDB_env* env_ = nullptr;
  MDB_dbi dbi_ = 0;
};

const std::string& fullLmdb(std::size_t count) {
  static std::map<std::size_t, std::string> paths;
  std::string& path = paths[count];
  if (path.empty()) {
    path = folder().path("lmdb-" + std::to_string(count));
    Lmdb(path, MDB_NOSYNC).put(items(count));
  }
  return path;
}

// --- finding

// Calls find(key, buffer) for one key after the other, which copies the value out and says how long it is.
template <class Find>
void findOneByOne(benchmark::State& state, const Find& find) {
  const std::vector<Item>& all = items(kItems);
  const std::vector<std::uint32_t>& order = lookups();
  char buffer[kValueSize];
  std::size_t at = 0;
  for (auto _ : state) {
    const Item& item = all[order[at++ % kLookups]];
    if (find(item.key, buffer) != kValueSize) return state.SkipWithError("not found");
    benchmark::DoNotOptimize(buffer);
  }
  if (std::memcmp(buffer, all[order[(at - 1) % kLookups]].value.data(), kValueSize) != 0)
    state.SkipWithError("another value");
}

struct OursReader {
  Cache cache = openOurs(fullOurs(kItems));
  KFL::KFLCacheSnapshot snapshot;

  OursReader() { require(cache->hold(snapshot) == 0, "holding"); }
  std::size_t operator()(const std::string& key, char* buffer) const {
    const std::uint32_t index = snapshot.find(key);
    if (index == KFL::KFLCacheSnapshot::kNone) return 0;
    const std::string_view text = snapshot.getText(index);
    std::memcpy(buffer, text.data(), std::min(text.size(), kValueSize));
    return text.size();
  }
};

struct LmdbReader {
  Lmdb lmdb{fullLmdb(kItems), MDB_RDONLY};
  MDB_txn* txn = lmdb.begin(MDB_RDONLY);

  LmdbReader() = default;
  LmdbReader(const LmdbReader&) = delete;
  ~LmdbReader() { mdb_txn_abort(txn); }
  std::size_t operator()(const std::string& key, char* buffer) const {
    MDB_val name = Lmdb::valueFrom(key);
    MDB_val value{};
    if (mdb_get(txn, lmdb.dbi(), &name, &value) != 0) return 0;
    std::memcpy(buffer, value.mv_data, std::min(value.mv_size, kValueSize));
    return value.mv_size;
  }
};

// Each look-up with a snapshot, or a transaction, of its own.
struct OursFreshReader {
  Cache cache = openOurs(fullOurs(kItems));

  std::size_t operator()(const std::string& key, char* buffer) const {
    KFL::KFLCacheSnapshot snapshot;
    if (cache->hold(snapshot) != 0) return 0;
    const std::uint32_t index = snapshot.find(key);
    if (index == KFL::KFLCacheSnapshot::kNone) return 0;
    const std::string_view text = snapshot.getText(index);
    std::memcpy(buffer, text.data(), std::min(text.size(), kValueSize));
    return text.size();
  }
};

struct LmdbFreshReader : LmdbReader {
  LmdbFreshReader() { mdb_txn_reset(txn); }
  std::size_t operator()(const std::string& key, char* buffer) const {
    if (mdb_txn_renew(txn) != 0) return 0;
    const std::size_t size = LmdbReader::operator()(key, buffer);
    mdb_txn_reset(txn);
    return size;
  }
};

struct ArrayReader {
  struct Record {
    char key[KFL::kCacheKeySize];
    const std::string* value;
  };
  std::vector<Record> records;

  ArrayReader() {
    for (const Item& item : items(kItems)) {
      records.push_back({{}, &item.value});
      item.key.copy(records.back().key, KFL::kCacheKeySize - 1);
    }
    std::sort(records.begin(), records.end(),
              [](const Record& a, const Record& b) { return std::strcmp(a.key, b.key) < 0; });
  }
  std::size_t operator()(const std::string& key, char* buffer) const {
    const auto found = std::lower_bound(
        records.begin(), records.end(), key.c_str(),
        [](const Record& record, const char* wanted) { return std::strcmp(record.key, wanted) < 0; });
    if (found == records.end() || key != found->key) return 0;
    std::memcpy(buffer, found->value->data(), std::min(found->value->size(), kValueSize));
    return found->value->size();
  }
};

template <class Reader>
void find(benchmark::State& state) {
  const Reader reader;
  findOneByOne(state, reader);
}
BENCHMARK_TEMPLATE(find, OursReader)->Name("FindOurs")->Arg(kItems);
BENCHMARK_TEMPLATE(find, LmdbReader)->Name("FindLmdb")->Arg(kItems);
BENCHMARK_TEMPLATE(find, ArrayReader)->Name("FindLowerBound")->Arg(kItems);
BENCHMARK_TEMPLATE(find, OursFreshReader)->Name("FindFreshOurs")->Arg(kItems);
BENCHMARK_TEMPLATE(find, LmdbFreshReader)->Name("FindFreshLmdb")->Arg(kItems);

// --- readers in several processes

constexpr std::size_t kReads = 200000;

// Waits for the byte that starts all of them, and finds many keys with a reader of its own.
template <class Reader>
[[noreturn]] void runReader(int ready, int start) {
  const Reader reader;
  char buffer[kValueSize];
  char byte = 0;
  bool isFine = ::write(ready, &byte, 1) == 1 && ::read(start, &byte, 1) == 1;
  for (std::size_t i = 0; i < kReads && isFine; ++i)
    isFine = reader(items(kItems)[lookups()[i % kLookups]].key, buffer) == kValueSize;
  ::_exit(isFine ? 0 : 1);
}

template <class Reader>
void readers(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  { const Reader makesTheFile; }
  lookups();
  for (auto _ : state) {
    int ready[2], start[2];
    require(::pipe(ready) == 0 && ::pipe(start) == 0, "pipes");
    for (std::size_t i = 0; i < count; ++i)
      if (::fork() == 0) runReader<Reader>(ready[1], start[0]);
    std::string bytes(count, ' ');
    for (std::size_t i = 0; i < count; ++i)
      require(::read(ready[0], bytes.data(), 1) == 1, "a reader");
    const auto begin = std::chrono::steady_clock::now();
    require(::write(start[1], bytes.data(), count) == static_cast<ssize_t>(count), "the start");
    for (std::size_t i = 0; i < count; ++i) {
      int status = 0;
      ::wait(&status);
      if (status != 0) state.SkipWithError("a reader failed");
    }
    state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
    for (const int end : {ready[0], ready[1], start[0], start[1]})
      ::close(end);
  }
}
BENCHMARK_TEMPLATE(readers, OursReader)->Name("ReadersOurs")->Arg(1)->Arg(2)->Arg(4)->UseManualTime();
BENCHMARK_TEMPLATE(readers, LmdbReader)->Name("ReadersLmdb")->Arg(1)->Arg(2)->Arg(4)->UseManualTime();

BENCHMARK_TEMPLATE(readers, OursFreshReader)
    ->Name("ReadersFreshOurs")
    ->Arg(1)
    ->Arg(2)
    ->Arg(4)
    ->UseManualTime();
BENCHMARK_TEMPLATE(readers, LmdbFreshReader)
    ->Name("ReadersFreshLmdb")
    ->Arg(1)
    ->Arg(2)
    ->Arg(4)
    ->UseManualTime();

// --- opening

// Opening a file that is warm, and the first item of it.
template <class Reader>
void openAndGet(benchmark::State& state) {
  const Item& item = items(kItems)[kItems / 2];
  char buffer[kValueSize];
  { const Reader makesTheFile; }
  for (auto _ : state) {
    const Reader reader;
    if (reader(item.key, buffer) != kValueSize) state.SkipWithError("not found");
  }
}
BENCHMARK_TEMPLATE(openAndGet, OursFreshReader)->Name("OpenOurs")->Arg(kItems);
BENCHMARK_TEMPLATE(openAndGet, LmdbReader)->Name("OpenLmdb")->Arg(kItems);

// --- the proof alone

void prove(benchmark::State& state) {
  std::FILE* const file = std::fopen(fullOurs(static_cast<std::size_t>(state.range(0))).c_str(), "rb");
  require(file != nullptr, "the file");
  std::fseek(file, 0, SEEK_END);
  std::vector<std::byte> bytes(static_cast<std::size_t>(std::ftell(file)));
  std::rewind(file);
  require(std::fread(bytes.data(), 1, bytes.size(), file) == bytes.size(), "reading the file");
  std::fclose(file);
  KFL::KFLCacheProof proof;
  for (auto _ : state)
    if (proof.check(bytes) != 0) return state.SkipWithError(proof.faults().front().text.c_str());
}
BENCHMARK(prove)->Name("ProofOurs")->Arg(1000)->Arg(10000)->Arg(100000);

// --- puts

// The time of each step, with what prepares it left out.
template <class Prepare, class Step>
void timeSteps(benchmark::State& state, Prepare prepare, Step step) {
  for (auto _ : state) {
    auto prepared = prepare();
    const auto begin = std::chrono::steady_clock::now();
    step(prepared);
    state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
  }
}

template <bool isSynced>
void batchOurs(benchmark::State& state) {
  const KFL::KFLCacheChanges changes = changesOf(items(static_cast<std::size_t>(state.range(0))));
  timeSteps(
      state, [] { return openOurs(folder().fresh("ours-batch")); },
      [&](const Cache& cache) {
        require(cache->apply(changes) == 0 && (!isSynced || cache->sync() == 0), "the batch");
      });
}
BENCHMARK_TEMPLATE(batchOurs, false)->Name("BatchOurs")->Arg(kItems)->UseManualTime();
BENCHMARK_TEMPLATE(batchOurs, true)->Name("SyncedBatchOurs")->Arg(kItems)->UseManualTime();

template <unsigned flags>
void batchLmdb(benchmark::State& state) {
  const std::vector<Item>& all = items(static_cast<std::size_t>(state.range(0)));
  timeSteps(
      state, [] { return std::make_unique<Lmdb>(folder().fresh("lmdb-batch"), flags); },
      [&](const std::unique_ptr<Lmdb>& lmdb) { lmdb->put(all); });
}
BENCHMARK_TEMPLATE(batchLmdb, MDB_NOSYNC)->Name("BatchLmdb")->Arg(kItems)->UseManualTime();
BENCHMARK_TEMPLATE(batchLmdb, 0)->Name("SyncedBatchLmdb")->Arg(kItems)->UseManualTime();

// One batch of new items among many, through a cache that has changed the file before.
constexpr std::size_t kMany = 100000;

std::span<const Item> newItems() {
  return std::span(items(kMany + kItems)).subspan(kMany);
}

std::string copyOf(const std::string& path) {
  const std::string copy = folder().fresh("copy");
  std::filesystem::copy_file(path, copy);
  return copy;
}

void insertOurs(benchmark::State& state) {
  const std::span<const Item> added = newItems();
  const KFL::KFLCacheChanges changes = changesOf({added.begin(), added.end()});
  const KFL::KFLCacheChanges one = changesOf({items(kMany)[0]});
  timeSteps(
      state,
      [&] {
        Cache cache = openOurs(copyOf(fullOurs(kMany)));
        require(cache->apply(one) == 0, "a put");
        return cache;
      },
      [&](const Cache& cache) { require(cache->apply(changes) == 0, "the batch"); });
}
BENCHMARK(insertOurs)->Name("InsertOurs")->Iterations(3)->UseManualTime();

void insertLmdb(benchmark::State& state) {
  timeSteps(
      state, [] { return std::make_unique<Lmdb>(copyOf(fullLmdb(kMany)), MDB_NOSYNC); },
      [](const std::unique_ptr<Lmdb>& lmdb) { lmdb->put(newItems()); });
}
BENCHMARK(insertLmdb)->Name("InsertLmdb")->Iterations(3)->UseManualTime();

// One batch into a heap of which every other small block is free: how long the lock is held.
void fragmentedOurs(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  const KFL::KFLCacheChanges batch = changesOf({newItems().begin(), newItems().end()});
  timeSteps(
      state,
      [&] {
        Cache cache = openOurs(folder().fresh("ours-fragmented"));
        KFL::KFLCacheChanges all, half;
        for (std::size_t i = 0; i < count; ++i) {
          all.put(keyOf(kMany + kItems + i), std::string(200, 'v'));
          if (i % 2 == 0) half.remove(keyOf(kMany + kItems + i));
        }
        require(cache->apply(all) == 0 && cache->apply(half) == 0, "half of the items");
        return cache;
      },
      [&](const Cache& cache) { require(cache->apply(batch) == 0, "the batch"); });
}
BENCHMARK(fragmentedOurs)->Name("FragmentedOurs")->Arg(40000)->Arg(400000)->Iterations(1)->UseManualTime();

// Puts one item after the other, each in a change of its own, into a file that has them all already.
template <bool isSynced>
void putOurs(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  const std::vector<Item>& all = items(count);
  const Cache cache = openOurs(fullOurs(count));
  std::size_t at = 0;
  for (auto _ : state) {
    const Item& item = all[at++ * 7919 % count];
    KFL::KFLCacheChanges changes;
    changes.put(item.key, item.value);
    require(cache->apply(changes) == 0 && (!isSynced || cache->sync() == 0), "a put");
  }
}
BENCHMARK_TEMPLATE(putOurs, false)->Name("PutOurs")->Arg(10000)->Arg(100000);
BENCHMARK_TEMPLATE(putOurs, true)->Name("SyncedPutOurs")->Arg(10000)->Arg(100000)->UseRealTime();

template <unsigned flags>
void putLmdb(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  const std::vector<Item>& all = items(count);
  const Lmdb lmdb(fullLmdb(count), flags);
  std::size_t at = 0;
  for (auto _ : state)
    lmdb.put(std::span(&all[at++ * 7919 % count], 1));
}
BENCHMARK_TEMPLATE(putLmdb, MDB_NOSYNC)->Name("PutLmdb")->Arg(10000)->Arg(100000);
BENCHMARK_TEMPLATE(putLmdb, 0)->Name("SyncedPutLmdb")->Arg(10000)->Arg(100000)->UseRealTime();

}  // namespace
