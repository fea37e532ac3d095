#pragma once

// The scripted platform's shared world: one scene, read by the backend on the
// main thread and by every scripted stream's worker thread.
//
// Threading: edit on the main thread; scene() may be called from any thread.
// sceneChanged is emitted on the main thread after each edit.

#include "platform/sim/SimScene.h"

#include <QMutex>
#include <QObject>
#include <functional>

namespace vistrel {

class SimWorld : public QObject {
    Q_OBJECT

public:
    explicit SimWorld(SimScene scene = {}, QObject* parent = nullptr);

    SimScene scene() const;
    void setScene(SimScene scene);
    // Applies the edit to the scene under the lock, then announces the change.
    void edit(const std::function<void(SimScene&)>& change);

Q_SIGNALS:
    void sceneChanged();

private:
    mutable QMutex m_mutex;
    SimScene m_scene;
};

} // namespace vistrel
