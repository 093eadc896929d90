// SPDX-License-Identifier: Apache-2.0
//
// The odd corners of the program (docs/choosing.md): each gives a notice when a run enters it, before the
// work.
#pragma once

#include "src/FileIO.h"
#include "src/TFmMDR.h"
#include "src/folds.h"

// What the options of any run mean other than they say. The genotype file is open.
void give_option_notices(const RunSettings& settings, const MdrReader& reader);

// What to know of a cross-validated analysis (modes 0 and 1) before trusting its numbers. list: the samples
// of the run.
void give_cv_notices(const MdrReader& reader, const RunSettings& settings, const SampleList& list);

// The same for an exhaustive analysis (modes 2 and 3).
void give_exhaustive_notices(const MdrReader& reader, const RunSettings& settings);
