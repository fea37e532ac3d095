#include "capture/CaptureFilterBuilder.h"

#include <QSet>
#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

namespace vistrel {

using namespace Qt::StringLiterals;

namespace {

// First occurrence of each process wins; order kept.
QList<LiveApplication> uniqueByProcess(const QList<LiveApplication>& applications)
{
    QList<LiveApplication> result;
    QSet<qint32> seen;
    for (const LiveApplication& application : applications) {
        if (!seen.contains(application.processID)) {
            seen.insert(application.processID);
            result.append(application);
        }
    }
    return result;
}

// First occurrence of each window wins; order kept.
QList<LiveWindow> uniqueByWindow(const QList<LiveWindow>& windows)
{
    QList<LiveWindow> result;
    QSet<quint32> seen;
    for (const LiveWindow& window : windows) {
        if (!seen.contains(window.windowID)) {
            seen.insert(window.windowID);
            result.append(window);
        }
    }
    return result;
}

QList<qint32> processIDs(const QList<LiveApplication>& applications)
{
    QList<qint32> ids;
    ids.reserve(applications.size());
    for (const LiveApplication& application : applications)
        ids.append(application.processID);
    return ids;
}

QList<quint32> windowIDs(const QList<LiveWindow>& windows)
{
    QList<quint32> ids;
    ids.reserve(windows.size());
    for (const LiveWindow& window : windows)
        ids.append(window.windowID);
    return ids;
}

QRectF wholeDisplay(const ShareableDisplay& display)
{
    return QRectF(0, 0, display.logicalSize.width(), display.logicalSize.height());
}

template<typename Number> QString joinSorted(QList<Number> numbers)
{
    std::sort(numbers.begin(), numbers.end());
    QStringList parts;
    parts.reserve(numbers.size());
    for (Number number : numbers)
        parts.append(QString::number(number));
    return parts.join(u',');
}

// "%.2f" of the C library, without its locale: the exact binary value rounded
// to two places, so 0.125 gives "0.12" and the separator is always a dot.
QString twoDecimals(double value)
{
    std::array<char, 512> buffer{}; // room for the largest double in fixed notation
    const auto [end, error] = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value,
                                            std::chars_format::fixed, 2);
    if (error != std::errc())
        return u"nan"_s;
    return QString::fromLatin1(buffer.data(), end - buffer.data());
}

// The rules' applications in a fixed order, so equal choices give equal filters.
QList<AppIdentity> sortedIdentities(const QSet<AppIdentity>& identities)
{
    QList<AppIdentity> sorted = identities.values();
    std::sort(sorted.begin(), sorted.end(),
              [](const AppIdentity& a, const AppIdentity& b) { return a.id() < b.id(); });
    return sorted;
}

// A filter of the form. Every form names Vistrel's own process and windows,
// kept out from the first frame on whether or not discovery has seen them
// yet, and the rules' applications by identity, so that processes discovery
// has not seen yet already follow their rule.
ContentFilter makeFilter(ContentFilterForm form, quint32 displayID, QList<qint32> pids,
                         QList<quint32> windows, bool includeMenuBar,
                         const QSet<AppIdentity>& applications, const ShareableCatalog& catalog)
{
    ContentFilter filter;
    filter.form = form;
    filter.displayID = displayID;
    filter.processIDs = std::move(pids);
    filter.windowIDs = std::move(windows);
    filter.includeMenuBar = includeMenuBar;
    filter.applications = sortedIdentities(applications);
    filter.ownProcessID = catalog.selfProcessID;
    QList<quint32> own = catalog.ownWindowNumbers + windowIDs(catalog.selfWindows);
    std::sort(own.begin(), own.end());
    own.erase(std::unique(own.begin(), own.end()), own.end());
    filter.ownWindowIDs = std::move(own);
    return filter;
}

CapturePlan makePlan(ContentFilter filter, const ShareableDisplay& display, QString signature,
                     const QRectF& sourceRect, bool fullDesktop)
{
    return CapturePlan{
        .filter = std::move(filter),
        .display = display,
        .signature = std::move(signature),
        .sourceRect = sourceRect,
        .canvasLogicalSize = sourceRect.size(),
        .usesTransparentCanvas = !fullDesktop,
        .isFullDesktopCapture = fullDesktop,
    };
}

} // namespace

CaptureFilterBuilder::CaptureFilterBuilder(const ScreenProvider& screens) : m_screens(screens) {}

CaptureBuildResult CaptureFilterBuilder::build(const VisibilityPolicy& policy,
                                               std::optional<quint32> selectedDisplayID,
                                               const ShareableCatalog& catalog, bool isPanicHidden,
                                               OutputFrameMode outputFrameMode,
                                               OutputContentMode outputContentMode) const
{
    if (isPanicHidden)
        return OutputBlankReason::panicHidden;
    if (!selectedDisplayID)
        return OutputBlankReason::noDisplaySelected;
    if (!catalog.liveDisplaysByID.contains(*selectedDisplayID))
        return OutputBlankReason::contentUnavailable;
    const auto display =
        std::find_if(catalog.displays.cbegin(), catalog.displays.cend(),
                     [&](const ShareableDisplay& d) { return d.id == *selectedDisplayID; });
    if (display == catalog.displays.cend())
        return OutputBlankReason::contentUnavailable;

    if (outputContentMode == OutputContentMode::fullDesktop)
        return fullDesktopPlan(policy, *display, catalog);
    switch (policy.mode) {
    case VisibilityMode::blockList:
        return blockListPlan(policy, *display, catalog, outputFrameMode);
    case VisibilityMode::allowList:
        return allowListPlan(policy, *display, catalog, outputFrameMode);
    }
    return OutputBlankReason::contentUnavailable;
}

CapturePlan CaptureFilterBuilder::fullDesktopPlan(const VisibilityPolicy& policy,
                                                  const ShareableDisplay& display,
                                                  const ShareableCatalog& catalog) const
{
    const QList<LiveApplication> own = uniqueByProcess(catalog.selfApplications);
    ContentFilter filter =
        makeFilter(own.isEmpty() ? ContentFilterForm::displayExcludingWindows
                                 : ContentFilterForm::displayExcludingApplications,
                   display.id, processIDs(own), {}, true, {}, catalog);
    const QRectF rect = wholeDisplay(display);
    QString signature = makeSignature(rect, OutputContentMode::fullDesktop, policy.mode,
                                      OutputFrameMode::screen, display, own, {});
    return makePlan(std::move(filter), display, std::move(signature), rect, true);
}

CapturePlan CaptureFilterBuilder::blockListPlan(const VisibilityPolicy& policy,
                                                const ShareableDisplay& display,
                                                const ShareableCatalog& catalog,
                                                OutputFrameMode frameMode) const
{
    const RuleSet& rules = policy.blockList;
    const QList<LiveApplication> excludedApplications = uniqueByProcess(
        catalog.runningApplications(rules.applications.values()) + catalog.selfApplications);
    QList<LiveWindow> matched;
    for (const WindowIdentity& identity : rules.windows)
        matched += catalog.liveWindowsForWindow(identity, display.id);
    const QList<LiveWindow> excludedWindows = uniqueByWindow(matched);

    ContentFilter filter = makeFilter(ContentFilterForm::displayExcludingApplications, display.id,
                                      processIDs(excludedApplications), windowIDs(excludedWindows),
                                      true, rules.applications, catalog);

    QRectF rect;
    if (frameMode == OutputFrameMode::dynamic) {
        const QList<LiveWindow> visible = catalog.visibleWindows(
            display.id, excludedWindows + catalog.selfWindows, excludedApplications);
        rect = dynamicCropRect(display, visible);
    } else {
        rect = usableDisplayRect(display);
    }
    QString signature = makeSignature(rect, OutputContentMode::sanitized, VisibilityMode::blockList,
                                      frameMode, display, excludedApplications, excludedWindows);
    return makePlan(std::move(filter), display, std::move(signature), rect, false);
}

CaptureBuildResult CaptureFilterBuilder::allowListPlan(const VisibilityPolicy& policy,
                                                       const ShareableDisplay& display,
                                                       const ShareableCatalog& catalog,
                                                       OutputFrameMode frameMode) const
{
    const RuleSet& rules = policy.allowList;
    const QList<AppIdentity> allowedApplications = rules.applications.values();
    const QList<LiveApplication> candidateApplications =
        catalog.runningApplications(allowedApplications);
    QList<LiveWindow> candidates;
    for (const AppIdentity& identity : allowedApplications)
        candidates += catalog.liveWindowsForApplication(identity, display.id);
    for (const WindowIdentity& identity : rules.windows)
        candidates += catalog.liveWindowsForWindow(identity, display.id);
    const QList<LiveWindow> candidateWindows = uniqueByWindow(candidates);

    QSet<qint32> ownProcesses;
    for (const LiveApplication& application : catalog.selfApplications)
        ownProcesses.insert(application.processID);

    QList<LiveApplication> includedApplications;
    for (const LiveApplication& application : candidateApplications) {
        if (!ownProcesses.contains(application.processID))
            includedApplications.append(application);
    }
    QList<LiveWindow> includedWindows;
    for (const LiveWindow& window : candidateWindows) {
        if (!window.owningApplication ||
            !ownProcesses.contains(window.owningApplication->processID))
            includedWindows.append(window);
    }

    if (includedWindows.isEmpty() && includedApplications.isEmpty())
        return OutputBlankReason::nothingSelected;

    // Windows that their application's admission does not already bring in.
    QSet<qint32> includedProcesses;
    for (const LiveApplication& application : includedApplications)
        includedProcesses.insert(application.processID);
    QList<LiveWindow> extraWindows;
    for (const LiveWindow& window : includedWindows) {
        if (!window.owningApplication ||
            !includedProcesses.contains(window.owningApplication->processID))
            extraWindows.append(window);
    }

    ContentFilter filter = makeFilter(ContentFilterForm::displayIncludingApplications, display.id,
                                      processIDs(includedApplications), windowIDs(extraWindows),
                                      false, rules.applications, catalog);
    const QRectF rect = frameMode == OutputFrameMode::dynamic
                            ? dynamicCropRect(display, includedWindows)
                            : usableDisplayRect(display);
    QString signature = makeSignature(rect, OutputContentMode::sanitized, VisibilityMode::allowList,
                                      frameMode, display, includedApplications, includedWindows);
    return makePlan(std::move(filter), display, std::move(signature), rect, false);
}

QRectF CaptureFilterBuilder::usableDisplayRect(const ShareableDisplay& display) const
{
    const QList<ScreenInfo> screens = m_screens.screens();
    for (const ScreenInfo& screen : screens) {
        if (screen.displayID != display.id)
            continue;
        // Screen units to the display's, whole pixels so the crop stays sharp.
        const QRectF& frame = screen.frame;
        const QRectF& visible = screen.visibleFrame;
        const auto local = [&screen](double value, double origin) {
            return std::round((value - origin) * screen.displayScale);
        };
        const double left = local(visible.left(), frame.left());
        const double top = local(visible.top(), frame.top());
        return QRectF(left, top, local(visible.right(), frame.left()) - left,
                      local(visible.bottom(), frame.top()) - top)
            .intersected(wholeDisplay(display));
    }
    return wholeDisplay(display);
}

QRectF CaptureFilterBuilder::dynamicCropRect(const ShareableDisplay& display,
                                             const QList<LiveWindow>& windows)
{
    const QRectF bounds = display.frame;
    std::optional<QRectF> united;
    for (const LiveWindow& window : windows) {
        if (!window.isOnScreen)
            continue;
        const QRectF visible = window.frame.intersected(bounds);
        if (visible.isEmpty() || visible.width() <= 1 || visible.height() <= 1)
            continue;
        const QRectF padded = visible.adjusted(-cropPadding, -cropPadding, cropPadding, cropPadding)
                                  .intersected(bounds);
        united = united ? united->united(padded) : padded;
    }
    if (!united)
        return wholeDisplay(display);
    const double left = std::floor(united->left());
    const double top = std::floor(united->top());
    const double right = std::ceil(united->right());
    const double bottom = std::ceil(united->bottom());
    return QRectF(left - bounds.left(), top - bounds.top(), right - left, bottom - top);
}

QString CaptureFilterBuilder::makeSignature(const QRectF& rect, OutputContentMode contentMode,
                                            VisibilityMode visibilityMode,
                                            OutputFrameMode frameMode,
                                            const ShareableDisplay& display,
                                            const QList<LiveApplication>& applications,
                                            const QList<LiveWindow>& windows)
{
    const auto truncated = [](double value) {
        return QString::number(qint64(std::trunc(value)));
    };
    return caseName(contentMode) + u':' + caseName(visibilityMode) + u':' + caseName(frameMode) +
           u':' + QString::number(display.id) + u':' + truncated(display.pixelSize.width()) + u'x' +
           truncated(display.pixelSize.height()) + u":apps["_s +
           joinSorted(processIDs(applications)) + u"]:windows["_s + joinSorted(windowIDs(windows)) +
           u"]:"_s + twoDecimals(rect.x()) + u',' + twoDecimals(rect.y()) + u',' +
           twoDecimals(rect.width()) + u',' + twoDecimals(rect.height());
}

} // namespace vistrel
