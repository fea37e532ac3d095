#include "control/SessionInfo.h"

#include "control/DeckState.h"

#include <QCoreApplication>

namespace vistrel {

namespace {

QString tr(const char* text)
{
    return QCoreApplication::translate("ControlDeck", text);
}

} // namespace

SessionInfo sessionInfo(const SessionInputs& in)
{
    const bool desktop = in.contentMode == OutputContentMode::fullDesktop;
    const bool allow = in.visibilityMode == VisibilityMode::allowList;
    const bool dynamic = in.frameMode == OutputFrameMode::dynamic;
    SessionInfo info;
    info.rows = {
        {tr("Output"), desktop ? tr("Full Desktop") : tr("Sanitized Windows")},
        {tr("Mode"), allow ? tr("Allow List") : tr("Block List")},
        {tr("Display"), in.displayName.value_or(tr("Not Selected"))},
        {tr("Frame"), dynamic ? tr("Dynamic") : tr("Screen")},
        {tr("Canvas"), in.canvas.title()},
        {tr("Discovered"), in.discovered},
        {tr("Rules"), ruleCountText(in.ruleCount)},
        {tr("Stream"), statusLine(in.status).title},
    };
    info.explanations = {
        desktop ? tr("Share the full selected display while still excluding Vistrel windows from "
                     "the output.")
                : tr("Only the selected apps and windows appear in Vistrel Output."),
        allow ? tr("Only checked apps and windows appear in Vistrel Output.")
              : tr("Everything on the selected display appears except checked apps and windows."),
        dynamic ? tr("Automatically crop the output to the outer bounds of the shared windows on "
                     "the selected display.")
                : tr("Use the full selected display as the output canvas."),
    };
    switch (in.canvas.mode) {
    case CanvasBackgroundMode::black:
        info.explanations.append(tr("Use a black canvas behind isolated windows."));
        break;
    case CanvasBackgroundMode::white:
        info.explanations.append(tr("Use a white canvas behind isolated windows."));
        break;
    case CanvasBackgroundMode::gray:
        info.explanations.append(tr("Use a neutral gray canvas behind isolated windows."));
        break;
    case CanvasBackgroundMode::customImage:
        info.explanations.append(
            tr("Place the isolated windows over a custom image that you choose."));
        break;
    }
    return info;
}

} // namespace vistrel
