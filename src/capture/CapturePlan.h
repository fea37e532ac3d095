#pragma once

// The filter builder's answer: a reason to show nothing, or a plan the
// capture engine makes the stream match.

#include "model/SourceIdentity.h"
#include "platform/ContentFilter.h"

#include <QRectF>
#include <QSizeF>
#include <QString>
#include <variant>

namespace vistrel {

enum class OutputBlankReason {
    permissionMissing,
    noDisplaySelected,
    nothingSelected,
    panicHidden,
    contentUnavailable,
};

QString toString(OutputBlankReason reason);
// What the user reads for the reason: "Choose a Display", ...
QString title(OutputBlankReason reason);

struct CapturePlan {
    ContentFilter filter;
    ShareableDisplay display;
    QString signature;
    QRectF sourceRect;        // display-local, points, y-down
    QSizeF canvasLogicalSize; // always sourceRect's size
    bool usesTransparentCanvas = false;
    bool isFullDesktopCapture = false;

    friend bool operator==(const CapturePlan&, const CapturePlan&) = default;
};

using CaptureBuildResult = std::variant<OutputBlankReason, CapturePlan>;

} // namespace vistrel
