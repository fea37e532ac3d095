#pragma once

// The whole content of the control window: the status header (stream status,
// the discovery summary, the output window's button, "Always on Top", the
// information button), ten tiles in a 5 x 2 grid, and the notice line when
// one is due. Tiles open their popovers (one at a time) or act at once.
//
// The deck reads and changes the main view model and the window registry;
// its own state is only which popover is open. Main thread only.

#include "control/CameraPopover.h"
#include "control/DeckState.h"

#include <QPointer>
#include <QWidget>
#include <functional>
#include <map>

class QCheckBox;
class QLabel;
class QMenu;
class QToolButton;

namespace vistrel {

class CompactTile;
class DeckNoticeView;
class MainViewModel;
class Popover;
class PopoverHub;
class WindowRegistry;

enum class DeckPopover { sources, presets, mode, display, frame, canvas, camera, info };

class ControlDeck : public QWidget {
    Q_OBJECT

public:
    struct Actions {
        std::function<void()> togglePreview;
        std::function<void()> quit;
        // The content of the Sources popover, made for each opening.
        std::function<QWidget*(QWidget* parent)> makeSourcePicker = {};
        // The application menu, behind the header's menu button.
        QMenu* menu = nullptr;
        // Why the panic key works only inside Vistrel, if it does; for the
        // information popover.
        std::function<QString()> panicKeyProblem = {};
        // What the Camera Overlay popover lists and opens.
        CameraPopover::Camera camera = {};
    };

    ControlDeck(MainViewModel& model, WindowRegistry& registry, PopoverHub& hub, Actions actions,
                QWidget* parent);

    CompactTile* tile(DeckTile tile) const { return m_tiles.at(tile); }
    QToolButton* outputButton() const { return m_outputButton; }
    std::optional<DeckPopover> activePopover() const;
    bool isNoticeDue() const { return m_notice.has_value(); }

    // Opens the popover (closing any other).
    void openPopover(DeckPopover popover);

Q_SIGNALS:
    void noticeDueChanged(bool isDue);

protected:
    void hideEvent(QHideEvent* event) override;

private:
    QWidget* buildHeader();
    void activate(DeckTile tile);
    Popover* makePopover(DeckPopover popover);
    void confirmQuit();
    void sync();

    MainViewModel& m_model;
    WindowRegistry& m_registry;
    PopoverHub& m_hub;
    Actions m_actions;
    std::map<DeckTile, CompactTile*> m_tiles;
    QLabel* m_statusDot = nullptr;
    QLabel* m_statusTitle = nullptr;
    QLabel* m_statusDetail = nullptr;
    QToolButton* m_outputButton = nullptr;
    QCheckBox* m_alwaysOnTop = nullptr;
    DeckNoticeView* m_noticeView = nullptr;
    std::optional<DeckNotice> m_notice;
    QPointer<Popover> m_popover;
    std::optional<DeckPopover> m_popoverKind;
};

} // namespace vistrel
