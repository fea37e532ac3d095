#include "platform/WindowAdmission.h"

namespace vistrel {

WindowKind windowKindForLayer(int layer)
{
    if (layer < 0)
        return WindowKind::desktop;
    if (layer >= 100)
        return WindowKind::menu;
    if (layer >= 20)
        return WindowKind::dock;
    return WindowKind::normal;
}

bool identityMatches(const AppIdentity& rule, const AppIdentity& window, bool loose)
{
    const bool bundle = rule.bundleIdentifier && window.bundleIdentifier &&
                        !rule.bundleIdentifier->isEmpty() &&
                        *rule.bundleIdentifier == *window.bundleIdentifier;
    const bool name =
        !rule.applicationName.isEmpty() &&
        QString::compare(rule.applicationName, window.applicationName, Qt::CaseInsensitive) == 0;
    if (loose)
        return bundle || name;
    return rule.bundleIdentifier ? bundle : name;
}

WindowAdmission::WindowAdmission(ContentFilter filter) : m_filter(std::move(filter)) {}

void WindowAdmission::setFilter(ContentFilter filter)
{
    m_filter = std::move(filter);
    m_named.clear();
}

void WindowAdmission::noteWindow(const WindowFacts& facts)
{
    if (!facts.ownerPid || m_filter.applications.isEmpty() ||
        m_filter.form == ContentFilterForm::displayExcludingWindows)
        return;
    const bool loose = m_filter.form == ContentFilterForm::displayExcludingApplications;
    for (const AppIdentity& rule : std::as_const(m_filter.applications)) {
        if (identityMatches(rule, facts.identity, loose)) {
            m_named.insert(*facts.ownerPid);
            return;
        }
    }
}

bool WindowAdmission::named(qint32 pid) const
{
    return m_filter.processIDs.contains(pid) || m_named.contains(pid);
}

bool WindowAdmission::admits(const WindowFacts& facts) const
{
    if (!facts.ownerPid)
        return false;
    if ((m_filter.ownProcessID != 0 && *facts.ownerPid == m_filter.ownProcessID) ||
        m_filter.ownWindowIDs.contains(facts.windowID))
        return false;
    const bool listed = m_filter.windowIDs.contains(facts.windowID);
    switch (m_filter.form) {
    case ContentFilterForm::displayExcludingWindows:
        if (facts.kind == WindowKind::dock && !m_filter.includeMenuBar)
            return false;
        return !listed;
    case ContentFilterForm::displayExcludingApplications:
        if (facts.kind == WindowKind::dock && !m_filter.includeMenuBar)
            return false;
        return !listed && !named(*facts.ownerPid);
    case ContentFilterForm::displayIncludingApplications:
        if (facts.kind == WindowKind::desktop)
            return false;
        if (listed)
            return true;
        if (facts.kind == WindowKind::dock)
            return m_filter.includeMenuBar;
        return named(*facts.ownerPid);
    }
    return false;
}

bool WindowAdmission::drawsDesktop() const
{
    return m_filter.form != ContentFilterForm::displayIncludingApplications;
}

} // namespace vistrel
