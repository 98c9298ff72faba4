// SPDX-License-Identifier: MIT
#include "Scenes/ScreenImageView.h"

#include <QMouseEvent>
#include <QPainter>

ScreenImageView::ScreenImageView(QWidget *parent) : QWidget(parent)
{
    setObjectName(QStringLiteral("imageView"));
    setMouseTracking(true); // moves without a button, for the coordinates in the status line
    setAttribute(Qt::WA_OpaquePaintEvent);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
}

void ScreenImageView::setImage(const QImage &image)
{
    m_image = image;
    update();
}

void ScreenImageView::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    if (m_image.isNull()) {
        painter.fillRect(rect(), palette().window());
        return;
    }
    // Smooth scaling of a 1080 x 2400 frame into a window-sized view costs a few ms per paint.
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(rect(), m_image);
}

void ScreenImageView::enterEvent(QEnterEvent *event)
{
    QWidget::enterEvent(event);
    emit entered();
}

void ScreenImageView::leaveEvent(QEvent *event)
{
    QWidget::leaveEvent(event);
    emit left();
}

void ScreenImageView::mouseMoveEvent(QMouseEvent *event)
{
    QWidget::mouseMoveEvent(event);
    if (event->buttons() & Qt::LeftButton)
        emit dragged(event->position());
    else
        emit moved(event->position());
}

void ScreenImageView::mousePressEvent(QMouseEvent *event)
{
    QWidget::mousePressEvent(event);
    if (event->button() == Qt::LeftButton)
        emit pressed(event->position());
}

void ScreenImageView::mouseReleaseEvent(QMouseEvent *event)
{
    QWidget::mouseReleaseEvent(event);
    if (event->button() == Qt::LeftButton)
        emit released(event->position());
}
