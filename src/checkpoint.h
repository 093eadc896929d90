// SPDX-License-Identifier: Apache-2.0
//
// The checkpoint of a run: a file from which an interrupted run goes on. It says what the run is, and holds
// sections, in which each kind of run keeps how far it has come; docs/formats.md has its lines.
//
// A kind of run needs two functions of its own: one that makes lines of its state (src/state_lines.h), for
// keep(), and one that takes them apart, for restore().
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "src/growing_file.h"
#include "src/state_lines.h"
#include "util/run_lock.h"
#include "util/status.h"

// Names and values of what decides a run's result, in a fixed order, without tabs or line ends.
using RunIdentity = std::vector<std::pair<std::string, std::string>>;

class Checkpoint {
 public:
  // Names of rows.
  static constexpr const char* kResultRows = "rows";
  static constexpr const char* kTidyRows = "tidy";

  // All files that a checkpoint of this path may write.
  static std::vector<std::string> files(const std::string& path);

  // One that keeps nothing.
  Checkpoint() = default;
  Checkpoint(const Checkpoint&) = delete;
  Checkpoint& operator=(const Checkpoint&) = delete;

  // Keeps the state in this file. Fails when it exists and cannot be read, is damaged, or is of another run,
  // whose difference the message names; when another run is using it; and when it cannot be written.
  Status open(const std::string& path, RunIdentity identity);

  bool is_open() const { return !path_.empty(); }

  // The seed that the run drew, as read or as set before the first state is kept.
  std::optional<unsigned> seed() const { return seed_; }
  void set_seed(unsigned seed) { seed_ = seed; }

  // Hands the section of this name to `read`, if there is one. Fails when `read` returns false or leaves
  // lines over. *found: whether there is one; may be null.
  Status restore(const std::string& name, const std::function<bool(StateLines&)>& read,
                 bool* found = nullptr);

  // Whether the file should be written: some seconds have gone since it was last.
  bool is_due() const;

  // Keeps the lines of a section and writes the file, which says so in one notice when that fails: nothing is
  // lost then, the file is as before, and the run can go on.
  void keep(const std::string& name, std::string lines);

  // The file beside the checkpoint for these rows: begun, or going on where the checkpoint
  // says. Belongs to the checkpoint, which brings it to disk before it counts on it. Once per name, before
  // the first state is kept.
  Status rows(const std::string& name, GrowingFile** file);

  // What restore says of a section, and what a run says whose own look at one shows that it cannot be.
  Status damaged();
  // Whether one of them did, or rows were not as the checkpoint says.
  bool is_refused() const { return refused_; }

  // The result stands: takes the file away, and those beside it.
  void remove();

 private:
  Status read();
  Status parse(const std::string& text);
  Status compare(const RunIdentity& other) const;
  Status write();
  std::string text() const;
  std::string beside(const std::string& name) const;

  std::string path_;    // as given, for messages
  std::string target_;  // behind symbolic links
  RunLock lock_;
  RunIdentity identity_;
  std::optional<unsigned> seed_;
  std::map<std::string, std::string> sections_;               // lines by name
  std::map<std::string, GrowingFile::Extent> counts_;         // of the rows, by name
  std::map<std::string, std::unique_ptr<GrowingFile>> rows_;  // by name
  bool resumed_ = false;
  bool refused_ = false;
  bool said_ = false;  // that the file could not be written
  double interval_ = 0.0;
  std::chrono::steady_clock::time_point written_;
};
