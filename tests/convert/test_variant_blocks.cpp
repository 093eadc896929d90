// SPDX-License-Identifier: Apache-2.0
//
// A pass in blocks hands out the kept genotypes, whatever is kept and however small the blocks.
#include "tools/variant_blocks.h"

#include <gtest/gtest.h>

#include <csignal>
#include <random>

#include "lib/packed_genotypes.h"
#include "tests/convert/memory_source.h"

namespace tavo_test {
namespace {

std::vector<uint32_t> some_of(std::mt19937& random, int n, unsigned tenths) {
  std::vector<uint32_t> kept;
  for (int i = 0; i < n; ++i) {
    if (random() % 10 < tenths) {
      kept.push_back(static_cast<uint32_t>(i));
    }
  }
  return kept;
}

TEST(VariantBlocks, HandOutWhatIsKept) {
  std::mt19937 random(5);
  for (const int n_samples : {1, 5, 16, 17, 40}) {
    for (const int n_snps : {1, 16, 17, 100, 333}) {
      const GenotypeData data = random_data(random, n_samples, n_snps, 0.2);
      WholeSelection whole(data);
      for (const unsigned tenths : {1u, 5u, 10u}) {
        whole.selection.samples = some_of(random, n_samples, tenths);
        whole.selection.variants = some_of(random, n_snps, tenths);
        const int64_t n = whole.selection.n_samples();
        for (const int64_t block_bytes : {1, 500, 3000, 1 << 20}) {
          int64_t next = 0;
          StopFlag stop = 0;
          const Status status = for_each_block(
              whole.source, whole.selection, "test", stop,
              [&](const VariantBlock& block) {
                EXPECT_EQ(block.first, next);
                next += block.count;
                EXPECT_TRUE(block.count % 16 == 0 || next == whole.selection.n_variants());
                for (int64_t j = 0; j < block.count; ++j) {
                  for (int64_t s = 0; s < n; ++s) {
                    const unsigned code =
                        packed_genotype(block.rows + j * packed_words(n), static_cast<size_t>(s));
                    EXPECT_EQ(code,
                              data.at(static_cast<int>(whole.selection.samples[static_cast<size_t>(s)]),
                                      static_cast<int>(
                                          whole.selection.variants[static_cast<size_t>(block.first + j)])));
                  }
                }
                return Status();
              },
              block_bytes);
          EXPECT_TRUE(status.ok());
          EXPECT_EQ(next, whole.selection.n_variants());
        }
      }
    }
  }
}

TEST(VariantBlocks, AFailureAndAStopEndThePass) {
  std::mt19937 random(6);
  WholeSelection whole(random_data(random, 20, 200, 0.1));
  StopFlag stop = 0;
  int calls = 0;
  const auto pass = [&](bool fails, bool stops) {
    calls = 0;
    stop = 0;
    return for_each_block(
               whole.source, whole.selection, "test", stop,
               [&](const VariantBlock&) {
                 ++calls;
                 stop = stops ? SIGINT : 0;
                 return fails ? Status::failure("no") : Status();
               },
               1)
        .message();
  };
  EXPECT_EQ(pass(true, false), "no");
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(pass(false, true), "interrupted by SIGINT; no result was written");
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(pass(false, false), "");
  EXPECT_EQ(calls, 13);
}

}  // namespace
}  // namespace tavo_test
