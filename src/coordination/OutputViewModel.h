#pragma once

// The model behind the output window and the preview panel. It mirrors what
// those views need from the services (permission, capture status, active
// display and canvas, first frame, camera overlay, panic state) and derives
// what the output shows: whether a notice covers the canvas and its texts,
// the canvas size that shapes the window, and whether the camera bubble is
// drawn. It keeps the camera session in step with the camera overlay
// settings and raises a recentre token whenever another display is chosen.
//
// The output window reaches the window registry through its own environment;
// this model has no use for it.
//
// Threading: main thread only. Every mirrored field is fed through a queued
// connection; each source's current value is also delivered once on the
// first turn of the main loop after construction (the camera overlay
// included, which starts the camera when it is configured), so after that
// turn every field agrees with its source. Collaborators must outlive the
// model.

#include "capture/CapturePlan.h"
#include "capture/PermissionManager.h"
#include "capture/StreamStatus.h"
#include "model/OutputSettings.h"
#include "model/SourceIdentity.h"

#include <QColor>
#include <QImage>
#include <QObject>
#include <QSizeF>
#include <QString>
#include <optional>

namespace vistrel {

class CameraSessionManager;
class CaptureEngine;
class MainViewModel;
class OutputRenderer;

class OutputViewModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(vistrel::ScreenRecordingPermissionState permissionState READ permissionState NOTIFY
                   permissionStateChanged)
    Q_PROPERTY(vistrel::StreamStatus streamStatus READ streamStatus NOTIFY streamStatusChanged)
    Q_PROPERTY(std::optional<vistrel::ShareableDisplay> activeDisplay READ activeDisplay NOTIFY
                   activeDisplayChanged)
    // Points.
    Q_PROPERTY(
        std::optional<QSizeF> activeCanvasSize READ activeCanvasSize NOTIFY activeCanvasSizeChanged)
    Q_PROPERTY(bool hasDisplayedFrame READ hasDisplayedFrame NOTIFY hasDisplayedFrameChanged)
    Q_PROPERTY(vistrel::OutputContentMode outputContentMode READ outputContentMode NOTIFY
                   outputContentModeChanged)
    // A null image means none.
    Q_PROPERTY(
        QImage canvasBackgroundImage READ canvasBackgroundImage NOTIFY canvasBackgroundImageChanged)
    Q_PROPERTY(
        QColor canvasBackgroundColor READ canvasBackgroundColor NOTIFY canvasBackgroundColorChanged)
    // The known display the user has selected, if any.
    Q_PROPERTY(std::optional<vistrel::ShareableDisplay> preferredDisplay READ preferredDisplay
                   NOTIFY preferredDisplayChanged)
    // Raised by one for every later change of the selected display; only grows.
    Q_PROPERTY(
        quint64 outputRecenterToken READ outputRecenterToken NOTIFY outputRecenterTokenChanged)
    Q_PROPERTY(vistrel::CameraOverlayConfiguration cameraOverlay READ cameraOverlay NOTIFY
                   cameraOverlayChanged)
    Q_PROPERTY(bool isPanicHidden READ isPanicHidden NOTIFY isPanicHiddenChanged)

public:
    static constexpr QSizeF fallbackCanvasSize{1920, 1080};

    OutputViewModel(PermissionManager& permissionManager, MainViewModel& mainViewModel,
                    CaptureEngine& captureEngine, OutputRenderer& renderer,
                    CameraSessionManager& cameraSessionManager, QObject* parent = nullptr);
    ~OutputViewModel() override;

    // Handed on to the video views and the camera previews.
    OutputRenderer& renderer() const { return m_renderer; }
    CameraSessionManager& cameraSessionManager() const { return m_cameraSessionManager; }

    ScreenRecordingPermissionState permissionState() const { return m_permissionState; }
    StreamStatus streamStatus() const { return m_streamStatus; }
    std::optional<ShareableDisplay> activeDisplay() const { return m_activeDisplay; }
    std::optional<QSizeF> activeCanvasSize() const { return m_activeCanvasSize; }
    bool hasDisplayedFrame() const { return m_hasDisplayedFrame; }
    OutputContentMode outputContentMode() const { return m_outputContentMode; }
    QImage canvasBackgroundImage() const { return m_canvasBackgroundImage; }
    QColor canvasBackgroundColor() const { return m_canvasBackgroundColor; }
    std::optional<ShareableDisplay> preferredDisplay() const { return m_preferredDisplay; }
    quint64 outputRecenterToken() const { return m_outputRecenterToken; }
    const CameraOverlayConfiguration& cameraOverlay() const { return m_cameraOverlay; }
    bool isPanicHidden() const { return m_isPanicHidden; }

    // ---- derived, computed when asked ------------------------------------
    // A frame has been drawn, or the stream runs.
    bool hasLiveFrame() const;
    // The canvas itself is the picture: an image canvas, or sanitized mode.
    bool presentsCanvasAsContent() const;
    bool showsNotice() const;
    OutputBlankReason effectiveBlankReason() const;
    QString noticeTitle() const;
    QString noticeMessage() const;
    // The size whose aspect ratio the output window keeps, in points: the
    // active canvas, else the active display, else the selected display,
    // else 1920 x 1080.
    QSizeF canvasSize() const;
    // Plain white sanitized canvas: the views draw notice text dark on it.
    bool isLightCanvas() const;
    // Enabled with a camera chosen, the camera running, and no panic hide.
    bool showsCameraOverlay() const;

Q_SIGNALS:
    void permissionStateChanged(vistrel::ScreenRecordingPermissionState permissionState);
    void streamStatusChanged(const vistrel::StreamStatus& streamStatus);
    void activeDisplayChanged(const std::optional<vistrel::ShareableDisplay>& activeDisplay);
    void activeCanvasSizeChanged(const std::optional<QSizeF>& activeCanvasSize);
    void hasDisplayedFrameChanged(bool hasDisplayedFrame);
    void outputContentModeChanged(vistrel::OutputContentMode outputContentMode);
    void canvasBackgroundImageChanged(const QImage& canvasBackgroundImage);
    void canvasBackgroundColorChanged(const QColor& canvasBackgroundColor);
    void preferredDisplayChanged(const std::optional<vistrel::ShareableDisplay>& preferredDisplay);
    void outputRecenterTokenChanged(quint64 outputRecenterToken);
    void cameraOverlayChanged(const vistrel::CameraOverlayConfiguration& cameraOverlay);
    void isPanicHiddenChanged(bool isPanicHidden);
    // After any change that can alter a derived value (every field above and
    // the camera session's running state), so a view can redraw once.
    void presentationChanged();

private:
    void subscribe();
    void deliverCurrentValues();
    void updatePreferredDisplay();
    void receiveCameraOverlay(const CameraOverlayConfiguration& configuration);
    void raiseRecenterToken();

    void setPermissionState(ScreenRecordingPermissionState state);
    void setStreamStatus(const StreamStatus& status);
    void setActiveDisplay(const std::optional<ShareableDisplay>& display);
    void setActiveCanvasSize(const std::optional<QSizeF>& size);
    void setHasDisplayedFrame(bool displayed);
    void setOutputContentMode(OutputContentMode mode);
    void setCanvasBackgroundImage(const QImage& image);
    void setCanvasBackgroundColor(const QColor& color);
    void setPreferredDisplay(const std::optional<ShareableDisplay>& display);
    void setPanicHidden(bool hidden);

    PermissionManager& m_permissionManager;
    MainViewModel& m_mainViewModel;
    CaptureEngine& m_captureEngine;
    OutputRenderer& m_renderer;
    CameraSessionManager& m_cameraSessionManager;

    ScreenRecordingPermissionState m_permissionState;
    StreamStatus m_streamStatus;
    std::optional<ShareableDisplay> m_activeDisplay;
    std::optional<QSizeF> m_activeCanvasSize;
    bool m_hasDisplayedFrame = false;
    OutputContentMode m_outputContentMode = OutputContentMode::sanitized;
    QImage m_canvasBackgroundImage;
    QColor m_canvasBackgroundColor;
    std::optional<ShareableDisplay> m_preferredDisplay;
    quint64 m_outputRecenterToken = 0;
    CameraOverlayConfiguration m_cameraOverlay;
    bool m_isPanicHidden = false;
};

} // namespace vistrel
