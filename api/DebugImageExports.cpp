// The host's switch for the fixed-path debug images.
#include "framework/DebugImages.h"
#include "logging/Logger.h"
#include "pixmill/pixmill_ext.h"

extern "C" void PixmillSetDebugImages(int enabled) {
    pixmill::logging::BeginCall();
    pixmill::SetDebugImages(enabled != 0);
}
