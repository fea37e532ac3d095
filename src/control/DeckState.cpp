#include "control/DeckState.h"

#include "control/DeckText.h"

#include <QCoreApplication>

using namespace Qt::StringLiterals;

namespace vistrel {

namespace {

} // namespace

QString shortenedName(const QString& name)
{
    const QString trimmed = name.trimmed();
    if (trimmed.size() < 13)
        return trimmed;
    return trimmed.left(11) + u'…';
}

TileState tileState(DeckTile tile, const DeckInputs& in)
{
    const bool sanitized = in.contentMode == OutputContentMode::sanitized;
    switch (tile) {
    case DeckTile::sources:
        return {u"rectangle.stack"_s,
                deckTr("Sources"),
                in.activeRuleCount > 0 ? deckTr("%1 rules").arg(in.activeRuleCount)
                                       : deckTr("Choose"),
                deckColor::teal,
                TileProminence::subtle,
                sanitized};
    case DeckTile::display:
        return {u"display.2"_s,
                deckTr("Display"),
                in.selectedDisplayName ? shortenedName(*in.selectedDisplayName) : deckTr("Select"),
                deckColor::blue,
                TileProminence::subtle,
                true,
                u"chevron.down"_s};
    case DeckTile::frame:
        return {u"aspectratio"_s,     deckTr("Frame"),        title(in.frameMode),
                deckColor::secondary, TileProminence::subtle, sanitized};
    case DeckTile::mode:
        return {u"line.3.horizontal.decrease.circle"_s,
                deckTr("Mode"),
                title(in.visibilityMode),
                deckColor::orange,
                TileProminence::subtle,
                sanitized};
    case DeckTile::canvas: {
        if (!sanitized)
            return {u"display"_s, deckTr("Canvas"), deckTr("Full Desktop"), deckColor::purple};
        const bool image = in.canvasMode == CanvasBackgroundMode::customImage;
        return {image ? u"photo"_s : u"photo.on.rectangle.angled"_s, deckTr("Canvas"),
                shortenedName(title(in.canvasMode)), deckColor::purple};
    }
    case DeckTile::presets:
        return {u"square.stack.3d.up.fill"_s, deckTr("Presets"),
                in.activePresetTitle.value_or(deckTr("Custom")), deckColor::indigo};
    case DeckTile::camera:
        return {u"camera.fill"_s, deckTr("Camera"), in.camera.summaryText(), deckColor::mint,
                in.camera.isEnabled ? TileProminence::filled : TileProminence::subtle};
    case DeckTile::panic:
        if (in.isPanicHidden)
            return {u"play.fill"_s, deckTr("Resume"), deckTr("Output off"), deckColor::green,
                    TileProminence::filled};
        return {u"hand.raised.fill"_s, deckTr("Panic"), deckTr("Blank now"), deckColor::red,
                TileProminence::filled};
    case DeckTile::preview:
        return {u"eye"_s, deckTr("Preview"),
                in.isPreviewVisible ? deckTr("Visible") : deckTr("Hidden"), deckColor::blue,
                in.isPreviewVisible ? TileProminence::filled : TileProminence::subtle};
    case DeckTile::quit:
        return {u"power"_s, deckTr("Quit"), deckTr("Exit app"), deckColor::red};
    }
    return {};
}

StatusLine statusLine(const StreamStatus& status)
{
    switch (status.kind()) {
    case StreamStatus::Kind::idle:
        return {deckTr("Idle"), deckColor::secondary};
    case StreamStatus::Kind::starting:
        return {deckTr("Starting"), deckColor::blue};
    case StreamStatus::Kind::running:
        return {deckTr("Stream Running"), deckColor::green};
    case StreamStatus::Kind::failed:
        return {deckTr("Stream Error"), deckColor::red};
    case StreamStatus::Kind::blank:
        break;
    }
    const OutputBlankReason reason =
        status.blankReason().value_or(OutputBlankReason::contentUnavailable);
    switch (reason) {
    case OutputBlankReason::permissionMissing:
        return {title(reason), deckColor::yellow};
    case OutputBlankReason::panicHidden:
        return {title(reason), deckColor::red};
    case OutputBlankReason::noDisplaySelected:
    case OutputBlankReason::nothingSelected:
    case OutputBlankReason::contentUnavailable:
        break;
    }
    return {title(reason), deckColor::orange};
}

std::optional<DeckNotice> deckNotice(ScreenRecordingPermissionState permission,
                                     const std::optional<QString>& discoveryError,
                                     const StreamStatus& status,
                                     const std::optional<QString>& settingsNotice)
{
    if (permission == ScreenRecordingPermissionState::missing)
        return DeckNotice{deckTr("Permission required"),
                          deckTr("Grant Screen Recording access before picking sources."),
                          NoticeTone::warning};
    if (discoveryError && !discoveryError->isEmpty())
        return DeckNotice{deckTr("Discovery issue"), *discoveryError, NoticeTone::neutral};
    if (status.isFailed())
        return DeckNotice{deckTr("Stream error"), status.failureMessage(), NoticeTone::danger};
    if (settingsNotice)
        return DeckNotice{deckTr("Earlier settings kept"), *settingsNotice, NoticeTone::neutral,
                          true};
    return std::nullopt;
}

QString noticeSymbol(NoticeTone tone)
{
    switch (tone) {
    case NoticeTone::neutral:
        return u"exclamationmark.bubble"_s;
    case NoticeTone::warning:
        return u"lock.shield"_s;
    case NoticeTone::danger:
        return u"exclamationmark.triangle.fill"_s;
    }
    return {};
}

QColor noticeColour(NoticeTone tone)
{
    switch (tone) {
    case NoticeTone::neutral:
        return deckColor::secondary;
    case NoticeTone::warning:
        return deckColor::yellow;
    case NoticeTone::danger:
        return deckColor::red;
    }
    return {};
}

} // namespace vistrel
