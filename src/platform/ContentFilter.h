#pragma once

// What a capture stream records: a display and, per form, the processes and
// windows it admits or excludes. Admission is decided per frame (see
// WindowAdmission), so windows that appear later follow their process's rule.

#include "model/SourceIdentity.h"

#include <QHashFunctions>
#include <QList>

namespace vistrel {

enum class ContentFilterForm {
    // Whole display minus the listed windows.
    displayExcludingWindows,
    // Whole display minus the listed processes' windows and minus the listed
    // windows (the block list's single windows).
    displayExcludingApplications,
    // Only the listed processes' windows, plus the listed windows.
    displayIncludingApplications,
};

// Every member has a default, so a designated initialiser names only what differs.
struct ContentFilter {
    ContentFilterForm form = ContentFilterForm::displayExcludingWindows;
    quint32 displayID = 0;
    QList<qint32> processIDs{};
    QList<quint32> windowIDs{};
    // Docks, panels and the desktop's own bars.
    bool includeMenuBar = false;

    // The applications the rules name, excluded (excluding forms) or admitted
    // (including form) by identity as well as by process id, so that a process
    // started since the last discovery pass already follows its rule.
    QList<AppIdentity> applications{};
    // Vistrel itself: never admitted in any form, whatever discovery has seen.
    qint32 ownProcessID = 0; // 0: none
    QList<quint32> ownWindowIDs{};

    friend bool operator==(const ContentFilter&, const ContentFilter&) = default;
};

inline size_t qHash(const ContentFilter& filter, size_t seed = 0) noexcept
{
    QtPrivate::QHashCombine combine;
    seed = combine(seed, static_cast<int>(filter.form));
    seed = combine(seed, filter.displayID);
    seed = combine(seed, filter.processIDs);
    seed = combine(seed, filter.windowIDs);
    seed = combine(seed, filter.includeMenuBar);
    seed = combine(seed, filter.applications);
    seed = combine(seed, filter.ownProcessID);
    return combine(seed, filter.ownWindowIDs);
}

} // namespace vistrel
