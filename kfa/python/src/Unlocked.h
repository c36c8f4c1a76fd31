// SPDX-License-Identifier: Apache-2.0
// The time in which a thread is in the library without the interpreter's lock, and what becomes of it when the interpreter
// ends.
#ifndef KFAPYTHON_UNLOCKED_H
#define KFAPYTHON_UNLOCKED_H

#include <pybind11/pybind11.h>

namespace kfapy {

// While it lives, other threads run. A daemon thread must neither be in the library when the process takes that down, nor
// go on in an interpreter that has ended: both end the process by a signal. So the thread that ends the interpreter waits
// for those that are in the library, and they wait for the end of the process.
class Unlocked {
 public:
  Unlocked();
  Unlocked(const Unlocked&) = delete;
  Unlocked& operator=(const Unlocked&) = delete;
  ~Unlocked();

  // To be called once, when the module is imported.
  static void awaitAtExit();

 private:
  PyThreadState* state_;
};

}  // namespace kfapy

#endif
