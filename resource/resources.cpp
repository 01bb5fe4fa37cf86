#include "resources.h"

#include <QtGlobal>

void quelixInitResources() { Q_INIT_RESOURCE(quelix); }
