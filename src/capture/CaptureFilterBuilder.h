#pragma once

// Turns the sharing choice into what the capture stream must show: a reason
// to show nothing, or a plan with the content filter, the part of the display
// to keep, the canvas size and a signature that identifies the plan.
//
// Stateless: the same inputs give the same result, apart from the screen
// layout read for the usable area. Never fails; every problem is a blank
// reason. The caller deals with a missing permission before calling.
//
// Threading: main thread (the screen provider is read there).
// Coordinates: sourceRect is display-local, points, y-down.

#include "capture/CapturePlan.h"
#include "capture/ShareableCatalog.h"
#include "model/OutputSettings.h"
#include "model/VisibilityPolicy.h"
#include "platform/ScreenProvider.h"

#include <optional>

namespace vistrel {

class CaptureFilterBuilder {
public:
    // Room left around each shared window in the dynamic frame.
    static constexpr double cropPadding = 12;

    // The provider must outlive the builder.
    explicit CaptureFilterBuilder(const ScreenProvider& screens);

    CaptureBuildResult build(const VisibilityPolicy& policy,
                             std::optional<quint32> selectedDisplayID,
                             const ShareableCatalog& catalog, bool isPanicHidden,
                             OutputFrameMode outputFrameMode,
                             OutputContentMode outputContentMode) const;

    // The display minus panels and docks, display-local; the whole display
    // when no screen matches it.
    QRectF usableDisplayRect(const ShareableDisplay& display) const;

    // The padded, integral bounding box of the on-screen windows' parts on
    // the display, display-local; the whole display when none qualifies.
    static QRectF dynamicCropRect(const ShareableDisplay& display,
                                  const QList<LiveWindow>& windows);

    // content:mode:frame:display:WxH:apps[pids]:windows[ids]:x,y,w,h with
    // sorted lists and two decimals, so that discovery order never matters.
    static QString makeSignature(const QRectF& rect, OutputContentMode contentMode,
                                 VisibilityMode visibilityMode, OutputFrameMode frameMode,
                                 const ShareableDisplay& display,
                                 const QList<LiveApplication>& applications,
                                 const QList<LiveWindow>& windows);

private:
    CapturePlan fullDesktopPlan(const VisibilityPolicy& policy, const ShareableDisplay& display,
                                const ShareableCatalog& catalog) const;
    CapturePlan blockListPlan(const VisibilityPolicy& policy, const ShareableDisplay& display,
                              const ShareableCatalog& catalog, OutputFrameMode frameMode) const;
    CaptureBuildResult allowListPlan(const VisibilityPolicy& policy,
                                     const ShareableDisplay& display,
                                     const ShareableCatalog& catalog,
                                     OutputFrameMode frameMode) const;

    const ScreenProvider& m_screens;
};

} // namespace vistrel
