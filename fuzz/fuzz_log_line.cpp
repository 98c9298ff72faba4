// SPDX-License-Identifier: MIT
// One line in every format, as the live stream and the file reader parse it; the byte and text forms
// of the parser must agree.
#include "FuzzInput.h"
#include "Log/LogLineParser.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzzSetUp();
    const QByteArrayView bytes = fuzzBytes(data, size);
    if (!bytes.isValidUtf8())
        return 0;
    const QString text = QString::fromUtf8(bytes);
    for (int format = 0; format <= LogLineFormatLong; ++format) {
        LogIndexCounter a;
        LogIndexCounter b;
        const LogEntry fromBytes = LogLineParser::parseThreadTimeLine(bytes, format, a);
        const LogEntry fromText = LogLineParser::parseThreadTimeLine(QStringView(text), format, b);
        if (fromBytes.isNull() != fromText.isNull())
            abort();
        for (int field = 0; !fromBytes.isNull() && field < LogEntry::FieldCount; ++field) {
            if (fromBytes.value(LogEntry::Field(field)) != fromText.value(LogEntry::Field(field)))
                abort();
        }
    }
    if (bytes.size() >= 2)
        (void)LogLineParser::classifyLine(bytes);
    (void)LogLineParser::determineLogType(text.split(QLatin1Char('\n')));
    return 0;
}
