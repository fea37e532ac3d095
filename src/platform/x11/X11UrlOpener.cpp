#include "platform/x11/X11UrlOpener.h"

#include <QDesktopServices>

namespace vistrel::x11 {

bool X11UrlOpener::openUrl(const QUrl& url)
{
    return url.isValid() && QDesktopServices::openUrl(url);
}

} // namespace vistrel::x11
