#pragma once

// The one place that knows the application's own windows: which window plays
// which part, their window numbers (kept out of every capture), which of them
// are visible, and how the output window is presented and where it is locked.
//
// Main thread only. Window events reach the registry through queued
// connections: they change its state on a later turn of the event loop, never
// inside the window's own event handling, and die with the registry.

#include "capture/OwnWindowSource.h"
#include "platform/ManagedWindow.h"
#include "presentation/ManagedWindowKind.h"

#include <QHash>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <optional>
#include <vector>

namespace vistrel {

class WindowRegistry : public QObject, public OwnWindowSource {
    Q_OBJECT
    // X11 ids of every registered window that is still alive.
    Q_PROPERTY(QSet<quint32> windowNumbers READ windowNumbers NOTIFY windowNumbersChanged)
    // Kinds whose window is alive, mapped and not minimised.
    Q_PROPERTY(
        QSet<vistrel::ManagedWindowKind> visibleKinds READ visibleKinds NOTIFY visibleKindsChanged)
    // The kind brought back when the user starts the application again.
    Q_PROPERTY(vistrel::ManagedWindowKind preferredControlKind READ preferredControlKind WRITE
                   setPreferredControlKind NOTIFY preferredControlKindChanged)
    // Display (RandR output id) on which the control window was first placed.
    Q_PROPERTY(std::optional<quint32> initialControlScreenID READ initialControlScreenID WRITE
                   setInitialControlScreenID NOTIFY initialControlScreenIDChanged)
    // Display to which the output window is locked.
    Q_PROPERTY(std::optional<quint32> outputScreenLockID READ outputScreenLockID WRITE
                   setOutputScreenLockID NOTIFY outputScreenLockIDChanged)
    Q_PROPERTY(vistrel::OutputWindowPresentation outputPresentation READ outputPresentation WRITE
                   setOutputPresentation NOTIFY outputPresentationChanged)
    // Whether the preview panel is wanted on screen.
    Q_PROPERTY(bool isPreviewVisible READ isPreviewVisible WRITE setPreviewVisible NOTIFY
                   isPreviewVisibleChanged)

public:
    explicit WindowRegistry(QObject* parent = nullptr);
    ~WindowRegistry() override;

    // Adopts `window` as the window of `kind`. Registering the same window
    // again only refreshes the published sets; a different window replaces
    // the earlier one and drops every connection to it. Null is ignored.
    void registerWindow(ManagedWindow* window, ManagedWindowKind kind);
    void unregister(ManagedWindowKind kind);
    // A record exists and its window is still alive.
    bool hasWindow(ManagedWindowKind kind) const;

    // Restores, optionally activates the application, and raises the window.
    // For the output window this also switches to the centred presentation.
    void show(ManagedWindowKind kind, bool activate);
    // Unmaps the window; the output window is docked instead and stays mapped.
    void hide(ManagedWindowKind kind);
    // Whether the window counts as shown. A docked output window does not,
    // although it is mapped and listed in visibleKinds.
    bool isVisible(ManagedWindowKind kind) const;

    // The name under which the window's frame is remembered, for example
    // "Vistrel.output.frame".
    static QString frameAutosaveName(ManagedWindowKind kind);

    QSet<quint32> windowNumbers() const { return m_windowNumbers; }
    QSet<ManagedWindowKind> visibleKinds() const { return m_visibleKinds; }
    ManagedWindowKind preferredControlKind() const { return m_preferredControlKind; }
    std::optional<quint32> initialControlScreenID() const { return m_initialControlScreenID; }
    std::optional<quint32> outputScreenLockID() const { return m_outputScreenLockID; }
    OutputWindowPresentation outputPresentation() const { return m_outputPresentation; }
    bool isPreviewVisible() const { return m_isPreviewVisible; }

    // Setters publish only real changes.
    void setPreferredControlKind(ManagedWindowKind kind);
    void setInitialControlScreenID(std::optional<quint32> id);
    void setOutputScreenLockID(std::optional<quint32> id);
    void setOutputPresentation(OutputWindowPresentation presentation);
    void setPreviewVisible(bool visible);

    // OwnWindowSource: the published windowNumbers.
    QSet<quint32> ownWindowNumbers() const override { return m_windowNumbers; }

Q_SIGNALS:
    // Published on every refresh, also when the set did not change.
    void windowNumbersChanged(const QSet<quint32>& numbers);
    void visibleKindsChanged(const QSet<vistrel::ManagedWindowKind>& kinds);
    void preferredControlKindChanged(vistrel::ManagedWindowKind kind);
    void initialControlScreenIDChanged(std::optional<quint32> id);
    void outputScreenLockIDChanged(std::optional<quint32> id);
    void outputPresentationChanged(vistrel::OutputWindowPresentation presentation);
    void isPreviewVisibleChanged(bool visible);

private:
    struct WindowRecord {
        QPointer<ManagedWindow> window;
        // Which window the record was made for, even after it is freed; only
        // compared, never dereferenced.
        const ManagedWindow* identity = nullptr;
        std::vector<QMetaObject::Connection> connections;
    };

    ManagedWindow* liveWindow(ManagedWindowKind kind) const;
    bool holds(ManagedWindowKind kind, const ManagedWindow* identity) const;
    void connectWindow(WindowRecord& record, ManagedWindowKind kind);
    static void disconnectRecord(WindowRecord& record);
    void refreshWindowNumbers();
    void refreshVisibleKinds();

    QSet<quint32> m_windowNumbers;
    QSet<ManagedWindowKind> m_visibleKinds;
    ManagedWindowKind m_preferredControlKind = ManagedWindowKind::simpleControl;
    std::optional<quint32> m_initialControlScreenID;
    std::optional<quint32> m_outputScreenLockID;
    OutputWindowPresentation m_outputPresentation = OutputWindowPresentation::docked;
    bool m_isPreviewVisible = false;
    QHash<ManagedWindowKind, WindowRecord> m_records;
};

} // namespace vistrel
