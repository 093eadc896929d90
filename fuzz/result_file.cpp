// SPDX-License-Identifier: Apache-2.0
//
// The result files that tavo-report reads: reports of cross-validated runs and tidy tables. Whatever is
// accepted becomes JSON. The first byte chooses between all of it and what a page shows.
#include "report/result_file.h"

#include "fuzz/fuzz_input.h"
#include "fuzz/json_check.h"
#include "fuzz/memory_file.h"
#include "report/mdr_json.h"
#include "report/regression_table.h"

namespace {

constexpr MdrJsonLimits kFew = {2, 1};

Status write(ResultFile& file, const MdrJsonLimits& limits, JsonWriter* json) {
  json->begin_object();
  Status status;
  if (file.kind() == ResultKind::kRegressionTable) {
    RegressionTable format;
    status = format.begin(file.table());
    if (status.ok()) {
      status = write_regression_rows(format, file.table(), file.reader(), json);
    }
  } else {
    MdrResults results;
    status = file.read_mdr(&results);
    if (status.ok()) {
      write_mdr_members(results, limits, json);
    }
  }
  json->end_object();
  return status;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const MemoryFile bytes;
  FuzzInput input(data, size);
  const MdrJsonLimits limits = input.byte() % 2 == 0 ? MdrJsonLimits() : kFew;
  bytes.set(input.rest());
  ResultFile file;
  if (!file.open(bytes.path()).ok()) {
    return 0;
  }
  std::string text;
  Status status;
  {
    JsonWriter json([&text](std::string_view piece) { text += piece; });
    status = write(file, limits, &json);
  }
  require(!status.ok() || is_json(text), "results become JSON");
  return 0;
}
