// SPDX-License-Identifier: MIT
#include "Analytics/CountlyEvent.h"

#include <QJsonDocument>
#include <QJsonObject>

QByteArray CountlyEvent::toJson() const
{
    QJsonObject object;
    object.insert(QStringLiteral("key"), key);
    object.insert(QStringLiteral("count"), count);
    if (sum)
        object.insert(QStringLiteral("sum"), *sum);
    if (segmentation) {
        QJsonObject map;
        for (auto it = segmentation->cbegin(); it != segmentation->cend(); ++it)
            map.insert(it.key(), it.value());
        object.insert(QStringLiteral("segmentation"), map);
    }
    object.insert(QStringLiteral("timestamp"), timestamp);
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}
