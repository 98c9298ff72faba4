// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArrayView>
#include <QChar>
#include <QString>
#include <QStringView>

#include <optional>

// Text operations shared by the line parser, the process-list handling, the adb start and the
// diagnostic log. They run on the parse path of every log line, so the search functions take
// views and never allocate; the quirks of each rule (noted below) are deliberate.
namespace qf {

// Returned by indexOfString when the needle does not occur.
inline constexpr qsizetype NotFound = -1;

// True when the text's leading decimal integer (after optional white space and one sign) is
// non-zero, or when the text is exactly "0". So "00", "-0", " 0" and "abc" are false, "12x" is true.
bool isInteger(QStringView text);

// Position of the first occurrence of needle, or NotFound. An empty needle is never found.
qsizetype indexOfString(QStringView text, QStringView needle);
qsizetype indexOfString(QStringView text, QStringView needle, bool ignoreCase);

// True when indexOfString finds needle (so an empty needle is never contained).
bool contains(QStringView text, QStringView needle);
bool contains(QStringView text, QStringView needle, bool ignoreCase);

// Removes blanks and tabs (not line breaks) from both ends. The QString overload shares the
// input's storage when there is nothing to remove.
QString trim(const QString &text);
QStringView trim(QStringView text);

// The UTF-16 unit at index, or 0 when index is negative or at/beyond the end.
QChar safeCharacterAtIndex(QStringView text, qsizetype index);

// Cuts the part from the first `start` up to the next `end` out of text, storing what stood
// between the markers in *out (if given; set to a null QString first). Returns:
// - text unchanged when `start` or, after it, `end` does not occur;
// - std::nullopt when fewer than 2 characters follow `start`;
// - otherwise the text before `start` followed by the text after `end`, where that tail is
//   appended only when `end` stops before the last character: a single trailing character
//   after `end` is dropped ("x[ab]y" gives "x", "x[ab]yz" gives "xyz").
std::optional<QString> removeSubstringBetween(const QString &text, QStringView start, QStringView end,
                                              QString *out = nullptr);

// QByteArrayView::isValidUtf8 with a fast lane for the common all-ASCII log line.
bool isValidUtf8(QByteArrayView bytes);

// A count for people to read, with the user's thousands separator ("55,000"); the C locale, which
// has none, reads as English.
QString groupedCount(qint64 count);

} // namespace qf
