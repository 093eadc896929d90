// SPDX-License-Identifier: Apache-2.0
#include "tools/sample_index.h"

#include "util/in_quotes.h"

Status SampleIndex::build(const std::string& path, const GenotypeSource& source) {
  samples_ = &source.samples();
  has_family_ids_ = source.has_family_ids();
  for (size_t i = 0; i < samples_->size(); ++i) {
    const Sample& sample = (*samples_)[i];
    std::vector<size_t>& same = by_iid_[sample.iid];
    for (const size_t other : same) {
      if ((*samples_)[other].fid == sample.fid) {
        return Status::failure(path + ": samples " + std::to_string(other + 1) + " and " +
                               std::to_string(i + 1) + " have the same identifiers " + in_quotes(sample.fid) +
                               " " + in_quotes(sample.iid));
      }
    }
    same.push_back(i);
  }
  return {};
}

size_t SampleIndex::find(std::string_view fid, std::string_view iid) const {
  const std::vector<size_t>* same = find_all(iid);
  if (same == nullptr) {
    return kNone;
  }
  if (!has_family_ids_) {
    return fid == "0" || fid == iid ? same->front() : kNone;
  }
  for (const size_t i : *same) {
    if ((*samples_)[i].fid == fid) {
      return i;
    }
  }
  return kNone;
}

const std::vector<size_t>* SampleIndex::find_all(std::string_view iid) const {
  const auto entry = by_iid_.find(iid);
  return entry == by_iid_.end() ? nullptr : &entry->second;
}
