#pragma once

#include <QSet>

namespace vistrel {

// Knows the window numbers (X11 window ids) of the application's own windows,
// so that discovery keeps them out of every list and every capture.
class OwnWindowSource {
public:
    virtual ~OwnWindowSource() = default;
    virtual QSet<quint32> ownWindowNumbers() const = 0;
};

} // namespace vistrel
