// SPDX-License-Identifier: MIT
#include "Scenes/DevicePickerSheet.h"

#include "Helpers/Logger.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

DevicePickerSheet::DevicePickerSheet(QWidget *parent)
    : QDialog(parent)
    , m_devices(new QComboBox(this))
{
    setObjectName(QStringLiteral("devicePickerSheet"));
    setWindowTitle(tr("Choose Device"));
    setWindowModality(Qt::WindowModal);

    auto *label = new QLabel(tr("Several devices are attached. Which one do you want to log?"), this);
    label->setWordWrap(true);
    m_devices->setObjectName(QStringLiteral("devicePopup"));
    m_devices->setMinimumWidth(320);

    auto *buttons = new QDialogButtonBox(this);
    m_cancel = buttons->addButton(tr("Cancel"), QDialogButtonBox::RejectRole);
    m_connect = buttons->addButton(tr("Connect"), QDialogButtonBox::AcceptRole);
    m_connect->setDefault(true);
    connect(buttons, &QDialogButtonBox::accepted, this, &DevicePickerSheet::startLogForDevice);
    connect(buttons, &QDialogButtonBox::rejected, this, &DevicePickerSheet::cancelDevicePicker);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(label);
    layout->addWidget(m_devices);
    layout->addSpacing(8);
    layout->addWidget(buttons);
    layout->setSizeConstraint(QLayout::SetFixedSize);
}

void DevicePickerSheet::setDeviceTitles(const QStringList &titles)
{
    m_devices->clear();
    m_devices->addItems(titles);
    m_devices->setCurrentIndex(titles.isEmpty() ? -1 : 0);
}

QStringList DevicePickerSheet::deviceTitles() const
{
    QStringList titles;
    for (int i = 0; i < m_devices->count(); ++i)
        titles << m_devices->itemText(i);
    return titles;
}

int DevicePickerSheet::selectedIndex() const
{
    return m_devices->currentIndex();
}

void DevicePickerSheet::setSelectedIndex(int index)
{
    m_devices->setCurrentIndex(index);
}

void DevicePickerSheet::startLogForDevice()
{
    QF_LOG(QStringLiteral("device picked: %1 (%2)").arg(selectedIndex()).arg(m_devices->currentText()));
    done(1);
}

void DevicePickerSheet::cancelDevicePicker()
{
    QF_LOG(QStringLiteral("device picker cancelled"));
    done(0);
}
