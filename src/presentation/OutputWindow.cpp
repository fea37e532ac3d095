#include "presentation/OutputWindow.h"

#include "presentation/ManagedWindowKind.h"
#include "presentation/OutputOverlay.h"
#include "presentation/OutputStage.h"
#include "presentation/WidgetWindowHandle.h"
#include "presentation/WindowRegistry.h"

#include <QResizeEvent>

using namespace Qt::StringLiterals;

namespace vistrel {

OutputWindow::OutputWindow(OutputViewModel& viewModel, WindowRegistry& windowRegistry,
                           QWidget* parent)
    : QWidget(parent, Qt::Window), m_stage(new OutputStage(viewModel, this)),
      m_overlay(new OutputOverlay(viewModel, OutputOverlay::Style::window, this))
{
    setWindowTitle(u"Vistrel Output"_s);
    resize(defaultSize);
    // The stage paints every pixel.
    setAttribute(Qt::WA_OpaquePaintEvent);
    setAttribute(Qt::WA_NoSystemBackground);
    connect(m_stage, &OutputStage::presentationSynced, m_overlay, qOverload<>(&QWidget::update));
    windowRegistry.registerWindow(WidgetWindowHandle::forWidget(this), ManagedWindowKind::output);
}

OutputWindow::~OutputWindow() = default;

VideoLayerWidget* OutputWindow::videoWidget() const
{
    return m_stage->videoWidget();
}

CameraPreviewView* OutputWindow::cameraBubble() const
{
    return m_stage->cameraBubble();
}

void OutputWindow::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    m_stage->setGeometry(rect());
    m_overlay->setGeometry(rect());
    const int frame = OutputOverlay::frameWidth;
    m_stage->setOverdrawn(QRegion(rect()) - rect().adjusted(frame, frame, -frame, -frame));
}

} // namespace vistrel
