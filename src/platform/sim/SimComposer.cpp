#include "platform/sim/SimComposer.h"

#include <QPainter>
#include <algorithm>
#include <cmath>

namespace vistrel {

namespace {

std::optional<qint32> knownOwner(const SimScene& scene, const SimWindow& window)
{
    if (window.ownerProcessID && scene.application(*window.ownerProcessID))
        return window.ownerProcessID;
    return std::nullopt;
}

QRectF sourceRectOf(const SimDisplay* display, const StreamConfiguration& configuration)
{
    if (configuration.sourceRect && !configuration.sourceRect->isEmpty())
        return *configuration.sourceRect;
    return display ? QRectF(QPointF(0, 0), display->frame.size()) : QRectF();
}

} // namespace

bool simAdmits(const ContentFilter& filter, const SimScene& scene, const SimWindow& window)
{
    const bool listed = filter.windowIDs.contains(window.windowID);
    const bool isDock = window.windowLayer > 0;
    const bool isDesktop = window.windowLayer < 0;
    const std::optional<qint32> owner = knownOwner(scene, window);
    switch (filter.form) {
    case ContentFilterForm::displayExcludingWindows:
        if (isDock && !filter.includeMenuBar)
            return false;
        return !listed;
    case ContentFilterForm::displayExcludingApplications:
        if (isDock && !filter.includeMenuBar)
            return false;
        if (listed)
            return false;
        if (filter.processIDs.isEmpty())
            return true;
        // A window that cannot be attributed might belong to an excluded process.
        return owner && !filter.processIDs.contains(*owner);
    case ContentFilterForm::displayIncludingApplications:
        if (listed)
            return true;
        if (isDesktop)
            return false;
        if (isDock)
            return filter.includeMenuBar;
        return owner && filter.processIDs.contains(*owner);
    }
    return false;
}

bool simDrawsDesktop(const ContentFilter& filter)
{
    return filter.form != ContentFilterForm::displayIncludingApplications;
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
    image.fill(configuration.backgroundColor.isValid() ? configuration.backgroundColor
                                                       : QColor(Qt::transparent));
    const SimDisplay* display = scene.display(filter.displayID);
    const QRectF source = sourceRectOf(display, configuration);
    if (!display || source.isEmpty())
        return image; // a display that vanished shows only the background

    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing, false);
    painter.scale(size.width() / source.width(), size.height() / source.height());
    painter.translate(-(display->frame.left() + source.left()),
                      -(display->frame.top() + source.top()));
    painter.setClipRect(display->frame);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    if (simDrawsDesktop(filter) && display->desktopColor.isValid())
        painter.fillRect(display->frame, display->desktopColor);
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    for (auto it = scene.windows.crbegin(); it != scene.windows.crend(); ++it) {
        if (!it->isOnScreen || !simAdmits(filter, scene, *it))
            continue;
        painter.fillRect(it->frame, it->color);
    }
    return image;
}

} // namespace vistrel
