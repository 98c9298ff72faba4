// SPDX-License-Identifier: MIT
#pragma once

#include <QList>
#include <QString>
#include <QUrl>

// Finds the links in a text, in order: addresses with a scheme (http, https, ftp, file, mailto) and
// bare "www." hosts (taken as http). Trailing sentence punctuation and unbalanced closing brackets
// are not part of a link. Pure, any thread.
class LinkFinder
{
public:
    LinkFinder() = delete;

    struct Match
    {
        qsizetype start = 0;  // where the link's text begins, in UTF-16 units
        qsizetype length = 0; // and how long it is
        QUrl url;
    };
    static QList<Match> find(const QString &text);
    static QList<QUrl> links(const QString &text);
};
