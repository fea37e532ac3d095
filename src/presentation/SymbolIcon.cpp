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
    // Source picker.
    {"chevron.right"_L1, "go-next-symbolic"_L1, "arrow-right"_L1},
    {"chevron.down"_L1, "go-down-symbolic"_L1, "arrow-down"_L1},
    {"magnifyingglass"_L1, "edit-find-symbolic"_L1, "edit-find"_L1},
    {"square.stack.3d.up.slash"_L1, {}, {}},
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
