// SPDX-License-Identifier: Apache-2.0
//
// The genotype file as the companion programs read it: block by block, and stricter than tavo itself. What
// they accept tavo accepts, and both find the same genotypes and classes. The first byte chooses the layout
// where both fit.
#include <algorithm>
#include <vector>

#include "fuzz/fuzz_input.h"
#include "fuzz/memory_file.h"
#include "lib/packed_genotypes.h"
#include "src/FileIO.h"
#include "src/run_config.h"
#include "tools/genotype_header.h"
#include "tools/tavo_source.h"

namespace {

constexpr int64_t kBlock = 16;

void compare(TavoSource& source, const MdrReader& reader) {
  require(source.n_samples() == reader.GetLineCount(), "as many samples");
  require(source.variants().size() == reader.GetColCount(), "as many SNPs");
  for (size_t i = 0; i < source.classes().size(); ++i) {
    require((source.classes()[i] & 0xff) == reader.classes()[i], "the same classes");
  }
  const int64_t n_words = packed_words(source.n_samples());
  std::vector<uint32_t> rows(static_cast<size_t>(n_words * kBlock));
  for (int64_t first = 0; first < source.variants().size(); first += kBlock) {
    const int64_t count = std::min(kBlock, source.variants().size() - first);
    require(source.read(first, count, rows.data()).ok(), "a file of the right size can be read");
    for (int64_t snp = 0; snp < count; ++snp) {
      for (int64_t sample = 0; sample < source.n_samples(); ++sample) {
        const unsigned code = packed_genotype(rows.data() + snp * n_words, static_cast<size_t>(sample));
        require(static_cast<int>(code) ==
                    reader.GetSNPdata(static_cast<int>(sample), static_cast<int>(first + snp)),
                "the same genotypes");
      }
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const MemoryFile file;
  FuzzInput input(data, size);
  const Layout told = input.byte() % 2 == 0 ? Layout::kNormal : Layout::kTransposed;
  file.set(input.rest());
  TavoSource source;
  if (!is_genotype_file(file.path()) || !source.open(file.path(), told).ok()) {
    return 0;
  }
  InputFile again;
  GenotypeHeader header;
  require(again.open(file.path()).ok() && read_genotype_header(again, told, &header).ok(), "the same header");
  g_transpose = header.layout == Layout::kTransposed ? 1 : 0;
  MdrReader reader;
  require(reader.Open(file.path().c_str(), false, g_transpose), "tavo reads what the tools read");
  compare(source, reader);
  return 0;
}
