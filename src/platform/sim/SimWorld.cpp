#include "platform/sim/SimWorld.h"

#include <QMutexLocker>

namespace vistrel {

SimWorld::SimWorld(SimScene scene, QObject* parent) : QObject(parent), m_scene(std::move(scene)) {}

SimScene SimWorld::scene() const
{
    QMutexLocker lock(&m_mutex);
    return m_scene;
}

void SimWorld::setScene(SimScene scene)
{
    {
        QMutexLocker lock(&m_mutex);
        m_scene = std::move(scene);
    }
    Q_EMIT sceneChanged();
}

void SimWorld::edit(const std::function<void(SimScene&)>& change)
{
    {
        QMutexLocker lock(&m_mutex);
        change(m_scene);
    }
    Q_EMIT sceneChanged();
}

} // namespace vistrel
