#include "coordination/OutputViewModel.h"

#include "capture/CaptureEngine.h"
#include "capture/OutputRenderer.h"
#include "coordination/CameraSessionManager.h"
#include "coordination/MainViewModel.h"
#include "model/ObservableProperty.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vistrel {

namespace {

bool isPositive(const QSizeF& size)
{
    return size.width() > 0 && size.height() > 0;
}

QString messageFor(OutputBlankReason reason)
{
    switch (reason) {
    case OutputBlankReason::permissionMissing:
        return u"Vistrel needs Screen Recording permission to discover windows and build the "
               "sanitized output stream."_s;
    case OutputBlankReason::noDisplaySelected:
        return u"Select a display to use as the sanitized output canvas before starting the "
               "stream."_s;
    case OutputBlankReason::nothingSelected:
        return u"Nothing is currently selected to share."_s;
    case OutputBlankReason::panicHidden:
        return u"Panic Hide is active. Resume output when you are ready to share again."_s;
    case OutputBlankReason::contentUnavailable:
        return u"The selected display or windows are no longer available. Refresh discovery or "
               "choose another source."_s;
    }
    return {};
}

} // namespace

OutputViewModel::OutputViewModel(PermissionManager& permissionManager, MainViewModel& mainViewModel,
                                 CaptureEngine& captureEngine, OutputRenderer& renderer,
                                 CameraSessionManager& cameraSessionManager, QObject* parent)
    : QObject(parent), m_permissionManager(permissionManager), m_mainViewModel(mainViewModel),
      m_captureEngine(captureEngine), m_renderer(renderer),
      m_cameraSessionManager(cameraSessionManager), m_permissionState(permissionManager.state()),
      m_streamStatus(captureEngine.streamStatus()), m_activeDisplay(captureEngine.activeDisplay()),
      m_activeCanvasSize(captureEngine.activeCanvasSize()),
      m_outputContentMode(captureEngine.outputContentMode()),
      m_canvasBackgroundImage(captureEngine.canvasBackgroundImage()),
      m_canvasBackgroundColor(captureEngine.canvasBackgroundColor()),
      m_cameraOverlay(mainViewModel.cameraOverlay())
{
    // Copied directly: the first delivery must not count as a display change.
    const std::optional<quint32> selected = m_mainViewModel.selectedDisplayID();
    if (selected) {
        const QList<ShareableDisplay>& displays = m_mainViewModel.displays();
        const auto found =
            std::find_if(displays.cbegin(), displays.cend(),
                         [&](const ShareableDisplay& display) { return display.id == *selected; });
        if (found != displays.cend())
            m_preferredDisplay = *found;
    }
    subscribe();
    // Every source's current value once more, a turn later, like the
    // subscriptions themselves; this also starts the configured camera.
    QMetaObject::invokeMethod(this, &OutputViewModel::deliverCurrentValues, Qt::QueuedConnection);
}

OutputViewModel::~OutputViewModel() = default;

void OutputViewModel::subscribe()
{
    // `this` as context: deliveries are queued and dropped once the model is gone.
    constexpr auto queued = Qt::QueuedConnection;
    connect(&m_permissionManager, &PermissionManager::stateChanged, this,
            &OutputViewModel::setPermissionState, queued);

    connect(&m_captureEngine, &CaptureEngine::streamStatusChanged, this,
            &OutputViewModel::setStreamStatus, queued);
    connect(&m_captureEngine, &CaptureEngine::activeDisplayChanged, this,
            &OutputViewModel::setActiveDisplay, queued);
    connect(&m_captureEngine, &CaptureEngine::activeCanvasSizeChanged, this,
            &OutputViewModel::setActiveCanvasSize, queued);
    connect(&m_captureEngine, &CaptureEngine::outputContentModeChanged, this,
            &OutputViewModel::setOutputContentMode, queued);
    connect(&m_captureEngine, &CaptureEngine::canvasBackgroundImageChanged, this,
            &OutputViewModel::setCanvasBackgroundImage, queued);
    connect(&m_captureEngine, &CaptureEngine::canvasBackgroundColorChanged, this,
            &OutputViewModel::setCanvasBackgroundColor, queued);

    connect(&m_mainViewModel, &MainViewModel::displaysChanged, this,
            &OutputViewModel::updatePreferredDisplay, queued);
    connect(&m_mainViewModel, &MainViewModel::selectedDisplayIDChanged, this,
            &OutputViewModel::updatePreferredDisplay, queued);
    // Only later values: the selection current at creation is not a change.
    connect(&m_mainViewModel, &MainViewModel::selectedDisplayIDChanged, this,
            &OutputViewModel::raiseRecenterToken, queued);

    connect(&m_renderer, &OutputRenderer::hasDisplayedFrameChanged, this,
            &OutputViewModel::setHasDisplayedFrame, queued);
    connect(&m_mainViewModel, &MainViewModel::cameraOverlayChanged, this,
            &OutputViewModel::receiveCameraOverlay, queued);
    connect(&m_mainViewModel, &MainViewModel::isPanicHiddenChanged, this,
            &OutputViewModel::setPanicHidden, queued);

    // The camera's running state feeds showsCameraOverlay.
    connect(&m_cameraSessionManager, &CameraSessionManager::isRunningChanged, this,
            &OutputViewModel::presentationChanged, queued);
}

void OutputViewModel::deliverCurrentValues()
{
    setPermissionState(m_permissionManager.state());
    setStreamStatus(m_captureEngine.streamStatus());
    setActiveDisplay(m_captureEngine.activeDisplay());
    setActiveCanvasSize(m_captureEngine.activeCanvasSize());
    setOutputContentMode(m_captureEngine.outputContentMode());
    setCanvasBackgroundImage(m_captureEngine.canvasBackgroundImage());
    setCanvasBackgroundColor(m_captureEngine.canvasBackgroundColor());
    updatePreferredDisplay();
    setHasDisplayedFrame(m_renderer.hasDisplayedFrame());
    receiveCameraOverlay(m_mainViewModel.cameraOverlay());
    setPanicHidden(m_mainViewModel.isPanicHidden());
}

void OutputViewModel::updatePreferredDisplay()
{
    // The pair as it stands now: a queued display list and selection that
    // arrive one after the other settle on the latest of both.
    std::optional<ShareableDisplay> preferred;
    if (const std::optional<quint32> selected = m_mainViewModel.selectedDisplayID()) {
        for (const ShareableDisplay& display : m_mainViewModel.displays()) {
            if (display.id == *selected) {
                preferred = display;
                break;
            }
        }
    }
    setPreferredDisplay(preferred);
}

void OutputViewModel::raiseRecenterToken()
{
    ++m_outputRecenterToken;
    Q_EMIT outputRecenterTokenChanged(m_outputRecenterToken);
    Q_EMIT presentationChanged();
}

void OutputViewModel::receiveCameraOverlay(const CameraOverlayConfiguration& configuration)
{
    if (updateProperty(this, m_cameraOverlay, configuration,
                       &OutputViewModel::cameraOverlayChanged))
        Q_EMIT presentationChanged();
    // Every value is handed on, also an unchanged one: the manager leaves a
    // session that already matches alone, and a camera that stopped on its
    // own gets another chance.
    m_cameraSessionManager.apply(configuration);
}

// ---- derived values ---------------------------------------------------------

bool OutputViewModel::hasLiveFrame() const
{
    return m_hasDisplayedFrame || m_streamStatus.kind() == StreamStatus::Kind::running;
}

bool OutputViewModel::presentsCanvasAsContent() const
{
    return !m_canvasBackgroundImage.isNull() || m_outputContentMode == OutputContentMode::sanitized;
}

bool OutputViewModel::showsNotice() const
{
    const bool emptyStatus =
        m_streamStatus.kind() == StreamStatus::Kind::idle ||
        m_streamStatus.blankReason() == std::optional(OutputBlankReason::nothingSelected);
    // An empty output on a canvas of its own simply shows the canvas.
    if (emptyStatus)
        return !presentsCanvasAsContent();
    return !hasLiveFrame();
}

OutputBlankReason OutputViewModel::effectiveBlankReason() const
{
    if (const std::optional<OutputBlankReason> reason = m_streamStatus.blankReason())
        return *reason;
    return m_permissionState == ScreenRecordingPermissionState::missing
               ? OutputBlankReason::permissionMissing
               : OutputBlankReason::nothingSelected;
}

QString OutputViewModel::noticeTitle() const
{
    switch (m_streamStatus.kind()) {
    case StreamStatus::Kind::failed:
        return u"Vistrel Output Could Not Start"_s;
    case StreamStatus::Kind::starting:
        return u"Preparing Vistrel Output"_s;
    case StreamStatus::Kind::idle:
    case StreamStatus::Kind::running:
    case StreamStatus::Kind::blank:
        break;
    }
    return title(effectiveBlankReason());
}

QString OutputViewModel::noticeMessage() const
{
    switch (m_streamStatus.kind()) {
    case StreamStatus::Kind::failed:
        return m_streamStatus.failureMessage();
    case StreamStatus::Kind::idle:
        return messageFor(OutputBlankReason::nothingSelected);
    case StreamStatus::Kind::starting:
        return u"Applying the latest content filter and waiting for the first sanitized frame."_s;
    case StreamStatus::Kind::running:
        return {};
    case StreamStatus::Kind::blank:
        break;
    }
    return messageFor(m_streamStatus.blankReason().value_or(OutputBlankReason::nothingSelected));
}

QSizeF OutputViewModel::canvasSize() const
{
    if (m_activeCanvasSize && isPositive(*m_activeCanvasSize))
        return *m_activeCanvasSize;
    // A display that reports no size would give the window no shape; the
    // next source is better than a degenerate aspect ratio.
    if (m_activeDisplay && isPositive(m_activeDisplay->logicalSize))
        return m_activeDisplay->logicalSize;
    if (m_preferredDisplay && isPositive(m_preferredDisplay->logicalSize))
        return m_preferredDisplay->logicalSize;
    return fallbackCanvasSize;
}

bool OutputViewModel::isLightCanvas() const
{
    return m_outputContentMode == OutputContentMode::sanitized &&
           m_canvasBackgroundImage.isNull() && m_canvasBackgroundColor.isValid() &&
           m_canvasBackgroundColor.rgba() == qRgba(255, 255, 255, 255);
}

bool OutputViewModel::showsCameraOverlay() const
{
    return m_cameraOverlay.isEnabled && m_cameraOverlay.cameraDeviceID.has_value() &&
           m_cameraSessionManager.isRunning() && !m_isPanicHidden;
}

// ---- mirrored fields --------------------------------------------------------

void OutputViewModel::setPermissionState(ScreenRecordingPermissionState state)
{
    if (updateProperty(this, m_permissionState, state, &OutputViewModel::permissionStateChanged))
        Q_EMIT presentationChanged();
}

void OutputViewModel::setStreamStatus(const StreamStatus& status)
{
    if (updateProperty(this, m_streamStatus, status, &OutputViewModel::streamStatusChanged))
        Q_EMIT presentationChanged();
}

void OutputViewModel::setActiveDisplay(const std::optional<ShareableDisplay>& display)
{
    if (updateProperty(this, m_activeDisplay, display, &OutputViewModel::activeDisplayChanged))
        Q_EMIT presentationChanged();
}

void OutputViewModel::setActiveCanvasSize(const std::optional<QSizeF>& size)
{
    if (updateProperty(this, m_activeCanvasSize, size, &OutputViewModel::activeCanvasSizeChanged))
        Q_EMIT presentationChanged();
}

void OutputViewModel::setHasDisplayedFrame(bool displayed)
{
    if (updateProperty(this, m_hasDisplayedFrame, displayed,
                       &OutputViewModel::hasDisplayedFrameChanged))
        Q_EMIT presentationChanged();
}

void OutputViewModel::setOutputContentMode(OutputContentMode mode)
{
    if (updateProperty(this, m_outputContentMode, mode, &OutputViewModel::outputContentModeChanged))
        Q_EMIT presentationChanged();
}

void OutputViewModel::setCanvasBackgroundImage(const QImage& image)
{
    // Cheap when unchanged: equal images share their data.
    if (updateProperty(this, m_canvasBackgroundImage, image,
                       &OutputViewModel::canvasBackgroundImageChanged))
        Q_EMIT presentationChanged();
}

void OutputViewModel::setCanvasBackgroundColor(const QColor& color)
{
    if (updateProperty(this, m_canvasBackgroundColor, color,
                       &OutputViewModel::canvasBackgroundColorChanged))
        Q_EMIT presentationChanged();
}

void OutputViewModel::setPreferredDisplay(const std::optional<ShareableDisplay>& display)
{
    if (updateProperty(this, m_preferredDisplay, display,
                       &OutputViewModel::preferredDisplayChanged))
        Q_EMIT presentationChanged();
}

void OutputViewModel::setPanicHidden(bool hidden)
{
    if (updateProperty(this, m_isPanicHidden, hidden, &OutputViewModel::isPanicHiddenChanged))
        Q_EMIT presentationChanged();
}

} // namespace vistrel
