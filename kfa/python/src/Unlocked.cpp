// SPDX-License-Identifier: Apache-2.0
#include "Unlocked.h"

#include <cxxabi.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace kfapy {

namespace {

std::atomic<int> inside{0};
std::atomic<bool> isEnding{false};
std::thread::id endingThread;

[[noreturn]] void awaitEnd() {
  for (;;)
    ::pause();
}

bool isLate() {
  return isEnding && std::this_thread::get_id() != endingThread;
}

[[noreturn]] void leaveForEver() {
  --inside;
  awaitEnd();
}

// A call that waits for another process' lock is not waited for longer than a person would.
void awaitOthers() {
  using namespace std::chrono_literals;
  endingThread = std::this_thread::get_id();
  isEnding = true;
  PyThreadState* const state = PyEval_SaveThread();
  for (auto left = 5000ms; inside > 0 && left > 0ms; left -= 1ms)
    std::this_thread::sleep_for(1ms);
  PyEval_RestoreThread(state);
}

}  // namespace

Unlocked::Unlocked() : state_(PyEval_SaveThread()) {
  ++inside;
  if (isLate()) leaveForEver();
}

// Counted until it has the interpreter's lock again, so none waits for that when the interpreter ends.
Unlocked::~Unlocked() {
  if (isLate()) leaveForEver();
  try {
    PyEval_RestoreThread(state_);
  } catch (const abi::__forced_unwind&) {
    leaveForEver();
  }
  --inside;
}

void Unlocked::awaitAtExit() {
  namespace py = pybind11;
  // The threads that were inside do not exist in a child.
  pthread_atfork(nullptr, nullptr, [] { inside = 0; });
  py::module_::import("atexit").attr("register")(py::cpp_function(&awaitOthers));
}

}  // namespace kfapy
