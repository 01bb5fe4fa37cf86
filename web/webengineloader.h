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
    // Stops and deletes every web view, whoever holds it. Done when the event loop ends
    // (once the module is loaded): the engine shuts down inside the application object's
    // destructor, and a view still alive then is torn down by it after the toolkit's own
    // state is gone, which crashes before the engine's helper processes are stopped.
    // Holders keep their views in a QPointer.
    static void releaseViews();
};
