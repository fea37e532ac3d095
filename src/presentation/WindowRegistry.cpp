#include "presentation/WindowRegistry.h"

#include "model/ObservableProperty.h"

using namespace Qt::StringLiterals;

namespace vistrel {

WindowRegistry::WindowRegistry(QObject* parent) : QObject(parent) {}

WindowRegistry::~WindowRegistry()
{
    // Windows usually outlive the registry only at shutdown; leave them
    // without dangling connections either way.
    for (auto& record : m_records)
        disconnectRecord(record);
}

void WindowRegistry::registerWindow(ManagedWindow* window, ManagedWindowKind kind)
{
    if (!window)
        return;
    auto existing = m_records.find(kind);
    if (existing != m_records.end()) {
        if (existing->window == window) {
            refreshWindowNumbers();
            refreshVisibleKinds();
            return;
        }
        disconnectRecord(*existing);
    }

    WindowRecord record;
    record.window = window;
    record.identity = window;
    connectWindow(record, kind);
    m_records.insert(kind, std::move(record));

    refreshWindowNumbers();
    refreshVisibleKinds();
}

void WindowRegistry::connectWindow(WindowRecord& record, ManagedWindowKind kind)
{
    ManagedWindow* window = record.window;
    const ManagedWindow* identity = record.identity;
    // Every handler is queued to this registry: it runs on a later turn of the
    // event loop and is dropped if the registry is gone by then.
    auto& c = record.connections;
    c.push_back(connect(
        window, &ManagedWindow::willClose, this,
        [this, kind, identity] {
            // A close already on its way when the kind got a new window must
            // not unregister the new one.
            if (holds(kind, identity))
                unregister(kind);
        },
        Qt::QueuedConnection));
    c.push_back(connect(
        window, &ManagedWindow::didMinimize, this, [this] { refreshVisibleKinds(); },
        Qt::QueuedConnection));
    c.push_back(connect(
        window, &ManagedWindow::didDeminimize, this, [this] { refreshVisibleKinds(); },
        Qt::QueuedConnection));
    c.push_back(connect(
        window, &ManagedWindow::visibilityChanged, this, [this] { refreshVisibleKinds(); },
        Qt::QueuedConnection));
    // A re-created or freed native window changes the numbers to exclude.
    c.push_back(connect(
        window, &ManagedWindow::windowNumberChanged, this, [this] { refreshWindowNumbers(); },
        Qt::QueuedConnection));
    c.push_back(connect(
        window, &QObject::destroyed, this,
        [this] {
            refreshWindowNumbers();
            refreshVisibleKinds();
        },
        Qt::QueuedConnection));
}

void WindowRegistry::disconnectRecord(WindowRecord& record)
{
    for (const auto& connection : record.connections)
        QObject::disconnect(connection);
    record.connections.clear();
}

void WindowRegistry::unregister(ManagedWindowKind kind)
{
    auto it = m_records.find(kind);
    if (it == m_records.end())
        return;
    disconnectRecord(*it);
    m_records.erase(it);
    refreshWindowNumbers();
    refreshVisibleKinds();
}

bool WindowRegistry::hasWindow(ManagedWindowKind kind) const
{
    return liveWindow(kind) != nullptr;
}

ManagedWindow* WindowRegistry::liveWindow(ManagedWindowKind kind) const
{
    auto it = m_records.constFind(kind);
    return it == m_records.constEnd() ? nullptr : it->window.data();
}

bool WindowRegistry::holds(ManagedWindowKind kind, const ManagedWindow* identity) const
{
    auto it = m_records.constFind(kind);
    return it != m_records.constEnd() && it->identity == identity;
}

void WindowRegistry::show(ManagedWindowKind kind, bool activate)
{
    ManagedWindow* window = liveWindow(kind);
    if (!window)
        return;
    if (window->isMinimized())
        window->deminiaturize();
    if (activate)
        window->activateApplication();
    if (kind == ManagedWindowKind::output)
        setOutputPresentation(OutputWindowPresentation::centered);
    window->makeKeyAndOrderFront();
    window->orderFrontRegardless();
    refreshVisibleKinds();
}

void WindowRegistry::hide(ManagedWindowKind kind)
{
    ManagedWindow* window = liveWindow(kind);
    if (!window)
        return;
    if (kind == ManagedWindowKind::output) {
        // Unmapping the output window would take the meeting application's
        // source away; docking keeps it mapped but out of sight.
        setOutputPresentation(OutputWindowPresentation::docked);
    } else {
        window->orderOut();
    }
    refreshVisibleKinds();
}

bool WindowRegistry::isVisible(ManagedWindowKind kind) const
{
    if (kind != ManagedWindowKind::output)
        return m_visibleKinds.contains(kind);
    const ManagedWindow* window = liveWindow(kind);
    return window && window->isVisible() && !window->isMinimized() &&
           m_outputPresentation == OutputWindowPresentation::centered;
}

QString WindowRegistry::frameAutosaveName(ManagedWindowKind kind)
{
    return u"Vistrel."_s + rawValue(kind) + u".frame"_s;
}

void WindowRegistry::refreshWindowNumbers()
{
    QSet<quint32> numbers;
    for (const auto& record : std::as_const(m_records)) {
        if (record.window)
            numbers.insert(record.window->windowNumber());
    }
    m_windowNumbers = numbers;
    Q_EMIT windowNumbersChanged(m_windowNumbers);
}

void WindowRegistry::refreshVisibleKinds()
{
    QSet<ManagedWindowKind> kinds;
    for (auto it = m_records.cbegin(); it != m_records.cend(); ++it) {
        const ManagedWindow* window = it->window;
        if (window && window->isVisible() && !window->isMinimized())
            kinds.insert(it.key());
    }
    m_visibleKinds = kinds;
    Q_EMIT visibleKindsChanged(m_visibleKinds);
}

void WindowRegistry::setPreferredControlKind(ManagedWindowKind kind)
{
    updateProperty(this, m_preferredControlKind, kind,
                   &WindowRegistry::preferredControlKindChanged);
}

void WindowRegistry::setInitialControlScreenID(std::optional<quint32> id)
{
    updateProperty(this, m_initialControlScreenID, id,
                   &WindowRegistry::initialControlScreenIDChanged);
}

void WindowRegistry::setOutputScreenLockID(std::optional<quint32> id)
{
    updateProperty(this, m_outputScreenLockID, id, &WindowRegistry::outputScreenLockIDChanged);
}

void WindowRegistry::setOutputPresentation(OutputWindowPresentation presentation)
{
    updateProperty(this, m_outputPresentation, presentation,
                   &WindowRegistry::outputPresentationChanged);
}

void WindowRegistry::setPreviewVisible(bool visible)
{
    updateProperty(this, m_isPreviewVisible, visible, &WindowRegistry::isPreviewVisibleChanged);
}

} // namespace vistrel
