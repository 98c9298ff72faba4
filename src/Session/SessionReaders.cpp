// SPDX-License-Identifier: MIT
#include "Session/SessionReaders.h"

#include "Android/AdbSocketThread.h"
#include "Android/LogReader.h"
#include "Android/PidReader.h"
#include "Helpers/MainThread.h"

#include <QThread>

SessionReaders::~SessionReaders()
{
    close();
}

void SessionReaders::replace(Slot slot, std::unique_ptr<AdbSocketThread> worker)
{
    if (worker)
        worker->connect(); // posted before anyone can retire it
    {
        std::lock_guard lock(m_mutex);
        // Once closed, a lookup asked for from a callback starts nothing.
        if (!m_closed)
            std::swap(m_slots[slot], worker);
    }
    retire(std::move(worker));
}

void SessionReaders::post(Slot slot, std::function<void(AdbSocket &)> work)
{
    std::lock_guard lock(m_mutex);
    if (m_slots[slot])
        m_slots[slot]->post(std::move(work));
}

bool SessionReaders::isRetiredLogReaderThread() const
{
    std::lock_guard lock(m_mutex);
    const auto &log = m_slots[Log];
    return log && log->thread() != QThread::currentThread() && !isMainThread();
}

void SessionReaders::close()
{
    std::array<std::unique_ptr<AdbSocketThread>, 2> workers;
    {
        std::lock_guard lock(m_mutex);
        m_closed = true;
        std::swap(workers, m_slots);
    }
    for (auto &worker : workers)
        retire(std::move(worker));
    std::unique_lock lock(m_retireMutex);
    m_retiredDone.wait(lock, [this] { return m_retiring == 0; });
}

void SessionReaders::retire(std::unique_ptr<AdbSocketThread> worker)
{
    if (!worker)
        return;
    if (auto *log = dynamic_cast<LogReader *>(worker->socket()))
        log->setDelegate(nullptr);
    if (auto *pid = dynamic_cast<PidReader *>(worker->socket()))
        pid->setDelegate(nullptr);
    {
        std::lock_guard lock(m_retireMutex);
        ++m_retiring;
    }
    AdbSocketThread *raw = worker.release();
    raw->post([this, raw](AdbSocket &) {
        delete raw;
        std::lock_guard lock(m_retireMutex);
        --m_retiring;
        m_retiredDone.notify_all();
    });
}
