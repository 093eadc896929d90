// SPDX-License-Identifier: Apache-2.0
//
// How much of a large sweep a build runs.
#pragma once

namespace tavo_test {

// A sweep tries one in so many of its settings: all of them, but where a sanitizer makes code five to twenty
// times as slow.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif
constexpr int kSweepStep = kSanitized ? 3 : 1;

}  // namespace tavo_test
