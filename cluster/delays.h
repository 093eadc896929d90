// SPDX-License-Identifier: Apache-2.0
//
// Random pauses that tests ask for, to show that no result depends on when messages come.
#pragma once

// Waits up to TAVO_RANK_DELAYS milliseconds, a variable of the environment; not at all without it.
void random_delay();
