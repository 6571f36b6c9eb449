#include "api/Boundary.h"

#include <exception>

#include "logging/Logger.h"

namespace pixmill::api {

void LogRefusal(const wchar_t* exportName) noexcept {
    try {
        const char* what = "unknown exception";
        try {
            throw;
        } catch (const std::exception& e) {
            what = e.what();
            logging::LogW(4, L"<ERROR func=\"%ls\" result=\"refused\" what=\"%s\"/>", exportName, what);
            return;
        } catch (...) {
        }
        logging::LogW(4, L"<ERROR func=\"%ls\" result=\"refused\" what=\"%s\"/>", exportName, what);
    } catch (...) {
        // Out of memory while logging: the refusal itself still stands.
    }
}

}  // namespace pixmill::api
