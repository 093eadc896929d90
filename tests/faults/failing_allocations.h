// SPDX-License-Identifier: Apache-2.0
//
// Want of memory at one allocation: replaces `operator new` for the whole test program.
#pragma once

#include <functional>

namespace tavo_test {

// While it exists, allocation number `number` of this thread, from 0, throws std::bad_alloc, and those after
// it succeed.
class FailingAllocation {
 public:
  explicit FailingAllocation(int number);
  ~FailingAllocation();
  FailingAllocation(const FailingAllocation&) = delete;
  FailingAllocation& operator=(const FailingAllocation&) = delete;

  // Whether there were so many.
  bool has_failed() const;
};

// Calls `attempt` again and again, with its first allocation failing, its second, ..., until there are no
// more; std::bad_alloc may leave it. After each that had one fail comes `check`. Returns how many there were.
int with_each_allocation_failing(const std::function<void()>& attempt, const std::function<void()>& check);

}  // namespace tavo_test
