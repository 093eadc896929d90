// SPDX-License-Identifier: Apache-2.0
//
// What the environment says of the MPI launcher that has started this process.
#pragma once

// One process of a job. Without a launcher, the only one.
struct LaunchedAs {
  int rank = 0;
  int size = 1;  // processes of the job; 0: there are some, it is not said how many
};

// Open MPI, MPICH and its kin, and Slurm with PMIx say so. Of numbers that are none nothing is taken.
LaunchedAs launched_as();
