#pragma once

// What the information popover says about the live session: label and value
// rows, then one explanation per live setting. Plain values, checked by table.

#include "capture/StreamStatus.h"
#include "model/OutputSettings.h"
#include "model/VisibilityPolicy.h"

#include <QList>
#include <QString>
#include <optional>
#include <utility>

namespace vistrel {

struct SessionInputs {
    OutputContentMode contentMode = OutputContentMode::sanitized;
    VisibilityMode visibilityMode = VisibilityMode::allowList;
    std::optional<QString> displayName = {};
    OutputFrameMode frameMode = OutputFrameMode::screen;
    CanvasBackgroundSelection canvas = {};
    QString discovered;
    int ruleCount = 0;
    StreamStatus status = {};
};

struct SessionInfo {
    QList<std::pair<QString, QString>> rows;
    QStringList explanations;

    friend bool operator==(const SessionInfo&, const SessionInfo&) = default;
};

SessionInfo sessionInfo(const SessionInputs& inputs);

} // namespace vistrel
