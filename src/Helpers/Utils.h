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

    // Runs "<adb> start-server" on a worker thread and posts completion(success) to the main thread;
    // success means the output (stdout and stderr merged) contains "daemon started successfully", in any
    // letter case. With no adb found it logs "adb not found" and calls completion(false) at once, on the
    // calling thread. Concurrent calls are not guarded against.
    static void startAdb(std::function<void(bool)> completion);
    // The same with the tool given; std::nullopt behaves as "not found".
    static void startAdb(const std::optional<QString> &adbPath, std::function<void(bool)> completion);

    // True when the environment holds APP_SANDBOX_CONTAINER_ID (any value).
    static bool isSandboxed();
};
