#include "platform/x11/X11CaptureBackend.h"

#include "platform/x11/X11CaptureStream.h"
#include "platform/x11/X11ShareableContentSource.h"

namespace vistrel::x11 {

X11CaptureBackend::X11CaptureBackend(QByteArray displayName, QObject* parent)
    : QObject(parent), m_displayName(std::move(displayName)),
      m_source(new X11ShareableContentSource(m_displayName, this))
{
}

X11CaptureBackend::~X11CaptureBackend() = default;

void X11CaptureBackend::getShareableContent(bool excludingDesktopWindows, bool onScreenWindowsOnly,
                                            ContentCompletion completion)
{
    m_source->fetch(excludingDesktopWindows, onScreenWindowsOnly, std::move(completion));
}

std::unique_ptr<CaptureStream>
X11CaptureBackend::createStream(const ContentFilter& filter,
                                const StreamConfiguration& configuration,
                                std::weak_ptr<CaptureStreamDelegate> delegate)
{
    return std::make_unique<X11CaptureStream>(m_displayName, filter, configuration,
                                              std::move(delegate));
}

} // namespace vistrel::x11
