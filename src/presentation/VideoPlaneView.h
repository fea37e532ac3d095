#pragma once

// The native window a video plane draws into, laid over a video layer
// widget of the same top-level window. Qt never paints it: the plane draws
// the frames on the display server, and an exposed part is redrawn from
// what the plane holds.
//
// What the window draws over the video (a camera bubble, a badge, a frame
// along the edge) is cut out of this window's shape, so that Qt's own
// painting, the video included, shows there instead.
//
// Coordinates: the video widget's, which this window covers exactly, in
// device-independent pixels (Qt may scale them for a high-density screen).
// Threading: main thread only.

#include "platform/VideoPlane.h"

#include <QPointer>
#include <QWidget>
#include <memory>

namespace vistrel {

class VideoPlaneView : public QWidget {
    Q_OBJECT

public:
    // A child of `video`'s top-level window, following `video`'s place and
    // visibility.
    VideoPlaneView(std::unique_ptr<VideoPlane> plane, QWidget* video);
    ~VideoPlaneView() override;

    // The plane's operations in this widget's coordinates; the plane itself
    // works in the window's device pixels.
    void present(const SampleBuffer& frame, const QRectF& target, const QRegion& area);
    void clear();
    // An image of this widget's size in device pixels.
    void setBackdrop(const QImage& image);
    // False once the plane could not draw into the window; the view then
    // stays hidden, and the video widget paints the frames itself.
    bool isUsable() const { return m_usable; }
    // The parts of the video widget that other widgets draw over.
    void setOverdrawn(const QRegion& region);

    QPaintEngine* paintEngine() const override { return nullptr; }

Q_SIGNALS:
    void unusable();

protected:
    bool event(QEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void follow();
    void attach();
    // The window's shape: all of it but the overdrawn parts.
    void applyMask();
    QRegion toDevice(const QRegion& region) const;

    std::unique_ptr<VideoPlane> m_plane;
    QPointer<QWidget> m_video;
    QRegion m_overdrawn;
    bool m_usable = true;
};

} // namespace vistrel
