// SPDX-License-Identifier: Apache-2.0
//
// Files that list samples or variants.
#pragma once

#include <string>
#include <vector>

#include "tools/sample_index.h"
#include "util/status.h"

// A sample per line: FID and IID, what follows is not looked at; or a single IID, which stands for all
// samples that have it. A first line that begins with # is a header. listed: [n_samples] 1 for those in the
// file. unknown: entries that are no sample.
Status read_sample_list(const std::string& path, const SampleIndex& index, size_t n_samples,
                        std::vector<uint8_t>* listed, int64_t* unknown);

// Variant names, separated by blanks, tabs or line ends. A name stands for all variants that have it.
Status read_variant_list(const std::string& path, const VariantTable& variants, std::vector<uint8_t>* listed,
                         int64_t* unknown);
