// SPDX-License-Identifier: Apache-2.0
//
// What a page shows of a regression: the best rows, and plots of the p-values of all.
#pragma once

#include "report/json_writer.h"
#include "report/regression_table.h"
#include "report/tsv_file.h"
#include "report/variant_map.h"

// Reads the rest of the table and writes the members of the object that is open. map: or null; *n_unplaced
// becomes the number of SNPs that it does not have.
Status write_regression_page(const RegressionTable& format, TsvFile& table, LineReader& reader,
                             const VariantMap* map, JsonWriter* json, size_t* n_unplaced);
