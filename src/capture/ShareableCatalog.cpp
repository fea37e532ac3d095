#include "capture/ShareableCatalog.h"

#include <QCollator>
#include <algorithm>

namespace vistrel {

using namespace Qt::StringLiterals;

namespace {

const QString unknownAppName = u"Unknown App"_s;

bool isOwnWindow(const LiveWindow& window, qint32 selfProcessID,
                 const std::optional<QString>& selfBundleIdentifier,
                 const QSet<quint32>& ownWindowNumbers)
{
    if (ownWindowNumbers.contains(window.windowID))
        return true;
    if (!window.owningApplication)
        return false;
    const LiveApplication& owner = *window.owningApplication;
    return owner.processID == selfProcessID ||
           (selfBundleIdentifier && owner.bundleIdentifier == *selfBundleIdentifier);
}

bool isOwnApplication(const LiveApplication& application, qint32 selfProcessID,
                      const std::optional<QString>& selfBundleIdentifier)
{
    return application.processID == selfProcessID ||
           (selfBundleIdentifier && application.bundleIdentifier == *selfBundleIdentifier);
}

AppIdentity groupKey(const LiveWindow& window)
{
    if (!window.owningApplication)
        return AppIdentity{std::nullopt, unknownAppName};
    const LiveApplication& owner = *window.owningApplication;
    std::optional<QString> bundle;
    if (owner.bundleIdentifier) {
        const QString trimmed = owner.bundleIdentifier->trimmed();
        if (!trimmed.isEmpty())
            bundle = trimmed;
    }
    return AppIdentity{bundle, owner.applicationName.trimmed()};
}

QString normalizedTitle(const std::optional<QString>& title)
{
    return title.value_or(QString()).trimmed().toLower();
}

bool hasActiveWindow(const ShareableApp& app)
{
    return std::any_of(app.windows.cbegin(), app.windows.cend(),
                       [](const ShareableWindow& w) { return w.isActive; });
}

void sortApplications(QList<ShareableApp>& apps)
{
    QCollator collator;
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    std::stable_sort(apps.begin(), apps.end(), [&](const ShareableApp& a, const ShareableApp& b) {
        const bool activeA = hasActiveWindow(a);
        const bool activeB = hasActiveWindow(b);
        if (activeA != activeB)
            return activeA;
        return collator.compare(a.applicationName, b.applicationName) < 0;
    });
}

std::optional<ShareableApp> makeApp(const AppIdentity& key, const QList<LiveWindow>& group,
                                    const QCollator& titleCollator)
{
    if (key.applicationName.isEmpty() || key.applicationName == unknownAppName)
        return std::nullopt;

    struct Entry {
        const LiveWindow* window;
        QString sortTitle;
    };
    QList<Entry> entries;
    entries.reserve(group.size());
    for (const LiveWindow& window : group)
        entries.append({&window, normalizedTitle(window.title)});
    std::stable_sort(entries.begin(), entries.end(), [&](const Entry& a, const Entry& b) {
        if (a.window->isActive != b.window->isActive)
            return a.window->isActive;
        if (a.window->isOnScreen != b.window->isOnScreen)
            return a.window->isOnScreen;
        return titleCollator.compare(a.sortTitle, b.sortTitle) < 0;
    });

    ShareableApp app;
    app.identity = key;
    for (const Entry& entry : std::as_const(entries)) {
        const LiveWindow& live = *entry.window;
        // Placeholder titles are what toolkits give helper windows nobody picks.
        if (entry.sortTitle == u"window"_s)
            continue;
        if (!live.isOnScreen && entry.sortTitle.isEmpty())
            continue;
        app.windows.append(ShareableWindow{
            .id = live.windowID,
            .title = live.title.value_or(QString()),
            .frame = live.frame,
            .isOnScreen = live.isOnScreen,
            .isActive = live.isActive,
            .application = key,
        });
    }
    if (app.windows.isEmpty())
        return std::nullopt;

    if (const auto& owner = group.first().owningApplication) {
        app.processID = owner->processID;
        app.applicationName = owner->applicationName;
        app.bundleIdentifier = owner->bundleIdentifier.value_or(QString());
    } else {
        app.processID = 0;
        app.applicationName = key.applicationName;
        app.bundleIdentifier = std::nullopt;
    }
    return app;
}

QString displayName(quint32 displayID, const QList<ScreenInfo>& screens)
{
    for (const ScreenInfo& screen : screens) {
        if (screen.displayID == displayID && !screen.localizedName.isEmpty())
            return screen.localizedName;
    }
    return u"Display "_s + QString::number(displayID);
}

} // namespace

ShareableCatalog ShareableCatalog::fromContent(const ShareableContent& content,
                                               qint32 selfProcessID,
                                               const std::optional<QString>& selfBundleIdentifier,
                                               const QSet<quint32>& ownWindowNumbers,
                                               const QList<ScreenInfo>& screens)
{
    ShareableCatalog catalog;
    catalog.selfProcessID = selfProcessID;
    catalog.ownWindowNumbers = ownWindowNumbers.values();
    std::sort(catalog.ownWindowNumbers.begin(), catalog.ownWindowNumbers.end());

    QSet<quint32> ownIDs;
    for (const LiveWindow& window : content.windows) {
        if (isOwnWindow(window, selfProcessID, selfBundleIdentifier, ownWindowNumbers)) {
            catalog.selfWindows.append(window);
            ownIDs.insert(window.windowID);
        }
    }

    catalog.liveDisplaysByID.reserve(content.displays.size());
    for (const LiveDisplay& display : content.displays)
        catalog.liveDisplaysByID.insert(display.displayID, display);

    for (const LiveApplication& application : content.applications) {
        if (isOwnApplication(application, selfProcessID, selfBundleIdentifier))
            catalog.selfApplications.append(application);
    }

    for (const LiveWindow& window : content.windows) {
        if (window.windowLayer == 0 && window.owningApplication &&
            !ownIDs.contains(window.windowID))
            catalog.liveWindows.append(window);
    }

    // Groups in order of first appearance, windows in snapshot order.
    QList<AppIdentity> keys;
    QHash<AppIdentity, QList<LiveWindow>> groups;
    for (const LiveWindow& window : std::as_const(catalog.liveWindows)) {
        const AppIdentity key = groupKey(window);
        auto it = groups.find(key);
        if (it == groups.end()) {
            keys.append(key);
            it = groups.insert(key, {});
        }
        it->append(window);
    }
    const QCollator titleCollator;
    for (const AppIdentity& key : std::as_const(keys)) {
        if (auto app = makeApp(key, groups.value(key), titleCollator))
            catalog.applications.append(std::move(*app));
    }
    sortApplications(catalog.applications);

    catalog.displays.reserve(content.displays.size());
    for (const LiveDisplay& display : content.displays) {
        catalog.displays.append(ShareableDisplay{
            .id = display.displayID,
            .name = displayName(display.displayID, screens),
            .frame = display.frame,
            .logicalSize = QSizeF(display.width, display.height),
            .pixelSize = QSizeF(display.pixelWidth, display.pixelHeight),
        });
    }
    std::stable_sort(catalog.displays.begin(), catalog.displays.end(),
                     [](const ShareableDisplay& a, const ShareableDisplay& b) {
                         if (a.frame.left() != b.frame.left())
                             return a.frame.left() < b.frame.left();
                         return a.frame.top() < b.frame.top();
                     });

    catalog.liveApplications = content.applications;
    return catalog;
}

bool ShareableCatalog::matches(const AppIdentity& identity, const LiveApplication& application)
{
    if (identity.bundleIdentifier)
        return application.bundleIdentifier == identity.bundleIdentifier;
    return QString::compare(application.applicationName, identity.applicationName,
                            Qt::CaseInsensitive) == 0;
}

bool ShareableCatalog::matches(const AppIdentity& identity, const LiveWindow& window)
{
    return window.owningApplication && matches(identity, *window.owningApplication);
}

bool ShareableCatalog::intersectsDisplay(const QRectF& frame,
                                         std::optional<quint32> displayID) const
{
    if (!displayID)
        return true;
    const auto display =
        std::find_if(displays.cbegin(), displays.cend(),
                     [&](const ShareableDisplay& d) { return d.id == *displayID; });
    if (display == displays.cend())
        return true;
    const QRectF overlap = frame.intersected(display->frame);
    return !overlap.isEmpty() && overlap.width() > 1 && overlap.height() > 1;
}

QList<ShareableApp> ShareableCatalog::applicationsOnDisplay(std::optional<quint32> displayID) const
{
    const bool known =
        displayID && std::any_of(displays.cbegin(), displays.cend(),
                                 [&](const ShareableDisplay& d) { return d.id == *displayID; });
    if (!known)
        return applications;
    QList<ShareableApp> result;
    for (const ShareableApp& app : applications) {
        ShareableApp onDisplay = app;
        onDisplay.windows.removeIf(
            [&](const ShareableWindow& w) { return !intersectsDisplay(w.frame, displayID); });
        if (!onDisplay.windows.isEmpty())
            result.append(std::move(onDisplay));
    }
    sortApplications(result);
    return result;
}

QList<LiveApplication>
ShareableCatalog::runningApplications(const QList<AppIdentity>& identities) const
{
    QList<LiveApplication> result;
    QSet<qint32> taken;
    for (const AppIdentity& identity : identities) {
        for (const LiveApplication& application : liveApplications) {
            if (matches(identity, application) && !taken.contains(application.processID)) {
                taken.insert(application.processID);
                result.append(application);
            }
        }
    }
    return result;
}

QList<LiveWindow>
ShareableCatalog::liveWindowsForApplication(const AppIdentity& identity,
                                            std::optional<quint32> displayID) const
{
    QList<LiveWindow> result;
    for (const LiveWindow& window : liveWindows) {
        if (matches(identity, window) && intersectsDisplay(window.frame, displayID))
            result.append(window);
    }
    return result;
}

QList<LiveWindow> ShareableCatalog::liveWindowsForWindow(const WindowIdentity& identity,
                                                         std::optional<quint32> displayID) const
{
    if (identity.lastWindowID) {
        const auto it = std::find_if(liveWindows.cbegin(), liveWindows.cend(), [&](const auto& w) {
            return w.windowID == *identity.lastWindowID;
        });
        if (it != liveWindows.cend()) {
            // The remembered window moved away: a namesake here is not it.
            if (displayID && !intersectsDisplay(it->frame, displayID))
                return {};
            return {*it};
        }
    }
    const QString wanted = identity.windowTitle.trimmed().toLower();
    QList<LiveWindow> result;
    for (const LiveWindow& window : liveWindows) {
        if (matches(identity.application, window) && intersectsDisplay(window.frame, displayID) &&
            normalizedTitle(window.title) == wanted)
            result.append(window);
    }
    return result;
}

QList<LiveWindow>
ShareableCatalog::visibleWindows(std::optional<quint32> displayID,
                                 const QList<LiveWindow>& excludedWindows,
                                 const QList<LiveApplication>& excludedApplications) const
{
    QSet<quint32> windowIDs;
    for (const LiveWindow& window : excludedWindows)
        windowIDs.insert(window.windowID);
    QSet<qint32> processIDs;
    for (const LiveApplication& application : excludedApplications)
        processIDs.insert(application.processID);

    QList<LiveWindow> result;
    for (const LiveWindow& window : liveWindows) {
        if (windowIDs.contains(window.windowID))
            continue;
        if (window.owningApplication && processIDs.contains(window.owningApplication->processID))
            continue;
        if (intersectsDisplay(window.frame, displayID))
            result.append(window);
    }
    return result;
}

size_t qHash(const ShareableCatalog& catalog, size_t seed) noexcept
{
    QtPrivate::QHashCombine combine;
    seed = combine(seed, catalog.displays);
    seed = combine(seed, catalog.applications);
    for (const LiveWindow& window : catalog.liveWindows)
        seed = combine(seed, window.windowID);
    for (const LiveWindow& window : catalog.selfWindows)
        seed = combine(seed, window.windowID);
    for (const LiveApplication& application : catalog.liveApplications)
        seed = combine(seed, application.processID);
    seed = combine(seed, catalog.selfProcessID);
    return combine(seed, catalog.ownWindowNumbers);
}

} // namespace vistrel
