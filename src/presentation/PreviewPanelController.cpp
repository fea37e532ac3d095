#include "presentation/PreviewPanelController.h"

#include "coordination/OutputViewModel.h"
#include "presentation/PreviewPanel.h"
#include "presentation/WindowRegistry.h"

#include <QEvent>
#include <QWidget>
#include <cmath>

namespace vistrel {

namespace {

bool isUsable(const QSizeF& size)
{
    return size.width() > 0 && size.height() > 0;
}

} // namespace

PreviewPanelController::PreviewPanelController(WindowRegistry& registry,
                                               OutputViewModel& outputViewModel,
                                               MainViewModel& mainViewModel, PopoverHub& hub,
                                               QWidget* controlWindow, QObject* parent)
    : QObject(parent), m_registry(registry), m_outputViewModel(outputViewModel),
      m_mainViewModel(mainViewModel), m_hub(hub), m_controlWindow(controlWindow)
{
    connect(&outputViewModel, &OutputViewModel::activeCanvasSizeChanged, this,
            &PreviewPanelController::updateAspectRatio);
    connect(&outputViewModel, &OutputViewModel::activeDisplayChanged, this,
            &PreviewPanelController::updateAspectRatio);
    connect(&outputViewModel, &OutputViewModel::preferredDisplayChanged, this,
            &PreviewPanelController::updateAspectRatio);
    connect(&registry, &WindowRegistry::isPreviewVisibleChanged, this,
            &PreviewPanelController::sync);
    if (controlWindow)
        controlWindow->installEventFilter(this);
    updateAspectRatio();
    sync();
}

PreviewPanelController::~PreviewPanelController()
{
    delete m_panel;
}

QSizeF PreviewPanelController::aspectRatio(const std::optional<QSizeF>& activeCanvasSize,
                                           const std::optional<ShareableDisplay>& activeDisplay,
                                           const std::optional<ShareableDisplay>& preferredDisplay)
{
    if (activeCanvasSize && isUsable(*activeCanvasSize))
        return *activeCanvasSize;
    if (activeDisplay)
        return activeDisplay->logicalSize;
    if (preferredDisplay)
        return preferredDisplay->logicalSize;
    return {1920, 1080};
}

QRect PreviewPanelController::panelFrame(const QRect& control, const QSizeF& aspectRatio)
{
    const QSizeF ratio = isUsable(aspectRatio) ? aspectRatio : QSizeF(16, 9);
    const int width = control.width();
    const int height = int(std::lround(width * ratio.height() / ratio.width()));
    return {control.x(), control.y() - gapAboveControl - height, width, height};
}

bool PreviewPanelController::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_controlWindow) {
        switch (event->type()) {
        case QEvent::Move:
        case QEvent::Resize:
            updateFrame();
            break;
        case QEvent::Show:
        case QEvent::Hide:
            sync();
            break;
        default:
            break;
        }
    }
    return QObject::eventFilter(watched, event);
}

void PreviewPanelController::updateAspectRatio()
{
    const QSizeF ratio =
        aspectRatio(m_outputViewModel.activeCanvasSize(), m_outputViewModel.activeDisplay(),
                    m_outputViewModel.preferredDisplay());
    if (ratio != m_currentAspectRatio) {
        m_currentAspectRatio = ratio;
        Q_EMIT currentAspectRatioChanged(ratio);
    }
    updateFrame();
}

void PreviewPanelController::sync()
{
    const bool wanted =
        m_registry.isPreviewVisible() && m_controlWindow && m_controlWindow->isVisible();
    if (!wanted) {
        if (m_panel)
            m_panel->hide();
        return;
    }
    if (!m_panel)
        m_panel = new PreviewPanel(m_outputViewModel, m_mainViewModel, m_hub, m_controlWindow);
    updateFrame();
    m_panel->show();
}

void PreviewPanelController::updateFrame()
{
    if (!m_panel || !m_controlWindow)
        return;
    m_panel->setGeometry(panelFrame(m_controlWindow->geometry(), m_currentAspectRatio));
}

} // namespace vistrel
