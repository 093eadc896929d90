// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/failing_allocations.h"

#include <cstdlib>
#include <new>

namespace {

// Of this thread: allocations until the one that fails; below 0 none does.
thread_local int g_until_failure = -1;

void* allocate(size_t size, size_t alignment) {
  if (g_until_failure >= 0 && g_until_failure-- == 0) {
    throw std::bad_alloc();
  }
  void* memory = std::aligned_alloc(alignment, (size + alignment) / alignment * alignment);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}

}  // namespace

// Every form that the code uses: where a sanitizer brings its own, those do not call each other.
void* operator new(size_t size) {
  return allocate(size, __STDCPP_DEFAULT_NEW_ALIGNMENT__);
}
void* operator new[](size_t size) {
  return allocate(size, __STDCPP_DEFAULT_NEW_ALIGNMENT__);
}
void* operator new(size_t size, std::align_val_t alignment) {
  return allocate(size, static_cast<size_t>(alignment));
}
void* operator new[](size_t size, std::align_val_t alignment) {
  return allocate(size, static_cast<size_t>(alignment));
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete[](void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, size_t) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, size_t) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, std::align_val_t) noexcept {
  std::free(memory);
}
void operator delete(void* memory, size_t, std::align_val_t) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, size_t, std::align_val_t) noexcept {
  std::free(memory);
}

namespace tavo_test {

FailingAllocation::FailingAllocation(int number) {
  g_until_failure = number;
}

FailingAllocation::~FailingAllocation() {
  g_until_failure = -1;
}

bool FailingAllocation::has_failed() const {
  return g_until_failure < 0;
}

int with_each_allocation_failing(const std::function<void()>& attempt, const std::function<void()>& check) {
  for (int number = 0;; ++number) {
    bool has_failed = false;
    {
      const FailingAllocation failing(number);
      try {
        attempt();
      } catch (const std::bad_alloc&) {
        // What `check` looks at is what that has left.
      }
      has_failed = failing.has_failed();
    }
    if (!has_failed) {
      return number;
    }
    check();
  }
}

}  // namespace tavo_test
