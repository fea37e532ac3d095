// The main view model's answers about the sources of the selected display:
// which applications and windows it offers, what is selected and shown, and
// the summary lines the views print.

#include "capture/ScreenShareDiscoveryService.h"
#include "coordination/MainViewModel.h"

using namespace Qt::StringLiterals;

namespace vistrel {

QList<WindowIdentity> MainViewModel::windowIdentities(const ShareableApp& app) const
{
    const QList<ShareableApp> onDisplay = applicationsOnSelectedDisplay();
    const auto listed =
        std::find_if(onDisplay.cbegin(), onDisplay.cend(), [&](const ShareableApp& candidate) {
            return candidate.identity == app.identity;
        });
    const QList<ShareableWindow>& windows =
        listed != onDisplay.cend() ? listed->windows : app.windows;
    QList<WindowIdentity> identities;
    identities.reserve(windows.size());
    for (const ShareableWindow& window : windows)
        identities.append(WindowIdentity(window));
    return identities;
}

bool MainViewModel::isApplicationSelected(const ShareableApp& app) const
{
    return policy().isApplicationSelected(app.identity, windowIdentities(app));
}

SourceVisibilityState MainViewModel::visibilityState(const ShareableApp& app) const
{
    return policy().applicationState(app.identity, windowIdentities(app));
}

QString MainViewModel::selectedDisplayName() const
{
    if (const std::optional<quint32> selected = selectedDisplayID()) {
        for (const ShareableDisplay& display : m_displays) {
            if (display.id == *selected)
                return display.name;
        }
    }
    return u"Not Selected"_s;
}

QString MainViewModel::sourceSummary() const
{
    const QList<ShareableApp> applications = applicationsOnSelectedDisplay();
    qsizetype windows = 0;
    for (const ShareableApp& app : applications)
        windows += app.windows.size();
    return u"%1 apps \u2022 %2 windows"_s.arg(applications.size()).arg(windows);
}

QList<ShareableApp> MainViewModel::applicationsOnSelectedDisplay() const
{
    return m_discoveryService.catalog().applicationsOnDisplay(selectedDisplayID());
}

} // namespace vistrel
