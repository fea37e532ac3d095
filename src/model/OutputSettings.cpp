#include "model/OutputSettings.h"

#include <QHashFunctions>

namespace vistrel {

using namespace Qt::StringLiterals;

namespace {
// +0.0 and -0.0 compare equal, so they must hash alike.
size_t hashDouble(double value, size_t seed)
{
    return ::qHash(value == 0.0 ? 0.0 : value, seed);
}
} // namespace

QString caseName(OutputContentMode mode)
{
    return mode == OutputContentMode::fullDesktop ? u"fullDesktop"_s : u"sanitized"_s;
}

QString title(OutputContentMode mode)
{
    return mode == OutputContentMode::fullDesktop ? u"Full Desktop"_s : u"Sanitized Windows"_s;
}

QString caseName(OutputFrameMode mode)
{
    return mode == OutputFrameMode::dynamic ? u"dynamic"_s : u"screen"_s;
}

QString title(OutputFrameMode mode)
{
    return mode == OutputFrameMode::dynamic ? u"Dynamic"_s : u"Screen"_s;
}

QString caseName(CanvasBackgroundMode mode)
{
    switch (mode) {
    case CanvasBackgroundMode::black:
        return u"black"_s;
    case CanvasBackgroundMode::white:
        return u"white"_s;
    case CanvasBackgroundMode::gray:
        return u"gray"_s;
    case CanvasBackgroundMode::customImage:
        return u"customImage"_s;
    }
    return {};
}

QString title(CanvasBackgroundMode mode)
{
    switch (mode) {
    case CanvasBackgroundMode::black:
        return u"Black"_s;
    case CanvasBackgroundMode::white:
        return u"White"_s;
    case CanvasBackgroundMode::gray:
        return u"Gray"_s;
    case CanvasBackgroundMode::customImage:
        return u"Image"_s;
    }
    return {};
}

QString CanvasBackgroundSelection::title() const
{
    if (mode != CanvasBackgroundMode::customImage)
        return vistrel::title(mode);
    const QString name = imageDisplayName.value_or(QString());
    return u"Image \u2022 "_s + (name.isEmpty() ? u"Not Selected"_s : name);
}

size_t qHash(const CanvasBackgroundSelection& selection, size_t seed) noexcept
{
    QtPrivate::QHashCombine combine;
    seed = combine(seed, qToUnderlying(selection.mode));
    seed = combine(seed, selection.imageRelativePath.has_value());
    seed = combine(seed, selection.imageRelativePath.value_or(QString()));
    seed = combine(seed, selection.imageDisplayName.has_value());
    return combine(seed, selection.imageDisplayName.value_or(QString()));
}

QString caseName(CameraPosition position)
{
    switch (position) {
    case CameraPosition::topLeft:
        return u"topLeft"_s;
    case CameraPosition::top:
        return u"top"_s;
    case CameraPosition::topRight:
        return u"topRight"_s;
    case CameraPosition::left:
        return u"left"_s;
    case CameraPosition::center:
        return u"center"_s;
    case CameraPosition::right:
        return u"right"_s;
    case CameraPosition::bottomLeft:
        return u"bottomLeft"_s;
    case CameraPosition::bottom:
        return u"bottom"_s;
    case CameraPosition::bottomRight:
        return u"bottomRight"_s;
    }
    return {};
}

QString title(CameraPosition position)
{
    switch (position) {
    case CameraPosition::topLeft:
        return u"Top Left"_s;
    case CameraPosition::top:
        return u"Top"_s;
    case CameraPosition::topRight:
        return u"Top Right"_s;
    case CameraPosition::left:
        return u"Left"_s;
    case CameraPosition::center:
        return u"Center"_s;
    case CameraPosition::right:
        return u"Right"_s;
    case CameraPosition::bottomLeft:
        return u"Bottom Left"_s;
    case CameraPosition::bottom:
        return u"Bottom"_s;
    case CameraPosition::bottomRight:
        return u"Bottom Right"_s;
    }
    return {};
}

QString caseName(CameraShape shape)
{
    switch (shape) {
    case CameraShape::circle:
        return u"circle"_s;
    case CameraShape::square:
        return u"square"_s;
    case CameraShape::roundedSquare:
        return u"roundedSquare"_s;
    }
    return {};
}

const CameraOverlayConfiguration& CameraOverlayConfiguration::defaultValue()
{
    static const CameraOverlayConfiguration value;
    return value;
}

QString CameraOverlayConfiguration::summaryText() const
{
    return isEnabled ? title(position) : u"Off"_s;
}

size_t qHash(const CameraOverlayConfiguration& c, size_t seed) noexcept
{
    QtPrivate::QHashCombine combine;
    seed = combine(seed, c.isEnabled);
    seed = combine(seed, c.cameraDeviceID.has_value());
    seed = combine(seed, c.cameraDeviceID.value_or(QString()));
    seed = combine(seed, qToUnderlying(c.position));
    seed = combine(seed, qToUnderlying(c.shape));
    seed = combine(seed, c.isMirrored);
    seed = hashDouble(c.sizeScale, seed);
    seed = hashDouble(c.marginTop, seed);
    seed = hashDouble(c.marginBottom, seed);
    seed = hashDouble(c.marginLeft, seed);
    return hashDouble(c.marginRight, seed);
}

} // namespace vistrel
