#pragma once

// "Camera Overlay": the camera bubble's settings. When it opens it asks the
// camera port for access and lists the cameras; without access it shows
// "Camera access denied" with a way to the help on camera access. Every
// change goes straight into the main view model, which saves it; the camera
// session follows the model.

#include "control/CameraControls.h"
#include "control/Popover.h"
#include "model/OutputSettings.h"
#include "platform/CameraPort.h"

#include <QList>
#include <QPointer>
#include <functional>

class QButtonGroup;
class QCheckBox;
class QComboBox;
class QLabel;
class QSlider;
class QToolButton;
class QWidget;

namespace vistrel {

class CameraSessionManager;
class MainViewModel;

class CameraPopover : public Popover {
    Q_OBJECT

public:
    struct Camera {
        CameraPort* port = nullptr;
        // Says when a start was refused for lack of access; may be null.
        CameraSessionManager* session = nullptr;
        std::function<void()> openAccessHelp;
    };

    CameraPopover(MainViewModel& model, Camera camera, PopoverHub& hub, QWidget* parent);

    bool cameraPermissionDenied() const { return m_cameraPermissionDenied; }
    const QList<CameraDevice>& availableCameras() const { return m_availableCameras; }

    QCheckBox* enableToggle() const { return m_enable; }
    QComboBox* sourceChoice() const { return m_source; }
    QCheckBox* mirrorToggle() const { return m_mirror; }
    QToolButton* positionButton(CameraPosition position) const;
    QButtonGroup* shapeButtons() const { return m_shapes; }
    QSlider* sizeSlider() const { return m_size; }
    // Top, Bottom, Left, Right.
    const QList<QSlider*>& marginSliders() const { return m_margins; }
    QWidget* marginsPanel() const { return m_marginPanel; }
    QWidget* deniedPanel() const { return m_deniedPanel; }

private:
    QWidget* buildDeniedPanel();
    QWidget* buildPositionGrid();
    QWidget* buildShapePicker();
    QWidget* buildMargins();
    void checkAccess();
    void loadCameras();
    void setPermissionDenied(bool denied);
    void change(const std::function<void(CameraOverlayConfiguration&)>& edit);
    void sync();

    MainViewModel& m_model;
    Camera m_camera;
    QList<CameraDevice> m_availableCameras;
    QList<CameraChoice> m_shownChoices; // what the source list holds now
    bool m_cameraPermissionDenied = false;
    QCheckBox* m_enable = nullptr;
    QWidget* m_deniedPanel = nullptr;
    QComboBox* m_source = nullptr;
    QCheckBox* m_mirror = nullptr;
    QButtonGroup* m_positions = nullptr;
    QButtonGroup* m_shapes = nullptr;
    QLabel* m_sizeTitle = nullptr;
    QSlider* m_size = nullptr;
    QWidget* m_marginPanel = nullptr;
    QLabel* m_noMargins = nullptr;
    QList<QSlider*> m_margins;
    QList<QLabel*> m_marginValues;
};

} // namespace vistrel
