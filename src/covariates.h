// SPDX-License-Identifier: Apache-2.0
//
// The covariate file of a regression.
#pragma once

// Reads the file into g_covCnt, g_covLines, g_covLabel, g_covValues and g_covMissing. False when the file
// cannot be used; the reason has been printed on standard output.
bool read_covariates(const char* path);

// Takes the rows with a missing value out of g_covValues, as the reader takes out their samples: row i then
// belongs to the i-th sample that is kept.
void drop_incomplete_covariates();
