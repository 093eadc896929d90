// SPDX-License-Identifier: Apache-2.0
#include "tools/genotype_source.h"

void VariantTable::add(const Variant& variant) {
  starts_.push_back(text_.size());
  for (const std::string_view field : {variant.chromosome, variant.name, variant.centimorgan,
                                       variant.position, variant.counted_allele, variant.other_allele}) {
    text_.append(field);
    text_.push_back('\t');
  }
}

Variant VariantTable::at(int64_t index) const {
  std::string_view rest = std::string_view(text_).substr(starts_[static_cast<size_t>(index)]);
  Variant variant;
  for (std::string_view* field : {&variant.chromosome, &variant.name, &variant.centimorgan, &variant.position,
                                  &variant.counted_allele, &variant.other_allele}) {
    const size_t tab = rest.find('\t');
    *field = rest.substr(0, tab);
    rest.remove_prefix(tab + 1);
  }
  return variant;
}

void GenotypeSource::number_samples(int64_t count) {
  samples_.resize(static_cast<size_t>(count));
  for (size_t i = 0; i < samples_.size(); ++i) {
    samples_[i].fid = samples_[i].iid = std::to_string(i + 1);
  }
}
