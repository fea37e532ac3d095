#include "presentation/OutputPlacement.h"

#include "presentation/PlacementGeometry.h"

#include <cstdlib>

namespace vistrel {

namespace {

// The window system's screen, if it is one of `screens`.
std::optional<qsizetype> knownScreen(std::optional<qsizetype> i, const QList<ScreenInfo>& screens)
{
    return i && *i >= 0 && *i < screens.size() ? i : std::nullopt;
}

std::optional<quint32> idOf(std::optional<qsizetype> screen, const QList<ScreenInfo>& screens)
{
    return screen ? screens[*screen].displayID : std::nullopt;
}

// The display that holds the window: by area, else (for a window outside
// every visible area, such as a docked one) the window system's choice.
std::optional<qsizetype> holdingScreen(const OutputPlacement::Input& input)
{
    if (const auto i = screenContaining(input.frame, input.screens))
        return i;
    return knownScreen(input.windowScreen, input.screens);
}

// The display the window belongs on: the registry's lock, else this state's
// lock, else the control window's first display, else where the window is.
// The chosen display's id becomes this state's lock.
std::optional<qsizetype> targetScreen(const OutputPlacement::Input& input,
                                      std::optional<quint32>& lockedScreenID)
{
    if (input.registryLockID)
        lockedScreenID = input.registryLockID;
    if (lockedScreenID) {
        if (const auto i = screenWithID(*lockedScreenID, input.screens))
            return i;
    }
    if (input.initialControlScreenID) {
        if (const auto i = screenWithID(*input.initialControlScreenID, input.screens)) {
            lockedScreenID = input.initialControlScreenID;
            return i;
        }
    }
    auto i = knownScreen(input.windowScreen, input.screens);
    if (!i)
        i = screenContaining(input.frame, input.screens);
    if (i)
        lockedScreenID = input.screens[*i].displayID;
    return i;
}

bool withinOnePoint(const QSize& a, const QSize& b)
{
    return std::abs(a.width() - b.width()) <= 1 && std::abs(a.height() - b.height()) <= 1;
}

} // namespace

std::optional<quint32> OutputPlacement::resolveLock(const Input& input)
{
    if (input.registryLockID || lockedScreenID)
        return std::nullopt;
    lockedScreenID = input.initialControlScreenID;
    if (!lockedScreenID)
        lockedScreenID = idOf(holdingScreen(input), input.screens);
    // The registry had no lock either, so it takes this one.
    return lockedScreenID;
}

std::optional<QRect> OutputPlacement::place(const Input& input)
{
    const std::optional<qsizetype> target = targetScreen(input, lockedScreenID);
    std::optional<qsizetype> screen = target;
    if (!screen)
        screen = holdingScreen(input);
    if (!screen && !input.screens.isEmpty())
        screen = 0;
    const QRectF area = screen ? input.screens[*screen].visibleFrame : QRectF(input.frame);

    std::optional<QSize> size;
    if (input.aspectRatio)
        size = outputWindowSize(area, *input.aspectRatio);
    if (!size)
        size = input.frame.size();

    const bool centred = input.presentation == OutputWindowPresentation::centered;
    const bool tokenChanged = centred && lastAppliedRecenterToken != input.recenterToken;
    const std::optional<quint32> targetID = idOf(target, input.screens);
    // A window the user put on a display stays there whatever display holds it.
    const bool screenChanged = !hasManualScreenOverride && targetID &&
                               idOf(holdingScreen(input), input.screens) != targetID;
    const bool presentationChanged = lastAppliedPresentation != input.presentation;
    lastAppliedRecenterToken = input.recenterToken;
    lastAppliedPresentation = input.presentation;

    const bool changed = input.force || screenChanged || presentationChanged;
    if (centred) {
        // Only the size is compared: unforced placements run on every change
        // of the window's description and must not undo where the window
        // manager left the window.
        if (!changed && !tokenChanged && withinOnePoint(input.frame.size(), *size))
            return std::nullopt;
        return QRect(centeredOutputOrigin(area, *size), *size);
    }
    const QPoint origin = dockedOutputOrigin(area, *size, input.screens);
    if (!changed && input.frame.topLeft() == origin && withinOnePoint(input.frame.size(), *size))
        return std::nullopt;
    return QRect(origin, *size);
}

std::optional<quint32> OutputPlacement::manualMove(const QRect& frame,
                                                   const QList<ScreenInfo>& screens,
                                                   std::optional<qsizetype> windowScreen)
{
    hasManualScreenOverride = true;
    // The largest overlap first: the window system may still name the screen
    // the window left when the move is reported.
    std::optional<qsizetype> screen = screenContaining(frame, screens);
    if (!screen)
        screen = knownScreen(windowScreen, screens);
    const std::optional<quint32> id = idOf(screen, screens);
    if (id)
        lockedScreenID = id;
    return id;
}

} // namespace vistrel
