// SPDX-License-Identifier: MIT
// Save, Save as Text and Open through the real (non-native) file dialogs: the written text, the
// visible-rows check box, the round trip of every field, and failures that keep the log on screen.
#include "Helpers/Settings.h"
#include "Session/LogDatasource.h"
#include "Log/LogDocument.h"
#include "Presentation/LogTableModel.h"
#include "Session/ReconnectPolicy.h"
#include "Scenes/LogTableController.h"
#include "Scenes/MainWindow.h"
#include "Scenes/QuillfernAppDelegate.h"
#include "support/FakeAdbServer.h"

#include <QAbstractButton>
#include <QCheckBox>
#include <QDialog>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QLineEdit>
#include <QMessageBox>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <gtest/gtest.h>

namespace {

QByteArray devicesReply(const QByteArray &list)
{
    return "OKAY" + QByteArray::number(list.size(), 16).rightJustified(4, '0') + list;
}

QMessageBox *visibleMessageBox(QWidget *window)
{
    for (QMessageBox *box : window->findChildren<QMessageBox *>())
        if (box->isVisible())
            return box;
    return nullptr;
}

QFileDialog *visibleFileDialog(QWidget *window)
{
    QFileDialog *dialog = nullptr;
    EXPECT_TRUE(QTest::qWaitFor([&] {
        for (QFileDialog *d : window->findChildren<QFileDialog *>())
            if (d->isVisible())
                dialog = d;
        return dialog != nullptr;
    }, 3000));
    return dialog;
}

QByteArray readAll(const QString &path)
{
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
    return file.readAll();
}

// Every field but idx (a reopened file numbers its rows afresh).
QStringList fields(const LogEntry &e)
{
    return {e.value(LogEntry::Time), e.value(LogEntry::App),  e.value(LogEntry::Pid),
            e.value(LogEntry::Tid),  e.value(LogEntry::Type), e.value(LogEntry::Name),
            e.value(LogEntry::Text), e.value(LogEntry::Note)};
}

class AppDelegateDocumentsTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        Settings::remove(SettingsKey::predicates);
        ASSERT_TRUE(dir.isValid());
        server.useForClient();
        server.addScript({FakeAdbServer::expectRequest("host:devices"),
                          FakeAdbServer::reply(devicesReply("emu-A\tdevice model:Pixel_A\n")), FakeAdbServer::close()});
        QuillfernAppDelegate::Options options;
        options.startAdb = [](std::function<void(bool)> done) { done(true); };
        options.openUrl = [](const QUrl &) {};
        options.startDetached = [](const QString &, const QStringList &) { return true; };
        options.logReaderHooks.startLogReader = [this](const QString &) { ++streamsStarted; };
        options.logReaderHooks.stopLogReader = [this] { app->logDatasource()->logReaderStopped(); };
        options.logReaderHooks.startPidLookup = [](bool, const QString &) {};
        app = std::make_unique<QuillfernAppDelegate>(std::move(options));
        app->applicationDidFinishLaunching();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(app->window()));
        // Lines fed before the stream is fully up (title set) may be dropped as the device's replay.
        ASSERT_TRUE(QTest::qWaitFor([&] { return streamsStarted >= 1 && app->logDatasource()->isLogging() &&
                                                 app->window()->windowTitle() == "Pixel_A - emu-A"; }, 5000))
            << app->window()->windowTitle().toStdString();
    }
    void TearDown() override
    {
        app.reset();
        Settings::remove(SettingsKey::predicates);
        EXPECT_TRUE(server.mismatches().isEmpty()) << server.mismatches().join("; ").toStdString();
    }

    // Lines of several kinds; two carry notes, one text has the note separator's look-alikes.
    void fillLog()
    {
        const QStringList lines = {
            QStringLiteral("01-23 14:05:01.789  1234  5678 W Tag: line one"),
            QStringLiteral("01-23 14:05:02.001  1234  5679 E Crash: boom: at Foo.bar(Foo.java:12)"),
            QStringLiteral("01-23 14:05:03.250   77    77 I ActivityManager: Start proc 4321:com.example/u0a12"),
            QStringLiteral("01-23 14:05:04.500  4321  4400 D Grüße: ünïcödé text ✓"),
            QStringLiteral("01-23 14:05:05.999  4321  4401 V Verbose: {\"json\": [1, 2]}"),
        };
        for (const QString &line : lines)
            app->logDatasource()->logLineReceived(line);
        ASSERT_TRUE(QTest::qWaitFor([&] { return model()->rowCount() >= int(lines.size()) + 1; }, 3000))
            << model()->rowCount() << " shown of " << app->logDatasource()->logEventCount() << ", logging "
            << app->logDatasource()->isLogging() << ", filter "
            << app->logDatasource()->logDataFilter().toString().toStdString();
        const QList<LogEntry> all = app->logDatasource()->getDataAll();
        ASSERT_GE(all.size(), 6);
        all[2].setNote(QStringLiteral("first note"));
        all.back().setNote(QStringLiteral("last: with colon"));
    }
    LogTableModel *model() const { return app->tableController()->model(); }
    QList<QStringList> shownRows() const
    {
        QList<QStringList> out;
        for (const LogEntry &e : model()->rows())
            out << fields(e);
        return out;
    }
    // What a saved and reopened row reads as: the text gains the blank after the tag's colon, and a
    // tid equal to the pid (the system lines' "---") reads back as "-".
    static QList<QStringList> reopened(QList<QStringList> rows)
    {
        for (QStringList &row : rows) {
            row[6].prepend(QLatin1Char(' '));
            if (row[3] == row[2])
                row[3] = QStringLiteral("-");
        }
        return rows;
    }
    // The rows shown before, still there; stopping the stream may add system lines after them.
    bool keeps(const QList<QStringList> &before) const
    {
        const QList<QStringList> now = shownRows();
        if (now.size() < before.size() || now.mid(0, before.size()) != before)
            return false;
        for (qsizetype i = before.size(); i < now.size(); ++i)
            if (now[i][4] != QStringLiteral("QF"))
                return false;
        return true;
    }
    QList<QStringList> rowsOf(const QList<LogEntry> &entries) const
    {
        QList<QStringList> out;
        for (const LogEntry &e : entries)
            out << fields(e);
        return out;
    }

    // Drives the save dialog the command opened; waits for the written (or failed) file.
    bool saveThroughDialog(void (QuillfernAppDelegate::*command)(), const QString &typed, bool visibleOnly,
                           QString *savedPath)
    {
        QSignalSpy saved(app.get(), &QuillfernAppDelegate::fileSaved);
        (app.get()->*command)();
        QFileDialog *dialog = visibleFileDialog(app->window());
        if (!dialog)
            return false;
        auto *check = dialog->findChild<QCheckBox *>(QStringLiteral("visibleRowsOnly"));
        EXPECT_NE(check, nullptr);
        if (check)
            check->setChecked(visibleOnly);
        dialog->selectFile(typed);
        static_cast<QDialog *>(dialog)->accept(); // QFileDialog hides accept()
        EXPECT_TRUE(saved.wait(5000));
        if (saved.isEmpty())
            return false;
        *savedPath = saved.front().at(0).toString();
        return saved.front().at(1).toBool();
    }
    bool openThroughDialog(const QString &path)
    {
        QSignalSpy opened(app.get(), &QuillfernAppDelegate::fileOpened);
        app->openLogcatFile();
        QFileDialog *dialog = visibleFileDialog(app->window());
        if (!dialog)
            return false;
        dialog->selectFile(path);
        static_cast<QDialog *>(dialog)->accept();
        EXPECT_TRUE(opened.wait(5000));
        return !opened.isEmpty() && opened.front().at(1).toBool();
    }
    // Closes the alert that must be showing and returns its message and informative text.
    QString takeAlert()
    {
        QMessageBox *box = nullptr;
        EXPECT_TRUE(QTest::qWaitFor([&] { return (box = visibleMessageBox(app->window())) != nullptr; }, 3000));
        if (!box)
            return {};
        const QString text = box->text() + QLatin1Char('\n') + box->informativeText();
        box->buttons().front()->click();
        EXPECT_TRUE(QTest::qWaitFor([&] { return visibleMessageBox(app->window()) == nullptr; }, 3000));
        return text;
    }

    // A failed save may tell the user; either way the window must stay usable.
    void dismissAnyAlert()
    {
        if (QMessageBox *box = visibleMessageBox(app->window()))
            box->buttons().front()->click();
        EXPECT_TRUE(QTest::qWaitFor([&] { return visibleMessageBox(app->window()) == nullptr; }, 3000));
    }

    QTemporaryDir dir;
    FakeAdbServer server;
    int streamsStarted = 0;
    std::unique_ptr<QuillfernAppDelegate> app;
};

} // namespace

TEST_F(AppDelegateDocumentsTest, SaveWritesTheWholeLogAndOpenShowsTheSameRows)
{
    ASSERT_NO_FATAL_FAILURE(fillLog());
    const QList<LogEntry> all = app->logDatasource()->getDataAll();
    const QList<QStringList> before = reopened(rowsOf(all));

    // Save proposes "quillfern" first: a bare name gets that ending.
    QString path;
    ASSERT_TRUE(saveThroughDialog(&QuillfernAppDelegate::saveDocument, dir.filePath("whole"), false, &path));
    EXPECT_EQ(path, dir.filePath("whole.quillfern"));
    const QByteArray text = readAll(path);
    EXPECT_EQ(text, LogDocument::savedText(all));
    const QList<QByteArray> lines = text.split('\n');
    ASSERT_EQ(lines.size(), all.size() + 1); // ends in a newline
    EXPECT_TRUE(lines.last().isEmpty());
    EXPECT_TRUE(text.contains("(1234) 5678 W Tag:  line one\n"));
    EXPECT_TRUE(text.contains("ünïcödé text ✓"));
    EXPECT_TRUE(text.contains("first note"));
    EXPECT_TRUE(text.contains("last: with colon\n"));

    // Opening it (a text file despite its ending) shows every field again, notes included.
    ASSERT_TRUE(openThroughDialog(path));
    EXPECT_FALSE(app->logDatasource()->isLogging());
    EXPECT_EQ(app->window()->windowTitle(), path);
    // The old rows stay until the file's rows replace them, and there are as many of them: wait for content.
    (void)QTest::qWaitFor([&] { return shownRows() == before; }, 3000);
    const QList<QStringList> after = shownRows();
    ASSERT_EQ(after.size(), before.size());
    for (qsizetype i = 0; i < before.size(); ++i)
        EXPECT_EQ(after[i], before[i]) << "row " << i << ": " << after[i].join('|').toStdString() << " vs "
                                       << before[i].join('|').toStdString();
    EXPECT_TRUE(rowsOf(app->logDatasource()->getDataAll()) == before);
}

TEST_F(AppDelegateDocumentsTest, SaveAsTextWithAndWithoutTheVisibleRowsCheckBox)
{
    ASSERT_NO_FATAL_FAILURE(fillLog());
    const QList<LogEntry> all = app->logDatasource()->getDataAll();
    app->window()->searchField()->setText("4321");
    ASSERT_TRUE(QTest::qWaitFor([&] { return model()->rowCount() == 3; }, 3000)) << model()->rowCount();
    const QList<LogEntry> visible(model()->rows().cbegin(), model()->rows().cend());

    // Save as Text proposes "log" first.
    QString wholePath;
    ASSERT_TRUE(saveThroughDialog(&QuillfernAppDelegate::saveDocumentAsText, dir.filePath("whole"), false, &wholePath));
    EXPECT_EQ(wholePath, dir.filePath("whole.log"));
    EXPECT_EQ(readAll(wholePath), LogDocument::savedText(all));
    EXPECT_EQ(readAll(wholePath).count('\n'), all.size());

    QString visiblePath;
    ASSERT_TRUE(
        saveThroughDialog(&QuillfernAppDelegate::saveDocumentAsText, dir.filePath("shown.txt"), true, &visiblePath));
    EXPECT_EQ(visiblePath, dir.filePath("shown.txt"));
    const QByteArray shown = readAll(visiblePath);
    EXPECT_EQ(shown, LogDocument::savedText(visible));
    EXPECT_EQ(shown.count('\n'), 3);
    EXPECT_FALSE(shown.contains("line one"));
    EXPECT_TRUE(shown.contains("4321:com.example"));
    EXPECT_TRUE(shown.contains("last: with colon"));

    // Reopening the filtered file shows those three rows; the search box still applies, so clear it.
    app->window()->searchField()->clear();
    ASSERT_TRUE(openThroughDialog(visiblePath));
    ASSERT_TRUE(QTest::qWaitFor([&] { return model()->rowCount() == 3; }, 3000)) << model()->rowCount();
    EXPECT_TRUE(shownRows() == reopened(rowsOf(visible)));
}

TEST_F(AppDelegateDocumentsTest, AnUnreadableFileAlertsAndKeepsTheLog)
{
    ASSERT_NO_FATAL_FAILURE(fillLog());
    app->stopLogging();
    const QList<QStringList> before = shownRows();
    const QString title = app->window()->windowTitle();

    // Larger than any file the viewer holds; sparse, so it costs no disk.
    const QString huge = dir.filePath("huge.log");
    {
        QFile file(huge);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        ASSERT_TRUE(file.resize(LogDocument::MaxFileSize + 1));
    }
    EXPECT_FALSE(openThroughDialog(huge));
    const QString alert = takeAlert();
    EXPECT_TRUE(alert.startsWith("The file could not be opened.")) << alert.toStdString();
    EXPECT_TRUE(alert.contains("too large")) << alert.toStdString();
    EXPECT_TRUE(keeps(before));
    EXPECT_EQ(app->window()->windowTitle(), title);

    // A folder, handed over as the desktop would (the dialog itself walks into folders).
    QSignalSpy opened(app.get(), &QuillfernAppDelegate::fileOpened);
    app->openFile(dir.path());
    ASSERT_TRUE(opened.wait(5000));
    EXPECT_FALSE(opened.front().at(1).toBool());
    EXPECT_TRUE(takeAlert().contains("is a folder")) << "folder alert";
    EXPECT_TRUE(keeps(before));
}

TEST_F(AppDelegateDocumentsTest, AFailedSaveAlertsAndKeepsTheLog)
{
    ASSERT_NO_FATAL_FAILURE(fillLog());
    const QList<QStringList> before = rowsOf(app->logDatasource()->getDataAll());

    // A folder that is gone (removed after it was chosen): nothing can be created in it, not even by root.
    const QString missing = dir.filePath("gone/out.log");
    QString path;
    EXPECT_FALSE(saveThroughDialog(&QuillfernAppDelegate::saveDocument, missing, false, &path));
    EXPECT_EQ(path, missing);
    dismissAnyAlert();
    EXPECT_TRUE(rowsOf(app->logDatasource()->getDataAll()) == before);
    EXPECT_TRUE(keeps(before));
    EXPECT_TRUE(app->logDatasource()->isLogging());

    // A path that is a folder.
    QSignalSpy saved(app.get(), &QuillfernAppDelegate::fileSaved);
    app->writeLogFile(dir.path(), false);
    ASSERT_TRUE(saved.wait(5000));
    EXPECT_FALSE(saved.front().at(1).toBool());
    dismissAnyAlert();
    EXPECT_TRUE(keeps(before));
    EXPECT_TRUE(QDir(dir.path()).exists());
}
