#pragma once

// "Vistrel Preview": a small frameless tool window above the control window
// that shows what the output shares (the same stage as the output window,
// with a compact notice), a "PREVIEW" badge, the camera button that turns the
// camera bubble on and off, and one chip per saved preset that applies it.
// It never takes the keyboard focus. A press on it closes the deck's
// popovers; dragging it moves the control window, which it follows.
//
// Widget pixels, y down. Main thread only; the view models, the hub and the
// control window must outlive the panel.

#include <QPoint>
#include <QPointer>
#include <QWidget>
#include <optional>

class QAbstractButton;
class QHBoxLayout;

namespace vistrel {

class MainViewModel;
class OutputOverlay;
class OutputStage;
class OutputViewModel;
class PopoverHub;
class PreviewCameraButton;

class PreviewPanel : public QWidget {
    Q_OBJECT

public:
    PreviewPanel(OutputViewModel& outputViewModel, MainViewModel& mainViewModel, PopoverHub& hub,
                 QWidget* controlWindow);

    QAbstractButton* cameraButton() const;
    // The chips, in order.
    QList<QAbstractButton*> chips() const;

protected:
    void resizeEvent(QResizeEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    void syncChips();
    void layoutChildren();

    MainViewModel& m_mainViewModel;
    PopoverHub& m_hub;
    QPointer<QWidget> m_controlWindow;
    OutputStage* m_stage;
    OutputOverlay* m_notice;
    QWidget* m_badge;
    PreviewCameraButton* m_cameraButton;
    QWidget* m_chipRow;
    QHBoxLayout* m_chipLayout;
    // While dragging: where the press was and where the control window stood.
    std::optional<QPoint> m_pressPosition;
    QPoint m_controlOrigin;
};

} // namespace vistrel
