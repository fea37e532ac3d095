#pragma once

// The "Vistrel Output" window: the surface the user shares in a meeting. The
// shared picture (canvas, video, camera bubble) fills it; over that lie the
// notice, when the output view model says so, and a thin decorative frame.
//
// The window registers itself with the window registry as the output window,
// so its X11 window is excluded from every capture.
//
// Threading: main thread only. The view model and registry must outlive the
// window.

#include <QWidget>

namespace vistrel {

class CameraPreviewView;
class OutputOverlay;
class OutputStage;
class OutputViewModel;
class VideoLayerWidget;
class WindowRegistry;

class OutputWindow : public QWidget {
    Q_OBJECT

public:
    static constexpr QSize defaultSize{1280, 780};

    OutputWindow(OutputViewModel& viewModel, WindowRegistry& windowRegistry,
                 QWidget* parent = nullptr);
    ~OutputWindow() override;

    VideoLayerWidget* videoWidget() const;
    CameraPreviewView* cameraBubble() const;

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    OutputStage* m_stage;
    OutputOverlay* m_overlay;
};

} // namespace vistrel
