// SPDX-License-Identifier: Apache-2.0
//
// What decides the result of a run: two runs of one identity have the same result.
#pragma once

#include "src/TFmMDR.h"
#include "src/checkpoint.h"

// Of the data as read, the options and the program. What is the same for every result is left out: workers,
// devices, paths, the progress line.
RunIdentity mdr_identity(const MdrReader& reader, const RunSettings& settings);

// The covariates are those of run_config.h, of the samples that the reader has.
RunIdentity regression_identity(const MdrReader& reader, const RunSettings& settings);
