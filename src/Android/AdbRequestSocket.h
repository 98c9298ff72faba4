// SPDX-License-Identifier: MIT
#pragma once

#include "Android/AdbSocket.h"

#include <QByteArray>
#include <QList>

#include <optional>
#include <utility>

// The request sequence every reader and writer shares: on connect, transport selection (unless the
// request is a "host:" one), then the reader's request; each status reply is checked for "OKAY"; after
// "FAIL" the hex length and the message are read under the reader's failure tags. A reader says only
// what is its own: its tag numbers, its request, what follows an accepted request, its own reads, what
// a failure message means to it and how it reacts to a status that is not "OKAY".
//
// Threads: as AdbSocket; every hook runs on the connecting thread.
class AdbRequestSocket : public AdbSocket
{
public:
    void didConnect(const QString &host, quint16 port) override;
    void didRead(QByteArrayView data, long tag) override;

protected:
    // The reader's numbers for the shared reads; -1 for one it never issues.
    struct Tags
    {
        long transportReply = -1;   // -1: a "host:" request, sent without transport selection
        QList<long> requestReplies; // every tag sendRequest(request, tag) is used with
        long failureLength = -1;
        long failureMessage = -1;
        // Set: an accepted request's output is read line by line under this tag and kept whole until
        // the server closes (see collectedOutput).
        long output = -1;
    };
    explicit AdbRequestSocket(Tags tags);

    // Sends the reader's request: after the transport's "OKAY", or on connect for a "host:" request.
    virtual void startRequest() = 0;
    // The request goes out framed; its status reply arrives under replyTag. A negative timeout (seconds)
    // means none, which every request but an input command uses.
    void sendRequest(const QString &request, long replyTag, double timeout = -1.0);
    // The status reply under replyTag was "OKAY". By default the output is collected (Tags::output).
    virtual void requestAccepted(long replyTag);
    // A status reply that is not "OKAY": logged; readers add stop() or readFailure().
    virtual void replyNotOkay(QByteArrayView reply, long tag);
    // Reads the hex length of a failure message and then the message.
    void readFailure();
    // The failure message as text (empty when not UTF-8); ignored unless a reader uses it.
    virtual void failed(const QString &message);
    // The reader's own reads (output, payload); false for a tag it does not know.
    virtual bool readOwn(QByteArrayView data, long tag);
    // A tag nobody knows: logged.
    virtual void unknownReadState(long tag);

    // Hands over the output collected so far (empty when none came) and starts again from nothing.
    QByteArray takeOutput() { return m_output ? std::exchange(*m_output, QByteArray()) : QByteArray(); }

private:
    const Tags m_tags;
    std::optional<QByteArray> m_output;
};
