// SPDX-License-Identifier: MIT
#pragma once

#include "Log/LogEntry.h"
#include "Log/LogLineParser.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

// What reading a log file gave: the entries (possibly none) or, when the file could not be read at
// all, an error the window shows.
struct LogFileResult
{
    bool ok = false;
    QString errorString;   // set when !ok
    int format = LogLineFormatUnknown;
    qsizetype lineCount = 0; // lines after splitting, before parsing
    QString encoding;        // "UTF-8", "UTF-16LE", ..., "ISO 8859-1"
    QList<LogEntry> entries; // idx in file order
};

// Log files: the saved-text writer, the text reader with encoding fallbacks and format detection,
// and the recognition of the dictionary document.
class LogDocument
{
public:
    // Files are held in memory with 32-bit row offsets.
    static constexpr qint64 MaxFileSize = (qint64(1) << 31) - 1;

    enum class FileKind { Filters, DictionaryCandidate, Text };
    // By the lower-cased path's ending: "filters", "quillfern", anything else.
    static FileKind kindForPath(const QString &path);

    // One saved line: "time app(pid) tid type name: text[ NOTE:[note]\n".
    static QByteArray savedLine(const LogEntry &entry);
    static QByteArray savedText(const QList<LogEntry> &entries);
    // Writes savedText as UTF-8, not atomically. False with *error set when it could not.
    static bool writeTextFile(const QString &path, const QList<LogEntry> &entries, QString *error = nullptr);

    // Reads the whole file: UTF-8, else the encoding its byte-order mark names, else ISO 8859-1.
    // Splits at every line end (LF, CR, VT, FF, NEL, LS, PS), detects the format, joins the long
    // format, and parses every line of 3 or more characters. Numbers come from the counter in file
    // order. Uses two threads for large files.
    static LogFileResult readTextFile(const QString &path, LogIndexCounter &counter);
    static LogFileResult readTextData(QByteArray data, LogIndexCounter &counter, const QString &name = QString());

    // For a "quillfern" file: the number of entries under "logdata" when the file is a property-list
    // dictionary holding that key; nothing when it is not such a document (it is then read as text).
    static std::optional<qsizetype> dictionaryDocumentLineCount(const QString &path);

    // Asks the kernel for 2 MiB pages over a large, freshly allocated buffer.
    static void adviseHugePages(const void *data, qsizetype size);
};
