// SPDX-License-Identifier: Apache-2.0
//
// The report of an exhaustive run: for each order the kept combinations, then the ranked ones.
#include "src/TFmMDR.h"
#include "src/number_text.h"
#include "src/report_head.h"

namespace {

// The two layouts, of mode 2 and mode 3.
struct Layout {
  const char* kept_header;
  std::span<const int> kept_measures;
  const char* best_header;
  std::span<const int> best_measures;
};

// In mode 2 the columns named wBA1 to wBA6 of a kept row hold measures 8 to 13: the layout is as it is.
constexpr int kKeptMode2[] = {1, 0, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13};
constexpr int kBestMode2[] = {0, 2, 3, 4, 5, 6, 7, 10, 11, 12, 13, 14, 15};
constexpr int kKeptMode3[] = {1, 0, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
constexpr int kBestMode3[] = {0, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};

constexpr Layout kMode2 = {
    "Best_Combi,Accuracy,Balanced_Accuracy,Chisq_Stat,Gamma_Stat,Tau_b,Tau_c,Somers_dx,Somers_dy,wBA1,wBA2,"
    "wBA3,wBA4,"
    "wBA5,wBA6",
    kKeptMode2,
    "Rank,Best_Combi,Weighted_CVC,Aver_BA,Aver_Chisq,Aver_Gamma,Aver_Tau_b,Aver_Tau_c,Aver_Somers_dx,Aver_"
    "Somers_dy,"
    "Aver_wBA1,Aver_wBA2,Aver_wBA3,Aver_wBA4,Aver_wBA5,Aver_wBA6,P_Value",
    kBestMode2};
constexpr Layout kMode3 = {
    "Best_Combi,Accuracy,Balanced_Accuracy,Chisq_Stat,Gamma_Stat,Tau_b,Tau_c,Somers_dx,Somers_dy,nmi,lr,wBA1,"
    "wBA2,wBA3,"
    "wBA4,wBA5,wBA6",
    kKeptMode3,
    "Rank,Best_Combi,Weighted_CVC,Aver_BA,Aver_Chisq,Aver_Gamma,Aver_Tau_b,Aver_Tau_c,Aver_Somers_dx,Aver_"
    "Somers_dy,"
    "Aver_nmi,Aver_lr,Aver_wBA1,Aver_wBA2,Aver_wBA3,Aver_wBA4,Aver_wBA5,Aver_wBA6,P_Value",
    kBestMode3};

void write_order(MdrWriter& writer, int order, const Layout& layout, const MDRResult& result,
                 const std::vector<std::string>& names) {
  const std::string number = std::to_string(order);
  writer.WriteLine("<" + number + "-Order Combinations of SNPs>");
  writer.WriteLine(layout.kept_header);
  for (const std::vector<KeptCombination>& group : result.kept) {
    for (const KeptCombination& kept : group) {
      std::string line = combination_name(kept.snps, names);
      for (const int measure : layout.kept_measures) {
        line += "," + number_text(kept.record[static_cast<size_t>(measure)]);
      }
      writer.WriteLine(line);
    }
  }
  writer.WriteLine(kSectionEnd);
  writer.WriteLine("<<" + number + "-Order Best Combination Sets>>");
  writer.WriteLine(layout.best_header);
  for (size_t rank = 0; rank < result.best_snps.size(); ++rank) {
    std::string line = std::to_string(rank + 1) + "," + combination_name(result.best_snps[rank], names) +
                       "," + number_text(result.weighted_cvc[rank]);
    for (const int measure : layout.best_measures) {
      line += "," + number_text(result.measures[static_cast<size_t>(measure)].training[rank]);
    }
    writer.WriteLine(line + "," + number_text(result.p_values[rank]));
  }
  writer.WriteLine(kSectionEnd);
}

}  // namespace

Status TFmMDR::WriteResultALL(const std::string& path, double elapsed_seconds, int mode,
                              const std::vector<std::string>& names, const ResultArray& results) {
  MdrWriter writer;
  if (!writer.SaveWhenComplete(path.c_str())) {
    return writer.Close();
  }
  const MDRResult& first = *results.front();
  write_report_head(writer, path, elapsed_seconds, first.groups);
  if (mode == 2 || mode == 3) {
    for (int order = first.minimum_order_minus_1 + 1; order <= first.maximum_order; ++order) {
      write_order(writer, order, mode == 2 ? kMode2 : kMode3, *results[static_cast<size_t>(order) - 1],
                  names);
    }
  }
  return writer.Close();
}
