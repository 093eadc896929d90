// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/fault_folder.h"

#include <zlib.h>

#include <stdexcept>

#include "tests/convert/plink_files.h"

namespace tavo_test {

Words operator+(Words first, const Words& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

GenotypeData small_data() {
  GenotypeData data;
  data.n_samples = 6;
  data.n_snps = 5;
  data.classes = {1, 0, 1, 0, 1, 0};
  data.genotypes = {0, 1, 2, 0, 1, 1, 1, 0, 2, 0, 2, 0, 1, 1, 1, 0, 0, 2, 1, 0, 1, 2, 0, 0, 3, 2, 1, 1, 2, 1};
  data.names = {"rs1", "rs2", "rs3", "rs4", "rs5"};
  return data;
}

namespace {

std::string table_text(const GenotypeData& data) {
  std::string text;
  for (const std::string& name : data.names) {
    text += name + "\t";
  }
  text += "Class\n";
  for (int s = 0; s < data.n_samples; ++s) {
    for (int j = 0; j < data.n_snps; ++j) {
      text += (data.at(s, j) == 3 ? "NA" : std::to_string(data.at(s, j))) + "\t";
    }
    text += std::to_string(data.classes[static_cast<size_t>(s)]) + "\n";
  }
  return text;
}

std::string vcf_text(const GenotypeData& data) {
  constexpr const char* kCalls[] = {"0/0", "0/1", "1/1", "./."};
  std::string text =
      "##fileformat=VCFv4.2\n##contig=<ID=1>\n##FORMAT=<ID=GT,Number=1,Type=String,Description=\"Genotype\">"
      "\n"
      "#CHROM\tPOS\tID\tREF\tALT\tQUAL\tFILTER\tINFO\tFORMAT";
  for (int s = 0; s < data.n_samples; ++s) {
    text += "\tI" + std::to_string(s + 1);
  }
  text += "\n";
  for (int j = 0; j < data.n_snps; ++j) {
    text += "1\t" + std::to_string(100 * (j + 1)) + "\t" + data.names[static_cast<size_t>(j)] +
            "\tA\tG\t.\t.\t.\tGT";
    for (int s = 0; s < data.n_samples; ++s) {
      text += std::string("\t") + kCalls[data.at(s, j)];
    }
    text += "\n";
  }
  return text;
}

void write_gzip(const std::filesystem::path& path, const std::string& bytes) {
  gzFile file = gzopen(path.c_str(), "wb");
  if (file == nullptr || gzwrite(file, bytes.data(), static_cast<unsigned>(bytes.size())) <= 0 ||
      gzclose(file) != Z_OK) {
    throw std::runtime_error("cannot write " + path.string());
  }
}

}  // namespace

FaultFolder::FaultFolder() {
  const GenotypeData data = small_data();
  write("normal.tavo", normal_file(data));
  write("transposed.tavo", transposed_file(data));
  write("covariates.txt",
        "FID\tIID\tage\tdose\nf\t1\t50\t0.5\nf\t2\t61\t1\nf\t3\t47\tNA\nf\t4\t70\t0."
        "25\nf\t5\t55\t2\nf\t6\t58\t1\n");
  write("scores.txt", "score\n0.5\n-0.25\n1\n-1\n0.75\n-0.5\n");
  write("table.txt", table_text(data));
  write_gzip(path("table.txt.gz"), table_text(data));
  write_plink_files(path("plink"), data);
  write("calls.vcf", vcf_text(data));
  write("phenotypes.txt", "FID IID P\n0 I1 2\n0 I2 1\n0 I3 2\n0 I4 1\n0 I5 2\n0 I6 1\n");
}

RunResult FaultFolder::tavo(const Words& words, const Environment& environment) const {
  return run(
      tavo_program(),
      Words{"--out", "r.csv", "--thread", "8", "--block", "2", "--gpu", "1", "--device", "cpu"} + words,
      environment);
}

RunResult FaultFolder::run(const std::filesystem::path& program, const Words& words,
                           const Environment& environment) const {
  return run_program(program, words, folder_.path(), environment);
}

std::filesystem::path report_program() {
  return TAVO_REPORT_PROGRAM;
}

std::string unclean(const RunResult& result) {
  for (const char* part :
       {"terminate called", "AddressSanitizer", "ThreadSanitizer", "runtime error:", "internal error"}) {
    if (result.err.find(part) != std::string::npos) {
      return std::string(part) + ":\n" + result.err;
    }
  }
  if (result.status >= 128 && result.status != 255) {
    return "status " + std::to_string(result.status) + "\n" + result.err;
  }
  if (result.status != 0 && result.err.empty() && result.out.empty()) {
    return "status " + std::to_string(result.status) + " without a word";
  }
  return "";
}

bool looks_whole(const std::string& result_file) {
  const std::string end = std::string(79, '=') + "\n";
  return result_file.size() > end.size() && result_file.ends_with(end) &&
         result_file.find("  Results  ") != std::string::npos;
}

Words result_lines(const std::filesystem::path& path) {
  Words lines;
  for (const std::string& line : split_lines(read_file(path))) {
    if (!line.starts_with("Total time,") && !line.starts_with("Command,") &&
        !line.starts_with("2.result_file,")) {
      lines.push_back(line);
    }
  }
  return lines;
}

}  // namespace tavo_test
