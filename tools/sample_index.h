// SPDX-License-Identifier: Apache-2.0
//
// Finds samples by the identifiers of other files.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "tools/genotype_source.h"
#include "util/status.h"

class SampleIndex {
 public:
  static constexpr size_t kNone = static_cast<size_t>(-1);

  // The samples must outlive the index and not change. Two samples with the same FID and IID are refused.
  // path: the file that names them, for the message.
  Status build(const std::string& path, const GenotypeSource& source);

  // The sample, or kNone. Where FIDs mean nothing, 0 and the IID itself stand for any.
  size_t find(std::string_view fid, std::string_view iid) const;

  // All samples with the IID; null when there is none.
  const std::vector<size_t>* find_all(std::string_view iid) const;

 private:
  const std::vector<Sample>* samples_ = nullptr;
  bool has_family_ids_ = false;
  std::unordered_map<std::string_view, std::vector<size_t>> by_iid_;
};
