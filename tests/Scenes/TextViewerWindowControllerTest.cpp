// SPDX-License-Identifier: MIT
#include "Scenes/TextViewerWindowController.h"

#include "Helpers/TextUtils.h"
#include "Scenes/TextFindBar.h"
#include "support/Dialogs.h"
#include "support/LogCapture.h"
#include "support/QtPrinters.h"

#include <QAction>
#include <QClipboard>
#include <QGuiApplication>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPlainTextEdit>
#include <QTest>
#include <QTextBlock>
#include <gtest/gtest.h>

namespace {

struct TextViewerTest : ::testing::Test
{
    QList<QUrl> opened;
    TextViewerWindowController viewer{[this](const QUrl &url) { opened << url; }};

    void SetUp() override
    {
        viewer.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&viewer));
    }

    void select(qsizetype from, qsizetype length)
    {
        QTextCursor cursor = viewer.textView()->textCursor();
        cursor.setPosition(int(from));
        cursor.setPosition(int(from + length), QTextCursor::KeepAnchor);
        viewer.textView()->setTextCursor(cursor);
    }
    QString selected() const { return viewer.textView()->textCursor().selectedText(); }
    QStringList labels() const { return {viewer.formatJsonButton()->text(), viewer.formatXmlButton()->text()}; }
};

const QString Json = QStringLiteral(R"({"a":{"b":"<i>x</i>"}})");

} // namespace

TEST_F(TextViewerTest, TogglesFormatInOneUndoStepAndRestoreTheTextAsHandedIn)
{
    viewer.showText(Json);
    const QString json = TextUtils::lenientJsonPrettyPrinter(Json);
    viewer.onFormatJson();
    EXPECT_EQ(viewer.text(), json);
    EXPECT_EQ(labels(), QStringList({"Restore Text", "Format XML"}));
    viewer.textView()->undo();
    EXPECT_EQ(viewer.text(), Json);
    EXPECT_FALSE(viewer.textView()->document()->isUndoAvailable()) << "one undo step for the whole format";
    viewer.textView()->redo();

    // XML on top of JSON formats the formatted text; one restore undoes both, whatever was edited since.
    viewer.onFormatXml();
    EXPECT_EQ(viewer.text(), TextUtils::lenientXMLPrettyPrinter(json));
    EXPECT_EQ(labels(), QStringList({"Restore Text", "Restore Text"}));
    viewer.textView()->appendPlainText(QStringLiteral("edited"));
    viewer.onFormatXml();
    EXPECT_EQ(viewer.text(), Json);
    EXPECT_EQ(labels(), QStringList({"Format JSON", "Format XML"}));
    EXPECT_FALSE(viewer.isFormattedJSON() || viewer.isFormattedXML());

    // A new text resets a formatted window.
    viewer.onFormatJson();
    viewer.showText(QStringLiteral("[1]"));
    EXPECT_EQ(labels(), QStringList({"Format JSON", "Format XML"}));
    EXPECT_EQ(viewer.originalString(), "[1]");
    EXPECT_FALSE(viewer.textView()->document()->isUndoAvailable());
}

TEST_F(TextViewerTest, FormatsAndDecodesOnlyTheSelectionWhenThereIsOneAlsoFromTheContextMenu)
{
    const QString text = QStringLiteral("D/Http: ") + Json + QStringLiteral(" done aGk= end");
    viewer.showText(text);
    select(8, Json.size());
    viewer.onFormatJson();
    const QString formatted = TextUtils::lenientJsonPrettyPrinter(Json);
    EXPECT_EQ(viewer.text(), QStringLiteral("D/Http: ") + formatted + QStringLiteral(" done aGk= end"));
    EXPECT_EQ(viewer.textView()->textCursor().selectionStart(), 8) << "the formatted part stays selected";

    select(viewer.text().indexOf(QStringLiteral("aGk=")), 4);
    viewer.onBase64Decode();
    EXPECT_EQ(viewer.text(), QStringLiteral("D/Http: ") + formatted + QStringLiteral(" done hi end"));
    EXPECT_TRUE(viewer.isFormattedJSON()) << "decoding leaves the format state";
    viewer.onFormatJson();
    EXPECT_EQ(viewer.text(), text) << "restore goes back past the decoding";

    // The context menu ends with Pretty Print, whose JSON item is the toolbar toggle.
    viewer.showText(Json);
    std::unique_ptr<QMenu> menu = viewer.contextMenu({5, 5});
    const QList<QAction *> items = menu->actions();
    ASSERT_GE(items.size(), 2);
    EXPECT_TRUE(items[items.size() - 2]->isSeparator());
    QMenu *pretty = items.back()->menu();
    ASSERT_TRUE(pretty);
    EXPECT_EQ(pretty->title(), "Pretty Print");
    QStringList shown;
    for (QAction *a : pretty->actions())
        shown << a->text() + '|' + a->shortcut().toString() + '|' + a->toolTip();
    EXPECT_EQ(shown, QStringList({"as JSON|Ctrl+Shift+J|Selected text must be valid JSON",
                                  "Decoded Base64|Ctrl+Shift+D|Selected text must be valid Base64"}));
    pretty->actions()[0]->trigger();
    EXPECT_TRUE(viewer.isFormattedJSON());
    pretty->actions()[0]->trigger();
    EXPECT_EQ(viewer.text(), Json) << "on a formatted text it restores";
}

TEST_F(TextViewerTest, Base64DecodesTheWholeTextOrExplainsWhyNot)
{
    struct Case
    {
        QString input, result, alert; // result empty: an alert, text unchanged
    };
    const Case cases[] = {
        {"aGVsbG8=", "hello", {}},
        {"aGVs\n bG8=\n", "hello", {}}, // blanks and line breaks ignored
        {QString::fromUtf8("w6k="), QString::fromUtf8("\u00e9"), {}},
        {"!!!", {}, "Alert\nValue is not valid Base64:\n\n'!!!'"},
        {"aGVsbG8", {}, "Alert\nValue is not valid Base64:\n\n'aGVsbG8'"}, // no padding
        {"//79AAECAwQ=", {}, "Alert\nResult is not a string.\nBIN[<fffefd00 01020304>]"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.input.toStdString());
        viewer.showText(c.input);
        LogCapture log;
        viewer.onBase64Decode();
        const bool decodes = c.alert.isEmpty();
        EXPECT_EQ(decodes ? QString() : dialogs::answer(&viewer, "OK"), c.alert);
        EXPECT_EQ(viewer.text(), decodes ? c.result : c.input);
        const QString line = QStringLiteral("Base64 decoded string was empty so ignore result. Input: '%1'");
        EXPECT_EQ(log.lines(), decodes ? QStringList() : QStringList({line.arg(c.input)}));
    }
}

TEST_F(TextViewerTest, FindWrapsBothWaysCaseInsensitivelyAndLeavesTheSelectionWhenNothingMatches)
{
    viewer.showText(QStringLiteral("one two\nOne two one"));
    viewer.find();
    TextFindBar *bar = viewer.findBar();
    EXPECT_TRUE(bar->isVisible());
    bar->field()->setText(QStringLiteral("one"));
    auto at = [this] { return viewer.textView()->textCursor().selectionStart(); };
    for (int expected : {0, 8, 16, 0}) {
        viewer.findNext();
        EXPECT_EQ(at(), expected);
    }
    EXPECT_EQ(bar->statusLabel()->text(), "Wrapped around");
    viewer.findPrevious();
    EXPECT_EQ(at(), 16);

    QTest::keyClicks(bar->field(), QStringLiteral("x"));
    EXPECT_EQ(bar->statusLabel()->text(), "Not found");
    EXPECT_EQ(selected(), "one") << "typing searches at once; a miss keeps the selection";
    EXPECT_FALSE(bar->findNext());
    QTest::keyClick(bar->field(), Qt::Key_Escape);
    EXPECT_FALSE(bar->isVisible());

    // The window's keys, from the text.
    bar->field()->setText(QStringLiteral("two"));
    viewer.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&viewer));
    viewer.textView()->setFocus();
    const std::pair<QKeyCombination, int> keys[] = {{Qt::Key_F3, 4},
                                                    {Qt::CTRL | Qt::Key_G, 12},
                                                    {Qt::SHIFT | Qt::Key_F3, 4},
                                                    {Qt::CTRL | Qt::SHIFT | Qt::Key_G, 12}};
    for (const auto &[key, expected] : keys) {
        QTest::keyClick(viewer.textView(), key.key(), key.keyboardModifiers());
        EXPECT_EQ(at(), expected) << QKeySequence(key).toString().toStdString();
    }
    QTest::keyClick(viewer.textView(), Qt::Key_F, Qt::ControlModifier);
    EXPECT_TRUE(bar->isVisible());
    QTest::keyClick(viewer.textView(), Qt::Key_W, Qt::ControlModifier);
    EXPECT_FALSE(viewer.isVisible());
}

TEST_F(TextViewerTest, CopyTakesTheSelectionOrEverythingAndLinksOpenOnAClick)
{
    viewer.showText(QStringLiteral("first line\nsecond"));
    select(6, 9);
    viewer.copy();
    EXPECT_EQ(QGuiApplication::clipboard()->text(), "line\nseco");

    QTextCursor cursor = viewer.textView()->textCursor();
    cursor.setPosition(3);
    viewer.textView()->setTextCursor(cursor);
    QTest::keyClick(viewer.textView(), Qt::Key_C, Qt::ControlModifier); // the key follows the same rule
    EXPECT_EQ(QGuiApplication::clipboard()->text(), "first line\nsecond");
    EXPECT_FALSE(viewer.textView()->textCursor().hasSelection());
    EXPECT_EQ(viewer.textView()->textCursor().position(), 3);

    // Links are marked and open on a click.
    viewer.showText(QStringLiteral("see https://example.org/a?b=1, or www.x.org."));
    const QTextBlock block = viewer.textView()->document()->firstBlock();
    QStringList hrefs;
    for (auto it = block.begin(); !it.atEnd(); ++it)
        if (it.fragment().charFormat().isAnchor())
            hrefs << it.fragment().charFormat().anchorHref() + '=' + it.fragment().text();
    EXPECT_EQ(hrefs,
              QStringList({"https://example.org/a?b=1=https://example.org/a?b=1", "http://www.x.org=www.x.org"}));

    QTextCursor inLink(viewer.textView()->document());
    inLink.setPosition(10);
    const QPoint point = viewer.textView()->cursorRect(inLink).center() + QPoint(2, 0);
    QTest::mouseClick(viewer.textView()->viewport(), Qt::LeftButton, {}, point);
    EXPECT_EQ(opened, QList<QUrl>({QUrl("https://example.org/a?b=1")}));
}
