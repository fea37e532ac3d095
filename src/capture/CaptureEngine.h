#pragma once

// Owns the one capture stream and makes it match the latest capture plan with
// the least disruption: nothing for the running plan, a filter update when
// only the admitted windows changed, a configuration update (then the filter)
// when size, rate or crop changed, and a new stream when there is none.
// Accepted frames go to the output renderer; the engine publishes the output's
// status, the active display and canvas size, and the canvas behind the
// captured windows.
//
// Threading: main thread. apply() and blank() return at once and continue in
// the stream's completions (later turns of the main loop). Calls are not
// queued: a call that starts while another waits for the platform works on
// the fields as it finds them.

#include "capture/CapturePlan.h"
#include "capture/StreamStatus.h"
#include "model/OutputSettings.h"
#include "model/SourceIdentity.h"
#include "platform/CaptureBackend.h"
#include "platform/ScreenProvider.h"

#include <QColor>
#include <QImage>
#include <QObject>
#include <QPointer>
#include <QSizeF>
#include <QUrl>
#include <memory>
#include <optional>

namespace vistrel {

class OutputRenderer;
class StreamBridge;

class CaptureEngine : public QObject {
    Q_OBJECT
    // Published on every assignment, also when unchanged: a re-applied plan
    // republishes running.
    Q_PROPERTY(vistrel::StreamStatus streamStatus READ streamStatus NOTIFY streamStatusChanged)
    Q_PROPERTY(std::optional<vistrel::ShareableDisplay> activeDisplay READ activeDisplay NOTIFY
                   activeDisplayChanged)
    // Points.
    Q_PROPERTY(
        std::optional<QSizeF> activeCanvasSize READ activeCanvasSize NOTIFY activeCanvasSizeChanged)
    Q_PROPERTY(vistrel::OutputContentMode outputContentMode READ outputContentMode NOTIFY
                   outputContentModeChanged)
    // A null image means no image.
    Q_PROPERTY(
        QImage canvasBackgroundImage READ canvasBackgroundImage NOTIFY canvasBackgroundImageChanged)
    Q_PROPERTY(
        QColor canvasBackgroundColor READ canvasBackgroundColor NOTIFY canvasBackgroundColorChanged)

public:
    // The renderer, backend and screen provider must outlive the engine.
    CaptureEngine(OutputRenderer& renderer, CaptureBackend& backend, const ScreenProvider& screens,
                  QObject* parent = nullptr);
    ~CaptureEngine() override;

    StreamStatus streamStatus() const { return m_streamStatus; }
    std::optional<ShareableDisplay> activeDisplay() const { return m_activeDisplay; }
    std::optional<QSizeF> activeCanvasSize() const { return m_activeCanvasSize; }
    OutputContentMode outputContentMode() const { return m_outputContentMode; }
    QImage canvasBackgroundImage() const { return m_canvasBackgroundImage; }
    QColor canvasBackgroundColor() const { return m_canvasBackgroundColor; }

    // Makes the stream show the plan.
    void apply(const CapturePlan& plan);
    // Stops capturing and shows the reason.
    void blank(OutputBlankReason reason);

    // Sets the canvas properties. customImageUrl is a local file (a plain path
    // without scheme is read as one); an unreadable image leaves no image.
    void updateCanvas(OutputContentMode contentMode, CanvasBackgroundMode backgroundMode,
                      const std::optional<QUrl>& customImageUrl = std::nullopt);

    // The display's refresh rate clamped to 30...60; 60 for an unknown screen.
    int displayFrameRate(const ShareableDisplay& display) const;
    StreamConfiguration makeConfiguration(const CapturePlan& plan) const;
    // display id : canvas WxH : rate : source x : y : width : height. Two plans
    // with equal keys need no configuration update.
    QString configurationKey(const CapturePlan& plan) const;

    static const QColor grayCanvasBackgroundColor;

    // Main thread; called by the bridge with what the stream delivered.
    void handleSample(const SampleBuffer& buffer, SampleOutputType outputType);
    void handleStreamStop(const PlatformError& error);

Q_SIGNALS:
    void streamStatusChanged(const vistrel::StreamStatus& streamStatus);
    void activeDisplayChanged(const std::optional<vistrel::ShareableDisplay>& activeDisplay);
    void activeCanvasSizeChanged(const std::optional<QSizeF>& activeCanvasSize);
    void outputContentModeChanged(vistrel::OutputContentMode outputContentMode);
    void canvasBackgroundImageChanged(const QImage& canvasBackgroundImage);
    void canvasBackgroundColorChanged(const QColor& canvasBackgroundColor);

private:
    // Identifies the stream a pending completion belongs to: a completion
    // whose stream was cleared or replaced while it waited has been overtaken
    // by a later call and leaves the fields alone.
    using StreamGeneration = quint64;

    std::shared_ptr<StreamBridge> bridge();
    bool isCurrentStream(StreamGeneration generation) const;
    void releaseStream();

    void startStream(const CapturePlan& plan, const StreamConfiguration& configuration,
                     const QString& key);
    void updateStream(const CapturePlan& plan, const StreamConfiguration& configuration,
                      const QString& key);
    void updateFilter(const CapturePlan& plan, const QString& key, StreamGeneration generation);
    // Whether a completed call goes on; an error enters the failure path.
    bool continuesApply(StreamGeneration generation, const std::optional<PlatformError>& error);
    void finishApply(const CapturePlan& plan, const QString& key, bool startedNewStream);
    void failApply(const PlatformError& error);
    void clearAfterFailure(const QString& message);
    void finishBlank(StreamGeneration generation, const std::optional<PlatformError>& stopError);

    void setStreamStatus(const StreamStatus& status);
    void setActiveDisplay(const std::optional<ShareableDisplay>& display);
    void setActiveCanvasSize(const std::optional<QSizeF>& size);
    void setOutputContentMode(OutputContentMode mode);
    void setCanvasBackgroundImage(const QImage& image);
    void setCanvasBackgroundColor(const QColor& color);

    StreamStatus m_streamStatus = StreamStatus::idle();
    std::optional<ShareableDisplay> m_activeDisplay;
    std::optional<QSizeF> m_activeCanvasSize;
    OutputContentMode m_outputContentMode = OutputContentMode::sanitized;
    QImage m_canvasBackgroundImage;
    QColor m_canvasBackgroundColor = QColor(0, 0, 0);

    OutputRenderer& m_renderer;
    CaptureBackend& m_backend;
    const ScreenProvider& m_screens;

    std::shared_ptr<StreamBridge> m_bridge;
    std::unique_ptr<CaptureStream> m_stream;
    StreamGeneration m_streamGeneration = 0;
    std::optional<QString> m_activePlanSignature;
    ContentFilter m_activeFilter; // what the stream was last given
    std::optional<QString> m_activeConfigurationKey;
};

} // namespace vistrel
