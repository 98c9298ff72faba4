// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>

#include <optional>

// One usage event as the analytics server takes it.
struct CountlyEvent
{
    QString key;
    int count = 1;
    std::optional<double> sum;
    std::optional<QMap<QString, QString>> segmentation;
    qint64 timestamp = 0; // Unix time in seconds

    // A JSON object with exactly the keys key, count, sum, segmentation, timestamp (the optional ones only
    // when set).
    QByteArray toJson() const;
};
