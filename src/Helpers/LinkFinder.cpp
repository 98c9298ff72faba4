// SPDX-License-Identifier: MIT
#include "Helpers/LinkFinder.h"

#include <QRegularExpression>

QList<LinkFinder::Match> LinkFinder::find(const QString &text)
{
    static const QRegularExpression candidate(
        QStringLiteral(R"((?:\b(?:https?|ftp|file)://|\bwww\.|\bmailto:)[^\s<>"'`{}|\\^]+)"),
        QRegularExpression::CaseInsensitiveOption);
    QList<Match> found;
    for (auto it = candidate.globalMatch(text); it.hasNext();) {
        const QRegularExpressionMatch match = it.next();
        QString link = match.captured();
        // "see http://x.org/a)." ends the link before the bracket and the full stop.
        while (!link.isEmpty()) {
            const QChar last = link.back();
            if (QStringLiteral(".,;:!?").contains(last)) {
                link.chop(1);
            } else if ((last == u')' && link.count(u'(') < link.count(u')')) ||
                       (last == u']' && link.count(u'[') < link.count(u']'))) {
                link.chop(1);
            } else {
                break;
            }
        }
        const qsizetype length = link.size();
        if (link.startsWith(QLatin1String("www."), Qt::CaseInsensitive))
            link.prepend(QLatin1String("http://"));
        const QUrl url(link, QUrl::TolerantMode);
        // A file or mail link has no host ("file:///tmp/x"); any other link needs one.
        if (url.isValid() && (!url.host().isEmpty() || url.scheme() == u"file" || url.scheme() == u"mailto"))
            found.append({match.capturedStart(), length, url});
    }
    return found;
}

QList<QUrl> LinkFinder::links(const QString &text)
{
    QList<QUrl> urls;
    for (const Match &match : find(text))
        urls.append(match.url);
    return urls;
}
