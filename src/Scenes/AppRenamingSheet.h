// SPDX-License-Identifier: MIT
#pragma once

#include <QDialog>

#include <optional>

class QLabel;
class QLineEdit;
class QPushButton;

// The sheet that names the application of a process the log has no name for. Shown window-modal with
// open(); the controller hands the name to the log model and ends the sheet with code 1.
class AppRenamingSheet : public QDialog
{
    Q_OBJECT

public:
    explicit AppRenamingSheet(QWidget *parent = nullptr);

    QLineEdit *appName() const { return m_appName; }
    const std::optional<QString> &pidToRename() const { return m_pidToRename; }
    void setPidToRename(const QString &pid);

    // The cancel button (and Escape): ends the sheet with code 0.
    void onAppRenameCancel();
    void reject() override { onAppRenameCancel(); }

    QPushButton *saveButton() const { return m_save; }

signals:
    // The save button (and Return).
    void appRenameSave();

private:
    QLineEdit *m_appName = nullptr;
    QLabel *m_label = nullptr;
    QPushButton *m_save = nullptr;
    std::optional<QString> m_pidToRename;
};
