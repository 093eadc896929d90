// SPDX-License-Identifier: Apache-2.0
//
// A vector that begins where a cache line does, so that no vector register straddles two lines.
#pragma once

#include <cstddef>
#include <new>
#include <vector>

template <class T>
struct LineAllocator {
  using value_type = T;
  static constexpr std::align_val_t kLine{64};

  LineAllocator() = default;
  template <class U>
  explicit LineAllocator(const LineAllocator<U>&) {}

  T* allocate(size_t n) { return static_cast<T*>(::operator new(n * sizeof(T), kLine)); }
  void deallocate(T* p, size_t) { ::operator delete(p, kLine); }
  bool operator==(const LineAllocator&) const = default;
};

template <class T>
using AlignedVector = std::vector<T, LineAllocator<T>>;
