#pragma once

#include <cstdio>
#include <cstdlib>

/// Ends a guide's program when what the guide says does not hold.
inline void expect(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "does not hold: %s\n", what);
        std::exit(1);
    }
}
