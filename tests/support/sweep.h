// SPDX-License-Identifier: Apache-2.0
//
// How much of a large sweep a build runs.
#pragma once

namespace tavo_test {

// A sweep tries one in so many of its settings: all of them, but where a sanitizer makes code five to twenty
// times as slow.
#if defined(__SANITIZE_THREAD__)
constexpr int kSweepStep = 6;
#elif defined(__SANITIZE_ADDRESS__)
constexpr int kSweepStep = 3;
#else
constexpr int kSweepStep = 1;
#endif
constexpr bool kSanitized = kSweepStep > 1;

}  // namespace tavo_test
