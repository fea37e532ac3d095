#include "platform/x11/X11Permission.h"

#include "platform/x11/XcbPtr.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QLoggingCategory>
#include <array>
#include <utility>
#include <xcb/composite.h>
#include <xcb/damage.h>
#include <xcb/randr.h>
#include <xcb/render.h>
#include <xcb/res.h>
#include <xcb/shm.h>
#include <xcb/xfixes.h>

using namespace Qt::StringLiterals;

namespace vistrel::x11 {

Q_LOGGING_CATEGORY(lcPermission, "quorbit.Vistrel.Permission")

X11Permission::X11Permission(QByteArray displayName, QUrl helpUrl)
    : m_displayName(std::move(displayName)),
      m_helpUrl(helpUrl.isEmpty() ? defaultHelpUrl() : std::move(helpUrl))
{
}

std::optional<QString> X11Permission::missingReason() const
{
    const QByteArray name = m_displayName.isEmpty() ? qgetenv("DISPLAY") : m_displayName;
    if (name.isEmpty())
        return u"No X display is set (DISPLAY is empty)."_s;
    XcbConnection connection(xcb_connect(name.constData(), nullptr));
    xcb_connection_t* c = connection.get();
    if (xcb_connection_has_error(c))
        return u"Cannot connect to the X display \"%1\"."_s.arg(QString::fromLocal8Bit(name));
    const std::array<std::pair<xcb_extension_t*, const char*>, 7> needed{{
        {&xcb_composite_id, "Composite"},
        {&xcb_damage_id, "DAMAGE"},
        {&xcb_xfixes_id, "XFIXES"},
        {&xcb_render_id, "RENDER"},
        {&xcb_shm_id, "MIT-SHM"},
        {&xcb_randr_id, "RANDR"},
        {&xcb_res_id, "X-Resource"},
    }};
    for (const auto& [extension, label] : needed) // one round trip for all
        xcb_prefetch_extension_data(c, extension);
    for (const auto& [extension, label] : needed) {
        const auto* data = xcb_get_extension_data(c, extension);
        if (!data || !data->present)
            return u"The X display has no %1 extension."_s.arg(QLatin1StringView(label));
    }
    return std::nullopt;
}

bool X11Permission::preflight() const
{
    return !missingReason().has_value();
}

bool X11Permission::request()
{
    const auto reason = missingReason();
    if (reason)
        qCInfo(lcPermission, "Capture access is missing: %s", qUtf8Printable(*reason));
    return !reason;
}

QUrl X11Permission::defaultHelpUrl()
{
    const auto section = [](const QString& path) {
        QUrl url = QUrl::fromLocalFile(path);
        url.setFragment(u"capture-access"_s);
        return url;
    };
    QDir dir(QCoreApplication::instance() ? QCoreApplication::applicationDirPath()
                                          : QDir::currentPath());
    // Walk up to the root: the build tree may sit a few levels below the
    // checkout that holds the README.
    for (;;) {
        const QFileInfo readme(dir.filePath(u"README.md"_s));
        if (readme.isFile())
            return section(readme.absoluteFilePath());
        if (!dir.cdUp())
            break;
    }
    // Installed with the program; else the checkout a build outside it came from.
    const QString installed = QStringLiteral(VISTREL_INSTALLED_README);
    const QString source = QStringLiteral(VISTREL_SOURCE_README);
    if (!QFileInfo(installed).isFile() && QFileInfo(source).isFile())
        return section(source);
    return section(installed);
}

} // namespace vistrel::x11
