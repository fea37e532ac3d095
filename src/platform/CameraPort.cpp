// The port is header-only apart from the meta-object code of its QObject
// classes, which this translation unit puts into the platform library.
#include "platform/CameraPort.h"
