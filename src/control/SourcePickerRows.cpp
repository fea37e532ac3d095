#include "control/SourcePickerRows.h"

#include <QHash>

using namespace Qt::StringLiterals;

namespace vistrel {

namespace {

QList<WindowIdentity> identities(const QList<ShareableWindow>& windows)
{
    QList<WindowIdentity> result;
    result.reserve(windows.size());
    for (const ShareableWindow& window : windows)
        result.append(WindowIdentity(window));
    return result;
}

} // namespace

QString SourcePickerRows::actionLabel(VisibilityMode mode)
{
    return mode == VisibilityMode::blockList ? tr("Hide") : tr("Show");
}

QString SourcePickerRows::visibilityText(SourceVisibilityState state)
{
    switch (state) {
    case SourceVisibilityState::shown:
        return tr("Shown");
    case SourceVisibilityState::hidden:
        return tr("Hidden");
    case SourceVisibilityState::partial:
        return tr("Partial");
    }
    return {};
}

SourcePickerContent SourcePickerRows::build(const SourcePickerInput& input)
{
    SourcePickerContent content;
    content.summary =
        tr("%1 ready. Expand an app to fine-tune the shared windows.").arg(input.sourceSummary);
    if (input.applications.isEmpty()) {
        if (input.searchText.trimmed().isEmpty()) {
            content.emptyState = SourcePickerEmptyState{
                u"square.stack.3d.up.slash"_s, tr("No Shareable Sources"),
                tr("Vistrel could not find shareable app windows yet. Try refreshing discovery "
                   "or switching spaces.")};
        } else {
            content.emptyState =
                SourcePickerEmptyState{u"magnifyingglass"_s, tr("No Matching Sources"),
                                       tr("Try a different search query.")};
        }
        return content;
    }

    // A search may list only some of an application's windows; whether the
    // application is selected still depends on all of them.
    QHash<AppIdentity, const ShareableApp*> unfiltered;
    for (const ShareableApp& app : input.allApplications)
        unfiltered.insert(app.identity, &app);

    const VisibilityPolicy& policy = input.policy;
    const QString action = actionLabel(policy.mode);
    content.applications.reserve(input.applications.size());
    for (const ShareableApp& app : input.applications) {
        const ShareableApp* full = unfiltered.value(app.identity, &app);
        const QList<WindowIdentity> siblings = identities(full->windows);
        SourcePickerApplicationRow row;
        row.key = app.id();
        row.app = app;
        row.name = app.applicationName;
        // Active on screen whether or not the search lists that window.
        const bool active = std::any_of(full->windows.cbegin(), full->windows.cend(),
                                        [](const ShareableWindow& w) { return w.isActive; });
        row.detail = active ? tr("Currently active on screen")
                            : tr("Choose the whole app or expand for per-window control");
        row.windowCount =
            app.windows.size() == 1 ? tr("1 window") : tr("%1 windows").arg(app.windows.size());
        row.visibility = policy.applicationState(app.identity, siblings);
        row.actionLabel = action;
        row.isSelected = policy.isApplicationSelected(app.identity, siblings);
        row.hasExpandControl = !app.windows.isEmpty();
        row.isExpanded = row.hasExpandControl && input.expandedKeys.contains(row.key);
        row.expandSymbol = row.isExpanded ? u"chevron.down"_s : u"chevron.right"_s;
        if (row.isExpanded) {
            row.windows.reserve(app.windows.size());
            for (const ShareableWindow& window : app.windows) {
                const WindowIdentity identity(window);
                SourcePickerWindowRow windowRow;
                windowRow.window = window;
                windowRow.title = window.displayTitle();
                if (window.isActive)
                    windowRow.focusedBadge = SourceBadge{tr("Focused"), BadgeTone::accent};
                windowRow.screenBadge = window.isOnScreen
                                            ? SourceBadge{tr("On Screen"), BadgeTone::neutral}
                                            : SourceBadge{tr("Off Screen"), BadgeTone::warning};
                windowRow.visibility = policy.windowState(identity);
                windowRow.actionLabel = action;
                windowRow.isSelected = policy.isWindowSelected(identity);
                row.windows.append(std::move(windowRow));
            }
        }
        content.applications.append(std::move(row));
    }
    return content;
}

} // namespace vistrel
