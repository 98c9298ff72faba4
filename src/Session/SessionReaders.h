// SPDX-License-Identifier: MIT
#pragma once
#include <array>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>

class AdbSocket;
class AdbSocketThread;

// The two readers of a live session, the log stream and the running process-list lookup, each on
// an AdbSocketThread of its own. A reader that is replaced is retired: cut off from its delegate and
// deleted on its own thread after any callback it is running. It is not joined from the caller's
// thread, because a reader may be waiting for the GUI thread (a system message) and the GUI thread
// may be the caller.
//
// Any thread. The slots sit under a leaf mutex: nothing is called or destroyed while it is held.
class SessionReaders
{
public:
    enum Slot { Log, Pid };

    SessionReaders() = default;
    ~SessionReaders(); // close()
    SessionReaders(const SessionReaders &) = delete;
    SessionReaders &operator=(const SessionReaders &) = delete;

    // Starts `worker` (may be null) in `slot`; the reader it replaces is retired. After close() the
    // new worker is retired at once.
    void replace(Slot slot, std::unique_ptr<AdbSocketThread> worker);
    // Runs `work` with the slot's reader on its thread, when the slot holds one.
    void post(Slot slot, std::function<void(AdbSocket &)> work);
    // On a reader's thread: is it not the current log reader's? A retired stream has nothing more
    // to say. False on the GUI thread and while no log reader is set.
    bool isRetiredLogReaderThread() const;
    // No new reader from now on: retires both and waits until every retired reader has let go.
    void close();

private:
    void retire(std::unique_ptr<AdbSocketThread> worker);

    mutable std::mutex m_mutex;
    std::array<std::unique_ptr<AdbSocketThread>, 2> m_slots;
    bool m_closed = false;

    std::mutex m_retireMutex;
    std::condition_variable m_retiredDone;
    int m_retiring = 0; // retired readers whose thread has not yet let go
};
