// SPDX-License-Identifier: Apache-2.0
#include "tools/open_source.h"

#include "tools/bed_source.h"
#include "tools/table_source.h"
#include "tools/tavo_source.h"
#include "tools/vcf_source.h"

namespace {

// Makes the source, so that its warnings live, then opens it.
template <typename Source, typename... Arguments>
Status open_as(std::unique_ptr<GenotypeSource>* source, Arguments&&... arguments) {
  auto opened = std::make_unique<Source>();
  Source& format = *opened;
  *source = std::move(opened);
  return format.open(std::forward<Arguments>(arguments)...);
}

}  // namespace

Status open_source(const ConvertOptions& options, const std::string& scratch_folder, const StopFlag& stop,
                   std::unique_ptr<GenotypeSource>* source) {
  switch (options.format) {
    case InputFormat::kBed:
      return open_as<BedSource>(source, options.input);
    case InputFormat::kVcf:
      return open_as<VcfSource>(source, options.input, options.split, scratch_folder, stop);
    case InputFormat::kFile:
      break;
  }
  return is_genotype_file(options.input)
             ? open_as<TavoSource>(source, options.input, options.input_layout)
             : open_as<TableSource>(source, options.input, options.class_name, scratch_folder, stop);
}
