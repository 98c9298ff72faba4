// SPDX-License-Identifier: MIT
#pragma once

#include <QDialog>
#include <QStringList>

class QComboBox;
class QPushButton;

// The sheet that asks which of several attached devices to log. Shown window-modal with open();
// finished(int) carries a non-zero code when the user chose Connect.
class DevicePickerSheet : public QDialog
{
    Q_OBJECT

public:
    explicit DevicePickerSheet(QWidget *parent = nullptr);

    void setDeviceTitles(const QStringList &titles);
    QStringList deviceTitles() const;
    int selectedIndex() const;
    void setSelectedIndex(int index);

    // The two buttons: each ends the sheet (1 to connect, 0 to cancel) and writes a diagnostic line.
    void startLogForDevice();
    void cancelDevicePicker();

    // Escape cancels as the button does.
    void reject() override { cancelDevicePicker(); }

    QPushButton *connectButton() const { return m_connect; }
    QPushButton *cancelButton() const { return m_cancel; }

private:
    QComboBox *m_devices = nullptr;
    QPushButton *m_connect = nullptr;
    QPushButton *m_cancel = nullptr;
};
