#include "platform/sim/SimComposer.h"

#include <QPainter>
#include <algorithm>
#include <cmath>

namespace vistrel {

namespace {

QRectF sourceRectOf(const SimDisplay* display, const StreamConfiguration& configuration)
{
    if (configuration.sourceRect && !configuration.sourceRect->isEmpty())
        return *configuration.sourceRect;
    return display ? QRectF(QPointF(0, 0), display->frame.size()) : QRectF();
}

} // namespace

WindowFacts simWindowFacts(const SimScene& scene, const SimWindow& window)
{
    WindowFacts facts;
    facts.windowID = window.windowID;
    facts.kind = windowKindForLayer(window.windowLayer);
    if (!window.ownerProcessID)
        return facts;
    if (const SimApplication* app = scene.application(*window.ownerProcessID)) {
        facts.ownerPid = app->processID;
        facts.identity = AppIdentity{app->bundleIdentifier, app->applicationName};
    }
    return facts;
}

WindowAdmission simAdmission(const SimScene& scene, const ContentFilter& filter)
{
    WindowAdmission admission(filter);
    for (const SimWindow& window : scene.windows)
        admission.noteWindow(simWindowFacts(scene, window));
    return admission;
}

QSize simOutputSize(const SimScene& scene, const ContentFilter& filter,
                    const StreamConfiguration& configuration)
{
    if (configuration.width > 0 && configuration.height > 0)
        return QSize(configuration.width, configuration.height);
    const SimDisplay* display = scene.display(filter.displayID);
    const QRectF source = sourceRectOf(display, configuration);
    if (!display || source.isEmpty())
        return QSize(1, 1);
    const double sx = display->effectivePixelWidth() / std::max(display->frame.width(), 1.0);
    const double sy = display->effectivePixelHeight() / std::max(display->frame.height(), 1.0);
    return QSize(std::max(1, int(std::lround(source.width() * sx))),
                 std::max(1, int(std::lround(source.height() * sy))));
}

QImage simComposeFrame(const SimScene& scene, const ContentFilter& filter,
                       const StreamConfiguration& configuration)
{
    const QSize size = simOutputSize(scene, filter, configuration);
    QImage image(size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    const SimDisplay* display = scene.display(filter.displayID);
    const QRectF source = sourceRectOf(display, configuration);
    if (!display || source.isEmpty())
        return image; // a display that vanished shows nothing

    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing, false);
    painter.scale(size.width() / source.width(), size.height() / source.height());
    painter.translate(-(display->frame.left() + source.left()),
                      -(display->frame.top() + source.top()));
    painter.setClipRect(display->frame);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    const WindowAdmission admission = simAdmission(scene, filter);
    if (admission.drawsDesktop() && display->desktopColor.isValid())
        painter.fillRect(display->frame, display->desktopColor);
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    for (auto it = scene.windows.crbegin(); it != scene.windows.crend(); ++it) {
        if (!it->isOnScreen || !admission.admits(simWindowFacts(scene, *it)))
            continue;
        painter.fillRect(it->frame, it->color);
    }
    return image;
}

} // namespace vistrel
