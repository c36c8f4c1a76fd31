// SPDX-License-Identifier: Apache-2.0
// Work that waits, shared among threads for as long as one call lasts. For programs: the libraries start no threads of
// their own and take such a function as an argument.
#ifndef KFLCOMMON_KFLTHREADS_H
#define KFLCOMMON_KFLTHREADS_H

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <exception>
#include <functional>
#include <thread>
#include <vector>

namespace KFL {

// Calls work(0) to work(count - 1), each once, from the calling thread and at most `most` - 1 others, and returns when
// all are done. Where the system refuses a thread, those that there are do its share. The first exception that leaves a
// work is thrown on when the rest is done.
inline void runInThreads(std::size_t count, std::size_t most, const std::function<void(std::size_t)>& work) {
  std::atomic<std::size_t> next = 0;
  std::atomic<bool> hasFailed = false;
  std::exception_ptr failure;
  const auto serve = [&] {
    for (std::size_t i = next++; i < count; i = next++) {
      try {
        work(i);
      } catch (...) {
        if (!hasFailed.exchange(true)) failure = std::current_exception();
      }
    }
  };
  {
    std::vector<std::jthread> others;
    others.reserve(std::min(count, most));
    try {
      while (others.size() + 1 < std::min(count, most))
        others.emplace_back(serve);
    } catch (const std::exception&) {
      // Too many threads, or too little memory for one.
    }
    serve();
  }
  if (failure) std::rethrow_exception(failure);
}

}  // namespace KFL

#endif
