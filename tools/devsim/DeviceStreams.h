// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>

#include <functional>
#include <memory>

class DeviceLog;

// The device end of one ADB stream: the bytes a service sends towards the server.
// The transport pulls at most one message's worth whenever the server has acknowledged
// the previous one; a stream with more to say later calls wake().
class DeviceStream
{
public:
    virtual ~DeviceStream() = default;

    // Up to maxBytes of output; empty when nothing is ready.
    virtual QByteArray read(qsizetype maxBytes) = 0;
    // True once read() will never return anything again: the stream may be closed.
    virtual bool atEnd() const = 0;

    void setWakeHandler(std::function<void()> handler) { m_wake = std::move(handler); }

protected:
    void wake()
    {
        if (m_wake)
            m_wake();
    }

private:
    std::function<void()> m_wake;
};

// A command that prints a fixed text and exits.
class FixedStream : public DeviceStream
{
public:
    explicit FixedStream(QByteArray output) : m_output(std::move(output)) {}
    QByteArray read(qsizetype maxBytes) override;
    bool atEnd() const override { return m_offset >= m_output.size(); }

private:
    QByteArray m_output;
    qsizetype m_offset = 0;
};

// "logcat": the ring's replay, then live lines until the server closes the stream
// (or, with dump, the replay only).
class LogcatStream : public DeviceStream
{
public:
    LogcatStream(DeviceLog &log, bool dump);
    ~LogcatStream() override;

    QByteArray read(qsizetype maxBytes) override;
    bool atEnd() const override { return m_dump && m_pending.size() == m_offset; }

    // New lines from the log. Past kMaxPending unsent bytes the reader is too slow and the
    // batch is dropped, as logd drops lines for a reader that falls behind.
    void appendLive(const QByteArray &batch);
    static constexpr qsizetype kMaxPending = 16 * 1024 * 1024;

private:
    DeviceLog &m_log;
    bool m_dump;
    QByteArray m_pending;
    qsizetype m_offset = 0;
};

// Turns every LF of the inner stream's output into CR LF, as an old device's pty does.
class CrlfStream : public DeviceStream
{
public:
    explicit CrlfStream(std::unique_ptr<DeviceStream> inner);
    QByteArray read(qsizetype maxBytes) override;
    bool atEnd() const override { return m_carry.isEmpty() && m_inner->atEnd(); }

private:
    std::unique_ptr<DeviceStream> m_inner;
    QByteArray m_carry;
};
