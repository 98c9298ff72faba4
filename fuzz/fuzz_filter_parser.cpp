// SPDX-License-Identifier: MIT
// The filter language: any text parses to a filter or an error, a filter prints to text that parses
// back to the same filter, and evaluating it on an entry never fails but by its documented errors.
#include "Filters/Filter.h"
#include "FuzzInput.h"
#include "Log/LogLineParser.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzzSetUp();
    const Filter filter = Filter::parse(fuzzText(data, size));
    if (!filter.isValid())
        return 0;
    if (Filter::parse(filter.toString()) != filter)
        abort();
    static LogIndexCounter counter;
    static const LogEntry entry = LogLineParser::parseThreadTimeLine(
        QByteArrayView("01-23 14:05:06.789  1234  5678 W ActivityManager: Slow operation took 12ms"),
        LogLineFormatStream, counter);
    QString error;
    (void)filter.matches(entry, &error);
    FilterEvaluator evaluator(filter);
    (void)evaluator.matches(entry);
    return 0;
}
