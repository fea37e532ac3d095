#pragma once

// A screen list that a test edits.

#include "platform/ScreenProvider.h"

namespace vistrel {

struct SimScene;

class SimScreenProvider : public ScreenProvider {
public:
    SimScreenProvider() = default;
    explicit SimScreenProvider(QList<ScreenInfo> screens);
    // The screens of the scene's displays.
    static SimScreenProvider fromScene(const SimScene& scene);

    QList<ScreenInfo> screens() const override { return m_screens; }
    void setScreens(QList<ScreenInfo> screens) { m_screens = std::move(screens); }

private:
    QList<ScreenInfo> m_screens;
};

} // namespace vistrel
