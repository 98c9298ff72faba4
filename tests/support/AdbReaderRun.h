// SPDX-License-Identifier: MIT
#pragma once

#include "support/AdbRecorders.h"
#include "support/FakeAdbServer.h"

// One reader with its recorder against its own fake server, the reader's settings pointing there.
// The scripts are checked when the run goes away.
template <class Reader, class Recorder> struct ReaderRun
{
    explicit ReaderRun(const FakeAdbServer::Script &script = {})
    {
        if (!script.isEmpty())
            server.addScript(script);
        settings = server.connectionSettings();
    }
    ~ReaderRun() { EXPECT_TRUE(server.mismatches().isEmpty()) << server.mismatches().join(u'\n').toStdString(); }

    void start(const QString &serial = QStringLiteral("SERIAL"))
    {
        reader.setConnectionSettings(settings);
        reader.setDeviceId(serial);
        reader.setDelegate(&rec);
        reader.connect();
    }
    // Until every script has played and the reader's connection is over: nothing more can arrive.
    QStringList runToEnd(const QString &serial = QStringLiteral("SERIAL"))
    {
        start(serial);
        EXPECT_TRUE(waitUntil([&] { return server.allScriptsDone() && !reader.isConnected(); }, 5000));
        return rec.events();
    }

    FakeAdbServer server;
    AdbConnectionSettings settings;
    Recorder rec;
    Reader reader;
};
