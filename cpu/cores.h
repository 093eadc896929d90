// SPDX-License-Identifier: Apache-2.0
//
// What the process may use of this machine's processor.
#pragma once

#include <cstddef>

// Cores that the process may run on, at least 1: its affinity mask, cut to the whole cores of its control
// group's quota (rounded up).
int usable_cores();

// Bytes of the second-level cache of one core, 0 when the system does not tell.
size_t second_level_cache();
