// SPDX-License-Identifier: Apache-2.0
#include "util/thread_start.h"

bool cutStartThread(CUT_THREADROUTINE function, void* argument, CUTThread* thread) {
  return pthread_create(thread, nullptr, function, argument) == 0;
}

void cutEndThread(CUTThread thread) {
  pthread_join(thread, nullptr);
}
