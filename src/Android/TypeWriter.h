// SPDX-License-Identifier: MIT
#pragma once

#include "Android/AdbRequestSocket.h"
#include "Android/InputWrapper.h"

#include <QMutex>

#include <deque>

// Carries typed text and key presses to the device's "input" command: inputs wait in a bounded queue
// and each connection sends one batch of them (InputCommandEncoder::takeBatch); when it ends, the next
// connection takes the next batch.
//
// Threads: key events are queued on the GUI thread; the connection lives on the thread that opened
// it (the one that queued the input that found the writer idle, or the previous connection's), and its
// callbacks take the next batch there. The queue and the processing flag are touched only under m_lock.
class TypeWriter : public AdbRequestSocket
{
public:
    enum Tag : long {
        TransportReplyTag = 0,
        InputReplyTag = 4,
    };
    // A twelfth input while eleven wait is refused (and the caller told so); nothing else is dropped.
    static constexpr qsizetype MaxPendingInputs = 11;
    // Seconds; the only finite timeout of the ADB client, so a stuck command does not hold up the queue.
    static constexpr double InputTimeout = 1.0;

    TypeWriter();

    // Queues each character of a key event (characters without modifiers; commandKey: Ctrl) with the
    // mapping of InputCommandEncoder; stops at the first refused one. True when an input was refused.
    bool sendKeyEvent(const QString &characters, bool commandKey);
    bool sendMenuKey();
    bool sendHomeKey();
    bool sendBackKey();
    bool addChar(char16_t character);
    bool addKeyEvent(qint64 keyCode);
    // True when the queue was full and the input refused.
    bool addInput(const InputWrapper &input);
    // Opens a connection for the next batch unless one is open or under way.
    void processInputs();

    qsizetype pendingInputs() const;
    bool isProcessingInputs() const;

    void didDisconnect(const std::optional<AdbError> &error) override;

protected:
    void startRequest() override; // sends the next batch
    void requestAccepted(long replyTag) override;
    void replyNotOkay(QByteArrayView reply, long tag) override;

private:
    void updateProcessing(bool processing);

    mutable QMutex m_lock;
    std::deque<InputWrapper> m_inputs; // oldest first
    bool m_processingInputs = false;   // a connection for a batch is open or opening
};
