#pragma once

#include <cstdio>
#include <cstdlib>

// A broken invariant is a finding: print it and abort, so the fuzzer keeps the input and
// the corpus replay fails.
#define FUZZ_CHECK(condition)                                                                  \
    do {                                                                                       \
        if (!(condition)) {                                                                    \
            std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                                      \
        }                                                                                      \
    } while (0)
