#pragma once

// Video planes on an X server, drawn with Render from a connection of
// their own. A frame that the capture stream left on the server (a shared
// pixmap of its buffer pool) is scaled from there; any other frame is first
// put into a pixmap of the plane, only where it changed.
//
// A buffer pool lets a buffer be written again once no copy of its frame
// lives. The plane therefore keeps the frame it last drew from until the
// server has answered a request sent after that drawing.
//
// Threading: main thread only (the connection is not shared with a thread).

#include "platform/VideoPlane.h"
#include "platform/x11/X11RenderFormats.h"
#include "platform/x11/XcbPtr.h"
#include "platform/x11/XcbResource.h"

#include <QByteArray>
#include <memory>
#include <optional>
#include <vector>

class QTimer;

namespace vistrel::x11 {

class X11VideoPlaneFactory final : public VideoPlaneFactory {
public:
    struct Shared;

    // Null when the display cannot be reached or lacks Render.
    static std::unique_ptr<X11VideoPlaneFactory> connect(const QByteArray& displayName = {});
    ~X11VideoPlaneFactory() override;

    std::unique_ptr<VideoPlane> createPlane() override;
    // X errors met by the planes so far (a window that vanished, a freed pixmap).
    int errorCount() const;

private:
    explicit X11VideoPlaneFactory(std::shared_ptr<Shared> shared);
    std::shared_ptr<Shared> m_shared;
};

class X11VideoPlane final : public VideoPlane {
public:
    explicit X11VideoPlane(std::shared_ptr<X11VideoPlaneFactory::Shared> shared);
    ~X11VideoPlane() override;
    X11VideoPlane(const X11VideoPlane&) = delete;
    X11VideoPlane& operator=(const X11VideoPlane&) = delete;

    bool setWindow(quintptr window, QSize size) override;
    void setBackdrop(const QImage& image, const QColor& color) override;
    void present(const SampleBuffer& frame, const QRectF& target, const QRegion& area) override;
    void redraw(const QRegion& area) override;
    void clear() override;

private:
    // A picture on a frame pixmap of the stream; it keeps the pixmap's
    // storage alive on the server even after the stream freed it.
    struct Source {
        ServerFrame frame;
        XcbPicture picture;
    };

    void release();
    xcb_render_picture_t sourceFor(const SampleBuffer& frame);
    xcb_render_picture_t upload(const SampleBuffer& frame);
    void putImage(xcb_drawable_t drawable, const QImage& image, const QRegion& region);
    void compose(const QRegion& area);
    // Backdrop and frame in the buffer, then onto the window.
    void composeLayered(const QRegion& area, const QRegion& framed);
    // `source` onto `target` inside `region`, in the same coordinates.
    void draw(quint8 op, xcb_render_picture_t source, xcb_render_picture_t target,
              const QRegion& region);
    // Lets go of the frame drawn before the current one once the server is
    // done with it; with `wait`, waits for that.
    void retire(bool wait);

    std::shared_ptr<X11VideoPlaneFactory::Shared> m_shared;
    xcb_connection_t* m_c;

    xcb_window_t m_window = 0;
    QSize m_size;
    xcb_render_pictformat_t m_windowFormat = 0;
    quint8 m_backDepth = 0;
    XcbPicture m_windowPicture;
    XcbPixmap m_backPixmap;
    XcbPicture m_back;
    XcbPixmap m_backdropPixmap;
    XcbPicture m_backdrop; // none: the colour
    QColor m_backdropColor = Qt::black;
    XcbGc m_putGc; // for 32-bit pixmaps

    SampleBuffer m_frame; // the frame shown; no image: none
    QRectF m_target;
    xcb_render_picture_t m_source = 0;
    std::vector<Source> m_sources; // of the newest buffer set met
    XcbPixmap m_uploadPixmap;
    XcbPicture m_upload;
    QSize m_uploadSize;
    qint64 m_uploadedAt = 0; // presentation time of the frame in the upload pixmap

    SampleBuffer m_retiring;
    std::optional<xcb_get_input_focus_cookie_t> m_retiringFence;
    std::unique_ptr<QTimer> m_retireTimer;
};

} // namespace vistrel::x11
