// SPDX-License-Identifier: Apache-2.0
//
// The samples of a cross-validated run: who is a case, who is analysed, and who tests in which fold. Decided
// once, on the main thread, before any device works.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "device/problem.h"
#include "src/FileIO.h"

// The analysed samples: the numbers of all cases in file order, then of all controls in file order.
struct SampleList {
  std::vector<int> samples;  // [n_cases + n_controls]
  int n_cases = 0;
  int n_controls = 0;

  // Cases over controls, the threshold of combinations that have none of their own.
  float threshold() const { return static_cast<float>(n_cases) / static_cast<float>(n_controls); }
};

// 1 for a sample whose class equals case_value, else 0.
std::vector<uint8_t> code_classes(const std::vector<uint8_t>& classes, int case_value);

// What the user should know about the classes, on standard error: values other than 0 and 1, or one class
// only.
void give_class_notices(const std::vector<uint8_t>& classes, int n_cases, int n_controls);

// marks: [samples], non-zero for a sample that is left out; empty leaves nobody out.
SampleList make_sample_list(const std::vector<uint8_t>& coded, const std::vector<uint8_t>& left_out);

// [samples], 1 where a sample has a missing genotype at any SNP.
std::vector<uint8_t> samples_with_missing(const MdrReader& reader);

// Fold labels, parallel to the sample list: position within the class modulo n_folds.
std::vector<int> deal_folds(int n_cases, int n_controls, int n_folds);

// Shuffles the labels of the cases, then those of the controls, with the system's rand, which is seeded
// before each of the two: with *seed, or with the time of day. The first control keeps its label; two seeds
// within one second restart the same sequence.
void shuffle_folds(std::vector<int>& labels, int n_cases, int n_controls, std::optional<unsigned> seed);

// The sample numbers of both sets of every fold, in the order of the sample list.
struct FoldLists {
  std::vector<int> samples;                // the sample list
  std::vector<std::vector<int>> training;  // [n_folds]
  std::vector<std::vector<int>> testing;   // [n_folds]
  float threshold = 0.0f;

  // Views of the folds first_fold ..; they hold while this object does not change.
  std::vector<FoldView> views(int first_fold) const;
};

FoldLists split_folds(const SampleList& list, const std::vector<int>& labels, int n_folds);
