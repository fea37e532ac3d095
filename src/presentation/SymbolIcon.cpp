#include "presentation/SymbolIcon.h"

#include <QIcon>
#include <QPainter>
#include <QSvgRenderer>
#include <QtMath>

using namespace Qt::StringLiterals;

namespace vistrel {

namespace {

// One row per symbol. A theme name is empty where that theme has nothing
// that means the same; the bundled picture is icons/<symbol>.svg.
struct SymbolRow {
    QLatin1StringView symbol;
    QLatin1StringView adwaita;
    QLatin1StringView breeze;
};

constexpr SymbolRow symbolTable[] = {
    {"exclamationmark.triangle.fill"_L1, "dialog-warning-symbolic"_L1, "dialog-warning"_L1},
    {"eye.slash"_L1, "view-conceal-symbolic"_L1, "view-hidden"_L1},
    {"hourglass"_L1, "content-loading-symbolic"_L1, "chronometer"_L1},
    {"display"_L1, "video-display-symbolic"_L1, "video-display"_L1},
    {"lock.shield.fill"_L1, "security-high-symbolic"_L1, "security-high"_L1},
    {"display.slash"_L1, {}, {}},
    {"rectangle.badge.exclamationmark"_L1, "computer-fail-symbolic"_L1, {}},
    // The control deck.
    {"rectangle.stack"_L1, {}, {}},
    {"display.2"_L1, "video-display-symbolic"_L1, "video-display"_L1},
    {"aspectratio"_L1, {}, {}},
    {"line.3.horizontal.decrease.circle"_L1, {}, "view-filter"_L1},
    {"photo"_L1, "image-x-generic-symbolic"_L1, "image-x-generic"_L1},
    {"photo.on.rectangle.angled"_L1, "insert-image-symbolic"_L1, "insert-image"_L1},
    {"square.stack.3d.up.fill"_L1, {}, {}},
    {"camera.fill"_L1, "camera-video-symbolic"_L1, "camera-video"_L1},
    {"hand.raised.fill"_L1, {}, {}},
    {"play.fill"_L1, "media-playback-start-symbolic"_L1, "media-playback-start"_L1},
    {"eye"_L1, "view-reveal-symbolic"_L1, "view-visible"_L1},
    {"power"_L1, "system-shutdown-symbolic"_L1, "system-shutdown"_L1},
    {"info.circle"_L1, "dialog-information-symbolic"_L1, "dialog-information"_L1},
    {"checkmark.circle.fill"_L1, "emblem-ok-symbolic"_L1, "emblem-checked"_L1},
    {"circle"_L1, {}, {}},
    {"exclamationmark.bubble"_L1, {}, {}},
    {"lock.shield"_L1, "security-medium-symbolic"_L1, "security-medium"_L1},
    {"ellipsis.circle"_L1, "view-more-symbolic"_L1, "overflow-menu"_L1},
    // Source picker.
    {"chevron.right"_L1, "go-next-symbolic"_L1, "arrow-right"_L1},
    {"chevron.down"_L1, "go-down-symbolic"_L1, "arrow-down"_L1},
    {"magnifyingglass"_L1, "edit-find-symbolic"_L1, "edit-find"_L1},
    {"square.stack.3d.up.slash"_L1, {}, {}},
    // Canvas.
    {"photo.badge.plus"_L1, "insert-image-symbolic"_L1, "insert-image"_L1},
    // Camera position and margins: one drawing for all nine, so that the
    // grid looks of a piece.
    {"arrow.up.left"_L1, {}, {}},
    {"arrow.up"_L1, {}, {}},
    {"arrow.up.right"_L1, {}, {}},
    {"arrow.left"_L1, {}, {}},
    {"circle.fill"_L1, {}, {}},
    {"arrow.right"_L1, {}, {}},
    {"arrow.down.left"_L1, {}, {}},
    {"arrow.down"_L1, {}, {}},
    {"arrow.down.right"_L1, {}, {}},
    // Presets.
    {"rectangle.on.rectangle.angled"_L1, {}, {}},
    {"person.2.crop.square.stack"_L1, {}, {}},
    {"bookmark"_L1, "user-bookmarks-symbolic"_L1, "bookmarks"_L1},
    {"curlybraces"_L1, {}, {}},
    {"plus"_L1, "list-add-symbolic"_L1, "list-add"_L1},
    {"plus.circle"_L1, {}, {}},
    {"pencil"_L1, "document-edit-symbolic"_L1, "document-edit"_L1},
};

const SymbolRow* findRow(QStringView symbol)
{
    for (const SymbolRow& row : symbolTable) {
        if (row.symbol == symbol)
            return &row;
    }
    return nullptr;
}

QString bundledPath(const SymbolRow& row)
{
    return u":/vistrel/symbols/"_s + row.symbol + u".svg"_s;
}

QString themeIconName(const SymbolRow& row)
{
    for (const QLatin1StringView name : {row.adwaita, row.breeze}) {
        if (!name.isEmpty() && QIcon::hasThemeIcon(name))
            return name;
    }
    return {};
}

} // namespace

QStringList knownSymbols()
{
    QStringList names;
    for (const SymbolRow& row : symbolTable)
        names.append(row.symbol);
    return names;
}

QString symbolSource(QStringView symbol)
{
    const SymbolRow* row = findRow(symbol);
    if (!row)
        return {};
    const QString themed = themeIconName(*row);
    return themed.isEmpty() ? bundledPath(*row) : themed;
}

QImage symbolImage(QStringView symbol, int pixelSize, const QColor& tint, qreal devicePixelRatio)
{
    const SymbolRow* row = findRow(symbol);
    if (!row || pixelSize <= 0)
        return {};
    const int side = qCeil(pixelSize * devicePixelRatio);
    QImage image(side, side, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    const QString themed = themeIconName(*row);
    if (!themed.isEmpty()) {
        // A theme may only have smaller fixed sizes; centre what it gives.
        const QPixmap pixmap = QIcon::fromTheme(themed).pixmap(QSize(side, side), 1.0);
        painter.drawPixmap((side - pixmap.width()) / 2, (side - pixmap.height()) / 2, pixmap);
    } else {
        // Rendered directly rather than through QIcon, so no image plugin is
        // needed for the symbols to show.
        QSvgRenderer renderer(bundledPath(*row));
        renderer.setAspectRatioMode(Qt::KeepAspectRatio);
        renderer.render(&painter, QRectF(0, 0, side, side));
    }
    // Symbolic icons carry their shape in alpha; their own colour is dropped.
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(image.rect(), tint);
    painter.end();
    image.setDevicePixelRatio(devicePixelRatio);
    return image;
}

} // namespace vistrel
