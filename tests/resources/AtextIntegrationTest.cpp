// SPDX-License-Identifier: MIT
// The typing terminal's script against the real adb server and a simulated device: each line typed
// becomes one text input, escaped as the input writer escapes; an empty line is Enter.
#include "support/AdbTestEnv.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>

TEST_F(AdbTest, AtextSendsEachLineAsEscapedTextInput)
{
    const QString serial = startDevice();
    ASSERT_FALSE(serial.isEmpty());
    QProcess atext;
    QProcessEnvironment environment = env().adbEnvironment(); // the private HOME and TMPDIR
    environment.insert(QStringLiteral("ANDROID_ADB_SERVER_PORT"), QString::number(env().serverPort()));
    environment.insert(QStringLiteral("PATH"), QFileInfo(env().adbPath()).absolutePath() + u':' +
                                                   environment.value(QStringLiteral("PATH")));
    atext.setProcessEnvironment(environment);
    atext.start(QStringLiteral("/bin/sh"), {QStringLiteral(QF_TEST_DATA_DIR "/../../resources/scripts/atext"), serial});
    ASSERT_TRUE(atext.waitForStarted());
    atext.write("a b\n50%\nx&(y)<z>\n\n");
    atext.closeWriteChannel();
    ASSERT_TRUE(atext.waitForFinished(60000));
    EXPECT_EQ(atext.exitCode(), 0) << atext.readAllStandardError().toStdString();

    QFile log(env().inputLogPath(serial));
    ASSERT_TRUE(log.open(QIODevice::ReadOnly));
    EXPECT_EQ(QString::fromUtf8(log.readAll()).toStdString(),
              "input text a%sb\ninput text 50\\&\ninput text x\\&\\(y\\)\\<z\\>\ninput keyevent 66\n");
}
