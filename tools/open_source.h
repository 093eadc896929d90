// SPDX-License-Identifier: Apache-2.0
//
// The list of input formats.
#pragma once

#include <memory>
#include <string>

#include "tools/genotype_source.h"
#include "tools/options.h"
#include "util/status.h"
#include "util/stop_signal.h"

// Opens the input that the options name; a file of --in is recognised by its content. scratch_folder: where a
// format that is read in one go puts its temporary file. What the source has to say is in *source also after
// a failure.
Status open_source(const ConvertOptions& options, const std::string& scratch_folder, const StopFlag& stop,
                   std::unique_ptr<GenotypeSource>* source);
