// SPDX-License-Identifier: MIT
#include "Session/ProcessListAnswer.h"

#include "Helpers/Logger.h"

namespace {

// Lines of a process list: split at every line end, so a CR LF pair gives an empty line between.
QList<QStringView> splitLines(QStringView text)
{
    QList<QStringView> lines;
    qsizetype start = 0;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (c == u'\n' || c == u'\r') {
            lines.append(text.sliced(start, i - start));
            start = i + 1;
        }
    }
    lines.append(text.sliced(start));
    return lines;
}

} // namespace

ProcessListAnswer ProcessListAnswer::parse(const QString &text)
{
    ProcessListAnswer answer;
    if (text.size() <= 99) {
        answer.isShort = true;
        return answer;
    }
    const QList<QStringView> lines = splitLines(text);
    for (qsizetype i = 1; i < lines.size(); ++i) { // line 0 is the header
        const QStringView line = lines[i];
        if (line.isEmpty() || line.startsWith(u'-'))
            continue;
        if (line.startsWith(u"error:")) {
            QF_LOG(QStringLiteral("parsePID: %1").arg(line));
            if (line.contains(u"error: more than one device and emulator")) {
                answer.abort = Abort::MultipleDevices;
                return answer;
            }
            if (line.contains(u"error: device not found")) {
                answer.abort = Abort::DeviceNotFound;
                return answer;
            }
            continue;
        }
        if (std::optional<ProcessNameMap::PsLine> ps = ProcessNameMap::parsePsLine(line))
            answer.processes.append(std::move(*ps));
    }
    return answer;
}
