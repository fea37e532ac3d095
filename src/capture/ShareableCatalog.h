#pragma once

// One discovery snapshot, immutable once built: what the user interface
// offers (displays, applications with their windows) next to the live
// records the filter builder turns into a content filter. The application's
// own process and windows are kept apart from everything offered.
//
// Coordinates: global, points, y-down.

#include "model/SourceIdentity.h"
#include "platform/ScreenProvider.h"
#include "platform/ShareableContent.h"

#include <QHash>
#include <QList>
#include <QSet>
#include <optional>

namespace vistrel {

struct ShareableCatalog {
    QList<ShareableDisplay> displays;        // by x, then y
    QList<ShareableApp> applications;        // offerable applications, sorted
    QList<LiveApplication> liveApplications; // every application, snapshot order
    QList<LiveApplication> selfApplications; // this application's processes
    QHash<quint32, LiveDisplay> liveDisplaysByID;
    QList<LiveWindow> liveWindows; // normal layer, owned, not ours; snapshot order
    QList<LiveWindow> selfWindows; // ours, snapshot order
    // Who "ours" is, known before discovery has seen any of it: capture
    // filters never admit these, whatever the snapshot held.
    qint32 selfProcessID = 0;
    QList<quint32> ownWindowNumbers; // sorted

    // The catalog with nothing in it: the initial one, and the one published
    // after a failure or a stop.
    static ShareableCatalog empty() { return {}; }

    // Pure: the screens only name the displays.
    static ShareableCatalog fromContent(const ShareableContent& content, qint32 selfProcessID,
                                        const std::optional<QString>& selfBundleIdentifier,
                                        const QSet<quint32>& ownWindowNumbers,
                                        const QList<ScreenInfo>& screens);

    // The applications with only their windows on the display (all of them
    // without a known display), re-sorted; applications left empty are dropped.
    QList<ShareableApp> applicationsOnDisplay(std::optional<quint32> displayID) const;
    // Live applications matching the identities, in identity order, each
    // process once.
    QList<LiveApplication> runningApplications(const QList<AppIdentity>& identities) const;
    QList<LiveWindow> liveWindowsForApplication(const AppIdentity& identity,
                                                std::optional<quint32> displayID) const;
    // By remembered window number first (nothing when that window now lies on
    // another display), else by application and trimmed, lower-cased title.
    QList<LiveWindow> liveWindowsForWindow(const WindowIdentity& identity,
                                           std::optional<quint32> displayID) const;
    QList<LiveWindow> visibleWindows(std::optional<quint32> displayID,
                                     const QList<LiveWindow>& excludedWindows,
                                     const QList<LiveApplication>& excludedApplications) const;
    // True without a display or for an unknown one; otherwise the overlap
    // must be wider and higher than 1 point.
    bool intersectsDisplay(const QRectF& frame, std::optional<quint32> displayID) const;

    // Bundle identifier character for character; without one, the name
    // ignoring case.
    static bool matches(const AppIdentity& identity, const LiveApplication& application);
    static bool matches(const AppIdentity& identity, const LiveWindow& window);

    friend bool operator==(const ShareableCatalog&, const ShareableCatalog&) = default;
};

size_t qHash(const ShareableCatalog& catalog, size_t seed = 0) noexcept;

} // namespace vistrel
