// SPDX-License-Identifier: MIT
#pragma once

#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

// Locating and starting the local adb server. Class operations only.
class Utils
{
public:
    Utils() = delete;

    // The full path of the first adb tool found, trying in order:
    //   ~/android-sdks/platform-tools/adb, ~/Library/Android/sdk/platform-tools/adb,
    //   ~/Android/Sdk/platform-tools/adb, $ANDROID_HOME/platform-tools/adb,
    //   $ANDROID_SDK_ROOT/platform-tools/adb (each skipped when the variable is unset or empty),
    //   and last "adb" on the PATH.
    // Logs "found:<path>" for the hit and "not found:<path>" for each miss before it.
    static std::optional<QString> getAdbPath();
    // The same search with the home folder and environment given (tests).
    static std::optional<QString> getAdbPath(const QString &home, const QProcessEnvironment &environment);
    // The candidates in search order; the PATH candidate is the bare name "adb".
    static QStringList adbCandidates(const QString &home, const QProcessEnvironment &environment);

    // Runs "<adb> -P <port> start-server" on a worker thread and posts completion(success) to the main
    // thread; success means the output (stdout and stderr merged) contains "daemon started
    // successfully", in any letter case. With no adb found it logs "adb not found" and calls
    // completion(false) at once, on the calling thread. One start runs at a time: a call made while
    // one runs joins it and gets its result, so two callers never race two servers onto one port.
    static void startAdb(std::function<void(bool)> completion, quint16 port = 5037);
    // The same with the tool given; std::nullopt behaves as "not found".
    static void startAdb(const std::optional<QString> &adbPath, std::function<void(bool)> completion,
                         quint16 port = 5037);

    // True when the environment holds APP_SANDBOX_CONTAINER_ID (any value).
    static bool isSandboxed();
};
