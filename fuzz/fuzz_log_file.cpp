// SPDX-License-Identifier: MIT
// A log file as the Open command reads it: encoding detection, line splitting, format detection,
// the long format's join and the parse of every line.
#include "FuzzInput.h"
#include "Log/LogDocument.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzzSetUp();
    LogIndexCounter counter;
    const LogFileResult result = LogDocument::readTextData(fuzzBytes(data, size).toByteArray(), counter);
    for (const LogEntry &entry : result.entries) {
        for (int field = 0; field < LogEntry::FieldCount; ++field)
            (void)entry.value(LogEntry::Field(field)).size();
        (void)LogDocument::savedLine(entry);
    }
    return 0;
}
