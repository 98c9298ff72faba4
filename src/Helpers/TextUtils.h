// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

// The message viewer's pretty printers and their small helpers. Both printers are lenient on purpose:
// they never parse and never fail, they walk the text one UTF-16 unit at a time, react to a handful of
// characters and copy the rest, so prose around the data and broken nesting survive. Their odd corners
// (noted below) are part of the behaviour. Pure functions, any thread; one pass over the input.
namespace TextUtils {

// The indentation unit.
inline constexpr QStringView Tab = u"    ";

// Re-indents JSON. Whitespace outside strings inside brackets is dropped; text outside every bracket is
// copied as it is. A quote right after a backslash never toggles the string state, even when that
// backslash was itself escaped ("a\\" stays open). The outermost "}" gets no line feed after it,
// every "]" does. An extra closer drives the depth below zero: what follows is copied until the next
// opener.
QString lenientJsonPrettyPrinter(const QString &text);

// xmlPrettyPrinter(text, 0, 0, a new result).
QString lenientXMLPrettyPrinter(const QString &text);

// Re-indents XML from `index` with `tabCount` units, appending to `result`, which it returns. A text of
// fewer than two units appends nothing. Every "<?" and every "??" starts a line at indentation 0;
// opening tags indent one unit more, also self-closing ones, which never indent less again; every ">"
// after a "</" (until the next opening tag) indents one unit less, so the count may go negative.
QString &xmlPrettyPrinter(const QString &text, qsizetype index, qsizetype tabCount, QString &result);

// Removes trailing line feeds and spaces (not tabs or carriage returns).
void trimEnd(QString &text);

// Appends `count` indentation units; nothing for a count of zero or less.
void addTabs(qsizetype count, QString &text);

// The first `length` units followed by "..." when the text is longer, else the text itself.
QString truncate(const QString &text, qsizetype length);

} // namespace TextUtils
