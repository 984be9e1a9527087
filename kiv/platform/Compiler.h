#pragma once

// The one header of macros that hide what differs between compilers: symbol export and the few extensions in use.
// Everything else is standard C++20.

#if defined(_WIN32)
#if defined(KIV_BUILDING_LIBRARY)
#define KIV_API __declspec(dllexport)
#else
#define KIV_API __declspec(dllimport)
#endif
#else
#define KIV_API __attribute__((visibility("default")))
#endif

#if defined(_MSC_VER) && !defined(__clang__)
#define KIV_NOINLINE __declspec(noinline)
#define KIV_ALWAYS_INLINE __forceinline
#else
#define KIV_NOINLINE __attribute__((noinline))
#define KIV_ALWAYS_INLINE inline __attribute__((always_inline))
#endif

// Where a [[likely]] branch is not enough, because the condition is made of several.
#if defined(_MSC_VER) && !defined(__clang__)
#define KIV_EXPECT(condition) (condition)
#else
#define KIV_EXPECT(condition) __builtin_expect(static_cast<bool>(condition), 1)
#endif

// Brings memory nearer that will be read soon; any address will do.
#if defined(_MSC_VER) && !defined(__clang__)
#define KIV_PREFETCH(address) _mm_prefetch(reinterpret_cast<const char*>(address), _MM_HINT_T0)
#include <xmmintrin.h>
#else
#define KIV_PREFETCH(address) __builtin_prefetch(address)
#endif

// The same for memory that will be written soon; processors that do not know the instruction ignore it.
#if defined(_MSC_VER) && !defined(__clang__)
#define KIV_PREFETCH_TO_WRITE(address) _m_prefetchw(address)
#else
#define KIV_PREFETCH_TO_WRITE(address) __asm__ volatile("prefetchw %0" : : "m"(*reinterpret_cast<const char*>(address)))
#endif

// In loops that wait for another processor: leaves it the memory bus and the twin of this core.
#if defined(_MSC_VER) && !defined(__clang__)
#define KIV_PAUSE() _mm_pause()
#else
#define KIV_PAUSE() __builtin_ia32_pause()
#endif

// Whether variables of a thread may have destructors: MinGW frees the variables before it runs these.
#if defined(__MINGW32__)
#define KIV_HAS_THREAD_DESTRUCTORS 0
#else
#define KIV_HAS_THREAD_DESTRUCTORS 1
#endif

// Whether a sanitizer watches the program's memory or threads: caches of memory would hide mistakes from it.
#if defined(__has_feature)
#define KIV_IS_SANITIZED ((__has_feature(address_sanitizer) || __has_feature(thread_sanitizer)))
#elif defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KIV_IS_SANITIZED 1
#else
#define KIV_IS_SANITIZED 0
#endif
