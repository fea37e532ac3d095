#include "capture/CaptureEngine.h"

#include "capture/OutputRenderer.h"
#include "capture/StreamBridge.h"
#include "model/ObservableProperty.h"

#include <QImageReader>
#include <QLoggingCategory>
#include <QMetaObject>
#include <algorithm>
#include <cmath>

namespace vistrel {

using namespace Qt::StringLiterals;

namespace {

Q_LOGGING_CATEGORY(lcCapture, "quorbit.Vistrel.Capture")

// Output sizes are whole pixels, rounded halves away from zero, at least 2 (a
// stream refuses anything smaller) and within what a picture can hold.
int outputPixels(double value)
{
    if (!std::isfinite(value))
        return 2;
    return static_cast<int>(std::clamp(std::round(value), 2.0, 32767.0));
}

qint64 roundedPoints(double value)
{
    if (!std::isfinite(value))
        return 0;
    return static_cast<qint64>(std::clamp(std::round(value), -1e15, 1e15));
}

// The frame statuses that carry a picture worth showing.
bool isDisplayableFrameStatus(qint64 status)
{
    switch (status) {
    case qint64(FrameStatus::complete):
    case qint64(FrameStatus::idle):
    case qint64(FrameStatus::started):
        return true;
    default:
        return false;
    }
}

QString localFilePath(const QUrl& url)
{
    if (url.isLocalFile())
        return url.toLocalFile();
    if (url.scheme().isEmpty())
        return url.path();
    return {};
}

QImage readCanvasImage(const std::optional<QUrl>& url)
{
    if (!url)
        return {};
    const QString path = localFilePath(*url);
    if (path.isEmpty()) {
        qCWarning(lcCapture, "Canvas background image is not a local file: %s",
                  qUtf8Printable(url->toDisplayString()));
        return {};
    }
    QImageReader reader(path);
    reader.setAutoTransform(true);
    QImage image = reader.read();
    if (image.isNull()) {
        qCWarning(lcCapture, "Canvas background image could not be read: %s (%s)",
                  qUtf8Printable(path), qUtf8Printable(reader.errorString()));
        return {};
    }
    // One conversion now keeps every later paint on the fast path.
    return image.convertToFormat(image.hasAlphaChannel() ? QImage::Format_ARGB32_Premultiplied
                                                         : QImage::Format_RGB32);
}

} // namespace

const QColor CaptureEngine::grayCanvasBackgroundColor = QColor::fromRgbF(0.22f, 0.22f, 0.22f, 1.0f);

CaptureEngine::CaptureEngine(OutputRenderer& renderer, CaptureBackend& backend,
                             const ScreenProvider& screens, QObject* parent)
    : QObject(parent), m_renderer(renderer), m_backend(backend), m_screens(screens)
{
}

CaptureEngine::~CaptureEngine() = default;

std::shared_ptr<StreamBridge> CaptureEngine::bridge()
{
    if (!m_bridge)
        m_bridge = std::make_shared<StreamBridge>(this);
    return m_bridge;
}

bool CaptureEngine::isCurrentStream(StreamGeneration generation) const
{
    return m_stream && m_streamGeneration == generation;
}

void CaptureEngine::releaseStream()
{
    if (!m_stream)
        return;
    // Usually called from inside one of the stream's own completions: the
    // stream is destroyed on a later turn, once that call has returned.
    std::shared_ptr<CaptureStream> released(std::move(m_stream));
    QMetaObject::invokeMethod(
        this, [released] {}, Qt::QueuedConnection);
}

// ---- apply ---------------------------------------------------------------

void CaptureEngine::apply(const CapturePlan& plan)
{
    if (m_stream && m_activePlanSignature && *m_activePlanSignature == plan.signature) {
        // The same picture; a filter that differs only in what it names by
        // identity or as Vistrel's own still reaches the stream.
        if (m_activeFilter != plan.filter) {
            updateFilter(plan, m_activeConfigurationKey.value_or(QString()), m_streamGeneration);
            return;
        }
        setStreamStatus(StreamStatus::running());
        return;
    }
    if (!m_stream)
        setStreamStatus(StreamStatus::starting());

    const StreamConfiguration configuration = makeConfiguration(plan);
    const QString key = configurationKey(plan);
    if (m_stream)
        updateStream(plan, configuration, key);
    else
        startStream(plan, configuration, key);
}

void CaptureEngine::startStream(const CapturePlan& plan, const StreamConfiguration& configuration,
                                const QString& key)
{
    std::unique_ptr<CaptureStream> stream =
        m_backend.createStream(plan.filter, configuration, bridge());
    if (!stream) {
        failApply(
            PlatformError{u"vistrel.capture"_s, 1, u"The capture stream could not be created."_s});
        return;
    }
    if (const std::optional<PlatformError> error =
            stream->addStreamOutput(SampleOutputType::screen)) {
        failApply(*error);
        return;
    }

    m_stream = std::move(stream);
    const StreamGeneration generation = ++m_streamGeneration;
    m_stream->startCapture(
        [self = QPointer(this), plan, key, generation](std::optional<PlatformError> error) {
            if (!self || !self->continuesApply(generation, error))
                return;
            self->finishApply(plan, key, true);
        });
}

void CaptureEngine::updateStream(const CapturePlan& plan, const StreamConfiguration& configuration,
                                 const QString& key)
{
    const StreamGeneration generation = m_streamGeneration;
    if (m_activeConfigurationKey == key) {
        updateFilter(plan, key, generation);
        return;
    }
    m_stream->updateConfiguration(configuration, [self = QPointer(this), plan, key,
                                                  generation](std::optional<PlatformError> error) {
        if (!self || !self->continuesApply(generation, error))
            return;
        self->updateFilter(plan, key, generation);
    });
}

void CaptureEngine::updateFilter(const CapturePlan& plan, const QString& key,
                                 StreamGeneration generation)
{
    m_stream->updateContentFilter(plan.filter, [self = QPointer(this), plan, key,
                                                generation](std::optional<PlatformError> error) {
        if (!self || !self->continuesApply(generation, error))
            return;
        self->finishApply(plan, key, false);
    });
}

bool CaptureEngine::continuesApply(StreamGeneration generation,
                                   const std::optional<PlatformError>& error)
{
    if (!isCurrentStream(generation)) {
        // A blank, a failure or a platform stop cleared this stream while the
        // call waited; the fields belong to that later call now.
        if (error)
            qCCritical(lcCapture, "Capture start or update failed: %s",
                       qUtf8Printable(error->localizedDescription));
        return false;
    }
    if (error) {
        failApply(*error);
        return false;
    }
    return true;
}

void CaptureEngine::finishApply(const CapturePlan& plan, const QString& key, bool startedNewStream)
{
    m_activePlanSignature = plan.signature;
    m_activeFilter = plan.filter;
    m_activeConfigurationKey = key;
    setActiveDisplay(plan.display);
    setActiveCanvasSize(plan.canvasLogicalSize);
    // A new stream stays starting until its first accepted frame, unless a
    // picture is already up.
    if (!startedNewStream || m_renderer.hasDisplayedFrame())
        setStreamStatus(StreamStatus::running());
}

void CaptureEngine::failApply(const PlatformError& error)
{
    qCCritical(lcCapture, "Capture start or update failed: %s",
               qUtf8Printable(error.localizedDescription));
    m_renderer.reset();

    const QString message = error.localizedDescription;
    if (!m_stream) {
        clearAfterFailure(message);
        return;
    }
    const StreamGeneration generation = m_streamGeneration;
    m_stream->stopCapture(
        [self = QPointer(this), generation, message](std::optional<PlatformError>) {
            // The stop's own error changes nothing: the stream is dropped anyway.
            if (!self || !self->isCurrentStream(generation))
                return;
            self->clearAfterFailure(message);
        });
}

void CaptureEngine::clearAfterFailure(const QString& message)
{
    releaseStream();
    m_activePlanSignature.reset();
    m_activeConfigurationKey.reset();
    setActiveDisplay(std::nullopt);
    setActiveCanvasSize(std::nullopt);
    setStreamStatus(StreamStatus::failed(message));
}

// ---- blank ---------------------------------------------------------------

void CaptureEngine::blank(OutputBlankReason reason)
{
    const StreamStatus status = StreamStatus::blank(reason);
    if (!m_stream && m_streamStatus == status) {
        m_renderer.reset();
        return;
    }

    setStreamStatus(status);
    setActiveDisplay(std::nullopt);
    setActiveCanvasSize(std::nullopt);
    m_renderer.reset();

    if (!m_stream) {
        m_activePlanSignature.reset();
        m_activeConfigurationKey.reset();
        return;
    }
    const StreamGeneration generation = m_streamGeneration;
    m_stream->stopCapture([self = QPointer(this), generation](std::optional<PlatformError> error) {
        if (self)
            self->finishBlank(generation, error);
    });
}

void CaptureEngine::finishBlank(StreamGeneration generation,
                                const std::optional<PlatformError>& stopError)
{
    if (stopError)
        qCCritical(lcCapture, "Stopping capture failed while blanking output: %s",
                   qUtf8Printable(stopError->localizedDescription));
    // A stream started after this one was cleared is not ours to drop.
    if (m_stream && !isCurrentStream(generation))
        return;
    releaseStream();
    m_activePlanSignature.reset();
    m_activeConfigurationKey.reset();
}

// ---- frames and stream stop -----------------------------------------------

void CaptureEngine::handleSample(const SampleBuffer& buffer, SampleOutputType outputType)
{
    if (outputType != SampleOutputType::screen)
        return;
    if (!buffer.dataReady)
        return;
    if (buffer.frameStatus && !isDisplayableFrameStatus(*buffer.frameStatus))
        return;

    // A frame still in flight from a stream that is being stopped (blank,
    // failure) must not bring back a picture that was just taken down.
    const StreamStatus::Kind kind = m_streamStatus.kind();
    if (kind != StreamStatus::Kind::starting && kind != StreamStatus::Kind::running)
        return;

    m_renderer.enqueue(buffer);
    if (kind == StreamStatus::Kind::starting)
        setStreamStatus(StreamStatus::running());
}

void CaptureEngine::handleStreamStop(const PlatformError& error)
{
    qCCritical(lcCapture, "Capture stream stopped with error: %s",
               qUtf8Printable(error.localizedDescription));
    m_renderer.reset();
    releaseStream();
    m_activePlanSignature.reset();
    m_activeConfigurationKey.reset();
    setActiveDisplay(std::nullopt);
    setActiveCanvasSize(std::nullopt);
    setStreamStatus(StreamStatus::failed(error.localizedDescription));
}

// ---- canvas --------------------------------------------------------------

void CaptureEngine::updateCanvas(OutputContentMode contentMode, CanvasBackgroundMode backgroundMode,
                                 const std::optional<QUrl>& customImageUrl)
{
    setOutputContentMode(contentMode);
    if (contentMode == OutputContentMode::fullDesktop) {
        setCanvasBackgroundImage({});
        setCanvasBackgroundColor(Qt::black);
        return;
    }
    switch (backgroundMode) {
    case CanvasBackgroundMode::black:
        setCanvasBackgroundImage({});
        setCanvasBackgroundColor(Qt::black);
        return;
    case CanvasBackgroundMode::white:
        setCanvasBackgroundImage({});
        setCanvasBackgroundColor(Qt::white);
        return;
    case CanvasBackgroundMode::gray:
        setCanvasBackgroundImage({});
        setCanvasBackgroundColor(grayCanvasBackgroundColor);
        return;
    case CanvasBackgroundMode::customImage:
        setCanvasBackgroundImage(readCanvasImage(customImageUrl));
        setCanvasBackgroundColor(Qt::black);
        return;
    }
}

// ---- configuration -------------------------------------------------------

int CaptureEngine::displayFrameRate(const ShareableDisplay& display) const
{
    const QList<ScreenInfo> screens = m_screens.screens();
    for (const ScreenInfo& screen : screens) {
        if (screen.displayID && *screen.displayID == display.id)
            return std::clamp(screen.maximumFramesPerSecond, 30, 60);
    }
    return 60;
}

StreamConfiguration CaptureEngine::makeConfiguration(const CapturePlan& plan) const
{
    const ShareableDisplay& display = plan.display;
    const double scaleX = display.pixelSize.width() / std::max(display.logicalSize.width(), 1.0);
    const double scaleY = display.pixelSize.height() / std::max(display.logicalSize.height(), 1.0);
    const bool sanitized = !plan.isFullDesktopCapture;

    StreamConfiguration configuration;
    if (sanitized) {
        configuration.width = outputPixels(plan.canvasLogicalSize.width() * scaleX);
        configuration.height = outputPixels(plan.canvasLogicalSize.height() * scaleY);
    } else {
        configuration.width = outputPixels(display.pixelSize.width());
        configuration.height = outputPixels(display.pixelSize.height());
    }
    configuration.minimumFrameInterval = MediaTime{1, displayFrameRate(display)};
    configuration.showsCursor = true;
    configuration.queueDepth = sanitized ? 6 : 5;
    if (sanitized)
        configuration.sourceRect = plan.sourceRect;
    return configuration;
}

QString CaptureEngine::configurationKey(const CapturePlan& plan) const
{
    const QRectF& source = plan.sourceRect;
    return QStringList{
        QString::number(plan.display.id),
        u"%1x%2"_s.arg(roundedPoints(plan.canvasLogicalSize.width()))
            .arg(roundedPoints(plan.canvasLogicalSize.height())),
        QString::number(displayFrameRate(plan.display)),
        QString::asprintf("%.2f", source.x()),
        QString::asprintf("%.2f", source.y()),
        QString::asprintf("%.2f", source.width()),
        QString::asprintf("%.2f", source.height()),
    }
        .join(u':');
}

// ---- property setters ----------------------------------------------------

void CaptureEngine::setStreamStatus(const StreamStatus& status)
{
    m_streamStatus = status;
    Q_EMIT streamStatusChanged(status);
}

void CaptureEngine::setActiveDisplay(const std::optional<ShareableDisplay>& display)
{
    updateProperty(this, m_activeDisplay, display, &CaptureEngine::activeDisplayChanged);
}

void CaptureEngine::setActiveCanvasSize(const std::optional<QSizeF>& size)
{
    updateProperty(this, m_activeCanvasSize, size, &CaptureEngine::activeCanvasSizeChanged);
}

void CaptureEngine::setOutputContentMode(OutputContentMode mode)
{
    updateProperty(this, m_outputContentMode, mode, &CaptureEngine::outputContentModeChanged);
}

void CaptureEngine::setCanvasBackgroundImage(const QImage& image)
{
    if (m_canvasBackgroundImage.cacheKey() == image.cacheKey() || m_canvasBackgroundImage == image)
        return;
    m_canvasBackgroundImage = image;
    Q_EMIT canvasBackgroundImageChanged(image);
}

void CaptureEngine::setCanvasBackgroundColor(const QColor& color)
{
    updateProperty(this, m_canvasBackgroundColor, color,
                   &CaptureEngine::canvasBackgroundColorChanged);
}

} // namespace vistrel
