#pragma once

// Which windows a content filter lets into a frame: the one set of rules
// every capture backend applies, per frame, to what it knows of each window
// at that moment.
//
// It fails closed:
// - a window whose owner process is not known (yet) is drawn in no form;
// - the filter's own process and own windows are never drawn;
// - applications are named by process id (what discovery saw) and by
//   identity (what the rules name). A process counts as named as soon as any
//   of its windows carries a named identity, so a process that discovery has
//   not seen yet, and its menus and popups that carry no class of their own,
//   already follow its application's rule.
//
// Rules, by form:
// - displayExcludingWindows: every window except the listed ones.
// - displayExcludingApplications: every window except the named processes'
//   and the listed ones (a listed window stays hidden whatever its process).
// - displayIncludingApplications: the named processes' windows plus the
//   listed windows; never the desktop.
// Docks and panels need includeMenuBar; menus, tooltips and popups follow
// their owner.

#include "model/SourceIdentity.h"
#include "platform/ContentFilter.h"

#include <QSet>
#include <optional>

namespace vistrel {

enum class WindowKind {
    normal,  // application windows, dialogs, utility windows, notifications
    menu,    // menus, tooltips, override-redirect popups
    dock,    // docks, panels and other desktop bars
    desktop, // the desktop itself (icons, wallpaper window)
};

// Discovery layers (ShareableContent's windowLayer) as admission kinds:
// negative is the desktop, 20 to 99 docks and panels, 100 and up menus and
// tooltips, anything else an ordinary window.
WindowKind windowKindForLayer(int layer);

struct WindowFacts {
    quint32 windowID = 0;           // the client window, not a frame around it
    std::optional<qint32> ownerPid; // absent when not known
    AppIdentity identity;           // class and application id; may be empty
    WindowKind kind = WindowKind::normal;

    friend bool operator==(const WindowFacts&, const WindowFacts&) = default;
};

// A rule's identity against a window's. Strict (the catalog's own rule):
// the bundle identifier when the rule has one, else the name, ignoring
// case. Loose (for exclusion): either of them.
bool identityMatches(const AppIdentity& rule, const AppIdentity& window, bool loose);

class WindowAdmission {
public:
    explicit WindowAdmission(ContentFilter filter = {});

    const ContentFilter& filter() const { return m_filter; }
    // A new filter forgets the processes named so far.
    void setFilter(ContentFilter filter);

    // Every window the backend knows, mapped or not, before asking about any.
    void clearWindows() { m_named.clear(); }
    void noteWindow(const WindowFacts& facts);

    bool admits(const WindowFacts& facts) const;
    // True when the form draws the desktop background behind the windows.
    bool drawsDesktop() const;

private:
    bool named(qint32 pid) const;

    ContentFilter m_filter;
    QSet<qint32> m_named; // processes named by the identity of one of their windows
};

} // namespace vistrel
