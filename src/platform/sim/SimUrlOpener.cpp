#include "platform/sim/SimUrlOpener.h"

namespace vistrel {

bool SimUrlOpener::openUrl(const QUrl& url)
{
    m_opened.append(url);
    return m_succeeds;
}

} // namespace vistrel
