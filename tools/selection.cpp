// SPDX-License-Identifier: Apache-2.0
#include "tools/selection.h"

#include <utility>

Variant Selection::variant(int64_t index) const {
  Variant variant = source->variants().at(variants[static_cast<size_t>(index)]);
  if (other_allele) {
    std::swap(variant.counted_allele, variant.other_allele);
  }
  return variant;
}
