// SPDX-License-Identifier: MIT
#pragma once

#include <QPointF>

// One pending touch of TouchWriter, in device pixels: a tap at point, or a swipe from point to destPoint.
struct PointWrapper
{
    QPointF point;
    QPointF destPoint; // (0, 0) for a tap
    bool isSwipe = false;

    static PointWrapper tap(QPointF point) { return {point, QPointF(0, 0), false}; }
    static PointWrapper swipe(QPointF from, QPointF to) { return {from, to, true}; }
};
