// SPDX-License-Identifier: Apache-2.0
//
// Small data made from the bytes: every search path and every instruction set of this processor must give the
// lists that the record path gives, on bits.
#include <algorithm>
#include <memory>
#include <vector>

#include "cpu/range_search.h"
#include "cpu/record_path.h"
#include "cpu/simd.h"
#include "fuzz/fuzz_input.h"
#include "fuzz/search_problem.h"
#include "lib/comb_rank.h"
#include "lib/float_math.h"

namespace {

using Lists = std::vector<std::vector<RankedValue>>;  // of each fold, best first

Lists sorted(const std::vector<CandidateList>& lists) {
  Lists result;
  for (const CandidateList& list : lists) {
    result.push_back(list.sorted());
  }
  return result;
}

Lists lists_of_records(const SearchProblem& scene) {
  const Problem& problem = scene.problem();
  const WorkerSetupCommand& setup = scene.setup();
  const uint64_t total = comb_count(problem.n_snps, setup.rules.order).value();
  std::vector<CandidateList> lists;
  for (const FoldView& fold : setup.folds) {
    CandidateList& list = lists.emplace_back(static_cast<size_t>(setup.list_size));
    RecordPath records(problem, setup.rules, fold);
    for (uint64_t rank = 0; rank < total; ++rank) {
      int comb[kLargestOrder];
      float record[kRecordSize];
      comb_unrank(problem.n_snps, setup.rules.order, rank, comb);
      records.evaluate(comb, record);
      const float value = record[setup.rules.measure];
      if (value > 0.0f) {
        list.offer(rank, value);
      }
    }
  }
  return sorted(lists);
}

void expect_lists(const SearchProblem& scene, const Lists& expected, RangeSearch& search, const char* what) {
  const WorkerSetupCommand& setup = scene.setup();
  const uint64_t total = comb_count(scene.problem().n_snps, setup.rules.order).value();
  std::vector<CandidateList> lists(setup.folds.size(), CandidateList(static_cast<size_t>(setup.list_size)));
  // In two pieces.
  const uint64_t middle = scene.cut() % (total + 1);
  search.run(0, middle, lists);
  search.run(middle, total - middle, lists);
  const Lists found = sorted(lists);
  for (size_t f = 0; f < expected.size(); ++f) {
    require(found[f].size() == expected[f].size(), what);
    for (size_t i = 0; i < expected[f].size(); ++i) {
      require(found[f][i].rank == expected[f][i].rank &&
                  bits_of_float(found[f][i].value) == bits_of_float(expected[f][i].value),
              what);
    }
  }
}

void search_scores(const SearchProblem& scene, const Segments& segments, const Lists& expected) {
  const Problem& problem = scene.problem();
  const WorkerSetupCommand& setup = scene.setup();
  const ScoreData data(problem, setup, segments);
  expect_lists(scene, expected, *make_score_search(problem, setup, data),
               "the score search finds the records");
  if (!score_planes_fit(setup.rules)) {
    return;
  }
  const ScorePlanes planes(problem, setup, segments);
  for (const InstructionSet set : {InstructionSet::kScalar, InstructionSet::kAvx2, InstructionSet::kAvx512}) {
    if (has(set)) {
      expect_lists(scene, expected, *make_score_plane_search(problem, setup, planes, set), name_of(set));
    }
  }
}

void search_classes(const SearchProblem& scene, const Segments& segments, const Lists& expected) {
  const Problem& problem = scene.problem();
  const WorkerSetupCommand& setup = scene.setup();
  const BitPlanes planes(problem, segments);
  expect_lists(scene, expected, *make_plane_search(problem, setup, segments, planes),
               "the plane search finds the records");
  if (setup.rules.counted_cells() == setup.rules.cells()) {
    expect_lists(scene, expected, *make_cell_search(problem, setup, segments),
                 "the cell search finds the records");
  }
  if (!lane_search_fits(setup.rules, segments)) {
    return;
  }
  const LanePlanes lanes(problem, segments);
  const std::unique_ptr<const SampleRows> rows = make_sample_rows(problem, setup, segments, lanes);
  for (const InstructionSet set : {InstructionSet::kScalar, InstructionSet::kAvx2, InstructionSet::kAvx512}) {
    if (has(set)) {
      expect_lists(scene, expected, *make_lane_search(problem, setup, segments, lanes, rows.get(), set),
                   name_of(set));
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const SearchProblem scene(FuzzInput(data, size));
  const Lists expected = lists_of_records(scene);
  const Segments segments(scene.problem(), scene.setup().folds);
  if (scene.problem().scores != nullptr) {
    search_scores(scene, segments, expected);
  } else {
    search_classes(scene, segments, expected);
  }
  return 0;
}
