#pragma once

#include "model/OutputSettings.h"
#include "platform/CameraPort.h"

#include <QImage>
#include <QPainterPath>
#include <QPointer>
#include <QWidget>

namespace vistrel {

// The live camera picture cut to the bubble's shape. The picture fills the
// widget and is cropped, never letter-boxed; outside the shape the widget is
// fully transparent, so the host can lay it over anything. Size, position and
// shadow are the host's. The view never takes mouse events.
//
// Any number of views may show the same session. Main thread only.
class CameraPreviewView : public QWidget {
    Q_OBJECT

public:
    explicit CameraPreviewView(QWidget* parent = nullptr);

    // Setting the session that is already shown changes nothing; a session
    // that goes away leaves the view empty.
    void setSession(CameraFrameSource* session);
    CameraFrameSource* session() const { return m_session; }

    void setShape(CameraShape shape);
    CameraShape shape() const { return m_shape; }

    // Flips the picture horizontally, like a mirror.
    void setMirrored(bool mirrored);
    bool isMirrored() const { return m_mirrored; }

    // The visible area for a widget of this size, in widget coordinates:
    // circle = centred, diameter the shorter side; square = everything;
    // rounded square = everything with corners of 0.18 x the shorter side.
    static QPainterPath maskPath(CameraShape shape, const QSizeF& size);
    // Where a picture of imageSize is drawn so that it covers bounds with its
    // aspect ratio kept, centred (the overflow is cut off).
    static QRectF aspectFillRect(const QSizeF& imageSize, const QRectF& bounds);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void takeLatestFrame();

    QPointer<CameraFrameSource> m_session;
    QMetaObject::Connection m_frameConnection;
    QMetaObject::Connection m_destroyedConnection;
    QImage m_frame; // the newest picture taken from the session
    CameraShape m_shape = CameraShape::circle;
    bool m_mirrored = false;
};

} // namespace vistrel
