// SPDX-License-Identifier: MIT
#include "Session/DeviceListDatasource.h"

#include "Android/AdbSocketThread.h"
#include "Helpers/Logger.h"

#include <QMutexLocker>
#include <QThread>

namespace {

bool isNewline(QChar c)
{
    switch (c.unicode()) {
    case 0x0a:
    case 0x0b:
    case 0x0c:
    case 0x0d:
    case 0x85:
    case 0x2028:
    case 0x2029:
        return true;
    default:
        return false;
    }
}

bool isBlank(QChar c)
{
    return c == u' ' || c == u'\t' || c.category() == QChar::Separator_Space;
}

template <class Pred> QList<QStringView> splitBy(QStringView text, Pred isSeparator)
{
    QList<QStringView> pieces;
    qsizetype start = 0;
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (isSeparator(text[i])) {
            pieces.append(text.mid(start, i - start));
            start = i + 1;
        }
    }
    pieces.append(text.mid(start));
    return pieces;
}

} // namespace

DeviceListDatasource::DeviceListDatasource(QObject *parent) : QObject(parent) {}

DeviceListDatasource::~DeviceListDatasource()
{
    m_delegate = nullptr;
    // A worker inside a callback may still start a lookup; repeat until every worker is joined.
    for (;;) {
        std::vector<std::unique_ptr<AdbSocketThread>> readers;
        {
            QMutexLocker lock(&m_mutex);
            readers = std::move(m_retired);
            m_retired.clear();
            if (m_deviceListReader)
                readers.push_back(std::move(m_deviceListReader));
            if (m_deviceNameReader)
                readers.push_back(std::move(m_deviceNameReader));
        }
        if (readers.empty())
            break;
        for (auto &reader : readers)
            detach(*reader);
        readers.clear(); // joins
    }
}

void DeviceListDatasource::setDelegate(DeviceListDatasourceDelegate *delegate)
{
    m_delegate = delegate;
}

void DeviceListDatasource::loadDeviceList()
{
    fetchDevices();
}

void DeviceListDatasource::setConnectionSettings(const AdbConnectionSettings &settings)
{
    QMutexLocker lock(&m_mutex);
    m_settings = settings;
}

AdbConnectionSettings DeviceListDatasource::connectionSettings() const
{
    QMutexLocker lock(&m_mutex);
    return m_settings;
}

void DeviceListDatasource::fetchDevices()
{
    auto reader = std::make_unique<DeviceListReader>();
    reader->setConnectionSettings(connectionSettings());
    reader->setDelegate(this);
    auto worker = std::make_unique<AdbSocketThread>(std::move(reader), QStringLiteral("DeviceListFetch"));
    worker->connect();
    std::unique_ptr<AdbSocketThread> previous;
    {
        QMutexLocker lock(&m_mutex);
        previous = std::exchange(m_deviceListReader, std::move(worker));
    }
    retire(std::move(previous));
}

void DeviceListDatasource::requestDeviceModel(const QString &deviceId)
{
    internalDeviceModel(deviceId);
}

void DeviceListDatasource::internalDeviceModel(const QString &deviceId)
{
    QF_LOG(QStringLiteral("looking up device: %1").arg(deviceId));
    auto reader = std::make_unique<DeviceNameReader>();
    reader->setDeviceId(deviceId);
    reader->setConnectionSettings(connectionSettings());
    reader->setDelegate(this);
    auto worker = std::make_unique<AdbSocketThread>(std::move(reader), QStringLiteral("DeviceModelLookup"));
    worker->connect();
    std::unique_ptr<AdbSocketThread> previous;
    {
        QMutexLocker lock(&m_mutex);
        previous = std::exchange(m_deviceNameReader, std::move(worker));
    }
    retire(std::move(previous));
}

void DeviceListDatasource::lookupNextDevice()
{
    QString next;
    {
        QMutexLocker lock(&m_mutex);
        if (m_lookupList.isEmpty())
            return;
        next = m_lookupList.first();
    }
    internalDeviceModel(next);
}

QList<DeviceEntry> DeviceListDatasource::deviceList() const
{
    QMutexLocker lock(&m_mutex);
    return m_deviceList;
}

QStringList DeviceListDatasource::lookupList() const
{
    QMutexLocker lock(&m_mutex);
    return m_lookupList;
}

QList<DeviceEntry> DeviceListDatasource::parseDeviceEntries(const QString &text)
{
    QList<DeviceEntry> entries;
    for (const QStringView line : splitBy(QStringView(text), isNewline)) {
        if (line.startsWith(u'-') || line.startsWith(u"error:")) {
            QF_LOG(QStringLiteral("invalid: %1").arg(line));
            continue;
        }
        if (line.isEmpty())
            continue;
        QF_LOG(QStringLiteral("device entry: \"%1\"").arg(line));
        const QList<QStringView> fields = splitBy(line, isBlank);
        DeviceEntry entry;
        entry.id = fields.first().toString();
        bool haveType = false;
        for (const QStringView field : fields) {
            if (field.isEmpty())
                continue;
            if (!haveType) {
                entry.type = field.toString();
                haveType = true;
            } else if (field.startsWith(u"model:")) {
                entry.name = field.mid(6).toString();
            } else if (field.startsWith(u"product:")) {
                entry.product = field.mid(8).toString();
            }
        }
        entries.append(entry);
    }
    return entries;
}

void DeviceListDatasource::parseDeviceList(const QString &text)
{
    const QList<DeviceEntry> entries = parseDeviceEntries(text);
    {
        QMutexLocker lock(&m_mutex);
        m_deviceList = entries;
        for (const DeviceEntry &entry : entries) {
            if (!entry.name && !m_lookupList.contains(entry.id))
                m_lookupList.append(entry.id);
        }
    }
    notifyDevicesConneceted();
    lookupNextDevice();
}

void DeviceListDatasource::devicesReceived(const std::optional<QString> &list)
{
    // A list that is not UTF-8 parses as nothing: an empty list is announced.
    parseDeviceList(list.value_or(QString()));
}

void DeviceListDatasource::deviceListFailedWithError(int code)
{
    if (DeviceListDatasourceDelegate *d = m_delegate.load())
        d->onDeviceListFailed(code);
}

void DeviceListDatasource::deviceNameReceived(const QString &model, const QString &deviceId)
{
    {
        QMutexLocker lock(&m_mutex);
        for (DeviceEntry &entry : m_deviceList) {
            if (entry.id == deviceId) {
                entry.name = model;
                break;
            }
        }
    }
    notifyDeviceModel(deviceId, model);
    removeFromLookupList(deviceId);
    lookupNextDevice();
}

void DeviceListDatasource::deviceNameFailedWithError(const AdbError &error, const QString &deviceId)
{
    QF_LOG(QStringLiteral("TODO: %1, %2").arg(error.toString(), deviceId));
    removeFromLookupList(deviceId);
    lookupNextDevice();
}

void DeviceListDatasource::removeFromLookupList(const QString &deviceId)
{
    QMutexLocker lock(&m_mutex);
    m_lookupList.removeAll(deviceId);
}

void DeviceListDatasource::notifyDevicesConneceted()
{
    const QList<DeviceEntry> devices = deviceList();
    QMetaObject::invokeMethod(
        this,
        [this, devices] {
            if (DeviceListDatasourceDelegate *d = m_delegate.load())
                d->onDevicesConnected(devices);
        },
        Qt::QueuedConnection);
}

void DeviceListDatasource::notifyDeviceModel(const QString &deviceId, const QString &model)
{
    QMetaObject::invokeMethod(
        this,
        [this, deviceId, model] {
            if (DeviceListDatasourceDelegate *d = m_delegate.load())
                d->onDeviceModel(deviceId, model);
        },
        Qt::QueuedConnection);
}

void DeviceListDatasource::detach(AdbSocketThread &reader)
{
    // No callback of a replaced reader may reach this object any more.
    if (auto *list = dynamic_cast<DeviceListReader *>(reader.socket()))
        list->setDelegate(nullptr);
    if (auto *name = dynamic_cast<DeviceNameReader *>(reader.socket()))
        name->setDelegate(nullptr);
}

void DeviceListDatasource::retire(std::unique_ptr<AdbSocketThread> reader)
{
    if (!reader)
        return;
    detach(*reader);
    bool schedule = false;
    {
        QMutexLocker lock(&m_mutex);
        m_retired.push_back(std::move(reader));
        schedule = !std::exchange(m_reapScheduled, true);
    }
    // Joined on the owning thread: a worker may be retiring its own reader from inside a callback.
    if (schedule)
        QMetaObject::invokeMethod(this, &DeviceListDatasource::reapRetired, Qt::QueuedConnection);
}

void DeviceListDatasource::reapRetired()
{
    std::vector<std::unique_ptr<AdbSocketThread>> retired;
    {
        QMutexLocker lock(&m_mutex);
        retired = std::move(m_retired);
        m_retired.clear();
        m_reapScheduled = false;
    }
    retired.clear(); // joins, outside the lock the workers' callbacks take
}
