// SPDX-License-Identifier: Apache-2.0
//
// How a conversion ends that a signal has stopped.
#pragma once

#include "util/status.h"

inline Status stopped() {
  return Status::failure("stopped by a signal; nothing was written");
}
