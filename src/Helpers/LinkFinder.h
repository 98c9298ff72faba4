// SPDX-License-Identifier: MIT
#pragma once

#include <QList>
#include <QString>
#include <QUrl>

// Finds the web links in a text, in order: addresses with a scheme (http, https, ftp, file) and bare
// "www." hosts (taken as http). Trailing sentence punctuation and unbalanced closing brackets are not
// part of a link. Pure, any thread.
class LinkFinder
{
public:
    LinkFinder() = delete;
    static QList<QUrl> links(const QString &text);
};
