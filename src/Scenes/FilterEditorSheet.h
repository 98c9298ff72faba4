// SPDX-License-Identifier: MIT
#pragma once

#include <QDialog>

class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;

// The filter editor sheet: a name field and the filter as text, with Apply (try it on the log),
// Cancel and Save. It only reports the buttons; parsing, naming and the overwrite question belong
// to the controller. Closing the sheet with Escape or the window's close box counts as Cancel.
class FilterEditorSheet : public QDialog
{
    Q_OBJECT

public:
    explicit FilterEditorSheet(QWidget *parent = nullptr);

    QString filterName() const;
    void setFilterName(const QString &name);
    QString filterText() const;
    void setFilterText(const QString &text);
    // A parse error under the text; empty hides it.
    void setErrorText(const QString &text);
    QString errorText() const;

    QLineEdit *nameField() const { return m_name; }
    QPlainTextEdit *textView() const { return m_text; }
    QPushButton *applyButton() const { return m_apply; }
    QPushButton *saveButton() const { return m_save; }
    QPushButton *cancelButton() const { return m_cancel; }

    void showSheet(); // window-modal, no nested event loop

signals:
    void applyClicked();
    void saveClicked();
    void cancelClicked();

protected:
    void reject() override; // Escape: the controller decides what Cancel does
    void closeEvent(QCloseEvent *event) override;

private:
    QLineEdit *m_name = nullptr;
    QPlainTextEdit *m_text = nullptr;
    QLabel *m_error = nullptr;
    QPushButton *m_apply = nullptr;
    QPushButton *m_save = nullptr;
    QPushButton *m_cancel = nullptr;
};
