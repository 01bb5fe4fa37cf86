#pragma once

// Registers the built-in resources (:/resource/...). A static library's resources are
// only linked in when something calls this.
void quelixInitResources();
