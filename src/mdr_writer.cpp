// SPDX-License-Identifier: Apache-2.0
#include "src/FileIO.h"

bool MdrWriter::Save(const char* path) {
  status_ = file_.open_directly(path);
  return status_.ok();
}

bool MdrWriter::SaveWhenComplete(const char* path) {
  status_ = file_.open(path, OutputFile::Otherwise::kWriteDirectly);
  return status_.ok();
}

void MdrWriter::WriteLine(const std::string& text) {
  const std::string line = text + '\n';
  if (lines_ != nullptr) {
    lines_->append(line);
  } else if (status_.ok()) {
    status_ = file_.write(line.data(), line.size());
  }
}

Status MdrWriter::Close() {
  if (status_.ok() && lines_ != nullptr) {
    status_ =
        lines_->read_all([this](std::string_view piece) { return file_.write(piece.data(), piece.size()); });
  }
  return status_.ok() ? file_.commit() : status_;
}
