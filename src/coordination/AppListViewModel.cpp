#include "coordination/AppListViewModel.h"

#include "model/ObservableProperty.h"

namespace vistrel {

AppListViewModel::AppListViewModel(QObject* parent) : QObject(parent) {}

AppListViewModel::~AppListViewModel() = default;

void AppListViewModel::setSearchQuery(const QString& query)
{
    if (m_searchQuery != query) {
        m_searchQuery = query;
        Q_EMIT searchQueryChanged(m_searchQuery);
    }
    applyFilter();
}

void AppListViewModel::update(const QList<ShareableApp>& allApplications,
                              const VisibilityPolicy& policy)
{
    if (m_allApplications != allApplications) {
        m_allApplications = allApplications;
        Q_EMIT allApplicationsChanged(m_allApplications);
    }
    if (m_policy != policy) {
        m_policy = policy;
        Q_EMIT policyChanged(m_policy);
    }
    applyFilter();
}

void AppListViewModel::applyFilter()
{
    setApplications(filtered(m_allApplications, m_searchQuery));
}

bool AppListViewModel::isWindowShown(const ShareableWindow& window) const
{
    const bool covered = m_policy.covers(WindowIdentity(window));
    return m_policy.mode == VisibilityMode::allowList ? covered : !covered;
}

QList<ShareableApp> AppListViewModel::filtered(const QList<ShareableApp>& applications,
                                               const QString& query)
{
    const QString trimmed = query.trimmed();
    if (trimmed.isEmpty())
        return applications;
    const QString q = unicodeLowercased(trimmed);

    QList<ShareableApp> result;
    for (const ShareableApp& app : applications) {
        if (unicodeLowercased(app.applicationName).contains(q) ||
            (app.bundleIdentifier && unicodeLowercased(*app.bundleIdentifier).contains(q))) {
            result.append(app);
            continue;
        }
        // displayTitle() is the trimmed title or "Untitled Window", so
        // "untitled" finds every window without a title.
        QList<ShareableWindow> matching;
        for (const ShareableWindow& window : app.windows) {
            if (unicodeLowercased(window.displayTitle()).contains(q))
                matching.append(window);
        }
        if (!matching.isEmpty()) {
            ShareableApp reduced = app;
            reduced.windows = std::move(matching);
            result.append(std::move(reduced));
        }
    }
    return result;
}

void AppListViewModel::setApplications(QList<ShareableApp> applications)
{
    updateProperty(this, m_applications, applications, &AppListViewModel::applicationsChanged);
}

} // namespace vistrel
