// SPDX-License-Identifier: MIT
// An imported filter file, XML or binary property list, and the filters it holds.
#include "Filters/Filter.h"
#include "Filters/FilterFile.h"
#include "FuzzInput.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzzSetUp();
    if (const auto entries = FilterFile::read(fuzzBytes(data, size))) {
        for (const FilterFile::Entry &entry : *entries)
            (void)Filter::parse(entry.text);
    }
    return 0;
}
