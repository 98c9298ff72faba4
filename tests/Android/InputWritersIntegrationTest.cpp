// SPDX-License-Identifier: MIT
// Typed text, keys, taps and swipes reaching a simulated device through the real adb server.
#include "Android/TouchWriter.h"
#include "Android/TypeWriter.h"
#include "support/AdbRecorders.h"
#include "support/AdbTestEnv.h"

#include <QFile>

namespace {

class InputWritersTest : public AdbTest
{
protected:
    void SetUp() override
    {
        AdbTest::SetUp();
        serial = startDevice({QStringLiteral("--screen-size"), QStringLiteral("270x480")});
        for (AdbSocket *writer : {static_cast<AdbSocket *>(&type), static_cast<AdbSocket *>(&touch)}) {
            writer->setConnectionSettings(env().connectionSettings());
            writer->setDeviceId(serial);
        }
    }
    // The "input ..." commands the device has run so far.
    QStringList inputLog() const
    {
        QFile file(AdbTestEnv::instance().inputLogPath(serial));
        if (!file.open(QIODevice::ReadOnly))
            return {};
        return QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts);
    }
    // Waits until the device has run `count` commands and the type writer is idle; the new ones.
    QStringList newCommands(qsizetype count)
    {
        const qsizetype before = m_seen;
        EXPECT_TRUE(waitUntil(
            [&] {
                return inputLog().size() >= before + count && type.pendingInputs() == 0 && !type.isProcessingInputs();
            },
            10000));
        const QStringList all = inputLog();
        m_seen = all.size();
        return all.mid(before);
    }

    QString serial;
    TypeWriter type;
    TouchWriter touch;

private:
    qsizetype m_seen = 0;
};

} // namespace

TEST_F(InputWritersTest, TextKeysTapsAndSwipesReachTheDeviceInOrder)
{
    // The twelfth pending input is refused: nothing leaves the queue before the connection is up.
    EXPECT_FALSE(type.sendKeyEvent(QStringLiteral("abcdefghij"), false));
    EXPECT_FALSE(type.sendMenuKey());
    EXPECT_TRUE(type.sendKeyEvent(QStringLiteral("xy"), false));
    EXPECT_EQ(type.pendingInputs(), TypeWriter::MaxPendingInputs);
    EXPECT_EQ(newCommands(2), QStringList({"input text abcdefghij", "input keyevent 82 "}));

    // Text and keys go out in batches of one kind, escaped as the shell needs.
    EXPECT_FALSE(type.sendKeyEvent(QStringLiteral("a b"), false));
    EXPECT_EQ(newCommands(1), QStringList({"input text a%sb"}));
    type.sendHomeKey();
    type.sendBackKey();
    EXPECT_EQ(newCommands(1), QStringList({"input keyevent 3 4 "}));
    // Text, a key, text: three connections, in order.
    type.sendKeyEvent(QStringLiteral("ab"), false);
    type.sendHomeKey();
    type.addChar(u'c');
    EXPECT_EQ(newCommands(3), QStringList({"input text ab", "input keyevent 3 ", "input text c"}));

    // Taps and swipes are rounded to whole pixels.
    touch.sendTouchForPoint({540.4, 1199.6});
    EXPECT_EQ(newCommands(1), QStringList({"input tap 540 1200"}));
    touch.sendSwipeFrom({10.4, 20.6}, {300, 400});
    EXPECT_EQ(newCommands(1), QStringList({"input swipe 10 21 300 400 100"}));
    EXPECT_EQ(touch.queuedTouches(), 0);
}
