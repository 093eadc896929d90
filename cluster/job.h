// SPDX-License-Identifier: Apache-2.0
//
// The job that an MPI launcher has started this process as a part of. MPI stands in a module of its own,
// which is loaded then and only then: a process that runs alone neither needs nor starts MPI.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "cluster/link.h"
#include "cluster/messages.h"
#include "util/status.h"

// Joins the launcher's job of `size` processes, 0 when it is not known how many. Null with an ok *status for
// a job of one; null with a failure when MPI cannot be used or knows of others. Throws where memory or
// threads are short.
std::unique_ptr<Link> join_job(int size, Status* status);

// Seconds of silence after which a rank that is at work counts as lost: TAVO_RANK_SILENCE of the environment,
// 0.1 to 1e6, or a minute. Fails where that variable holds something else.
Status silence_limit(double* seconds);

// Rank 0: tells all ranks what to use and waits until they can. *descriptions: what runs on each, from
// rank 1.
Status configure_ranks(Link& link, const RankConfig& config, std::vector<std::string>* descriptions);

// Rank 0: tells all ranks that the job is over, and waits until they know. Nothing where the job has been
// abandoned.
Status dismiss_ranks(Link& link);

// Rank 0: ends the job for all ranks, at once where it has been abandoned. status: of this process.
void end_job(Link& link, int status);
