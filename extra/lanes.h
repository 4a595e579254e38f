// Marks functions whose loops compilers vectorise.
#pragma once

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) ||                         \
    __has_feature(memory_sanitizer)
#define EXTRA_SANITIZED 1
#endif
#elif defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define EXTRA_SANITIZED 1
#endif

// Before a static function: compiled for AVX2 and for the baseline; the loader picks one. The loops
// are plain, or use the compilers' vector types and shuffles where lanes are permuted; no
// intrinsics. Off under sanitizers, which start after that choice; fuzzers then do not trace these
// functions, where hardly a branch depends on the data. On static functions only: clang 14 cannot
// resolve such a function from another file.
#if defined(__x86_64__) && defined(__linux__) && !defined(EXTRA_SANITIZED)
#define EXTRA_LANES [[gnu::target_clones("avx2", "default")]]
#elif defined(__clang__) && __clang_major__ >= 13
#define EXTRA_LANES [[clang::no_sanitize("coverage")]]
#else
#define EXTRA_LANES
#endif
