// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace tavo_test {

// Threads that a launch has beyond its items, as in its last block.
inline constexpr uint32_t kSurplusThreads = 5;

}  // namespace tavo_test
