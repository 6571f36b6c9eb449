// A prober calls the library for weeks: ten thousand recipe runs must leave
// resident memory where it was.
#include <gtest/gtest.h>

#include <fstream>
#include <unistd.h>

#include "TestSupport.h"
#include "pixmill/pixmill.h"

#if defined(__SANITIZE_ADDRESS__)
#define PIXMILL_UNDER_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define PIXMILL_UNDER_ASAN 1
#endif
#endif

namespace pixmill::test {
namespace {

size_t ResidentBytes() {
    std::ifstream statm("/proc/self/statm");
    size_t total = 0, resident = 0;
    statm >> total >> resident;
    return resident * static_cast<size_t>(::sysconf(_SC_PAGESIZE));
}

class SoakTest : public PixmillTest {};

TEST_F(SoakTest, TenThousandRecipeRunsKeepResidentMemoryFlat) {
#ifdef PIXMILL_UNDER_ASAN
    GTEST_SKIP() << "the address sanitizer's quarantine holds freed memory on purpose";
#endif
    // Source and pass-through filters only: filters that write debug images
    // would make this a test of the disk.
    const wchar_t* recipe =
        LR"({"Name":"soak","Filters":[{"Name":"S","Key":"s","Type":"SourceFilter","IsEndPoint":true,)"
        LR"("Params":[{"Key":"ImageID","Value":"1"}]}]})";
    std::vector<uint8_t> pixels(64 * 48, 77);
    ImageData image{64, 48, 1, 1, pixels.size(), pixels.data()};
    ImageData* list[] = {&image};
    ImageParam input{1, list, nullptr, 0};
    auto runs = [&](int n) {
        for (int i = 0; i < n; ++i) {
            ImageParam output{};
            RecipeExecute(&input, &output, recipe, nullptr);
            ASSERT_EQ(output.count, 1);
            ImageParamRelease(&output);
        }
    };
    runs(500);  // allocator pools and caches settle first
    const size_t before = ResidentBytes();
    runs(10000);
    const size_t after = ResidentBytes();
    RecordProperty("resident_growth_bytes", static_cast<int>(after - std::min(after, before)));
    EXPECT_LT(after, before + (1u << 20)) << "before " << before << " after " << after;
}

}  // namespace
}  // namespace pixmill::test
