// SPDX-License-Identifier: Apache-2.0
#include "tools/name_lists.h"

#include <unordered_set>

#include "tools/field_reader.h"
#include "tools/names.h"

Status read_sample_list(const std::string& path, const SampleIndex& index, size_t n_samples,
                        std::vector<uint8_t>* listed, int64_t* unknown) {
  listed->assign(n_samples, 0);
  *unknown = 0;
  FieldReader reader;
  Status status = reader.open(path);
  for (bool more = true; status.ok();) {
    status = reader.next(&more);
    if (!status.ok() || !more) {
      break;
    }
    const auto& fields = reader.fields();
    if (reader.line_number() == 1 && fields[0].starts_with('#')) {
      continue;
    }
    if (fields.size() > 1) {
      const size_t sample = index.find(fields[0], fields[1]);
      if (sample != SampleIndex::kNone) {
        (*listed)[sample] = 1;
      } else {
        ++*unknown;
      }
      continue;
    }
    const std::vector<size_t>* same = index.find_all(fields[0]);
    if (same == nullptr) {
      ++*unknown;
      continue;
    }
    for (const size_t sample : *same) {
      (*listed)[sample] = 1;
    }
  }
  return status;
}

Status read_variant_list(const std::string& path, const VariantTable& variants, std::vector<uint8_t>* listed,
                         int64_t* unknown) {
  std::unordered_set<std::string> names;
  FieldReader reader;
  Status status = reader.open(path);
  for (bool more = true; status.ok();) {
    status = reader.next(&more);
    if (!status.ok() || !more) {
      break;
    }
    for (size_t i = 0; i < reader.fields().size(); ++i) {
      if (const std::string fault = name_fault(reader.fields()[i]); !fault.empty()) {
        return Status::failure(reader.place(i) + ": " + fault);
      }
      names.emplace(reader.fields()[i]);
    }
  }
  if (!status.ok()) {
    return status;
  }
  listed->assign(static_cast<size_t>(variants.size()), 0);
  std::unordered_set<std::string_view> found;
  for (int64_t j = 0; j < variants.size(); ++j) {
    // The view into the table stays valid; the table does not change any more.
    const std::string_view name = variants.at(j).name;
    if (names.contains(std::string(name))) {
      (*listed)[static_cast<size_t>(j)] = 1;
      found.insert(name);
    }
  }
  *unknown = static_cast<int64_t>(names.size() - found.size());
  return {};
}
