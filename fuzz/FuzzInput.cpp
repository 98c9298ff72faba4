// SPDX-License-Identifier: MIT
#include "FuzzInput.h"

#include <cstdlib>

void fuzzSetUp()
{
    static const bool done = [] {
        setenv("QUILLFERN_LOG_QUIET", "1", 1);
        return true;
    }();
    (void)done;
}
