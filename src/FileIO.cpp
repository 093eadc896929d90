// SPDX-License-Identifier: Apache-2.0
#include "src/FileIO.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

#include "lib/genotype_file.h"
#include "lib/packed_genotypes.h"
#include "src/notice.h"
#include "src/run_config.h"
#include "util/stop_signal.h"

namespace {

// Elements taken at a time while the size of the file is not known.
constexpr int64_t kItemsAtOnce = 1 << 20;

}  // namespace

// A file being read: counts in whole items like fread, and never holds more memory than the file has bytes
// for.
class MdrReader::Source {
 public:
  explicit Source(const char* path) : file_(std::fopen(path, "rb")), path_(path) {
    struct stat info {};
    if (file_ != nullptr && fstat(fileno(file_.get()), &info) == 0 && S_ISREG(info.st_mode)) {
      size_ = info.st_size;
    }
    if (file_ != nullptr && S_ISDIR(info.st_mode)) {
      file_.reset();
    }
  }

  bool is_open() const { return file_ != nullptr; }
  const char* path() const { return path_; }

  // Bytes of the whole file, -1 for a pipe.
  int64_t size() const { return size_; }

  // Whole items read into out.
  int64_t read(void* out, size_t item_size, int64_t count) {
    return static_cast<int64_t>(std::fread(out, item_size, static_cast<size_t>(count), file_.get()));
  }

  // Appends up to count items to out and returns how many there were.
  template <typename Item>
  int64_t append(std::vector<Item>& out, int64_t count) {
    int64_t done = 0;
    // A file of known size gets no more room than it can fill.
    const int64_t growth =
        size_ >= 0 ? std::clamp<int64_t>(size_ / static_cast<int64_t>(sizeof(Item)), 1, kItemsAtOnce)
                   : kItemsAtOnce;
    while (done < count && stop_signal() == 0) {
      const int64_t wanted = std::min(count - done, growth);
      const size_t before = out.size();
      out.resize(before + static_cast<size_t>(wanted));
      const int64_t got = read(out.data() + before, sizeof(Item), wanted);
      done += got;
      if (got < wanted) {
        out.resize(before + static_cast<size_t>(got));
        break;
      }
    }
    return done;
  }

  // Makes room for count items if the file is large enough to hold them.
  template <typename Item>
  void reserve(std::vector<Item>& out, int64_t count) const {
    if (size_ >= 0 && count <= size_ / static_cast<int64_t>(sizeof(Item))) {
      out.reserve(static_cast<size_t>(count));
    }
  }

  bool at_end() { return std::fgetc(file_.get()) == EOF; }

 private:
  struct Closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };
  std::unique_ptr<std::FILE, Closer> file_;
  const char* path_;
  int64_t size_ = -1;
};

bool MdrReader::Open(const char* path, bool /*has_score*/, int transposed) {
  Close();
  Source source(path);
  if (!source.is_open()) {
    return false;
  }
  GenotypeFileHeader header{};
  if (source.read(&header, sizeof(header), 1) != 1 ||
      std::memcmp(header.magic, kGenotypeMagic, sizeof(kGenotypeMagic)) != 0) {
    return false;
  }
  transposed_ = transposed != 0;
  row_ = file_samples_ = header.n_samples;
  col_ = header.n_snps;
  block_count_ = packed_words(transposed != 0 ? row_ : col_);
  std::printf("Label %d bytes, Row %d, Col %d, Cntblk %d\n", header.label_width, row_, col_,
              static_cast<int>(block_count_));
  if (row_ <= 0 || col_ <= 0) {
    notice("%s: the header (bytes 4 to 11) has %d samples and %d SNPs, expected at least 1 of each", path,
           row_, col_);
    return false;
  }
  if (header.label_width < 1 || header.label_width > kLargestLabel) {
    notice("%s: the header (bytes 12 to 15) has a label width of %d, expected 1 to %d", path,
           header.label_width, kLargestLabel);
    return false;
  }
  if (transposed != 0 && g_regression != kNoRegression) {
    notice("%s: a regression cannot read the transposed layout; convert the file to the normal one", path);
    return false;
  }
  // In both layouts printed for the words of the transposed one, wrapping around like the 32-bit number it
  // is.
  std::printf("Allocated %d bytes\n",
              static_cast<int32_t>(static_cast<uint32_t>(block_count_) * static_cast<uint32_t>(col_) * 4u));

  const int64_t expected =
      genotype_body_offset(col_, header.label_width) +
      genotype_body_size(transposed_ ? Layout::kTransposed : Layout::kNormal, row_, col_);
  if (source.size() >= 0 && source.size() < expected) {
    notice("%s: %lld bytes, but its header needs %lld", path, static_cast<long long>(source.size()),
           static_cast<long long>(expected));
  }
  if (!read_labels(source, header.label_width) ||
      !(transposed != 0 ? read_transposed(source) : read_samples(source))) {
    return false;
  }
  if (!source.at_end()) {
    notice(
        "%s: the bytes after the %lld that its header needs are ignored; is the layout right (--transpose)?",
        path, static_cast<long long>(expected));
  }
  // A signal may also have ended the look for more bytes.
  open_ = stop_signal() == 0;
  return open_;
}

bool MdrReader::read_labels(Source& source, int64_t label_width) {
  std::vector<char> slots;
  const int64_t wanted = col_ * label_width;
  source.reserve(slots, wanted);
  const int64_t labels = source.append(slots, wanted) / label_width;
  if (labels != col_) {
    std::printf("FileIO::Read SNP count does not match %lld != %d\n", static_cast<long long>(labels), col_);
    return false;
  }
  const auto width = static_cast<size_t>(label_width);
  for (size_t j = 0; j < static_cast<size_t>(col_); ++j) {
    const char* slot = slots.data() + j * width;
    const size_t length = strnlen(slot, width);
    if (length == width) {
      notice("%s: the label of SNP %zu (byte %zu) has no NUL within its %zu bytes", source.path(), j + 1,
             static_cast<size_t>(genotype_body_offset(static_cast<int64_t>(j), label_width)), width);
      return false;
    }
    names_.emplace_back(slot, length);
  }
  if (names_.back().ends_with('\n')) {
    names_.back().pop_back();
    std::puts("Stripped");
  }
  return true;
}

bool MdrReader::read_transposed(Source& source) {
  std::puts(" *** TRANSPOSED FILES *** ");
  // The classes are the first bytes of a block that has four bytes for every sample.
  source.reserve(classes_, kClassSize * row_);
  if (source.append(classes_, kClassSize * row_) != kClassSize * row_) {
    return false;
  }
  classes_.resize(static_cast<size_t>(row_));
  classes_.shrink_to_fit();
  const int64_t words = col_ * block_count_;
  source.reserve(words_, words);
  return source.append(words_, words) == words;
}

bool MdrReader::read_samples(Source& source) {
  source.reserve(words_, row_ * block_count_);
  int kept = 0;
  for (int i = 0; i < row_; ++i) {
    if (stop_signal() != 0) {
      return false;
    }
    uint8_t class_bytes[kClassSize];
    const int64_t got_class = source.read(class_bytes, kClassSize, 1);
    if (got_class != 1) {
      std::printf("FileIO::Cannot read class of %dth sample, ret is %d\n", kept, static_cast<int>(got_class));
      return false;
    }
    const size_t row_start = words_.size();
    const int64_t got = source.append(words_, block_count_);
    if (got != block_count_) {
      std::printf("FileIO::Size is not match at %dth sample, %d != %d\n", kept, static_cast<int>(got),
                  static_cast<int>(block_count_));
      return false;
    }
    if (g_covMissing != nullptr && i < g_covLines && g_covMissing[i] != 0) {
      std::printf("%dth entry has ignored by covarite missing\n", i);
      words_.resize(row_start);
      continue;
    }
    store_class(class_bytes);
    ++kept;
  }
  if (g_covMissing != nullptr) {
    row_ = kept;
    std::printf("Arranged individual count is %d\n", kept);
  }
  return true;
}

// Four bytes: an integer for MDR (its lowest byte counts) and logistic regression, a float for linear
// regression.
void MdrReader::store_class(const uint8_t* bytes) {
  if (g_regression == kNoRegression) {
    classes_.push_back(bytes[0]);
  } else if (g_regression == kLogisticRegression) {
    int32_t number = 0;
    std::memcpy(&number, bytes, sizeof(number));
    phenotypes_.push_back(static_cast<float>(number));
  } else {
    float number = 0.0f;
    std::memcpy(&number, bytes, sizeof(number));
    phenotypes_.push_back(number);
  }
}

int MdrReader::GetSNPdata(int sample, int snp) const {
  const auto row = static_cast<size_t>(g_transpose != 0 ? snp : sample);
  const auto column = static_cast<size_t>(g_transpose != 0 ? sample : snp);
  return static_cast<int>(packed_genotype(words_.data() + row * static_cast<size_t>(block_count_), column));
}

std::vector<std::string> MdrReader::ReadHeader() const {
  return names_;
}

void MdrReader::Close() {
  open_ = false;
  names_.clear();
  classes_.clear();
  phenotypes_.clear();
  words_.clear();
  words_.shrink_to_fit();
}
