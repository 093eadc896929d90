// SPDX-License-Identifier: Apache-2.0
//
// What a page shows of a regression. The first byte says whether there is a map of the variants; the parts of
// an input are the map and the table.
#include "report/regression_page.h"

#include "fuzz/fuzz_input.h"
#include "fuzz/json_check.h"
#include "fuzz/memory_file.h"
#include "report/result_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const MemoryFile map_file;
  static const MemoryFile table_file;
  FuzzInput input(data, size);
  const bool with_map = input.byte() % 2 != 0;
  map_file.set(input.part());
  table_file.set(input.rest());
  VariantMap map;
  if (with_map && !map.open(map_file.path()).ok()) {
    return 0;
  }
  ResultFile file;
  RegressionTable format;
  if (!file.open(table_file.path()).ok() || file.kind() != ResultKind::kRegressionTable ||
      !format.begin(file.table()).ok()) {
    return 0;
  }
  std::string text;
  Status status;
  {
    JsonWriter json([&text](std::string_view piece) { text += piece; });
    json.begin_object();
    size_t n_unplaced = 0;
    status = write_regression_page(format, file.table(), file.reader(), with_map ? &map : nullptr, &json,
                                   &n_unplaced);
    json.end_object();
  }
  require(!status.ok() || is_json(text), "results become JSON");
  return 0;
}
