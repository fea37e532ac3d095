#pragma once

// The searchable list behind the source picker: the applications of the
// selected display, the search text, the filtered list shown, and a copy of
// the visibility policy that says whether a window will be seen. It owns no
// rules; the main view model pushes applications and policy after every
// relevant change and makes every rule edit itself.
//
// Main thread only.

#include "model/SourceIdentity.h"
#include "model/VisibilityPolicy.h"

#include <QList>
#include <QObject>
#include <QString>

namespace vistrel {

class AppListViewModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString searchQuery READ searchQuery WRITE setSearchQuery NOTIFY searchQueryChanged)
    // allApplications filtered by the query; for window-title matches an entry
    // keeps only the matching windows.
    Q_PROPERTY(
        QList<vistrel::ShareableApp> applications READ applications NOTIFY applicationsChanged)
    Q_PROPERTY(QList<vistrel::ShareableApp> allApplications READ allApplications NOTIFY
                   allApplicationsChanged)
    Q_PROPERTY(vistrel::VisibilityPolicy policy READ policy NOTIFY policyChanged)

public:
    explicit AppListViewModel(QObject* parent = nullptr);
    ~AppListViewModel() override;

    QString searchQuery() const { return m_searchQuery; }
    // Stores the text and filters at once (no debounce).
    void setSearchQuery(const QString& query);

    const QList<ShareableApp>& applications() const { return m_applications; }
    const QList<ShareableApp>& allApplications() const { return m_allApplications; }
    const VisibilityPolicy& policy() const { return m_policy; }

    // Replaces the source list and the policy copy, then re-applies the
    // current query to them.
    void update(const QList<ShareableApp>& allApplications, const VisibilityPolicy& policy);
    // Recomputes applications from allApplications and the query.
    void applyFilter();

    // Whether the window will appear in the output under the policy copy:
    // covered in allow-list mode, not covered in block-list mode.
    bool isWindowShown(const ShareableWindow& window) const;

    // What the list shows for a query: pure, so the rules can be read in one
    // place.
    static QList<ShareableApp> filtered(const QList<ShareableApp>& applications,
                                        const QString& query);

Q_SIGNALS:
    void searchQueryChanged(const QString& searchQuery);
    void applicationsChanged(const QList<vistrel::ShareableApp>& applications);
    void allApplicationsChanged(const QList<vistrel::ShareableApp>& allApplications);
    void policyChanged(const vistrel::VisibilityPolicy& policy);

private:
    void setApplications(QList<ShareableApp> applications);

    QString m_searchQuery;
    QList<ShareableApp> m_applications;
    QList<ShareableApp> m_allApplications;
    VisibilityPolicy m_policy;
};

} // namespace vistrel
