// SPDX-License-Identifier: Apache-2.0
//
// What rank 0 tells the others, and what they answer, as bytes. A message begins with its kind; each answer
// with a text, empty when all went well. Every message is answered. Readers give false, or a reader that is
// not ok(), for what cannot be a message.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cluster/bytes.h"
#include "device/commands.h"
#include "device/problem.h"
#include "util/status.h"

enum class MessageKind : uint32_t {
  kConfigure = 1,        // RankConfig; answer: what runs there
  kProblem = 2,          // the data of a run but its genotypes, which there is room for then
  kGenotypes = 3,        // they follow by broadcast, or are read from the shared file
  kSetup = 4,            // WorkerSetupCommand
  kList = 5,             // listed combinations; answer: records
  kRange = 6,            // a range of a search; answer: candidates
  kRelease = 7,          // the end of what a set-up began
  kRegressionSetup = 8,  // RegressionSetupCommand
  kItems = 9,            // items of a regression; answer: fits
  kEnd = 10,             // the end of the job
};

// What a rank is told before all else.
struct RankConfig {
  std::string identity;        // of program and arguments: the same on all ranks
  std::string device;          // as --device
  int32_t workers = -1;        // as --gpu
  double silence_limit = 0.0;  // seconds after which a rank that is at work counts as lost
};

// Where a rank finds the genotypes when it reads them itself.
struct SharedInput {
  std::string path;  // empty: they are broadcast
  int32_t transposed = 0;
  int32_t regression = 0;               // a RegressionKind
  std::vector<uint8_t> left_out_lines;  // of samples without a covariate, by line of the covariate file
  bool has_lines = false;               // whether there is a covariate file
};

ByteWriter message_of(MessageKind kind);
// An answer without a failure; what follows depends on the question.
ByteWriter answer();
Bytes failed_answer(const Status& status);

Bytes message_of(const RankConfig& config);
RankConfig read_config(ByteReader& reader);

// A problem that owns what it consists of.
struct OwnedProblem {
  Problem view;
  std::vector<uint32_t> words;  // of the size that view.words_per_row and the layout give; not filled
  std::vector<uint8_t> classes;
  std::vector<float> scores;
  std::vector<float> phenotypes;
  std::vector<float> covariates;
  SharedInput input;
  uint32_t checksum = 0;  // of the words, when the rank reads them
};

// Words of the packed genotypes.
size_t word_count(const Problem& problem);

Bytes message_of(const Problem& problem, const SharedInput& input);
bool read_problem(ByteReader& reader, OwnedProblem* problem);

// A set-up that owns what it points to. Not moved once it is read.
struct OwnedSetup {
  OwnedSetup() = default;
  OwnedSetup(const OwnedSetup&) = delete;
  OwnedSetup& operator=(const OwnedSetup&) = delete;

  WorkerSetupCommand command;
  std::vector<std::vector<int>> lists;  // of the folds: training, testing, training, ...
  std::vector<FoldView> folds;
  std::vector<int> samples;
  Problem problem;  // where command.problem points if it does
  std::vector<uint8_t> classes;
  std::vector<float> scores;
};

// problem: that the workers started with; n_samples of it bound every list.
Bytes message_of(const WorkerSetupCommand& command, int n_samples);
bool read_setup(ByteReader& reader, const Problem& problem, OwnedSetup* setup);

// Fits travel without the columns that the model does not have.
void put_fits(ByteWriter& writer, const ItemFit* fits, size_t n, int columns);
bool read_fits(ByteReader& reader, ItemFit* fits, size_t n, int columns);
