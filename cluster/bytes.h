// SPDX-License-Identifier: Apache-2.0
//
// Messages between ranks as bytes. All ranks run the same program on processors of one kind, so that numbers
// travel as they stand in memory; a reader still trusts no length that it is told.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

using Bytes = std::vector<uint8_t>;

class ByteWriter {
 public:
  template <typename T>
  void put(const T& value) {
    static_assert(std::is_trivially_copyable_v<T> && !std::is_pointer_v<T>);
    append(&value, sizeof(T));
  }

  // The number of values, then the values.
  template <typename T>
  void put_all(const T* values, size_t n) {
    static_assert(std::is_trivially_copyable_v<T> && !std::is_pointer_v<T>);
    put(static_cast<uint64_t>(n));
    append(values, n * sizeof(T));
  }
  template <typename T>
  void put_all(std::span<const T> values) {
    put_all(values.data(), values.size());
  }
  void put_text(const std::string& text) { put_all(text.data(), text.size()); }

  Bytes take() { return std::move(bytes_); }

 private:
  void append(const void* bytes, size_t size) {
    if (size > 0) {
      const size_t at = bytes_.size();
      bytes_.resize(at + size);
      std::memcpy(bytes_.data() + at, bytes, size);
    }
  }

  Bytes bytes_;
};

class ByteReader {
 public:
  explicit ByteReader(std::span<const uint8_t> bytes) : rest_(bytes) {}

  // False from the first value on that is not there; such values are zeros and empty lists.
  bool ok() const { return ok_; }
  bool at_end() const { return ok_ && rest_.empty(); }

  template <typename T>
  T get() {
    static_assert(std::is_trivially_copyable_v<T> && !std::is_pointer_v<T>);
    T value{};
    extract(&value, 1, sizeof(T));
    return value;
  }

  template <typename T>
  std::vector<T> get_all() {
    static_assert(std::is_trivially_copyable_v<T> && !std::is_pointer_v<T>);
    const auto n = get<uint64_t>();
    std::vector<T> values;
    if (n > rest_.size() / sizeof(T)) {
      ok_ = false;
      return values;
    }
    values.resize(n);
    extract(values.data(), n, sizeof(T));
    return values;
  }
  std::string get_text() {
    const std::vector<char> text = get_all<char>();
    return {text.begin(), text.end()};
  }

 private:
  void extract(void* values, size_t n, size_t size) {
    if (!ok_ || n > rest_.size() / size) {
      ok_ = false;
      return;
    }
    if (n > 0) {
      std::memcpy(values, rest_.data(), n * size);
      rest_ = rest_.subspan(n * size);
    }
  }

  std::span<const uint8_t> rest_;
  bool ok_ = true;
};
