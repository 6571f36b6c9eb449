// Recipe file bytes (encodings, sizes, byte order marks) through
// RecipeExecuteByPath.
#include <cstdio>
#include <string>

#include "FuzzSupport.h"
#include "pixmill/pixmill.h"
#include "platform/Platform.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    pixmill::fuzz::SetUpOnce();
    static const std::wstring kPath = L"C:\\PROBERPARAM\\fuzz_recipe.json";
    static const std::string kNative = [] {
        std::string native = pixmill::platform::NativePath(kPath);
        pixmill::platform::CreateParentDirectories(native);
        return native;
    }();
    pixmill::platform::WriteWholeFile(kNative, std::string(reinterpret_cast<const char*>(data), size));
    wchar_t result[256];
    // No exception may leave the export, whatever the file holds.
    RecipeExecuteByPath(L"", nullptr, kPath.c_str(), nullptr, result, sizeof result);
    return 0;
}
