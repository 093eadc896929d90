// SPDX-License-Identifier: Apache-2.0
#include "tools/vcf_source.h"

#include <fcntl.h>
#include <htslib/bgzf.h>
#include <htslib/hfile.h>
#include <htslib/hts.h>
#include <htslib/hts_log.h>
#include <htslib/tbx.h>
#include <htslib/vcf.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "lib/packed_genotypes.h"
#include "tools/names.h"
#include "tools/progress.h"
#include "util/in_quotes.h"

namespace {

constexpr size_t kWriteWords = size_t{1} << 18;

// Genotypes with more are not even taken apart to say which sample has them.
constexpr int kMostAllelesOfCall = 16;

// Errors of a record that leave its genotypes sound: a contig or a field that the header does not list.
constexpr int kHarmless = BCF_ERR_CTG_UNDEF | BCF_ERR_TAG_UNDEF;

// In a name made of position and alleles a longer allele stands with its beginning and its length.
constexpr size_t kLongestAlleleInName = 60;
constexpr size_t kAlleleStart = 20;

std::string allele_in_name(const char* allele) {
  const std::string text = allele;
  return text.size() <= kLongestAlleleInName
             ? text
             : text.substr(0, kAlleleStart) + "..." + std::to_string(text.size());
}

struct HtsCloser {
  void operator()(htsFile* file) const { hts_close(file); }
  void operator()(bcf_hdr_t* header) const { bcf_hdr_destroy(header); }
  void operator()(bcf1_t* record) const { bcf_destroy(record); }
};

// What became of the records.
struct RecordCounts {
  int64_t records = 0;
  int64_t without_genotypes = 0;
  int64_t without_alternate = 0;
  int64_t multiallelic = 0;
  int64_t split = 0;
};

class VcfReader {
 public:
  explicit VcfReader(const std::string& path) : path_(path) {}
  ~VcfReader() { std::free(calls_); }
  VcfReader(const VcfReader&) = delete;
  VcfReader& operator=(const VcfReader&) = delete;

  Status open();
  int n_samples() const { return bcf_hdr_nsamples(header_.get()); }
  const char* sample(int index) const { return header_->samples[index]; }

  // Reads the next record.
  Status next(bool* more);
  int n_alleles() const { return static_cast<int>(record_->n_allele); }

  // Unpacks the genotypes of the record; *found is false when it has none.
  Status read_calls(bool* found);

  // The record as a variant that counts ALT number `allele`, from 1. The fields are valid until the next
  // call.
  Status variant(int allele, Variant* variant);

  // Copies of the allele in each sample, packed. row: packed_words(n_samples()) words of 0.
  Status pack(int allele, uint32_t* row) const;

  // Something to say about a file that was read to its end.
  std::string end_warning() const;

 private:
  bool is_text() const { return hts_get_format(file_.get())->format == vcf; }
  Status refusal(const std::string& what) const;
  std::string chromosome_and_position() const;

  std::string path_;
  std::unique_ptr<htsFile, HtsCloser> file_;
  std::unique_ptr<bcf_hdr_t, HtsCloser> header_;
  std::unique_ptr<bcf1_t, HtsCloser> record_;
  int64_t n_records_ = 0;
  int32_t* calls_ = nullptr;  // [samples][ploidy_], grown by htslib
  int calls_room_ = 0;
  int ploidy_ = 0;
  std::string name_;
  std::string position_;
};

Status VcfReader::open() {
  // The messages are those below; htslib would write its own to standard error.
  hts_set_log_level(HTS_LOG_OFF);
  // Opened here, so that a path is always a file and never a network address.
  const int descriptor = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) {
    return Status::failure("cannot open " + path_ + ": " + std::strerror(errno));
  }
  hFILE* stream = hdopen(descriptor, "r");
  if (stream == nullptr) {
    ::close(descriptor);
    return Status::failure("cannot open " + path_ + ": " + std::strerror(errno));
  }
  // Looked at first: htslib would go on reading other formats that it knows.
  htsFormat format{};
  if (hts_detect_format2(stream, path_.c_str(), &format) != 0) {
    hclose_abruptly(stream);
    return Status::failure(path_ + ": expected a VCF or BCF file");
  }
  if (format.format != vcf && format.format != bcf) {
    hclose_abruptly(stream);
    char* found = hts_format_description(&format);
    const std::string text = found != nullptr ? found : "unknown";
    std::free(found);
    return Status::failure(path_ + ": found " + in_quotes(text) + ", expected a VCF or BCF file");
  }
  file_.reset(hts_hopen(stream, path_.c_str(), "r"));
  if (file_ == nullptr) {
    hclose_abruptly(stream);
    return Status::failure(path_ + ": expected a VCF or BCF file");
  }
  header_.reset(bcf_hdr_read(file_.get()));
  if (header_ == nullptr) {
    return Status::failure(path_ + ": the header is damaged or ends early");
  }
  if (n_samples() == 0) {
    return Status::failure(path_ + ": no sample, expected at least one column of genotypes");
  }
  record_.reset(bcf_init());
  return record_ != nullptr ? Status() : Status::failure(path_ + ": no memory for a record");
}

// With the place: the line of a text file, the number of the record of a binary one.
Status VcfReader::refusal(const std::string& what) const {
  return Status::failure(
      path_ + ": " +
      (is_text() ? "line " + std::to_string(file_->lineno) : "record " + std::to_string(n_records_)) + ": " +
      what);
}

Status VcfReader::next(bool* more) {
  *more = false;
  const int result = bcf_read(file_.get(), header_.get(), record_.get());
  if (result == -1) {
    // A file in BGZF blocks ends with an empty one; without it whole blocks may be lost.
    const BGZF* blocks = hts_get_bgzfp(file_.get());
    return blocks != nullptr && blocks->no_eof_block != 0
               ? Status::failure(path_ + ": the end marker is not there; the file is cut")
               : Status();
  }
  ++n_records_;
  if (result < -1 || (record_->errcode & ~kHarmless) != 0) {
    return refusal("the record is damaged or ends early");
  }
  if (record_->n_sample != static_cast<uint32_t>(n_samples())) {
    return refusal("the record has " + std::to_string(record_->n_sample) + " samples, expected " +
                   std::to_string(n_samples()));
  }
  if (bcf_unpack(record_.get(), BCF_UN_STR) != 0 || bcf_seqname(header_.get(), record_.get()) == nullptr) {
    return refusal("the record is damaged");
  }
  if (record_->pos < 0) {
    return refusal("the position is 0 or no number, expected at least 1");
  }
  *more = true;
  return {};
}

Status VcfReader::read_calls(bool* found) {
  *found = false;
  const bcf_fmt_t* field = bcf_get_fmt(header_.get(), record_.get(), "GT");
  if (field == nullptr || field->p == nullptr) {
    return {};
  }
  // Before memory is taken for that many of every sample.
  if (field->n > kMostAllelesOfCall) {
    return refusal("a genotype of " + std::to_string(field->n) + " alleles, expected 1 or 2");
  }
  if (field->n == 0) {
    // Every sample's fields end before GT. htslib takes that for no genotypes and ends the process.
    ploidy_ = 0;
    *found = true;
    return {};
  }
  // So it does over text.
  if (field->type != BCF_BT_INT8 && field->type != BCF_BT_INT16 && field->type != BCF_BT_INT32) {
    return refusal("GT holds no genotypes");
  }
  const int count = bcf_get_genotypes(header_.get(), record_.get(), &calls_, &calls_room_);
  if (count <= 0 || count % n_samples() != 0) {
    return refusal("GT cannot be read");
  }
  ploidy_ = count / n_samples();
  *found = true;
  return {};
}

std::string VcfReader::chromosome_and_position() const {
  return std::string(bcf_seqname(header_.get(), record_.get())) + ":" + std::to_string(record_->pos + 1);
}

Status VcfReader::variant(int allele, Variant* variant) {
  const char* reference = record_->d.allele[0];
  const char* alternate = record_->d.allele[allele];
  const std::string id = record_->d.id;
  if (id == "." || id.empty()) {
    name_ = chromosome_and_position() + ":" + allele_in_name(reference) + ":" + allele_in_name(alternate);
  } else {
    name_ = n_alleles() > 2 ? id + ":" + allele_in_name(alternate) : id;
  }
  if (const std::string fault = name_fault(name_); !fault.empty()) {
    return refusal(fault);
  }
  position_ = std::to_string(record_->pos + 1);
  variant->chromosome = bcf_seqname(header_.get(), record_.get());
  variant->name = name_;
  variant->position = position_;
  variant->counted_allele = alternate;
  variant->other_allele = reference;
  for (const std::string_view field : {variant->chromosome, variant->counted_allele, variant->other_allele}) {
    if (const std::string fault = field_fault(field, std::string_view::npos); !fault.empty()) {
      return refusal(fault);
    }
  }
  return {};
}

Status VcfReader::pack(int allele, uint32_t* row) const {
  for (int s = 0; s < n_samples(); ++s) {
    const int32_t* call = calls_ + static_cast<ptrdiff_t>(s) * ploidy_;
    unsigned copies = 0;
    int n_calls = 0;
    bool missing = false;
    for (; n_calls < ploidy_ && call[n_calls] != bcf_int32_vector_end; ++n_calls) {
      const int32_t value = call[n_calls];
      if (value < 0 || bcf_gt_is_missing(value)) {
        missing = true;
        continue;
      }
      const int index = bcf_gt_allele(value);
      if (index >= n_alleles()) {
        return refusal("sample " + in_quotes(sample(s)) + " has allele " + std::to_string(index) +
                       ", the record has alleles 0 to " + std::to_string(n_alleles() - 1));
      }
      copies += index == allele ? 1 : 0;
    }
    if (n_calls > 2) {
      return refusal("sample " + in_quotes(sample(s)) + " has " + std::to_string(n_calls) +
                     " alleles in its genotype, expected 1 or 2");
    }
    // One copy of a chromosome counts like two equal ones.
    const unsigned code = missing || n_calls == 0 ? kMissingGenotype : n_calls == 1 ? 2 * copies : copies;
    put_packed_genotype(row, static_cast<size_t>(s), code);
  }
  return {};
}

std::string VcfReader::end_warning() const {
  if (hts_get_format(file_.get())->compression != no_compression || !is_text()) {
    return "";
  }
  const int descriptor = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  char last = '\n';
  if (descriptor >= 0 && lseek(descriptor, -1, SEEK_END) >= 0 && ::read(descriptor, &last, 1) != 1) {
    last = '\n';
  }
  if (descriptor >= 0) {
    ::close(descriptor);
  }
  return last == '\n' ? "" : path_ + ": the last line has no line end; is the file whole?";
}

std::string count_note(const std::string& path, const RecordCounts& counts, int64_t n_variants) {
  std::string text =
      path + ": " + std::to_string(counts.records) + " records, " + std::to_string(n_variants) + " variants";
  const auto add = [&text](int64_t count, const char* what) {
    text += count > 0 ? "; " + std::to_string(count) + " " + what : "";
  };
  add(counts.split, "multi-allelic records split");
  add(counts.multiallelic, "multi-allelic records skipped (--split takes them)");
  add(counts.without_alternate, "records without an alternate allele skipped");
  add(counts.without_genotypes, "records without GT skipped");
  return text;
}

}  // namespace

Status VcfSource::open(const std::string& path, bool split, const std::string& scratch_folder,
                       const StopFlag& stop) {
  VcfReader reader(path);
  Status status = reader.open();
  if (status.ok()) {
    status = scratch_.open(scratch_folder);
  }
  if (!status.ok()) {
    return status;
  }
  for (int s = 0; s < reader.n_samples(); ++s) {
    Sample sample;
    sample.fid = sample.iid = reader.sample(s);
    if (const std::string fault = field_fault(sample.iid, kLongestIdentifier); !fault.empty()) {
      return Status::failure(path + ": the name of sample " + std::to_string(s + 1) + ": " + fault);
    }
    samples_.push_back(std::move(sample));
  }
  const auto n_words = static_cast<size_t>(packed_words(n_samples()));
  std::vector<uint32_t> rows;
  int64_t written = 0;
  const auto flush = [&]() -> Status {
    const size_t size = rows.size() * sizeof(uint32_t);
    Status done = scratch_.write_at(written, rows.data(), size);
    written += static_cast<int64_t>(size);
    rows.clear();
    return done;
  };
  RecordCounts counts;
  Progress progress("reading records", 0);
  for (bool more = true; status.ok();) {
    if (stop != 0) {
      return stopped(stop);
    }
    status = reader.next(&more);
    if (!status.ok() || !more) {
      break;
    }
    progress.at(++counts.records);
    if (reader.n_alleles() < 2) {
      ++counts.without_alternate;
      continue;
    }
    if (reader.n_alleles() > 2) {
      ++(split ? counts.split : counts.multiallelic);
      if (!split) {
        continue;
      }
    }
    bool found = false;
    status = reader.read_calls(&found);
    if (status.ok() && !found) {
      ++counts.without_genotypes;
    }
    for (int allele = 1; allele < reader.n_alleles() && found && status.ok(); ++allele) {
      if (variants_.size() == kMostItems) {
        return Status::failure(path + ": more than " + std::to_string(kMostItems) + " variants");
      }
      Variant variant;
      status = reader.variant(allele, &variant);
      if (status.ok()) {
        variants_.add(variant);
        rows.resize(rows.size() + n_words);
        status = reader.pack(allele, rows.data() + rows.size() - n_words);
      }
      if (status.ok() && rows.size() >= kWriteWords) {
        status = flush();
      }
    }
  }
  if (status.ok()) {
    status = flush();
  }
  notes_.push_back(count_note(path, counts, variants_.size()));
  if (const std::string warning = reader.end_warning(); !warning.empty()) {
    warnings_.push_back(warning);
  }
  if (status.ok() && variants_.size() == 0) {
    return Status::failure(notes_.back() + "; expected at least one variant");
  }
  return status;
}

Status VcfSource::read(int64_t first, int64_t count, uint32_t* rows) {
  const int64_t row_size = packed_words(n_samples()) * static_cast<int64_t>(sizeof(uint32_t));
  return scratch_.read_at(first * row_size, rows, static_cast<size_t>(count * row_size));
}
