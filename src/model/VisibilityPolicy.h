#pragma once

// The user's answer to "what may the audience see": two rule lists and the
// mode that says which one is in force. Coverage here is exact (rules match
// identities by value); resolving rules to live windows for capture is the
// filter builder's business.

#include "model/SourceIdentity.h"

#include <QList>
#include <QSet>
#include <QString>
#include <array>

namespace vistrel {

enum class VisibilityMode {
    allowList,
    blockList,
};
inline constexpr std::array allVisibilityModes{VisibilityMode::allowList,
                                               VisibilityMode::blockList};
// The JSON raw value, equal to the case name.
QString caseName(VisibilityMode mode);
// "Allow List" / "Block List".
QString title(VisibilityMode mode);

// What the audience will see of an application (all three) or a window
// (shown or hidden only).
enum class SourceVisibilityState {
    shown,
    hidden,
    partial,
};
inline constexpr std::array allSourceVisibilityStates{
    SourceVisibilityState::shown, SourceVisibilityState::hidden, SourceVisibilityState::partial};
QString caseName(SourceVisibilityState state);

struct RuleSet {
    QSet<AppIdentity> applications;
    QSet<WindowIdentity> windows;

    bool isEmpty() const { return applications.isEmpty() && windows.isEmpty(); }

    // Window rule editing with promotion to an application rule (every sibling
    // selected) and demotion back to window rules (one sibling deselected).
    // `siblings` are the identities of the application's discovered windows,
    // in discovery order.
    void setWindow(const WindowIdentity& window, bool selected,
                   const QList<WindowIdentity>& siblings);

    friend bool operator==(const RuleSet&, const RuleSet&) = default;
};
size_t qHash(const RuleSet& rules, size_t seed = 0) noexcept;

struct VisibilityPolicy {
    VisibilityMode mode = VisibilityMode::allowList;
    RuleSet allowList;
    RuleSet blockList;

    // The default policy: allow-list mode, both lists empty (shares nothing).
    static VisibilityPolicy defaultValue() { return {}; }

    const RuleSet& activeRules() const;
    RuleSet& activeRules();

    bool covers(const AppIdentity& application) const;
    bool covers(const WindowIdentity& window) const;

    // Covered as a whole, or every listed window covered (never for an empty list).
    bool isApplicationSelected(const AppIdentity& application,
                               const QList<WindowIdentity>& windows) const;
    SourceVisibilityState applicationState(const AppIdentity& application,
                                           const QList<WindowIdentity>& windows) const;
    SourceVisibilityState windowState(const WindowIdentity& window) const;
    // The window counts as selected through its application or its own rule.
    bool isWindowSelected(const WindowIdentity& window) const { return covers(window); }

    // Edits of the active rules only; the inactive list is never touched.
    void setApplication(const AppIdentity& application, bool included,
                        const QList<WindowIdentity>& windows);
    void setWindow(const WindowIdentity& window, bool selected,
                   const QList<WindowIdentity>& siblings);
    void setMode(VisibilityMode newMode) { mode = newMode; }
    void clearActiveRules();

    // The user-facing toggles: select whole when not fully selected, deselect
    // otherwise; flip one window, promoting or demoting as needed.
    void toggleApplication(const AppIdentity& application, const QList<WindowIdentity>& windows);
    void toggleWindow(const WindowIdentity& window, const QList<WindowIdentity>& siblings);

    int activeRuleCount() const;
    bool hasActiveRules() const { return activeRuleCount() > 0; }
    // "1 rule", otherwise "<n> rules".
    QString activeRuleCountText() const;

    friend bool operator==(const VisibilityPolicy&, const VisibilityPolicy&) = default;
};
size_t qHash(const VisibilityPolicy& policy, size_t seed = 0) noexcept;

// "1 rule" for one, "<n> rules" otherwise.
QString ruleCountText(int count);

} // namespace vistrel
