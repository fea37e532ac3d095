#include "presentation/WindowPlacementController.h"

#include "coordination/DebouncedJob.h"
#include "presentation/PlacementGeometry.h"
#include "presentation/WidgetWindowHandle.h"
#include "presentation/WindowFrameStore.h"
#include "presentation/WindowRegistry.h"

#include <QGuiApplication>
#include <QMouseEvent>
#include <QScreen>
#include <QTimer>
#include <QWidget>
#include <QWindow>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace vistrel {

namespace {

// Long enough for the window manager to report the move that a frame change
// of ours causes; a move while this lasts is never taken for the user's.
constexpr auto programmaticChangeWindow = 400ms;
// After the user drops the output window, this long until it re-centres.
constexpr auto manualRecenterDelay = 50ms;
constexpr auto frameSaveDelay = 500ms;

} // namespace

WindowPlacementController::WindowPlacementController(QWidget* window, ManagedWindowKind kind,
                                                     PlacementServices services)
    : QObject(window), m_window(window), m_kind(kind), m_services(std::move(services)),
      m_endProgrammaticChange(new DebouncedJob(
          programmaticChangeWindow, [this] { m_isApplyingProgrammaticChange = false; },
          m_services.clock, this)),
      m_manualRecenter(new DebouncedJob(
          manualRecenterDelay, [this] { recenterAfterManualMove(); }, m_services.clock, this)),
      m_saveFrame(new DebouncedJob(
          frameSaveDelay,
          [this] {
              if (m_window)
                  m_services.frames.setFrame(WindowRegistry::frameAutosaveName(m_kind),
                                             m_window->geometry());
          },
          m_services.clock, this))
{
    Q_ASSERT(window && window->isWindow());
    // Neither window has a title bar; both move by dragging their background.
    // Flags are set before the native window exists, so nothing is re-created.
    window->setWindowFlags(Qt::Window | Qt::FramelessWindowHint);
    window->setWindowTitle(kind == ManagedWindowKind::output ? u"Vistrel Output"_s : u"Vistrel"_s);
    window->setAttribute(Qt::WA_DeleteOnClose, false);
    if (kind == ManagedWindowKind::output)
        window->setAutoFillBackground(false);
    window->installEventFilter(this);

    WidgetWindowHandle* handle = WidgetWindowHandle::forWidget(window);
    handle->setCloseGuard([this] {
        if (m_services.isTerminating && m_services.isTerminating())
            return true;
        m_services.registry.hide(m_kind);
        return false;
    });
}

WindowPlacementController::~WindowPlacementController() = default;

void WindowPlacementController::update(const WindowDescription& description)
{
    // Descriptions are rebuilt on many model changes; only a different one
    // needs the window touched.
    if (m_isAttached && description == m_description)
        return;
    m_description = description;
    if (m_isAttached)
        attach();
}

bool WindowPlacementController::eventFilter(QObject* watched, QEvent* event)
{
    if (watched != m_window)
        return false;
    switch (event->type()) {
    case QEvent::Show:
        // The native window exists but is not mapped yet: placing it now maps
        // it where it belongs, without a visible jump.
        if (!m_isAttached) {
            m_isAttached = true;
            if (const auto stored =
                    m_services.frames.frame(WindowRegistry::frameAutosaveName(m_kind)))
                m_window->move(stored->topLeft());
            if (m_kind == ManagedWindowKind::simpleControl) {
                // The first frame, before the window is mapped.
                presentControlInitially();
            }
            attach();
        } else {
            applyStateHints();
        }
        break;
    case QEvent::MouseButtonPress: {
        auto* mouse = static_cast<QMouseEvent*>(event);
        if (mouse->button() == Qt::LeftButton && m_window->windowHandle()) {
            if (m_kind == ManagedWindowKind::output)
                m_isTrackingManualMove = true;
            m_window->windowHandle()->startSystemMove();
        }
        break;
    }
    case QEvent::Move:
        m_saveFrame->schedule();
        if (m_kind == ManagedWindowKind::output)
            followManualMove();
        break;
    case QEvent::Resize:
        m_saveFrame->schedule();
        break;
    default:
        break;
    }
    return false;
}

void WindowPlacementController::attach()
{
    if (!m_window)
        return;
    m_services.registry.registerWindow(WidgetWindowHandle::forWidget(m_window), m_kind);
    applyStateHints();
    if (m_kind == ManagedWindowKind::simpleControl) {
        applyControlSize();
    } else if (m_kind == ManagedWindowKind::output) {
        m_services.windowSystem.keepContentsReadable(quint32(m_window->winId()));
        resolveOutputLock();
        applyOutputPlacement(false);
    }
}

void WindowPlacementController::applyStateHints()
{
    WindowStateHints hints;
    if (m_kind == ManagedWindowKind::simpleControl) {
        hints.above = m_description.isAlwaysOnTop;
    } else if (m_kind == ManagedWindowKind::output) {
        // Docked: out of the way, but mapped so that a meeting application
        // that captures the window keeps its source.
        const bool docked = m_description.outputPresentation == OutputWindowPresentation::docked;
        hints.below = docked;
        hints.skipTaskbar = docked;
        hints.skipPager = docked;
    }
    m_services.windowSystem.setStateHints(quint32(m_window->winId()), hints);
}

void WindowPlacementController::applyControlSize()
{
    const qreal height = controlWindowHeight(m_description.preferredSimpleWindowHeight);
    const QRectF frame = m_window->geometry();
    m_window->setFixedSize(QSize(int(controlWindowWidth), int(height)));
    // A new height keeps the window's top edge where the user left it.
    if (const auto resized = resizedControlFrame(frame, height))
        setFrame(resized->toRect());
}

void WindowPlacementController::presentControlInitially()
{
    if (m_hasPerformedInitialPresentation)
        return;
    m_hasPerformedInitialPresentation = true;
    const QList<ScreenInfo> all = screens();
    const qreal height = controlWindowHeight(m_description.preferredSimpleWindowHeight);
    std::optional<qsizetype> screen = windowScreen(all);
    if (!screen && !all.isEmpty())
        screen = 0;
    const QRectF area = screen ? all[*screen].visibleFrame : QRectF(m_window->geometry());
    setFrame(initialControlFrame(area, height).toRect());

    std::optional<qsizetype> holding = screenContaining(m_window->geometry(), all);
    if (!holding)
        holding = screen;
    if (!m_services.registry.initialControlScreenID() && holding)
        m_services.registry.setInitialControlScreenID(all[*holding].displayID);

    QPointer<WindowRegistry> registry = &m_services.registry;
    QTimer::singleShot(150ms, &m_services.registry, [registry] {
        if (registry)
            registry->setPreviewVisible(true);
    });
}

void WindowPlacementController::resolveOutputLock()
{
    if (const auto lock = m_output.resolveLock(placementInput(false)))
        m_services.registry.setOutputScreenLockID(lock);
}

void WindowPlacementController::applyOutputPlacement(bool force)
{
    if (const auto frame = m_output.place(placementInput(force))) {
        m_window->setFixedSize(frame->size());
        setFrame(*frame);
    }
}

OutputPlacement::Input WindowPlacementController::placementInput(bool force) const
{
    OutputPlacement::Input input;
    input.frame = m_window->geometry();
    input.screens = screens();
    input.windowScreen = windowScreen(input.screens);
    input.registryLockID = m_services.registry.outputScreenLockID();
    input.initialControlScreenID = m_services.registry.initialControlScreenID();
    input.aspectRatio = m_description.contentAspectRatio;
    input.recenterToken = m_description.outputRecenterToken;
    input.presentation = m_description.outputPresentation;
    input.force = force;
    return input;
}

void WindowPlacementController::followManualMove()
{
    if (m_isApplyingProgrammaticChange)
        return;
    // The window manager holds the pointer while it moves a window, so the
    // buttons are asked of the window system rather than of Qt.
    const bool pressed = m_services.windowSystem.isPointerButtonPressed();
    if (!m_isTrackingManualMove && !pressed)
        return;
    m_isTrackingManualMove = true;
    const QList<ScreenInfo> all = screens();
    if (const auto id = m_output.manualMove(m_window->geometry(), all, windowScreen(all)))
        m_services.registry.setOutputScreenLockID(id);
    m_manualRecenter->schedule();
}

void WindowPlacementController::recenterAfterManualMove()
{
    if (!m_window)
        return;
    if (m_services.windowSystem.isPointerButtonPressed()) {
        m_manualRecenter->schedule(); // still held: wait for the release
        return;
    }
    m_isTrackingManualMove = false;
    applyOutputPlacement(true);
}

void WindowPlacementController::setFrame(const QRect& frame)
{
    m_isApplyingProgrammaticChange = true;
    m_endProgrammaticChange->schedule();
    m_window->setGeometry(frame);
}

QList<ScreenInfo> WindowPlacementController::screens() const
{
    return m_services.screens.screens();
}

std::optional<qsizetype> WindowPlacementController::windowScreen(const QList<ScreenInfo>& all) const
{
    const QScreen* screen = m_window ? m_window->screen() : nullptr;
    if (!screen)
        return std::nullopt;
    for (qsizetype i = 0; i < all.size(); ++i)
        if (all[i].frame == QRectF(screen->geometry()))
            return i;
    return std::nullopt;
}

} // namespace vistrel
