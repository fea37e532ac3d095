#include "control/CanvasOptions.h"

#include <QCoreApplication>

namespace vistrel {

namespace {

QString tr(const char* text)
{
    return QCoreApplication::translate("ControlDeck", text);
}

CanvasOption outputOption(OutputContentMode mode, bool selected)
{
    switch (mode) {
    case OutputContentMode::sanitized:
        return {tr("Sanitized Windows"),
                tr("Only the selected apps and windows appear in Vistrel Output."), selected};
    case OutputContentMode::fullDesktop:
        return {tr("Full Desktop"),
                tr("Share the full selected display while still excluding Vistrel windows from "
                   "the output."),
                selected};
    }
    return {};
}

CanvasOption backgroundOption(CanvasBackgroundMode mode, bool selected)
{
    switch (mode) {
    case CanvasBackgroundMode::black:
        return {tr("Black"), tr("Use a black canvas behind isolated windows."), selected};
    case CanvasBackgroundMode::white:
        return {tr("White"), tr("Use a white canvas behind isolated windows."), selected};
    case CanvasBackgroundMode::gray:
        return {tr("Gray"), tr("Use a neutral gray canvas behind isolated windows."), selected};
    case CanvasBackgroundMode::customImage:
        return {tr("Custom Image"),
                tr("Place isolated windows over an image that you choose or drag in."), selected};
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
        canvas.imageRelativePath && !name.isEmpty() ? name : tr("No image selected yet");
    options.backgroundApplies = content == OutputContentMode::sanitized;
    return options;
}

} // namespace vistrel
