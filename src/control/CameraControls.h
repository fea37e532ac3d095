#pragma once

// The rules behind the Camera Overlay popover's controls, kept apart from
// the widgets: the camera choices, the first camera picked when none is set,
// the size title, the slider scale and which positions have margins.

#include "model/OutputSettings.h"
#include "platform/CameraPort.h"

#include <QList>
#include <QString>
#include <optional>

namespace vistrel {

struct CameraChoice {
    QString title;
    std::optional<QString> deviceID; // none: "None"

    friend bool operator==(const CameraChoice&, const CameraChoice&) = default;
};

// "None", then the cameras in the port's order; a chosen camera that is not
// connected stays listed so that the choice is not silently lost.
QList<CameraChoice> cameraChoices(const QList<CameraDevice>& devices,
                                  const std::optional<QString>& chosenID);

// The first camera when none is chosen yet; none otherwise.
std::optional<QString> initialCameraID(const QList<CameraDevice>& devices,
                                       const std::optional<QString>& chosenID);

// "Size (150%)".
QString cameraSizeTitle(double sizeScale);
// The size slider counts tenths: 0.5–2.0 is 5–20.
int sizeSliderValue(double sizeScale);
double sizeScaleFromSlider(int value);

bool hasMargins(CameraPosition position);
// The arrow pointing at the position's corner or edge; a dot for the centre.
QString positionSymbol(CameraPosition position);

} // namespace vistrel
