#include "control/CanvasOptions.h"

#include "control/DeckText.h"

#include <QCoreApplication>

namespace vistrel {

namespace {

CanvasOption outputOption(OutputContentMode mode, bool selected)
{
    switch (mode) {
    case OutputContentMode::sanitized:
        return {deckTr("Sanitized Windows"),
                deckTr("Only the selected apps and windows appear in Vistrel Output."), selected};
    case OutputContentMode::fullDesktop:
        return {deckTr("Full Desktop"),
                deckTr("Share the full selected display while still excluding Vistrel windows from "
                       "the output."),
                selected};
    }
    return {};
}

CanvasOption backgroundOption(CanvasBackgroundMode mode, bool selected)
{
    switch (mode) {
    case CanvasBackgroundMode::black:
        return {deckTr("Black"), deckTr("Use a black canvas behind isolated windows."), selected};
    case CanvasBackgroundMode::white:
        return {deckTr("White"), deckTr("Use a white canvas behind isolated windows."), selected};
    case CanvasBackgroundMode::gray:
        return {deckTr("Gray"), deckTr("Use a neutral gray canvas behind isolated windows."),
                selected};
    case CanvasBackgroundMode::customImage:
        return {deckTr("Custom Image"),
                deckTr("Place isolated windows over an image that you choose or drag in."),
                selected};
    }
    return {};
}

} // namespace

CanvasOptions canvasOptions(OutputContentMode content, const CanvasBackgroundSelection& canvas)
{
    CanvasOptions options;
    for (OutputContentMode mode : allOutputContentModes)
        options.output.append(outputOption(mode, mode == content));
    for (CanvasBackgroundMode mode : allCanvasBackgroundModes)
        options.background.append(backgroundOption(mode, mode == canvas.mode));
    const QString name = canvas.imageDisplayName.value_or(QString()).trimmed();
    options.imageName =
        canvas.imageRelativePath && !name.isEmpty() ? name : deckTr("No image selected yet");
    options.backgroundApplies = content == OutputContentMode::sanitized;
    return options;
}

} // namespace vistrel
