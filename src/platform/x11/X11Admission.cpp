#include "platform/x11/X11Admission.h"

namespace vistrel::x11 {

namespace {

bool excludedByProcess(const ContentFilter& filter, const AdmissionFacts& facts)
{
    if (filter.processIDs.isEmpty())
        return false;
    // Unknown owner: it might be an excluded process, so it counts as one.
    return !facts.ownerPid || filter.processIDs.contains(*facts.ownerPid);
}

} // namespace

bool admits(const ContentFilter& filter, const AdmissionFacts& facts)
{
    const bool listed = filter.windowIDs.contains(facts.clientWindow);
    switch (filter.form) {
    case ContentFilterForm::displayExcludingWindows:
        if (facts.kind == WindowKind::dock && !filter.includeMenuBar)
            return false;
        return !listed;
    case ContentFilterForm::displayExcludingApplications: {
        if (facts.kind == WindowKind::dock && !filter.includeMenuBar)
            return false;
        // Listed windows are hidden too: the block list names single windows
        // there, and a listed window must never show, whatever its process.
        return !listed && !excludedByProcess(filter, facts);
    }
    case ContentFilterForm::displayIncludingApplications:
        if (listed)
            return true;
        if (facts.kind == WindowKind::desktop)
            return false;
        if (facts.kind == WindowKind::dock && filter.includeMenuBar)
            return true;
        return facts.ownerPid && filter.processIDs.contains(*facts.ownerPid);
    }
    return false;
}

bool drawsDesktopBackground(const ContentFilter& filter)
{
    return filter.form != ContentFilterForm::displayIncludingApplications;
}

} // namespace vistrel::x11
