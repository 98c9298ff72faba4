// SPDX-License-Identifier: MIT
#pragma once

#include "Android/AdbConnectionSettings.h"
#include "Session/DeviceScreenDatasource.h"

#include <QDateTime>
#include <QMainWindow>
#include <QPointF>

#include <memory>

class QAction;
class QKeyEvent;
class QLabel;
class ScreenImageView;
class TouchWriter;
class TypeWriter;

// The "Remote Screen Monitor" window: the device's screen, refreshed continuously or on demand, with
// clicks and drags sent back as taps and swipes and key presses as text and key events. Created once by
// the application controller and kept; closing it stops the screenshots.
//
// Coordinates: "window points" have their origin at the bottom left of the image area, y upwards;
// device points the top left of the screen, y downwards, in device pixels. GUI thread only.
class RemoteScreenMonitorSheet : public QMainWindow, public DeviceScreenDatasourceDelegate
{
    Q_OBJECT

public:
    explicit RemoteScreenMonitorSheet(const AdbConnectionSettings &settings, QWidget *parent = nullptr);
    ~RemoteScreenMonitorSheet() override;

    // The server to talk to; takes effect with the next capture and the next input.
    void setConnectionSettings(const AdbConnectionSettings &settings);
    QString deviceId() const { return m_deviceId; }
    void setDeviceId(const QString &deviceId);
    // Shows the window and (re)starts monitoring with auto refresh, whatever the switch shows.
    void showWindow();

    // --- Commands ---
    void onToggleAutoRefresh();
    void takeSnapshot();
    void copyScaledImage();
    void copyFullImage();
    void menuKey();
    void homeKey();
    void backKey();

    // --- DeviceScreenDatasourceDelegate ---
    void onScreenUpdate(const QString &deviceId, const QImage &screen) override;
    void onScreenUpdateFailedWithError(const std::optional<AdbError> &error, const QString &deviceId) override;

    // Window point -> device pixels: each axis scaled on its own (letterbox ignored), only the upper
    // bound clamped, so a point left of the image keeps its negative x; 0/0 gives the image's size.
    static QPointF normalizePoint(QPointF windowPoint, double containerHeight, QSizeF imagePixels,
                                  QSizeF viewSize);
    QPointF normalizePoint(QPointF windowPoint) const;
    // A valid image is shown.
    bool isTouchEnabled() const;
    // The image as laid out in a view of width x height, through a JPEG round trip (lossy, as copied).
    static QImage resizeImage(const QImage &image, int width, int height);
    // A host key press as the characters the key mapping expects: arrows as 0-3, backspace as 0x7F,
    // return as CR, and with Ctrl held the key's own character rather than a control code.
    static QString keyEventCharacters(int key, Qt::KeyboardModifiers modifiers, const QString &text);

    // --- Parts, for the controller and tests ---
    bool autoRefresh() const { return m_autoRefresh; }
    QAction *autoRefreshItem() const { return m_autoRefreshItem; }
    QAction *snapshotItem() const { return m_snapshotItem; }
    QString statusText() const;
    ScreenImageView *imageView() const { return m_imageView; }
    DeviceScreenDatasource *screenSource() const { return m_screenSource.get(); }
    TypeWriter *typeWriter() const { return m_typeWriter.get(); }
    TouchWriter *touchWriter() const { return m_touchWriter.get(); }

protected:
    void closeEvent(QCloseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void createToolBar();
    void configureToolbarButtons();
    void updateStatusText();
    void setStatus(const QString &text);
    void copyImage(const QImage &image);
    void keepProportions();
    QPointF windowPoint(QPointF viewPosition) const;

    void mouseEntered();
    void mouseExited();
    void mouseMoved(QPointF position);
    void mouseDown(QPointF position);
    void mouseDragged(QPointF position);
    void mouseUp(QPointF position);

    AdbConnectionSettings m_settings;
    QString m_deviceId;
    bool m_autoRefresh = true;
    bool m_isDragged = false;
    bool m_isMouseInside = false;
    std::optional<QDateTime> m_lastImageReceivedDate;
    QPointF m_touchDownPoint; // raw window point of the last press; (0, 0) when none is pending
    QSize m_screenSize;       // of the last valid image, for the window's proportions

    ScreenImageView *m_imageView = nullptr; // also the containing view: it fills the window's middle
    QLabel *m_statusBarTextField = nullptr;
    QAction *m_autoRefreshItem = nullptr;
    QAction *m_snapshotItem = nullptr;
    std::unique_ptr<DeviceScreenDatasource> m_screenSource; // made on first showing
    std::unique_ptr<TouchWriter> m_touchWriter;
    std::unique_ptr<TypeWriter> m_typeWriter;
};
