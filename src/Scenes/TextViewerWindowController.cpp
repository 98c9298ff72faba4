// SPDX-License-Identifier: MIT
#include "Scenes/TextViewerWindowController.h"

#include "Helpers/LinkFinder.h"
#include "Helpers/Logger.h"
#include "Helpers/TextHelpers.h"
#include "Helpers/TextUtils.h"
#include "Scenes/TextFindBar.h"
#include "Scenes/WindowCommands.h"

#include <QAction>
#include <QApplication>
#include <QDesktopServices>
#include <QFontDatabase>
#include <QKeyEvent>
#include <QMenu>
#include <QMessageBox>
#include <QMouseEvent>
#include <QPlainTextEdit>
#include <QPrintDialog>
#include <QPrinter>
#include <QScrollBar>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>
#include <QToolBar>
#include <QVBoxLayout>

#include <optional>

namespace {

// Undo and find see the text as blocks; the rest of the program sees line feeds.
QString withLineFeeds(QString text)
{
    return text.replace(QChar::ParagraphSeparator, QLatin1Char('\n'));
}

// Base64 with every character outside the alphabet ignored (so line breaks and blanks may stand
// anywhere); what is left must be whole groups of four. Nothing on failure.
std::optional<QByteArray> decodeBase64(const QString &text)
{
    QByteArray alphabet;
    alphabet.reserve(text.size());
    for (const QChar ch : text) {
        const char16_t c = ch.unicode();
        if ((c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z') || (c >= u'0' && c <= u'9') || c == u'+' ||
            c == u'/' || c == u'=')
            alphabet.append(char(c));
    }
    if (alphabet.size() % 4 != 0)
        return std::nullopt;
    auto result = QByteArray::fromBase64Encoding(alphabet, QByteArray::AbortOnBase64DecodingErrors);
    if (!result)
        return std::nullopt;
    return result.decoded;
}

// Bytes as "<68656c6c 6f>": lower-case hex in groups of four bytes.
QString dataDescription(const QByteArray &bytes)
{
    const QByteArray hex = bytes.toHex();
    QString out = QStringLiteral("<");
    for (qsizetype i = 0; i < hex.size(); i += 8) {
        if (i > 0)
            out += QLatin1Char(' ');
        out += QLatin1String(hex.mid(i, 8));
    }
    return out + QLatin1Char('>');
}

} // namespace

TextViewerWindowController::TextViewerWindowController(std::function<void(const QUrl &)> openUrl, QWidget *parent)
    : QMainWindow(parent), m_openUrl(std::move(openUrl))
{
    if (!m_openUrl)
        m_openUrl = [](const QUrl &url) { QDesktopServices::openUrl(url); };
    setObjectName(QStringLiteral("TextViewerWindowController"));
    setWindowTitle(tr("Message Viewer"));
    setWindowIcon(QIcon(QStringLiteral(":/icons/quillfern-256.png")));

    auto *content = new QWidget(this);
    auto *layout = new QVBoxLayout(content);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    m_textView = new QPlainTextEdit(content);
    m_textView->setObjectName(QStringLiteral("textView"));
    m_textView->setFrameShape(QFrame::NoFrame);
    m_textView->document()->setDocumentMargin(8);
    m_textView->setContextMenuPolicy(Qt::CustomContextMenu);
    m_textView->installEventFilter(this);
    m_textView->viewport()->installEventFilter(this);
    m_textView->viewport()->setMouseTracking(true);
    m_findBar = new TextFindBar(m_textView, content);
    layout->addWidget(m_textView, 1);
    layout->addWidget(m_findBar);
    setCentralWidget(content);
    connect(m_textView, &QWidget::customContextMenuRequested, this, [this](const QPoint &position) {
        QMenu *menu = contextMenu(position).release();
        menu->setAttribute(Qt::WA_DeleteOnClose);
        menu->popup(m_textView->viewport()->mapToGlobal(position));
    });

    createActions();
    resetWindow();
    resize(820, 640);
}

TextViewerWindowController::~TextViewerWindowController() = default;

void TextViewerWindowController::createActions()
{
    auto make = [this](const QString &text, const QList<QKeySequence> &shortcuts,
                       void (TextViewerWindowController::*slot)()) {
        auto *action = new QAction(text, this);
        action->setShortcuts(shortcuts);
        connect(action, &QAction::triggered, this, slot);
        addAction(action); // the shortcuts work with the toolbar hidden too
        return action;
    };
    m_formatJsonButton = make(tr("Format JSON"), {QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_J)},
                              &TextViewerWindowController::onFormatJson);
    m_formatJsonButton->setObjectName(QStringLiteral("formatJsonButton"));
    m_formatXmlButton = make(tr("Format XML"), {}, &TextViewerWindowController::onFormatXml);
    m_formatXmlButton->setObjectName(QStringLiteral("formatXmlButton"));
    QAction *base64 = make(tr("Decode Base64"), {QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_D)},
                           &TextViewerWindowController::onBase64Decode);
    base64->setToolTip(tr("Decode the selected text, or all of it, as Base64"));
    QAction *findAction = make(tr("Find"), {QKeySequence::Find}, &TextViewerWindowController::find);
    make(tr("Find Next"), {QKeySequence(Qt::Key_F3), QKeySequence(Qt::CTRL | Qt::Key_G)},
         &TextViewerWindowController::findNext);
    make(tr("Find Previous"), {QKeySequence(Qt::SHIFT | Qt::Key_F3), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_G)},
         &TextViewerWindowController::findPrevious);
    QAction *print = make(tr("Print..."), {QKeySequence::Print}, &TextViewerWindowController::printDocument);
    QAction *pastebin = make(tr("Send to Pastebin"), {}, &TextViewerWindowController::onSendToPastebin);
    WindowCommands::addCloseShortcut(this);

    QToolBar *bar = addToolBar(tr("Message"));
    bar->setObjectName(QStringLiteral("viewerToolBar"));
    bar->setMovable(false);
    bar->setFloatable(false);
    bar->setToolButtonStyle(Qt::ToolButtonTextOnly);
    bar->addAction(m_formatJsonButton);
    bar->addAction(m_formatXmlButton);
    bar->addAction(base64);
    bar->addSeparator();
    bar->addAction(findAction);
    bar->addAction(print);
    auto *spacer = new QWidget(bar);
    spacer->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    bar->addWidget(spacer);
    bar->addAction(pastebin);
}

void TextViewerWindowController::showText(const QString &text)
{
    show();
    raise();
    activateWindow();
    setString(text);
}

bool TextViewerWindowController::isKeyWindow() const
{
    return isVisible() && isActiveWindow();
}

void TextViewerWindowController::copy()
{
    if (m_textView->textCursor().hasSelection()) {
        m_textView->copy();
        return;
    }
    const QTextCursor kept = m_textView->textCursor();
    const int scrolled = m_textView->verticalScrollBar()->value();
    m_textView->selectAll();
    m_textView->copy();
    m_textView->setTextCursor(kept);
    m_textView->verticalScrollBar()->setValue(scrolled);
}

QString TextViewerWindowController::text() const
{
    return withLineFeeds(m_textView->document()->toRawText());
}

void TextViewerWindowController::setString(const QString &text)
{
    resetWindow();
    m_originalString = text;
    restoreContent();
}

void TextViewerWindowController::resetWindow()
{
    m_originalString.clear();
    restoreContent();
    m_textView->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
}

void TextViewerWindowController::restoreContent()
{
    m_isFormattedJSON = false;
    m_isFormattedXML = false;
    m_formatJsonButton->setText(tr("Format JSON"));
    m_formatXmlButton->setText(tr("Format XML"));
    m_textView->setPlainText(m_originalString);
    QTextCursor cursor(m_textView->document());
    markLinks(cursor);
    m_textView->document()->clearUndoRedoStacks(); // the text as handed in is where undo stops
}

void TextViewerWindowController::onFormatJson()
{
    toggleFormat(m_isFormattedJSON, m_formatJsonButton, &TextUtils::lenientJsonPrettyPrinter);
}

void TextViewerWindowController::onFormatXml()
{
    toggleFormat(m_isFormattedXML, m_formatXmlButton, &TextUtils::lenientXMLPrettyPrinter);
}

void TextViewerWindowController::toggleFormat(bool &flag, QAction *button, QString (*printer)(const QString &))
{
    if (flag) {
        restoreContent(); // undoes both formats
        return;
    }
    replaceTarget(printer(targetText()));
    flag = true;
    button->setText(tr("Restore Text"));
}

void TextViewerWindowController::onBase64Decode()
{
    const QString target = targetText();
    const std::optional<QByteArray> bytes = decodeBase64(target);
    const bool isText = bytes && qf::isValidUtf8(*bytes);
    const QString decoded = isText ? QString::fromUtf8(*bytes) : QString();
    if (!decoded.isEmpty()) {
        // Undoable like a format (the document cannot take an edit past its undo stack), but the
        // format state stays: "Restore Text" also goes back to before the decoding.
        replaceTarget(decoded);
        return;
    }
    QF_LOG(QStringLiteral("Base64 decoded string was empty so ignore result. Input: '%1'").arg(target));
    if (bytes && !bytes->isEmpty())
        showDecodeAlert(QStringLiteral("Result is not a string.\nBIN[%1]").arg(dataDescription(*bytes)));
    else
        showDecodeAlert(QStringLiteral("Value is not valid Base64:\n\n'%1'").arg(target));
}

void TextViewerWindowController::showDecodeAlert(const QString &text)
{
    auto *box = new QMessageBox(this);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowModality(Qt::WindowModal);
    box->setWindowTitle(QApplication::applicationDisplayName());
    box->setIcon(QMessageBox::Critical);
    box->setText(tr("Alert"));
    box->setInformativeText(text);
    box->setDefaultButton(box->addButton(tr("OK"), QMessageBox::AcceptRole));
    box->open(); // nothing to do when it ends
}

void TextViewerWindowController::printDocument()
{
    if (!m_printer)
        m_printer = std::make_unique<QPrinter>(QPrinter::HighResolution);
    auto *dialog = new QPrintDialog(m_printer.get(), this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setWindowTitle(tr("Print Message"));
    connect(dialog, &QDialog::accepted, this, [this] { m_textView->print(m_printer.get()); });
    dialog->open();
}

void TextViewerWindowController::find()
{
    m_findBar->find();
}

void TextViewerWindowController::findNext()
{
    m_findBar->findNext();
}

void TextViewerWindowController::findPrevious()
{
    m_findBar->findPrevious();
}

void TextViewerWindowController::onSendToPastebin()
{
    QF_LOG(QStringLiteral("send to pastebin: not available"));
}

std::unique_ptr<QMenu> TextViewerWindowController::contextMenu(const QPoint &position)
{
    std::unique_ptr<QMenu> menu(m_textView->createStandardContextMenu(position));
    menu->addSeparator();
    QMenu *pretty = menu->addMenu(tr("Pretty Print"));
    pretty->setToolTipsVisible(true);
    auto item = [this, pretty](const QString &title, const QKeySequence &key, const QString &toolTip,
                               void (TextViewerWindowController::*slot)()) {
        QAction *action = pretty->addAction(title, this, slot);
        action->setShortcut(key); // shown only: the window's own action owns the key
        action->setShortcutContext(Qt::WidgetShortcut);
        action->setShortcutVisibleInContextMenu(true);
        action->setToolTip(toolTip);
    };
    item(tr("as JSON"), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_J), tr("Selected text must be valid JSON"),
         &TextViewerWindowController::onFormatJson);
    item(tr("Decoded Base64"), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_D), tr("Selected text must be valid Base64"),
         &TextViewerWindowController::onBase64Decode);
    return menu;
}

QString TextViewerWindowController::targetText() const
{
    const QTextCursor cursor = m_textView->textCursor();
    return cursor.hasSelection() ? withLineFeeds(cursor.selectedText()) : text();
}

void TextViewerWindowController::replaceTarget(const QString &replacement)
{
    QTextCursor cursor = m_textView->textCursor();
    const bool wholeText = !cursor.hasSelection();
    if (wholeText)
        cursor.select(QTextCursor::Document);
    const int start = cursor.selectionStart();
    cursor.beginEditBlock();
    cursor.insertText(replacement, QTextCharFormat());
    const int end = cursor.position();
    markLinks(cursor);
    cursor.endEditBlock();
    // A replaced selection stays selected; a whole new text is read from its top.
    cursor.setPosition(start);
    if (!wholeText)
        cursor.setPosition(end, QTextCursor::KeepAnchor);
    m_textView->setTextCursor(cursor);
    m_textView->ensureCursorVisible();
}

void TextViewerWindowController::markLinks(QTextCursor &editing)
{
    const QString all = m_textView->document()->toRawText();
    // One edit block: the layout is redone once at its end, not once per link (a long one-line
    // message with thousands of links would otherwise be laid out thousands of times).
    editing.beginEditBlock();
    QTextCharFormat plain;
    plain.setAnchor(false);
    plain.setAnchorHref(QString());
    plain.setFontUnderline(false);
    plain.clearForeground();
    editing.select(QTextCursor::Document);
    editing.setCharFormat(plain);
    for (const LinkFinder::Match &link : LinkFinder::find(all)) {
        QTextCharFormat format;
        format.setAnchor(true);
        format.setAnchorHref(link.url.toString());
        format.setFontUnderline(true);
        format.setForeground(palette().link());
        editing.setPosition(int(link.start));
        editing.setPosition(int(link.start + link.length), QTextCursor::KeepAnchor);
        editing.mergeCharFormat(format);
    }
    editing.clearSelection();
    editing.endEditBlock();
}

QString TextViewerWindowController::linkAt(const QPoint &viewportPosition) const
{
    QTextCursor cursor = m_textView->cursorForPosition(viewportPosition);
    // The nearest boundary may lie after the character under the pointer.
    if (viewportPosition.x() < m_textView->cursorRect(cursor).left())
        cursor.movePosition(QTextCursor::PreviousCharacter);
    const QRect before = m_textView->cursorRect(cursor);
    if (!cursor.movePosition(QTextCursor::NextCharacter))
        return {};
    const QRect after = m_textView->cursorRect(cursor);
    if (after.top() != before.top() || viewportPosition.x() < before.left() || viewportPosition.x() > after.left())
        return {}; // past the end of the line
    return cursor.charFormat().anchorHref();
}

bool TextViewerWindowController::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_textView && event->type() == QEvent::KeyPress &&
        static_cast<QKeyEvent *>(event)->matches(QKeySequence::Copy)) {
        copy(); // the viewer's own rule: with nothing selected, everything
        return true;
    }
    if (watched != m_textView->viewport())
        return QMainWindow::eventFilter(watched, event);
    switch (event->type()) {
    case QEvent::MouseMove: {
        const auto *mouse = static_cast<QMouseEvent *>(event);
        if (mouse->buttons() == Qt::NoButton)
            m_textView->viewport()->setCursor(linkAt(mouse->position().toPoint()).isEmpty() ? Qt::IBeamCursor
                                                                                            : Qt::PointingHandCursor);
        break;
    }
    case QEvent::MouseButtonPress:
        m_pressPosition = static_cast<QMouseEvent *>(event)->position().toPoint();
        break;
    case QEvent::MouseButtonRelease: {
        const auto *mouse = static_cast<QMouseEvent *>(event);
        const QPoint at = mouse->position().toPoint();
        if (mouse->button() != Qt::LeftButton || (at - m_pressPosition).manhattanLength() > 4)
            break;
        const QString href = linkAt(at);
        if (!href.isEmpty()) {
            QF_LOG(QStringLiteral("open link: %1").arg(href));
            m_openUrl(QUrl(href));
        }
        break;
    }
    default:
        break;
    }
    return QMainWindow::eventFilter(watched, event);
}
