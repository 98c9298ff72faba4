// SPDX-License-Identifier: MIT
#pragma once

#include <QMainWindow>
#include <QUrl>

#include <functional>
#include <memory>

class QAction;
class QMenu;
class QPlainTextEdit;
class QPrinter;
class QTextCursor;
class TextFindBar;

// The message viewer: one reused window in which a log message is read at full length and reshaped.
// "Format JSON" and "Format XML" pretty-print the selection, or the whole text without one, as one undo
// step, and turn into "Restore Text", which brings back the text as it was handed in (and relabels
// both). Base64 decoding replaces the same target with its UTF-8 text or explains in an alert why it
// cannot. Links in the text are underlined and open on a click; the find bar, printing and a fixed-pitch
// font complete it. GUI thread only.
class TextViewerWindowController : public QMainWindow
{
    Q_OBJECT

public:
    // Opens a clicked link; null means QDesktopServices::openUrl.
    explicit TextViewerWindowController(std::function<void(const QUrl &)> openUrl = {}, QWidget *parent = nullptr);
    ~TextViewerWindowController() override;

    // Shows, raises and activates the window, then gives it the text (setString).
    void showText(const QString &text);
    // The viewer is the active window.
    bool isKeyWindow() const;
    // Copies the selection; with none, the whole text (the empty selection stays).
    void copy();
    // The text shown.
    QString text() const;

    // resetWindow, then the text becomes the one "Restore Text" brings back and is shown.
    void setString(const QString &text);
    // Forgets the text, restores, and sets the fixed-pitch font.
    void resetWindow();
    // Both toggles back to "Format JSON"/"Format XML", the text as handed in.
    void restoreContent();

    // The toolbar toggles: format the target, or restore when already applied.
    void onFormatJson();
    void onFormatXml();
    void onBase64Decode();
    void printDocument();
    void find();
    void findNext();
    void findPrevious();
    // Kept for the toolbar, deliberately without effect: there is no paste service to send to.
    void onSendToPastebin();

    // The text area's menu: its standard items, then "Pretty Print" ("as JSON", "Decoded Base64").
    std::unique_ptr<QMenu> contextMenu(const QPoint &position);

    bool isFormattedJSON() const { return m_isFormattedJSON; }
    bool isFormattedXML() const { return m_isFormattedXML; }
    QString originalString() const { return m_originalString; }
    QPlainTextEdit *textView() const { return m_textView; }
    TextFindBar *findBar() const { return m_findBar; }
    QAction *formatJsonButton() const { return m_formatJsonButton; }
    QAction *formatXmlButton() const { return m_formatXmlButton; }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void createActions();
    // The selection, or the whole text when nothing is selected.
    QString targetText() const;
    // Puts `replacement` over the selection, or over everything without one, as one undo step.
    void replaceTarget(const QString &replacement);
    void toggleFormat(bool &flag, QAction *button, QString (*printer)(const QString &));
    void showDecodeAlert(const QString &text);
    void markLinks(QTextCursor &editing);
    QString linkAt(const QPoint &viewportPosition) const;

    std::function<void(const QUrl &)> m_openUrl;
    QPlainTextEdit *m_textView = nullptr;
    TextFindBar *m_findBar = nullptr;
    QAction *m_formatJsonButton = nullptr;
    QAction *m_formatXmlButton = nullptr;
    std::unique_ptr<QPrinter> m_printer;
    QString m_originalString;
    bool m_isFormattedJSON = false;
    bool m_isFormattedXML = false;
    QPoint m_pressPosition; // where a left click on a link began, to tell it from a drag
};
