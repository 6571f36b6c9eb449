// The C boundary. Hosts in C and Python cannot catch a C++ exception: one
// that left an export would end the host's process. Every export therefore
// ends in a handler that logs what escaped and returns the export's failure
// value, the value it returns for input it cannot use.
#pragma once

namespace pixmill::api {

// Logs the exception being handled, at level 4, with the export's name:
// <ERROR func="RecipeExecute" result="refused" what="invalid stoi argument"/>
// Call only from a catch block. Never throws.
void LogRefusal(const wchar_t* exportName) noexcept;

}  // namespace pixmill::api
