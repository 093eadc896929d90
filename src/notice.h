// SPDX-License-Identifier: Apache-2.0
//
// One-line notices on standard error, each beginning with "tavo: ".
#pragma once

#include "util/status.h"

// printf-style; adds the line feed. From any thread: lines stay whole.
[[gnu::format(printf, 1, 2)]] void notice(const char* format, ...);
// What a failure says.
void notice(const Status& failure);
