#pragma once

// System symbols by the names the views use ("eye.slash"), drawn from the
// desktop's icon theme when it has a matching icon and from the project's
// own monochrome pictures otherwise, so every symbol shows on any desktop.
//
// Main thread only (icon themes and SVG rendering are GUI objects).

#include <QColor>
#include <QImage>
#include <QString>
#include <QStringList>

namespace vistrel {

// Every symbol name the table knows.
QStringList knownSymbols();

// Where a symbol is drawn from right now: the first of its theme icon names
// the current icon theme has (symbolic Adwaita names before Breeze names),
// else the path of its bundled picture. Empty for an unknown symbol.
QString symbolSource(QStringView symbol);

// The symbol in a square of pixelSize logical pixels, centred, its shape
// painted in `tint` (the tint's alpha applies on top of the shape's). The
// image carries devicePixelRatio. Null for an unknown symbol.
QImage symbolImage(QStringView symbol, int pixelSize, const QColor& tint,
                   qreal devicePixelRatio = 1.0);

} // namespace vistrel
