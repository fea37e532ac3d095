#pragma once

// Owns the preview panel and keeps it in place: shown while the registry
// wants the preview and the control window is on screen, exactly as wide as
// the control window, as high as the shared picture's aspect ratio makes it,
// 4 pixels above the control window's top edge. A window manager does not
// move a tool window with the window it belongs to, so the controller follows
// every move and resize of the control window itself.
//
// Main thread only. The collaborators and the control window must outlive
// the controller.

#include "model/SourceIdentity.h"

#include <QObject>
#include <QPointer>
#include <QRect>
#include <QSizeF>
#include <optional>

class QWidget;

namespace vistrel {

class MainViewModel;
class OutputViewModel;
class PopoverHub;
class PreviewPanel;
class WindowRegistry;

class PreviewPanelController : public QObject {
    Q_OBJECT
    Q_PROPERTY(QSizeF currentAspectRatio READ currentAspectRatio NOTIFY currentAspectRatioChanged)

public:
    static constexpr int gapAboveControl = 4;

    PreviewPanelController(WindowRegistry& registry, OutputViewModel& outputViewModel,
                           MainViewModel& mainViewModel, PopoverHub& hub, QWidget* controlWindow,
                           QObject* parent = nullptr);
    ~PreviewPanelController() override;

    QSizeF currentAspectRatio() const { return m_currentAspectRatio; }
    // Null until first shown.
    PreviewPanel* panel() const { return m_panel; }

    // The first that applies: the active canvas size, the active display's
    // size, the preferred display's size, 1920 x 1080.
    static QSizeF aspectRatio(const std::optional<QSizeF>& activeCanvasSize,
                              const std::optional<ShareableDisplay>& activeDisplay,
                              const std::optional<ShareableDisplay>& preferredDisplay);
    // The panel's frame over `control` (global, y down); a ratio with a side
    // that is not positive counts as 16:9.
    static QRect panelFrame(const QRect& control, const QSizeF& aspectRatio);

Q_SIGNALS:
    void currentAspectRatioChanged(const QSizeF& aspectRatio);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void updateAspectRatio();
    void sync();
    void updateFrame();

    WindowRegistry& m_registry;
    OutputViewModel& m_outputViewModel;
    MainViewModel& m_mainViewModel;
    PopoverHub& m_hub;
    QPointer<QWidget> m_controlWindow;
    QPointer<PreviewPanel> m_panel;
    QSizeF m_currentAspectRatio{16, 9};
};

} // namespace vistrel
