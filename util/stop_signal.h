// SPDX-License-Identifier: Apache-2.0
//
// How a signal ends a program early: the handler does nothing but note the signal, work looks at the note
// wherever it can stop, and what is not complete is taken away on the way out.
#pragma once

#include <atomic>

#include "util/status.h"

// The number of the signal that asks to stop; 0 while there is none.
using StopFlag = std::atomic<int>;

// The flag of this process.
const StopFlag& stop_signal();

// From now on SIGINT, SIGTERM and SIGHUP set the flag; a second one, half a second later or more, ends the
// process at once. What the parent had ignored (nohup) stays ignored. Blocking calls are interrupted, so that
// a pipe that nobody writes to holds nothing up. (A signal that comes between a look at the flag and such a
// call does not interrupt it: that takes the second one.)
void catch_stop_signals();

// From now on a pipe that nobody reads any more makes writes fail and does not end the process; nor does a
// file beyond the size that the user may write.
void ignore_write_signals();

// The failure that work ends with when the flag is set.
Status stopped(const StopFlag& stop);

// The exit status of a process that the signal ended.
int stopped_status(const StopFlag& stop);
