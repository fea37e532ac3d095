#pragma once

// What the control deck shows, as plain values computed from the view
// models: the status header, the ten tiles and the notice line. No widget is
// involved, so every rule is checked by table; the widgets only draw these.

#include "capture/PermissionManager.h"
#include "capture/StreamStatus.h"
#include "model/OutputSettings.h"
#include "model/VisibilityPolicy.h"

#include <QColor>
#include <QString>
#include <optional>

namespace vistrel {

// The deck's named colours.
namespace deckColor {
inline const QColor red{0xe0, 0x1b, 0x24};
inline const QColor orange{0xff, 0x78, 0x00};
inline const QColor yellow{0xe5, 0xa5, 0x0a};
inline const QColor green{0x2e, 0xc2, 0x7e};
inline const QColor mint{0x26, 0xa2, 0x69};
inline const QColor teal{0x21, 0x90, 0xa4};
inline const QColor blue{0x35, 0x84, 0xe4};
inline const QColor indigo{0x5e, 0x5c, 0xe6};
inline const QColor purple{0x91, 0x41, 0xac};
inline const QColor secondary{0x77, 0x76, 0x7b};
} // namespace deckColor

enum class DeckTile {
    sources,
    display,
    frame,
    mode,
    canvas,
    presets,
    camera,
    panic,
    preview,
    quit
};
inline constexpr DeckTile allDeckTiles[] = {
    DeckTile::sources, DeckTile::display, DeckTile::frame, DeckTile::mode,    DeckTile::canvas,
    DeckTile::presets, DeckTile::camera,  DeckTile::panic, DeckTile::preview, DeckTile::quit};

enum class TileProminence { subtle, filled };

struct TileState {
    QString symbolName;
    QString title;
    QString subtitle;
    QColor tint;
    TileProminence prominence = TileProminence::subtle;
    bool isEnabled = true;
    std::optional<QString> accessorySymbolName = {};

    friend bool operator==(const TileState&, const TileState&) = default;
};

// The live values the tiles read.
struct DeckInputs {
    int activeRuleCount = 0;
    VisibilityMode visibilityMode = VisibilityMode::allowList;
    OutputContentMode contentMode = OutputContentMode::sanitized;
    OutputFrameMode frameMode = OutputFrameMode::screen;
    std::optional<QString> selectedDisplayName = {};
    CanvasBackgroundMode canvasMode = CanvasBackgroundMode::black;
    CameraOverlayConfiguration camera = {};
    std::optional<QString> activePresetTitle = {};
    bool isPanicHidden = false;
    bool isPreviewVisible = false;
};

TileState tileState(DeckTile tile, const DeckInputs& inputs);

// Trimmed; from 13 characters on, the first 11 and "…".
QString shortenedName(const QString& name);

struct StatusLine {
    QString title;
    QColor colour;

    friend bool operator==(const StatusLine&, const StatusLine&) = default;
};
StatusLine statusLine(const StreamStatus& status);

enum class NoticeTone { neutral, warning, danger };

struct DeckNotice {
    QString title;
    QString message;
    NoticeTone tone = NoticeTone::neutral;
    // The user may put it away ("Dismiss").
    bool isDismissible = false;

    friend bool operator==(const DeckNotice&, const DeckNotice&) = default;
};

// The first that applies: missing permission, a discovery error, a failed
// stream, settings that could not be read at start; nothing otherwise. The
// control window grows while one is due.
std::optional<DeckNotice> deckNotice(ScreenRecordingPermissionState permission,
                                     const std::optional<QString>& discoveryError,
                                     const StreamStatus& status,
                                     const std::optional<QString>& settingsNotice);

QString noticeSymbol(NoticeTone tone);
QColor noticeColour(NoticeTone tone);

} // namespace vistrel
