// SPDX-License-Identifier: Apache-2.0
//
// Stopwatches: numbered timers that accumulate the time between start and stop, in milliseconds as float.
#pragma once

// Each call returns 1 when it worked and 0 when the timer number is not known. Safe to call from several
// threads as long as each timer belongs to one of them.
int cutCreateTimer(unsigned* timer);
int cutDeleteTimer(unsigned timer);
int cutResetTimer(unsigned timer);
int cutStartTimer(unsigned timer);
int cutStopTimer(unsigned timer);

// Milliseconds accumulated so far, the running stretch included; 0 for an unknown timer.
float cutGetTimerValue(unsigned timer);
