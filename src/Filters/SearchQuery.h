// SPDX-License-Identifier: MIT
#pragma once

#include "Filters/Filter.h"

#include <QString>

// Android Studio's query keys in the search box, translated into a Filter of the filter language (so the
// status line prints it and it can be saved like any other):
//   tag:  package: / app:  pid:  tid:  message: / msg:  level:   (level: that level or more severe)
//   -key:value excludes, key~:regex matches a regular expression, key=:value matches exactly;
//   a value may be "quoted". Terms of one key are ORed, of different keys ANDed (exclusions each ANDed);
//   words without a key are searched as the plain search box does.
// Pure: no state, any thread.
class SearchQuery
{
public:
    SearchQuery() = delete;

    struct Result
    {
        bool isQuery = false; // false: the text is a plain search (no term names a known key)
        Filter filter;        // valid when isQuery and error is empty
        QString error;        // for the status line, e.g. an unknown key
    };

    static Result translate(const QString &text);

    // The plain search: `text` CONTAINS[cd] in name, text, app, pid, tid or note.
    static Filter plainSearch(const QString &text);
};
