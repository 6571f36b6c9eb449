// pixmill demo: a self-contained tour of the recipe engine.
#pragma once

#include <string>

namespace pixmill::tool {

// Draws sample images with known content under `root`, writes a demo recipe,
// runs it through the library and prints what happened. Returns the exit
// code.
int RunDemo(const std::string& root);

}  // namespace pixmill::tool
