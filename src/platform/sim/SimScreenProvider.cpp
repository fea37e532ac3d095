#include "platform/sim/SimScreenProvider.h"

#include "platform/sim/SimScene.h"

namespace vistrel {

SimScreenProvider::SimScreenProvider(QList<ScreenInfo> screens) : m_screens(std::move(screens)) {}

SimScreenProvider SimScreenProvider::fromScene(const SimScene& scene)
{
    return SimScreenProvider(scene.toScreens());
}

} // namespace vistrel
