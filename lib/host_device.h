// SPDX-License-Identifier: Apache-2.0
//
// Marks functions that are compiled for the processor and for the GPU from one text.
#pragma once

// static: every translation unit keeps its own copy. An inline function shared between files built for
// different instruction sets is merged by the linker, and the wide copy may win and crash an older processor.
#ifdef __CUDACC__
#define TAVO_HOST_DEVICE static __host__ __device__ __forceinline__
#define TAVO_HOST_DEVICE_INLINED TAVO_HOST_DEVICE
#define TAVO_HOST_DEVICE_MEMBER __host__ __device__
#else
#define TAVO_HOST_DEVICE [[maybe_unused]] static inline
// For functions of many vectors, which a call would pass through memory.
#define TAVO_HOST_DEVICE_INLINED [[maybe_unused, gnu::always_inline]] static inline
#define TAVO_HOST_DEVICE_MEMBER
#endif

// Before a loop whose arrays must stay in the registers of a GPU thread, and before one that would take too
// many.
#ifdef __CUDA_ARCH__
#define TAVO_UNROLL _Pragma("unroll")
#define TAVO_NO_UNROLL _Pragma("unroll 1")
#else
#define TAVO_UNROLL
#define TAVO_NO_UNROLL
#endif
