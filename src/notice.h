// SPDX-License-Identifier: Apache-2.0
//
// One-line notices on standard error, each beginning with "tavo: ".
#pragma once

// printf-style; adds the line feed. Main thread only.
[[gnu::format(printf, 1, 2)]] void notice(const char* format, ...);
