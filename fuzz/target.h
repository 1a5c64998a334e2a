#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

/// What libFuzzer, or replay.cpp, calls with each input.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

/// A property that every input must keep.
#define HOLDS(property)                                                                                      \
    do {                                                                                                     \
        if (!(property)) {                                                                                   \
            std::printf("%s:%d: does not hold: %s\n", __FILE__, __LINE__, #property);                        \
            std::fflush(stdout);                                                                             \
            std::abort();                                                                                    \
        }                                                                                                    \
    } while (false)

/// Every conversion that fails says so; millions of lines would slow a fuzzer down. What the sanitizers
/// report takes another way.
inline void SilenceErrors()
{
#ifdef __GLIBC__
    static std::FILE *nowhere = std::fopen("/dev/null", "w");
    stderr = nowhere;
#endif
}
