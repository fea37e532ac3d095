#include "model/VisibilityPolicy.h"

#include <algorithm>

namespace vistrel {

using namespace Qt::StringLiterals;

QString caseName(VisibilityMode mode)
{
    switch (mode) {
    case VisibilityMode::allowList:
        return u"allowList"_s;
    case VisibilityMode::blockList:
        return u"blockList"_s;
    }
    return {};
}

QString title(VisibilityMode mode)
{
    return mode == VisibilityMode::blockList ? u"Block List"_s : u"Allow List"_s;
}

QString caseName(SourceVisibilityState state)
{
    switch (state) {
    case SourceVisibilityState::shown:
        return u"shown"_s;
    case SourceVisibilityState::hidden:
        return u"hidden"_s;
    case SourceVisibilityState::partial:
        return u"partial"_s;
    }
    return {};
}

void RuleSet::setWindow(const WindowIdentity& window, bool selected,
                        const QList<WindowIdentity>& siblings)
{
    const AppIdentity& application = window.application;
    if (!applications.contains(application)) {
        if (!selected) {
            windows.remove(window);
            return;
        }
        windows.insert(window);
        const bool allSelected = !siblings.isEmpty() &&
                                 std::all_of(siblings.begin(), siblings.end(),
                                             [this](const auto& s) { return windows.contains(s); });
        if (allSelected) {
            applications.insert(application);
            for (const WindowIdentity& sibling : siblings)
                windows.remove(sibling);
        }
        return;
    }
    if (selected)
        return; // already covered through the application rule
    // Demote: the application is now covered window by window, minus this one.
    // Stale rules of the application (windows that no longer exist) go too.
    applications.remove(application);
    windows.removeIf([&](const WindowIdentity& rule) { return rule.application == application; });
    for (const WindowIdentity& sibling : siblings) {
        if (!(sibling == window))
            windows.insert(sibling);
    }
}

size_t qHash(const RuleSet& rules, size_t seed) noexcept
{
    // Order-independent, like the set equality it must agree with.
    const size_t apps =
        qHashRangeCommutative(rules.applications.begin(), rules.applications.end(), 0);
    const size_t windows = qHashRangeCommutative(rules.windows.begin(), rules.windows.end(), 0);
    QtPrivate::QHashCombine combine;
    seed = combine(seed, apps);
    return combine(seed, windows);
}

const RuleSet& VisibilityPolicy::activeRules() const
{
    return mode == VisibilityMode::allowList ? allowList : blockList;
}

RuleSet& VisibilityPolicy::activeRules()
{
    return mode == VisibilityMode::allowList ? allowList : blockList;
}

bool VisibilityPolicy::covers(const AppIdentity& application) const
{
    return activeRules().applications.contains(application);
}

bool VisibilityPolicy::covers(const WindowIdentity& window) const
{
    const RuleSet& rules = activeRules();
    return rules.applications.contains(window.application) || rules.windows.contains(window);
}

bool VisibilityPolicy::isApplicationSelected(const AppIdentity& application,
                                             const QList<WindowIdentity>& windows) const
{
    if (covers(application))
        return true;
    if (windows.isEmpty())
        return false;
    return std::all_of(windows.begin(), windows.end(),
                       [this](const WindowIdentity& w) { return covers(w); });
}

SourceVisibilityState VisibilityPolicy::applicationState(const AppIdentity& application,
                                                         const QList<WindowIdentity>& windows) const
{
    const bool selected = isApplicationSelected(application, windows);
    const bool anyCovered = std::any_of(windows.begin(), windows.end(),
                                        [this](const WindowIdentity& w) { return covers(w); });
    const bool allow = mode == VisibilityMode::allowList;
    if (selected)
        return allow ? SourceVisibilityState::shown : SourceVisibilityState::hidden;
    if (anyCovered)
        return SourceVisibilityState::partial;
    return allow ? SourceVisibilityState::hidden : SourceVisibilityState::shown;
}

SourceVisibilityState VisibilityPolicy::windowState(const WindowIdentity& window) const
{
    const bool covered = covers(window);
    if (mode == VisibilityMode::allowList)
        return covered ? SourceVisibilityState::shown : SourceVisibilityState::hidden;
    return covered ? SourceVisibilityState::hidden : SourceVisibilityState::shown;
}

void VisibilityPolicy::setApplication(const AppIdentity& application, bool included,
                                      const QList<WindowIdentity>& windows)
{
    RuleSet& rules = activeRules();
    if (included)
        rules.applications.insert(application);
    else
        rules.applications.remove(application);
    for (const WindowIdentity& window : windows)
        rules.windows.remove(window);
}

void VisibilityPolicy::setWindow(const WindowIdentity& window, bool selected,
                                 const QList<WindowIdentity>& siblings)
{
    activeRules().setWindow(window, selected, siblings);
}

void VisibilityPolicy::clearActiveRules()
{
    activeRules() = RuleSet{};
}

void VisibilityPolicy::toggleApplication(const AppIdentity& application,
                                         const QList<WindowIdentity>& windows)
{
    setApplication(application, !isApplicationSelected(application, windows), windows);
}

void VisibilityPolicy::toggleWindow(const WindowIdentity& window,
                                    const QList<WindowIdentity>& siblings)
{
    setWindow(window, !isWindowSelected(window), siblings);
}

int VisibilityPolicy::activeRuleCount() const
{
    const RuleSet& rules = activeRules();
    return int(rules.applications.size() + rules.windows.size());
}

QString VisibilityPolicy::activeRuleCountText() const
{
    return ruleCountText(activeRuleCount());
}

QString ruleCountText(int count)
{
    return count == 1 ? u"1 rule"_s : QString::number(count) + u" rules"_s;
}

size_t qHash(const VisibilityPolicy& policy, size_t seed) noexcept
{
    QtPrivate::QHashCombine combine;
    seed = combine(seed, qToUnderlying(policy.mode));
    seed = combine(seed, policy.allowList);
    return combine(seed, policy.blockList);
}

} // namespace vistrel
