// SPDX-License-Identifier: Apache-2.0
//
// A vector that begins where a cache line does, so that no vector register straddles two lines, and that
// takes huge pages where it fills some and the system has them: first touches are fewer, and so are misses of
// the translation of addresses where rows are read here and there.
#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <new>
#include <vector>

template <class T>
struct LineAllocator {
  using value_type = T;
  static constexpr size_t kLine = 64;
  static constexpr size_t kHugePage = size_t{2} << 20;

  LineAllocator() = default;
  template <class U>
  explicit LineAllocator(const LineAllocator<U>&) {}

  T* allocate(size_t n) {
    void* const memory = ::operator new(n * sizeof(T), alignment(n));
    if (const size_t huge_pages = n * sizeof(T) / kHugePage; huge_pages > 0) {
      madvise(memory, huge_pages * kHugePage, MADV_HUGEPAGE);  // a wish
    }
    return static_cast<T*>(memory);
  }
  void deallocate(T* p, size_t n) { ::operator delete(p, alignment(n)); }
  bool operator==(const LineAllocator&) const = default;

 private:
  static constexpr std::align_val_t alignment(size_t n) {
    return std::align_val_t{n * sizeof(T) < kHugePage ? kLine : kHugePage};
  }
};

template <class T>
using AlignedVector = std::vector<T, LineAllocator<T>>;
