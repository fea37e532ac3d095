#pragma once

// What the Canvas popover shows for the live settings: the output rows, the
// background rows and the custom image's caption. Pure, so the rows are
// checked without widgets.

#include "model/OutputSettings.h"

#include <QList>
#include <QString>

namespace vistrel {

struct CanvasOption {
    QString title;
    QString subtitle;
    bool isSelected = false;

    friend bool operator==(const CanvasOption&, const CanvasOption&) = default;
};

struct CanvasOptions {
    QList<CanvasOption> output;     // in allOutputContentModes order
    QList<CanvasOption> background; // in allCanvasBackgroundModes order
    // The imported image's name, or "No image selected yet".
    QString imageName;
    // The background shows only behind isolated windows.
    bool backgroundApplies = true;
};

CanvasOptions canvasOptions(OutputContentMode content, const CanvasBackgroundSelection& canvas);

} // namespace vistrel
