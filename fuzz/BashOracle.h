// SPDX-License-Identifier: Apache-2.0
// Asks the bash of the machine about lines; one bash answers many thousands.
#ifndef KFA_FUZZ_BASHORACLE_H
#define KFA_FUZZ_BASHORACLE_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

#include "BashVerdict.h"

namespace kfl_fuzz {

class BashOracle {
 public:
  BashOracle() = default;
  ~BashOracle() { stop(); }
  BashOracle(const BashOracle&) = delete;
  BashOracle& operator=(const BashOracle&) = delete;

  // A verdict for each line, none of which holds a NUL or a newline. Empty when bash died of them.
  std::vector<Verdict> ask(const std::vector<std::string>& lines);

  // The next question starts a bash that has seen no other.
  void stop();

 private:
  void start();
  bool exchange(std::string_view question, std::string& answer) const;

  pid_t bash_ = -1;
  int requests_ = -1;
  int answers_ = -1;
  std::size_t asked_ = 0;
};

}  // namespace kfl_fuzz

#endif
