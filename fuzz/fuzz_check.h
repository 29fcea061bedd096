// The check of a fuzz target: a failed expectation names itself and the two
// inputs of the run, then aborts, so that the fuzzer keeps the input as a
// crash. The inputs are tokens the target sets before its checks run.
#pragma once

#include "comm/token.h"

#include <cstdio>
#include <cstdlib>

struct fuzz_inputs
{
    const char* target;
    const char* first_name;
    const char* second_name;
    velk::token first;
    velk::token second;
};

[[noreturn]] inline void fuzz_fail(const fuzz_inputs& in, const char* what)
{
    fprintf(stderr, "%s: %s\n  %s [%.*s]\n  %s [%.*s]\n", in.target, what, in.first_name,
            static_cast<int>(in.first.lens()), in.first.ptr(), in.second_name, static_cast<int>(in.second.lens()),
            in.second.ptr());
    abort();
}

// Needs a fuzz_inputs named `inputs` in scope.
#define REQUIRE(cond)                                                                                               \
    do {                                                                                                            \
        if (!(cond))                                                                                                \
            fuzz_fail(inputs, #cond);                                                                               \
    } while (0)
