#pragma once

// The real capture backend: content snapshots from X11 discovery, streams
// from the compositor of X11CaptureStream, both on the given display.
//
// Threading: main thread, as the port says.

#include "platform/CaptureBackend.h"

#include <QByteArray>
#include <QObject>

namespace vistrel::x11 {

class X11ShareableContentSource;

class X11CaptureBackend : public QObject, public CaptureBackend {
    Q_OBJECT
public:
    // displayName: the X display; empty means $DISPLAY.
    explicit X11CaptureBackend(QByteArray displayName = {}, QObject* parent = nullptr);
    ~X11CaptureBackend() override;

    void getShareableContent(bool excludingDesktopWindows, bool onScreenWindowsOnly,
                             ContentCompletion completion) override;
    std::unique_ptr<CaptureStream>
    createStream(const ContentFilter& filter, const StreamConfiguration& configuration,
                 std::weak_ptr<CaptureStreamDelegate> delegate) override;

private:
    QByteArray m_displayName;
    X11ShareableContentSource* m_source; // child
};

} // namespace vistrel::x11
