#pragma once

#include <QString>

#include "webengineapi.h"

// Loads the web engine module on first use and hands out its functions. The module is
// looked for beside the program (where the packages install it), then where the build put
// it; QUELIX_WEBENGINE_MODULE names another file.
class WebEngineLoader {
public:
    // Null when the module cannot be loaded (one log line says why, once).
    static const WebEngineApi* api();
    static bool isLoaded();
    // True when the web engine's libraries are mapped into this process.
    static bool engineMapped();
};
