// SPDX-License-Identifier: MIT
#include "Helpers/LinkFinder.h"

#include <QRegularExpression>

QList<QUrl> LinkFinder::links(const QString &text)
{
    static const QRegularExpression candidate(
        QStringLiteral(R"((?:\b(?:https?|ftp|file)://|\bwww\.)[^\s<>"'`{}|\\^]+)"),
        QRegularExpression::CaseInsensitiveOption);
    QList<QUrl> found;
    for (auto it = candidate.globalMatch(text); it.hasNext();) {
        QString link = it.next().captured();
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
        if (link.startsWith(QLatin1String("www."), Qt::CaseInsensitive))
            link.prepend(QLatin1String("http://"));
        const QUrl url(link, QUrl::TolerantMode);
        // A file link may have no host ("file:///tmp/x"); any other link needs one.
        if (url.isValid() && (!url.host().isEmpty() || url.scheme() == u"file"))
            found.append(url);
    }
    return found;
}
