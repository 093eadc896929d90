// SPDX-License-Identifier: Apache-2.0
//
// The program as one rank of several.
#pragma once

#include <memory>
#include <string>

#include "cluster/cluster_backend.h"
#include "cluster/link.h"
#include "src/options.h"

// What must be the same on all ranks: the program's bytes and its arguments.
std::string rank_identity(int argc, char** argv);

// A rank other than 0: obeys rank 0 until the job ends. Returns the exit status.
int run_as_servant(Link& link, const std::string& identity);

// Rank 0, when the options are known: the backend of this rank's workers, g_cntDevCuda of them, and of all
// other ranks, which get ready. Null when one cannot; the reason has been printed. link and local outlive it.
std::unique_ptr<ClusterBackend> gather_ranks(Link& link, Backend& local, const RunArguments& arguments,
                                             const std::string& identity);
