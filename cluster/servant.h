// SPDX-License-Identifier: Apache-2.0
//
// What a rank other than 0 does: it obeys rank 0 with a team of its own devices until the job ends, and
// prints nothing.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "cluster/link.h"
#include "cluster/messages.h"
#include "device/backend.h"

// What a servant needs of the program around it.
struct ServantHooks {
  // The backend of a --device value, or null with the reason in *status; it outlives the servant.
  std::function<Backend*(const std::string& choice, Status* status)> choose;
  // Reads the packed genotypes of a shared file.
  std::function<Status(const SharedInput& input, std::vector<uint32_t>* words)> read_words;
  // Of this rank's program and arguments; see RankConfig.
  std::string identity = {};
};

// Returns when rank 0 ends the job, or with a failure when it cannot be heard any more.
Status serve(Link& link, const ServantHooks& hooks);
