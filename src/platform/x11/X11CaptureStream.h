#pragma once

// The real capture stream: a small compositor of its own on an X11 display.
//
// It redirects the root's children with Composite (automatic redirection, so
// the real screen keeps painting), tracks the window tree, stacking and damage
// itself and, for each frame, composites with Render exactly the windows the
// content filter admits, then reads the picture back through MIT-SHM.
//
// Threading: the public methods run on the main thread; completions run on the
// main thread on a later event-loop turn. The compositor runs on a worker
// thread with its own XCB connection (never Qt's); frames and
// stop-with-error reach the delegate on that worker thread.
//
// Coordinates: sourceRect is display-local (origin at the display's top-left,
// y-down); one point is one pixel on X11.

#include "platform/CaptureStream.h"

#include <QByteArray>
#include <memory>

namespace vistrel {

namespace x11 {
class X11CaptureWorker;
}

class X11CaptureStream : public CaptureStream {
public:
    // displayName: the X display to connect to; empty means $DISPLAY.
    X11CaptureStream(QByteArray displayName, ContentFilter filter,
                     StreamConfiguration configuration,
                     std::weak_ptr<CaptureStreamDelegate> delegate);
    ~X11CaptureStream() override;

    std::optional<PlatformError> addStreamOutput(SampleOutputType type) override;
    // Connects, checks every extension the compositor needs and starts the
    // worker; a missing extension or display completes with a PlatformError.
    void startCapture(Completion completion) override;
    void stopCapture(Completion completion) override;
    void updateConfiguration(const StreamConfiguration& configuration,
                             Completion completion) override;
    void updateContentFilter(const ContentFilter& filter, Completion completion) override;

private:
    void complete(Completion completion, std::optional<PlatformError> error);

    std::unique_ptr<x11::X11CaptureWorker> m_worker;
    std::unique_ptr<QObject> m_mainThreadContext;
};

namespace x11 {
using vistrel::X11CaptureStream;
}

} // namespace vistrel
