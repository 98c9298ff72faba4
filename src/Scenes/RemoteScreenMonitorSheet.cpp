// SPDX-License-Identifier: MIT
#include "Scenes/RemoteScreenMonitorSheet.h"

#include "Android/InputCommandEncoder.h"
#include "Android/TouchWriter.h"
#include "Android/TypeWriter.h"
#include "Helpers/Logger.h"
#include "Scenes/ScreenImageView.h"
#include "Scenes/WindowCommands.h"

#include <QAction>
#include <QApplication>
#include <QBuffer>
#include <QClipboard>
#include <QCloseEvent>
#include <QKeyEvent>
#include <QLabel>
#include <QPainter>
#include <QScreen>
#include <QStatusBar>
#include <QStyle>
#include <QToolBar>

#include <cmath>

RemoteScreenMonitorSheet::RemoteScreenMonitorSheet(const AdbConnectionSettings &settings, QWidget *parent)
    : QMainWindow(parent), m_settings(settings), m_touchWriter(std::make_unique<TouchWriter>()),
      m_typeWriter(std::make_unique<TypeWriter>())
{
    setObjectName(QStringLiteral("RemoteScreenMonitor"));
    setWindowTitle(tr("Remote Screen Monitor"));
    setAttribute(Qt::WA_DeleteOnClose, false);
    setConnectionSettings(settings);

    m_imageView = new ScreenImageView(this);
    m_imageView->setFocusPolicy(Qt::StrongFocus); // key presses reach keyPressEvent through it
    setCentralWidget(m_imageView);
    connect(m_imageView, &ScreenImageView::entered, this, &RemoteScreenMonitorSheet::mouseEntered);
    connect(m_imageView, &ScreenImageView::left, this, &RemoteScreenMonitorSheet::mouseExited);
    connect(m_imageView, &ScreenImageView::moved, this, &RemoteScreenMonitorSheet::mouseMoved);
    connect(m_imageView, &ScreenImageView::pressed, this, &RemoteScreenMonitorSheet::mouseDown);
    connect(m_imageView, &ScreenImageView::dragged, this, &RemoteScreenMonitorSheet::mouseDragged);
    connect(m_imageView, &ScreenImageView::released, this, &RemoteScreenMonitorSheet::mouseUp);

    m_statusBarTextField = new QLabel(this);
    m_statusBarTextField->setObjectName(QStringLiteral("statusBarTextField"));
    statusBar()->addWidget(m_statusBarTextField, 1);
    statusBar()->setSizeGripEnabled(false);

    createToolBar();
    configureToolbarButtons();

    WindowCommands::addCloseShortcut(this);

    // A phone's proportions until the first image says otherwise, as tall as the screen allows.
    const int available = screen() ? screen()->availableGeometry().height() : 1000;
    const int viewHeight = std::min(900, available - 110);
    resize(viewHeight * 9 / 20, viewHeight + 80);
}

RemoteScreenMonitorSheet::~RemoteScreenMonitorSheet() = default;

void RemoteScreenMonitorSheet::createToolBar()
{
    QToolBar *bar = addToolBar(tr("Remote Screen"));
    bar->setObjectName(QStringLiteral("remoteScreenToolBar"));
    bar->setMovable(false);
    bar->setFloatable(false);
    bar->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
    bar->setIconSize(QSize(16, 16));
    // Compact, so the window stays phone-narrow beside the main window.
    QFont small = bar->font();
    small.setPointSizeF(small.pointSizeF() * 0.85);
    bar->setFont(small);
    const QStyle *s = style();
    auto add = [&](const QString &text, const QIcon &icon, void (RemoteScreenMonitorSheet::*slot)()) {
        QAction *action = bar->addAction(icon, text);
        connect(action, &QAction::triggered, this, slot);
        return action;
    };
    m_autoRefreshItem = add(tr("Stop"), QIcon(), &RemoteScreenMonitorSheet::onToggleAutoRefresh);
    m_snapshotItem = add(tr("Snapshot"), s->standardIcon(QStyle::SP_BrowserReload), &RemoteScreenMonitorSheet::takeSnapshot);
    add(tr("Menu"), s->standardIcon(QStyle::SP_FileDialogListView), &RemoteScreenMonitorSheet::menuKey);
    add(tr("Home"), s->standardIcon(QStyle::SP_DirHomeIcon), &RemoteScreenMonitorSheet::homeKey);
    add(tr("Back"), s->standardIcon(QStyle::SP_ArrowBack), &RemoteScreenMonitorSheet::backKey);
    QAction *copy = add(tr("Copy"), s->standardIcon(QStyle::SP_FileDialogContentsView),
                        &RemoteScreenMonitorSheet::copyScaledImage);
    copy->setShortcut(QKeySequence::Copy);
    copy->setToolTip(tr("Copy the image as shown"));
    add(tr("Copy Full Image"), s->standardIcon(QStyle::SP_FileDialogDetailedView),
                        &RemoteScreenMonitorSheet::copyFullImage);
}

void RemoteScreenMonitorSheet::setConnectionSettings(const AdbConnectionSettings &settings)
{
    m_settings = settings;
    m_touchWriter->setConnectionSettings(settings);
    m_typeWriter->setConnectionSettings(settings);
    if (m_screenSource)
        m_screenSource->setConnectionSettings(settings);
}

void RemoteScreenMonitorSheet::setDeviceId(const QString &deviceId)
{
    m_deviceId = deviceId;
    m_touchWriter->setDeviceId(deviceId);
    m_typeWriter->setDeviceId(deviceId);
}

void RemoteScreenMonitorSheet::showWindow()
{
    if (!m_screenSource) {
        // First showing.
        m_screenSource = std::make_unique<DeviceScreenDatasource>();
        m_screenSource->setConnectionSettings(m_settings);
        m_screenSource->setDelegate(this);
        setStatus(QString());
    }
    m_screenSource->setDeviceId(m_deviceId);
    m_screenSource->startMonitoring(true);
    configureToolbarButtons();
    show();
    raise();
    activateWindow();
}

void RemoteScreenMonitorSheet::closeEvent(QCloseEvent *event)
{
    if (m_screenSource)
        m_screenSource->stopMonitoring();
    QMainWindow::closeEvent(event);
}

void RemoteScreenMonitorSheet::configureToolbarButtons()
{
    m_autoRefreshItem->setText(m_autoRefresh ? tr("Stop") : tr("Start"));
    m_autoRefreshItem->setIcon(QIcon(m_autoRefresh ? QStringLiteral(":/icons/stop.png") : QStringLiteral(":/icons/start.png")));
    m_autoRefreshItem->setToolTip(m_autoRefresh ? tr("Stop auto refresh") : tr("Start auto refresh"));
    m_snapshotItem->setEnabled(!m_autoRefresh);
}

void RemoteScreenMonitorSheet::onToggleAutoRefresh()
{
    m_autoRefresh = !m_autoRefresh;
    QF_LOG(QStringLiteral("autoRefresh:%1").arg(int(m_autoRefresh)));
    configureToolbarButtons();
    if (!m_screenSource)
        return;
    if (m_autoRefresh)
        m_screenSource->startMonitoring(true);
    else
        m_screenSource->stopMonitoring();
}

void RemoteScreenMonitorSheet::takeSnapshot()
{
    if (m_screenSource)
        m_screenSource->startMonitoring(false);
}

void RemoteScreenMonitorSheet::onScreenUpdate(const QString &, const QImage &screen)
{
    m_imageView->setImage(screen);
    if (!screen.isNull() && screen.size() != m_screenSize) {
        m_screenSize = screen.size();
        keepProportions();
    }
    m_lastImageReceivedDate = QDateTime::currentDateTime();
    updateStatusText();
}

void RemoteScreenMonitorSheet::onScreenUpdateFailedWithError(const std::optional<AdbError> &error, const QString &deviceId)
{
    QF_LOG(QStringLiteral("screen update failed for %1: %2")
               .arg(deviceId, error ? error->toString() : QStringLiteral("(null)")));
    m_autoRefresh = false;
    configureToolbarButtons();
}

void RemoteScreenMonitorSheet::updateStatusText()
{
    if (!m_isMouseInside && m_lastImageReceivedDate)
        setStatus(QStringLiteral("Last Updated: %1").arg(m_lastImageReceivedDate->toString(QStringLiteral("HH:mm:ss"))));
}

void RemoteScreenMonitorSheet::setStatus(const QString &text)
{
    m_statusBarTextField->setText(text);
}

QString RemoteScreenMonitorSheet::statusText() const
{
    return m_statusBarTextField->text();
}

void RemoteScreenMonitorSheet::menuKey()
{
    m_typeWriter->sendMenuKey();
    setStatus(QStringLiteral("Sent Menu Key"));
}

void RemoteScreenMonitorSheet::homeKey()
{
    m_typeWriter->sendHomeKey();
    setStatus(QStringLiteral("Sent Home Key"));
}

void RemoteScreenMonitorSheet::backKey()
{
    m_typeWriter->sendBackKey();
    setStatus(QStringLiteral("Sent Back Key"));
}

void RemoteScreenMonitorSheet::copyFullImage()
{
    copyImage(m_imageView->image());
}

void RemoteScreenMonitorSheet::copyScaledImage()
{
    if (m_imageView->hasImage())
        copyImage(resizeImage(m_imageView->image(), m_imageView->width(), m_imageView->height()));
}

QImage RemoteScreenMonitorSheet::resizeImage(const QImage &image, int width, int height)
{
    QImage laidOut(std::max(width, 1), std::max(height, 1), QImage::Format_RGB32);
    laidOut.fill(Qt::white);
    QPainter painter(&laidOut);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(QRect(0, 0, width, height), image);
    painter.end();
    QByteArray jpeg;
    QBuffer buffer(&jpeg);
    buffer.open(QIODevice::WriteOnly);
    laidOut.save(&buffer, "JPEG");
    return QImage::fromData(jpeg, "JPEG");
}

void RemoteScreenMonitorSheet::copyImage(const QImage &image)
{
    if (image.isNull())
        return;
    QClipboard *clipboard = QApplication::clipboard();
    clipboard->clear();
    clipboard->setImage(image);
    setStatus(QStringLiteral("Copied to Clipboard"));
}

bool RemoteScreenMonitorSheet::isTouchEnabled() const
{
    return m_imageView->hasImage();
}

QPointF RemoteScreenMonitorSheet::normalizePoint(QPointF p, double containerHeight, QSizeF imagePixels, QSizeF viewSize)
{
    const double flippedY = containerHeight - p.y();
    const double pw = imagePixels.width(), ph = imagePixels.height();
    const double sx = viewSize.width() / pw, sy = viewSize.height() / ph;
    double x = std::min(p.x() / sx, pw);
    double y = std::min(flippedY / sy, ph);
    if (std::isnan(x))
        x = pw;
    if (std::isnan(y))
        y = ph;
    return {x, y};
}

QPointF RemoteScreenMonitorSheet::normalizePoint(QPointF windowPoint) const
{
    return normalizePoint(windowPoint, m_imageView->height(), QSizeF(m_imageView->image().size()),
                          QSizeF(m_imageView->size()));
}

QPointF RemoteScreenMonitorSheet::windowPoint(QPointF viewPosition) const
{
    return {viewPosition.x(), m_imageView->height() - viewPosition.y()};
}

void RemoteScreenMonitorSheet::mouseEntered()
{
    if (!isTouchEnabled())
        return;
    m_isMouseInside = true;
    m_imageView->setCursor(Qt::PointingHandCursor);
    setStatus(QStringLiteral("Click to send touch events to device"));
}

void RemoteScreenMonitorSheet::mouseExited()
{
    if (!isTouchEnabled())
        return;
    m_isMouseInside = false;
    m_imageView->unsetCursor();
    updateStatusText();
}

void RemoteScreenMonitorSheet::mouseMoved(QPointF position)
{
    if (!isTouchEnabled())
        return;
    // A pointer already inside when the first image came counts as entered.
    if (!m_isMouseInside)
        mouseEntered();
    const QPointF device = normalizePoint(windowPoint(position));
    setStatus(QStringLiteral("x=%1, y=%2")
                  .arg(InputCommandEncoder::formatCoordinate(device.x()), InputCommandEncoder::formatCoordinate(device.y())));
}

void RemoteScreenMonitorSheet::mouseDown(QPointF position)
{
    if (!isTouchEnabled())
        return;
    m_touchDownPoint = windowPoint(position);
    m_isDragged = false;
    m_imageView->setCursor(Qt::ClosedHandCursor);
}

void RemoteScreenMonitorSheet::mouseDragged(QPointF)
{
    if (!isTouchEnabled())
        return;
    m_isDragged = true;
    m_imageView->setCursor(Qt::OpenHandCursor);
}

void RemoteScreenMonitorSheet::mouseUp(QPointF position)
{
    if (!isTouchEnabled())
        return;
    const QPointF to = normalizePoint(windowPoint(position));
    if (m_isDragged)
        m_touchWriter->sendSwipeFrom(normalizePoint(m_touchDownPoint), to);
    else
        m_touchWriter->sendTouchForPoint(to);
    m_imageView->setCursor(Qt::PointingHandCursor);
    m_touchDownPoint = QPointF(0, 0);
    m_isDragged = false;
}

QString RemoteScreenMonitorSheet::keyEventCharacters(int key, Qt::KeyboardModifiers modifiers, const QString &text)
{
    switch (key) {
    case Qt::Key_Up: return QString(QChar(0));
    case Qt::Key_Down: return QString(QChar(1));
    case Qt::Key_Left: return QString(QChar(2));
    case Qt::Key_Right: return QString(QChar(3));
    case Qt::Key_Backspace: return QString(QChar(0x7f));
    case Qt::Key_Return:
    case Qt::Key_Enter: return QStringLiteral("\r");
    case Qt::Key_Tab: return QStringLiteral("\t");
    default: break;
    }
    if ((modifiers & Qt::ControlModifier) && key >= Qt::Key_A && key <= Qt::Key_Z) {
        const QChar letter(u'a' + (key - Qt::Key_A));
        return (modifiers & Qt::ShiftModifier) ? QString(letter.toUpper()) : QString(letter);
    }
    return text;
}

void RemoteScreenMonitorSheet::keyPressEvent(QKeyEvent *event)
{
    QF_LOG(QStringLiteral("key %1 text '%2'").arg(event->key()).arg(event->text()));
    const QString characters = keyEventCharacters(event->key(), event->modifiers(), event->text());
    if (m_typeWriter->sendKeyEvent(characters, event->modifiers() & Qt::ControlModifier))
        QApplication::beep();
}

void RemoteScreenMonitorSheet::resizeEvent(QResizeEvent *event)
{
    QMainWindow::resizeEvent(event);
    keepProportions();
}

void RemoteScreenMonitorSheet::keepProportions()
{
    // X11 has no content aspect ratio a toolkit can set; the height follows the width instead, and
    // where that would leave the screen, the width follows the height.
    if (m_screenSize.isEmpty() || !isVisible())
        return;
    const double aspect = double(m_screenSize.height()) / m_screenSize.width();
    const int chrome = height() - m_imageView->height();
    int viewWidth = m_imageView->width();
    int viewHeight = int(std::lround(viewWidth * aspect));
    if (const QScreen *s = screen(); s && viewHeight + chrome > s->availableGeometry().height()) {
        viewHeight = s->availableGeometry().height() - chrome;
        viewWidth = int(std::lround(viewHeight / aspect));
    }
    const QSize wanted(width() - m_imageView->width() + viewWidth, viewHeight + chrome);
    if (std::abs(wanted.width() - width()) > 1 || std::abs(wanted.height() - height()) > 1)
        resize(wanted);
}
