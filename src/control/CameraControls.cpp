#include "control/CameraControls.h"

#include "control/DeckText.h"

#include <QCoreApplication>
#include <QtMath>
#include <algorithm>

using namespace Qt::StringLiterals;

namespace vistrel {

namespace {

} // namespace

QList<CameraChoice> cameraChoices(const QList<CameraDevice>& devices,
                                  const std::optional<QString>& chosenID)
{
    QList<CameraChoice> choices{{deckTr("None"), std::nullopt}};
    bool chosenListed = !chosenID || chosenID->isEmpty();
    for (const CameraDevice& device : devices) {
        const QString name =
            device.localizedName.trimmed().isEmpty() ? device.uniqueID : device.localizedName;
        choices.append({name, device.uniqueID});
        chosenListed = chosenListed || device.uniqueID == chosenID;
    }
    if (!chosenListed)
        choices.append({deckTr("%1 (not connected)").arg(*chosenID), chosenID});
    return choices;
}

std::optional<QString> initialCameraID(const QList<CameraDevice>& devices,
                                       const std::optional<QString>& chosenID)
{
    if (chosenID || devices.isEmpty())
        return std::nullopt;
    return devices.first().uniqueID;
}

QString cameraSizeTitle(double sizeScale)
{
    return deckTr("Size (%1%)").arg(qRound(sizeScale * 100));
}

int sizeSliderValue(double sizeScale)
{
    return std::clamp(qRound(sizeScale * 10), 5, 20);
}

double sizeScaleFromSlider(int value)
{
    return std::clamp(value, 5, 20) / 10.0;
}

bool hasMargins(CameraPosition position)
{
    return position != CameraPosition::center;
}

QString positionSymbol(CameraPosition position)
{
    switch (position) {
    case CameraPosition::topLeft:
        return u"arrow.up.left"_s;
    case CameraPosition::top:
        return u"arrow.up"_s;
    case CameraPosition::topRight:
        return u"arrow.up.right"_s;
    case CameraPosition::left:
        return u"arrow.left"_s;
    case CameraPosition::center:
        return u"circle.fill"_s;
    case CameraPosition::right:
        return u"arrow.right"_s;
    case CameraPosition::bottomLeft:
        return u"arrow.down.left"_s;
    case CameraPosition::bottom:
        return u"arrow.down"_s;
    case CameraPosition::bottomRight:
        return u"arrow.down.right"_s;
    }
    return {};
}

} // namespace vistrel
