// SPDX-License-Identifier: MIT
#include "Session/DeviceScreenDatasource.h"

#include "Android/AdbSocketThread.h"
#include "Android/ScreencapReader.h"
#include "Helpers/Logger.h"
#include "Helpers/MainThread.h"

#include <QThreadPool>

// One monitoring cycle: the reader on its thread and the delegate that relays its results.
class DeviceScreenDatasource::Cycle : public ScreencapReaderDelegate
{
public:
    Cycle(DeviceScreenDatasource *owner, quint64 generation) : m_owner(owner), m_generation(generation)
    {
        auto reader = std::make_unique<ScreencapReader>();
        m_reader = reader.get();
        m_reader->setConnectionSettings(owner->m_settings);
        m_reader->setDeviceId(owner->m_deviceId);
        m_reader->setDelegate(this);
        // One decoding thread: images stay in capture order, and the socket's thread is free for the
        // next capture while one decodes.
        m_decoder.setMaxThreadCount(1);
        m_decoder.setExpiryTimeout(-1);
        m_reader->setDecodePool(&m_decoder);
        m_thread = std::make_unique<AdbSocketThread>(std::move(reader), QStringLiteral("screencap"));
    }
    ~Cycle() override
    {
        m_cancelled = true;
        m_thread.reset(); // waits for the reader's thread
        m_decoder.waitForDone(); // and for a decode still under way: no callback runs after this
    }

    void start() { m_thread->connect(); }

    // The reader's thread. The next capture starts once the bytes are in, before this one decodes.
    void screencapWillDecode() override
    {
        if (m_owner->m_isRunning && !m_cancelled && m_owner->m_autoRefresh)
            m_reader->connect();
    }
    // The decoding thread.
    void screencapReceived(const QImage &image) override
    {
        if (!m_owner->m_isRunning || m_cancelled)
            return;
        DeviceScreenDatasource *owner = m_owner;
        const quint64 generation = m_generation;
        QMetaObject::invokeMethod(
            owner, [owner, generation, image] { owner->deliverImage(generation, image); }, Qt::QueuedConnection);
    }
    void screenapFailedWithError(const std::optional<AdbError> &error) override
    {
        DeviceScreenDatasource *owner = m_owner;
        const quint64 generation = m_generation;
        QMetaObject::invokeMethod(
            owner, [owner, generation, error] { owner->deliverFailure(generation, error); }, Qt::QueuedConnection);
    }

private:
    DeviceScreenDatasource *m_owner;
    const quint64 m_generation;
    std::atomic<bool> m_cancelled{false};
    ScreencapReader *m_reader = nullptr; // owned by m_thread
    QThreadPool m_decoder;
    std::unique_ptr<AdbSocketThread> m_thread;
};

DeviceScreenDatasource::DeviceScreenDatasource(QObject *parent) : QObject(parent) {}

DeviceScreenDatasource::~DeviceScreenDatasource()
{
    stopMonitoring();
}

void DeviceScreenDatasource::startMonitoring(bool autoRefresh)
{
    assertMainThread();
    if (m_isRunning) {
        QF_LOG(QStringLiteral("already running"));
        return;
    }
    m_isRunning = true;
    m_autoRefresh = autoRefresh;
    // Not running means stopMonitoring has destroyed any earlier cycle.
    m_cycle = std::make_unique<Cycle>(this, ++m_generation);
    QF_LOG(QStringLiteral("start monitoring screen"));
    m_cycle->start();
}

void DeviceScreenDatasource::stopMonitoring()
{
    m_isRunning = false;
    if (m_cycle) {
        ++m_generation;
        m_cycle.reset();
    }
}

void DeviceScreenDatasource::deliverImage(quint64 generation, const QImage &image)
{
    if (generation != m_generation)
        return;
    if (m_delegate)
        m_delegate->onScreenUpdate(m_deviceId, image);
}

void DeviceScreenDatasource::deliverFailure(quint64 generation, const std::optional<AdbError> &error)
{
    if (generation != m_generation)
        return;
    if (m_delegate)
        m_delegate->onScreenUpdateFailedWithError(error, m_deviceId);
    stopMonitoring();
}
