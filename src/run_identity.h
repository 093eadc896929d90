// SPDX-License-Identifier: Apache-2.0
//
// What decides the result of a cross-validated search: two runs of one identity have the same result.
#pragma once

#include "src/TFmMDR.h"
#include "src/checkpoint.h"

// Of the data as read, the options and the program. What is the same for every result is left out: workers,
// devices, paths, the progress line.
RunIdentity run_identity(const MdrReader& reader, const RunSettings& settings);
