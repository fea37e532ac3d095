#pragma once

// Remembers the frames of the application's windows between runs, under the
// registry's frame autosave names ("Vistrel.output.frame", ...), in an INI
// file of the data folder. A missing or unreadable file remembers nothing.
//
// Coordinates: global, y-down. Main thread.

#include <QRect>
#include <QSettings>
#include <QString>
#include <optional>

namespace vistrel {

class WindowFrameStore {
public:
    explicit WindowFrameStore(const QString& filePath);

    std::optional<QRect> frame(const QString& name) const;
    // Written to disk when the event loop is idle and at exit.
    void setFrame(const QString& name, const QRect& frame);

private:
    mutable QSettings m_settings;
};

} // namespace vistrel
