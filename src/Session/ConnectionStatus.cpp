// SPDX-License-Identifier: MIT
#include "Session/ConnectionStatus.h"

#include "Helpers/TextHelpers.h"

namespace ConnectionStatus {

QString getDeviceTitle(const QString &id, const QString &name, const QString &product)
{
    if (!name.isEmpty())
        return QStringLiteral("%1 - %2").arg(name, id);
    if (!product.isEmpty())
        return QStringLiteral("%1 - %2").arg(product, id);
    return id;
}

QString deviceModelTitle(const QString &deviceId, const QString &model)
{
    return QStringLiteral("%1 - %2").arg(deviceId, model);
}

QString offlineTitle(const QString &lastTitle, bool autoReconnect)
{
    if (lastTitle.isNull())
        return QString::fromLatin1(NoDevicesTitle);
    // Departure: " [PAUSED]" read as if the user had paused the log; users could not tell the device was gone.
    return lastTitle + (autoReconnect ? QStringLiteral(" [AWAY - RETRYING]") : QStringLiteral(" [OFFLINE]"));
}

bool showsStop(bool isLogging, bool autoReconnect)
{
    return isLogging || autoReconnect;
}

ConnectButton connectButton(bool isLogging, bool autoReconnect, bool away)
{
    if (away && autoReconnect)
        return ConnectButton::Cancel;
    return showsStop(isLogging, autoReconnect) ? ConnectButton::Stop : ConnectButton::Run;
}

QString connectButtonLabel(ConnectButton button)
{
    switch (button) {
    case ConnectButton::Stop:
        return QStringLiteral("Stop");
    case ConnectButton::Cancel:
        return QStringLiteral("Cancel");
    case ConnectButton::Run:
        break;
    }
    return QStringLiteral("Run");
}

QString statusText(bool filterActive, quint64 shownRows, quint64 totalEntries, bool isLogging, const QString &version)
{
    QString text;
    if (filterActive) {
        if (shownRows != 0 || totalEntries != 0) {
            text = QStringLiteral("Viewing %1 of %2").arg(qf::groupedCount(qint64(shownRows)), qf::groupedCount(qint64(totalEntries)));
            if (isLogging)
                text += QLatin1Char('+');
        }
    } else if (shownRows != 0) {
        text = QStringLiteral("Viewing: %1").arg(qf::groupedCount(qint64(shownRows)));
    }
    if (text.isEmpty())
        text = QStringLiteral("No Data       v(%1)").arg(version);
    return text;
}

} // namespace ConnectionStatus
