#include "presentation/WindowFrameStore.h"

namespace vistrel {

WindowFrameStore::WindowFrameStore(const QString& filePath)
    : m_settings(filePath, QSettings::IniFormat)
{
}

std::optional<QRect> WindowFrameStore::frame(const QString& name) const
{
    const QRect stored = m_settings.value(name).toRect();
    if (!stored.isValid())
        return std::nullopt;
    return stored;
}

void WindowFrameStore::setFrame(const QString& name, const QRect& frame)
{
    if (frame.isValid() && m_settings.value(name).toRect() != frame)
        m_settings.setValue(name, frame);
}

} // namespace vistrel
