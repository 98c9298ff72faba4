// SPDX-License-Identifier: MIT
#pragma once

#include <QImage>
#include <QWidget>

// Shows the device's screenshot stretched to the view (the window keeps the device's proportions) and
// reports the pointer in view coordinates. GUI thread only.
class ScreenImageView : public QWidget
{
    Q_OBJECT

public:
    explicit ScreenImageView(QWidget *parent = nullptr);

    // A null image clears the view.
    void setImage(const QImage &image);
    const QImage &image() const { return m_image; }
    bool hasImage() const { return !m_image.isNull(); }

    QSize sizeHint() const override { return {360, 800}; }
    QSize minimumSizeHint() const override { return {90, 200}; }

signals:
    void entered();
    void left();
    void moved(QPointF position);
    void pressed(QPointF position);
    void dragged(QPointF position);
    void released(QPointF position);

protected:
    void paintEvent(QPaintEvent *event) override;
    void enterEvent(QEnterEvent *event) override;
    void leaveEvent(QEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;

private:
    QImage m_image;
};
