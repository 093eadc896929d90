// SPDX-License-Identifier: Apache-2.0
//
// The backends that this program was built with, and the choice among them.
#pragma once

#include <string>
#include <vector>

#include "device/backend.h"

// In the order of preference. They live as long as the process.
std::vector<Backend*> backends();

// The backend of a --device value: "cpu" or "cuda" forces one, "auto" takes the first that has a device. Null
// when none fits or the forced one has no device.
Backend* choose_backend(const std::string& choice);
