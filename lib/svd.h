// SPDX-License-Identifier: Apache-2.0
//
// Singular value decomposition of small dense matrices, A = U diag(w) V', and what regressions need of it:
// solutions of least squares and inverses in which vanishing singular values are left out. Householder
// bidiagonalisation and implicit-shift QR (Golub and Reinsch, "Singular value decomposition and least squares
// solutions", Numerische Mathematik 14, 1970).
//
// Matrices are row-major with a fixed row length, Stride. T is the type of the numbers, Root that in which
// square roots of pythag are taken and applied (double on the host where T is float).
#pragma once

#include <stddef.h>

#include "lib/host_device.h"

namespace svd_detail {

TAVO_HOST_DEVICE float root_of(float x) {
  return __builtin_sqrtf(x);
}
TAVO_HOST_DEVICE double root_of(double x) {
  return __builtin_sqrt(x);
}

template <typename T>
TAVO_HOST_DEVICE T magnitude(T x) {
  return x < T(0) ? -x : x;
}

// |x| with the sign of y.
template <typename T>
TAVO_HOST_DEVICE T with_sign_of(T x, T y) {
  return y >= T(0) ? magnitude(x) : -magnitude(x);
}

}  // namespace svd_detail

// sqrt(a^2 + b^2) without overflow.
template <typename T, typename Root = T>
TAVO_HOST_DEVICE T svd_pythag(T a, T b) {
  const T x = svd_detail::magnitude(a);
  const T y = svd_detail::magnitude(b);
  if (x > y) {
    const T ratio = y / x;
    return T(x * svd_detail::root_of(Root(T(1) + ratio * ratio)));
  }
  if (y == T(0)) {
    return T(0);
  }
  const T ratio = x / y;
  return T(y * svd_detail::root_of(Root(T(1) + ratio * ratio)));
}

// The decomposition in progress: a holds A, later U; d the diagonal and e the superdiagonal of the bidiagonal
// form (e[j] stands above d[j], e[0] is 0).
template <typename T, int Stride, typename Root = T>
class SvdWork {
 public:
  TAVO_HOST_DEVICE_MEMBER SvdWork(T* a, T* w, T* v, int m, int n) : a_(a), d_(w), v_(v), m_(m), n_(n) {}

  // 1, or 0 when a singular value has not converged in kSweeps sweeps.
  TAVO_HOST_DEVICE_MEMBER int run() {
    for (int j = 0; j < n_; ++j) {
      d_[j] = reflect_column(j);
      if (j + 1 < n_) {
        e_[j + 1] = reflect_row(j);
      }
      const T size = svd_detail::magnitude(d_[j]) + svd_detail::magnitude(e_[j]);
      norm_ = size > norm_ ? size : norm_;
    }
    accumulate_right();
    accumulate_left();
    for (int k = n_ - 1; k >= 0; --k) {
      if (!converge(k)) {
        return 0;
      }
    }
    return 1;
  }

 private:
  static constexpr int kSweeps = 30;

  TAVO_HOST_DEVICE_MEMBER T& a(int i, int j) { return a_[i * Stride + j]; }
  TAVO_HOST_DEVICE_MEMBER T& v(int i, int j) { return v_[i * Stride + j]; }
  TAVO_HOST_DEVICE_MEMBER bool negligible(T x) const { return T(svd_detail::magnitude(x) + norm_) == norm_; }

  // Householder reflection that clears column j below the diagonal, applied to the columns right of it. The
  // reflector stays in the column. Returns the new diagonal entry.
  TAVO_HOST_DEVICE_MEMBER T reflect_column(int j) {
    T scale = T(0);
    for (int i = j; i < m_; ++i) {
      scale += svd_detail::magnitude(a(i, j));
    }
    if (j >= m_ || scale == T(0)) {
      return T(0);
    }
    T squares = T(0);
    for (int i = j; i < m_; ++i) {
      a(i, j) /= scale;
      squares += a(i, j) * a(i, j);
    }
    const T head = a(j, j);
    const T entry = -svd_detail::with_sign_of(svd_detail::root_of(squares), head);
    const T h = head * entry - squares;
    a(j, j) = head - entry;
    for (int k = j + 1; k < n_; ++k) {
      T dot = T(0);
      for (int i = j; i < m_; ++i) {
        dot += a(i, j) * a(i, k);
      }
      const T factor = dot / h;
      for (int i = j; i < m_; ++i) {
        a(i, k) += factor * a(i, j);
      }
    }
    for (int i = j; i < m_; ++i) {
      a(i, j) *= scale;
    }
    return scale * entry;
  }

  // The same for row i right of the superdiagonal, applied to the rows below. Returns the new superdiagonal
  // entry.
  TAVO_HOST_DEVICE_MEMBER T reflect_row(int i) {
    const int first = i + 1;
    T scale = T(0);
    for (int k = first; k < n_; ++k) {
      scale += svd_detail::magnitude(a(i, k));
    }
    if (i >= m_ || scale == T(0)) {
      return T(0);
    }
    T squares = T(0);
    for (int k = first; k < n_; ++k) {
      a(i, k) /= scale;
      squares += a(i, k) * a(i, k);
    }
    const T head = a(i, first);
    const T entry = -svd_detail::with_sign_of(svd_detail::root_of(squares), head);
    const T h = head * entry - squares;
    a(i, first) = head - entry;
    T scaled[Stride];
    for (int k = first; k < n_; ++k) {
      scaled[k] = a(i, k) / h;
    }
    for (int r = first; r < m_; ++r) {
      T dot = T(0);
      for (int k = first; k < n_; ++k) {
        dot += a(r, k) * a(i, k);
      }
      for (int k = first; k < n_; ++k) {
        a(r, k) += dot * scaled[k];
      }
    }
    for (int k = first; k < n_; ++k) {
      a(i, k) *= scale;
    }
    return scale * entry;
  }

  // V from the row reflectors, last first.
  TAVO_HOST_DEVICE_MEMBER void accumulate_right() {
    for (int i = n_ - 1; i >= 0; --i) {
      const int first = i + 1;
      if (first < n_ && e_[first] != T(0)) {
        // Two divisions: the product of the divisors could underflow.
        for (int k = first; k < n_; ++k) {
          v(k, i) = (a(i, k) / a(i, first)) / e_[first];
        }
        for (int c = first; c < n_; ++c) {
          T dot = T(0);
          for (int k = first; k < n_; ++k) {
            dot += a(i, k) * v(k, c);
          }
          for (int k = first; k < n_; ++k) {
            v(k, c) += dot * v(k, i);
          }
        }
      }
      // The reflector, which stood in the column below, has been applied: row and column become those of the
      // identity.
      for (int k = first; k < n_; ++k) {
        v(k, i) = T(0);
        v(i, k) = T(0);
      }
      v(i, i) = T(1);
    }
  }

  // U from the column reflectors, in their place.
  TAVO_HOST_DEVICE_MEMBER void accumulate_left() {
    for (int j = (m_ < n_ ? m_ : n_) - 1; j >= 0; --j) {
      for (int c = j + 1; c < n_; ++c) {
        a(j, c) = T(0);
      }
      if (d_[j] == T(0)) {
        for (int i = j; i < m_; ++i) {
          a(i, j) = T(0);
        }
      } else {
        const T inverse = T(1) / d_[j];
        for (int c = j + 1; c < n_; ++c) {
          T dot = T(0);
          for (int i = j + 1; i < m_; ++i) {
            dot += a(i, j) * a(i, c);
          }
          const T factor = (dot / a(j, j)) * inverse;
          for (int i = j; i < m_; ++i) {
            a(i, c) += factor * a(i, j);
          }
        }
        for (int i = j; i < m_; ++i) {
          a(i, j) *= inverse;
        }
      }
      a(j, j) += T(1);
    }
  }

  // Plane rotation of two columns.
  TAVO_HOST_DEVICE_MEMBER static void rotate(T* matrix, int rows, int p, int q, T c, T s) {
    for (int i = 0; i < rows; ++i) {
      const T x = matrix[i * Stride + p];
      const T y = matrix[i * Stride + q];
      matrix[i * Stride + p] = x * c + y * s;
      matrix[i * Stride + q] = y * c - x * s;
    }
  }

  // Where the block that ends at k begins. Its superdiagonal entry above is negligible, or made so.
  TAVO_HOST_DEVICE_MEMBER int block_start(int k) {
    int l = k;
    while (l > 0 && !negligible(e_[l]) && !negligible(d_[l - 1])) {
      --l;
    }
    if (l > 0 && !negligible(e_[l])) {
      cancel(l, k);
    }
    return l;
  }

  // d[l - 1] is negligible: rotations against it chase e[l] out of the block.
  TAVO_HOST_DEVICE_MEMBER void cancel(int l, int k) {
    T c = T(0);
    T s = T(1);
    for (int i = l; i <= k; ++i) {
      const T f = s * e_[i];
      e_[i] = c * e_[i];
      if (negligible(f)) {
        return;
      }
      const T g = d_[i];
      const T h = svd_pythag<T, Root>(f, g);
      d_[i] = h;
      c = g / h;
      s = -f / h;
      rotate(a_, m_, l - 1, i, c, s);
    }
  }

  // QR sweeps until the k-th singular value stands alone; it is made non-negative.
  TAVO_HOST_DEVICE_MEMBER bool converge(int k) {
    for (int sweeps = 1; sweeps <= kSweeps; ++sweeps) {
      const int l = block_start(k);
      if (l == k) {
        if (d_[k] < T(0)) {
          d_[k] = -d_[k];
          for (int i = 0; i < n_; ++i) {
            v(i, k) = -v(i, k);
          }
        }
        return true;
      }
      if (sweeps < kSweeps) {
        sweep(l, k);
      }
    }
    return false;
  }

  // The shift: the eigenvalue of the trailing 2 x 2 minor of B'B nearest its last entry, relative to the
  // first diagonal entry of the block.
  TAVO_HOST_DEVICE_MEMBER T shift(int l, int k) const {
    const T x = d_[l];
    const T y = d_[k - 1];
    const T z = d_[k];
    const T g = e_[k - 1];
    const T h = e_[k];
    const T f = ((y - z) * (y + z) + (g - h) * (g + h)) / (T(2) * h * y);
    const T r = svd_pythag<T, Root>(f, T(1));
    return ((x - z) * (x + z) + h * (y / (f + svd_detail::with_sign_of(r, f)) - h)) / x;
  }

  // One implicit QR step on the block l .. k: rotations chase the bulge that the shift makes down the
  // diagonal.
  TAVO_HOST_DEVICE_MEMBER void sweep(int l, int k) {
    T f = shift(l, k);
    T x = d_[l];
    T c = T(1);
    T s = T(1);
    for (int i = l + 1; i <= k; ++i) {
      T g = c * e_[i];
      T h = s * e_[i];
      T y = d_[i];
      T z = svd_pythag<T, Root>(f, h);
      e_[i - 1] = z;
      c = f / z;
      s = h / z;
      f = x * c + g * s;
      g = g * c - x * s;
      h = y * s;
      y = y * c;
      rotate(v_, n_, i - 1, i, c, s);
      z = svd_pythag<T, Root>(f, h);
      d_[i - 1] = z;
      if (z != T(0)) {
        c = f / z;
        s = h / z;
      }
      f = c * g + s * y;
      x = c * y - s * g;
      rotate(a_, m_, i - 1, i, c, s);
    }
    e_[l] = T(0);
    e_[k] = f;
    d_[k] = x;
  }

  T* a_;
  T* d_;
  T* v_;
  int m_;
  int n_;
  T e_[Stride] = {};
  T norm_ = T(0);
};

// Decomposes a [m][Stride], n <= Stride columns used: a becomes U, w[n] the singular values (not sorted, not
// negative), v[n][Stride] V. 1, or 0 when a singular value has not converged after 30 sweeps.
template <typename T, int Stride, typename Root = T>
TAVO_HOST_DEVICE int svd_decompose(T* a, T* w, T* v, int m, int n) {
  return SvdWork<T, Stride, Root>(a, w, v, m, n).run();
}

// x[n] = V diag(1/w) U' b[m]. A singular value of exactly 0 is left out.
template <typename T, int Stride>
TAVO_HOST_DEVICE void svd_solve(const T* u, const T* w, const T* v, const T* b, T* x, int m, int n) {
  T projected[Stride];
  for (int j = 0; j < n; ++j) {
    T sum = T(0);
    if (w[j] != T(0)) {
      for (int i = 0; i < m; ++i) {
        sum += u[i * Stride + j] * b[i];
      }
      sum /= w[j];
    }
    projected[j] = sum;
  }
  for (int j = 0; j < n; ++j) {
    T sum = T(0);
    for (int k = 0; k < n; ++k) {
      sum += v[j * Stride + k] * projected[k];
    }
    x[j] = sum;
  }
}

// Sets singular values below limit times the largest to 0. Returns how many are left.
template <typename T>
TAVO_HOST_DEVICE int svd_cut_off(T* w, int n, T limit) {
  T largest = T(0);
  for (int j = 0; j < n; ++j) {
    largest = w[j] > largest ? w[j] : largest;
  }
  int rank = 0;
  for (int j = 0; j < n; ++j) {
    if (w[j] < largest * limit) {
      w[j] = T(0);
    }
    rank += w[j] != T(0) ? 1 : 0;
  }
  return rank;
}

// The machine epsilon of single precision: the cut-off of information matrices.
constexpr float kInverseCutOff = 1.1920929e-7f;

// inverse = the generalised inverse of the square a [n][Stride], in which singular values below limit times
// the largest count as 0; a is destroyed. *rank is the number of the others. 1, or 0 when the decomposition
// gave up.
template <typename T, int Stride, typename Root = T>
TAVO_HOST_DEVICE int svd_inverse(T* a, int n, T* inverse, T limit, int* rank) {
  T w[Stride];
  T v[Stride * Stride];
  if (svd_decompose<T, Stride, Root>(a, w, v, n, n) == 0) {
    return 0;
  }
  *rank = svd_cut_off(w, n, limit);
  for (int i = 0; i < n; ++i) {
    for (int j = 0; j < n; ++j) {
      a[i * Stride + j] *= w[j] == T(0) ? T(0) : T(1) / w[j];
    }
  }
  for (int i = 0; i < n; ++i) {
    for (int k = 0; k < n; ++k) {
      T sum = T(0);
      for (int j = 0; j < n; ++j) {
        sum += a[i * Stride + j] * v[k * Stride + j];
      }
      inverse[i * Stride + k] = sum;
    }
  }
  return 1;
}
