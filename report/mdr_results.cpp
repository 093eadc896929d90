// SPDX-License-Identifier: Apache-2.0
#include "report/mdr_results.h"

#include <algorithm>

std::string MdrResults::setting(const std::string& name) const {
  for (const Setting& setting : settings) {
    if (setting.name == name && setting.order == 0) {
      return setting.value;
    }
  }
  return "";
}

OrderResults& results_of_order(MdrResults* results, int order) {
  const auto place =
      std::lower_bound(results->orders.begin(), results->orders.end(), order,
                       [](const OrderResults& known, int wanted) { return known.order < wanted; });
  if (place != results->orders.end() && place->order == order) {
    return *place;
  }
  OrderResults fresh;
  fresh.order = order;
  return *results->orders.insert(place, fresh);
}
