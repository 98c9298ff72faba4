// SPDX-License-Identifier: MIT
// quillfern-logdump: reads log files exactly as the Open command does and prints, per file, a summary
// line "format=N entries=M ms=T" (plus " matched=K" with --filter). With --tsv every (matching) entry
// comes first, one line of its nine fields in key order, tab-separated, with backslash, tab, line feed
// and carriage return written as \\, \t, \n, \r. With --process-tree the file's (matching) entries are
// printed as the process tree instead, and nothing else.
#include "Filters/Filter.h"
#include "Log/LogDocument.h"
#include "Presentation/ProcessTree.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QStringList>

#include <cstdio>
#include <string>

namespace {

void appendEscaped(std::string &out, const QByteArray &field)
{
    for (char c : field) {
        switch (c) {
        case '\\':
            out += "\\\\";
            break;
        case '\t':
            out += "\\t";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        default:
            out += c;
        }
    }
}

int usage()
{
    std::fprintf(stderr, "usage: quillfern-logdump [--tsv | --process-tree] [--filter EXPRESSION] FILE...\n");
    return 2;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = QCoreApplication::arguments().mid(1);
    bool tsv = false;
    bool tree = false;
    QString expression;
    bool haveFilter = false;
    QStringList files;
    for (qsizetype i = 0; i < args.size(); ++i) {
        if (args[i] == QLatin1String("--tsv")) {
            tsv = true;
        } else if (args[i] == QLatin1String("--process-tree")) {
            tree = true;
        } else if (args[i] == QLatin1String("--filter")) {
            if (++i >= args.size())
                return usage();
            expression = args[i];
            haveFilter = true;
        } else if (args[i] == QLatin1String("--")) {
            files += args.mid(i + 1);
            break;
        } else if (args[i].startsWith(QLatin1String("--"))) {
            return usage();
        } else {
            files << args[i];
        }
    }
    if (files.isEmpty() || (tsv && tree))
        return usage();

    Filter filter;
    if (haveFilter) {
        filter = Filter::parse(expression);
        if (!filter.isValid()) {
            std::fprintf(stderr, "quillfern-logdump: bad filter: %s\n", qPrintable(filter.errorString()));
            return 2;
        }
    }

    int status = 0;
    LogIndexCounter counter;
    std::string out;
    for (const QString &path : files) {
        QElapsedTimer timer;
        timer.start();
        const LogFileResult result = LogDocument::readTextFile(path, counter);
        const qint64 ms = timer.elapsed();
        if (!result.ok) {
            std::fprintf(stderr, "quillfern-logdump: %s\n", qPrintable(result.errorString));
            status = 1;
            continue;
        }
        qsizetype matched = 0;
        bool reportedError = false;
        QList<LogEntry> treeEntries;
        for (const LogEntry &e : result.entries) {
            if (haveFilter) {
                QString error;
                const bool pass = filter.matches(e, &error);
                if (!error.isEmpty() && !reportedError) {
                    std::fprintf(stderr, "quillfern-logdump: filter cannot be evaluated: %s\n", qPrintable(error));
                    reportedError = true;
                    status = 1;
                }
                if (!pass)
                    continue;
            }
            ++matched;
            if (tree)
                treeEntries.append(e);
            if (!tsv)
                continue;
            for (int f = 0; f < LogEntry::FieldCount; ++f) {
                if (f)
                    out += '\t';
                appendEscaped(out, e.utf8Value(LogEntry::Field(f)));
            }
            out += '\n';
            if (out.size() > (1u << 20)) {
                std::fwrite(out.data(), 1, out.size(), stdout);
                out.clear();
            }
        }
        if (tree) {
            const QByteArray text = ProcessTree::text(treeEntries).toUtf8();
            std::fwrite(text.constData(), 1, size_t(text.size()), stdout);
            continue;
        }
        out += "format=" + std::to_string(result.format) + " entries=" + std::to_string(result.entries.size()) +
               " ms=" + std::to_string(ms);
        if (haveFilter)
            out += " matched=" + std::to_string(matched);
        out += '\n';
        std::fwrite(out.data(), 1, out.size(), stdout);
        out.clear();
    }
    std::fflush(stdout);
    return status;
}
