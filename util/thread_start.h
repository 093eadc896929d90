// SPDX-License-Identifier: Apache-2.0
//
// Starts a thread on a function and one pointer argument.
#pragma once

#include <pthread.h>

using CUTThread = pthread_t;
using CUT_THREADROUTINE = void* (*)(void*);

// Returns true and the handle in *thread, or false when the system gave no thread.
bool cutStartThread(CUT_THREADROUTINE function, void* argument, CUTThread* thread);

// Waits until the thread has returned.
void cutEndThread(CUTThread thread);
