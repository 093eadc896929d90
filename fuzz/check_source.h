// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/genotype_source.h"

// What holds of every input that tavo-convert accepts: samples and variants that can be named, genotypes that
// can be read, nothing behind the last sample.
void check_source(GenotypeSource& source);
