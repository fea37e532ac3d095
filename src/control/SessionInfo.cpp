#include "control/SessionInfo.h"

#include "control/DeckState.h"
#include "control/DeckText.h"

#include <QCoreApplication>

namespace vistrel {

namespace {

} // namespace

SessionInfo sessionInfo(const SessionInputs& in)
{
    const bool desktop = in.contentMode == OutputContentMode::fullDesktop;
    const bool allow = in.visibilityMode == VisibilityMode::allowList;
    const bool dynamic = in.frameMode == OutputFrameMode::dynamic;
    SessionInfo info;
    info.rows = {
        {deckTr("Output"), desktop ? deckTr("Full Desktop") : deckTr("Sanitized Windows")},
        {deckTr("Mode"), allow ? deckTr("Allow List") : deckTr("Block List")},
        {deckTr("Display"), in.displayName.value_or(deckTr("Not Selected"))},
        {deckTr("Frame"), dynamic ? deckTr("Dynamic") : deckTr("Screen")},
        {deckTr("Canvas"), in.canvas.title()},
        {deckTr("Discovered"), in.discovered},
        {deckTr("Rules"), ruleCountText(in.ruleCount)},
        {deckTr("Stream"), statusLine(in.status).title},
    };
    info.explanations = {
        desktop
            ? deckTr("Share the full selected display while still excluding Vistrel windows from "
                     "the output.")
            : deckTr("Only the selected apps and windows appear in Vistrel Output."),
        allow
            ? deckTr("Only checked apps and windows appear in Vistrel Output.")
            : deckTr("Everything on the selected display appears except checked apps and windows."),
        dynamic
            ? deckTr("Automatically crop the output to the outer bounds of the shared windows on "
                     "the selected display.")
            : deckTr("Use the full selected display as the output canvas."),
    };
    switch (in.canvas.mode) {
    case CanvasBackgroundMode::black:
        info.explanations.append(deckTr("Use a black canvas behind isolated windows."));
        break;
    case CanvasBackgroundMode::white:
        info.explanations.append(deckTr("Use a white canvas behind isolated windows."));
        break;
    case CanvasBackgroundMode::gray:
        info.explanations.append(deckTr("Use a neutral gray canvas behind isolated windows."));
        break;
    case CanvasBackgroundMode::customImage:
        info.explanations.append(
            deckTr("Place the isolated windows over a custom image that you choose."));
        break;
    }
    return info;
}

} // namespace vistrel
