// The tests load modules by their relative path modules/NAME/NAME.CLASS.so, so
// they run in the test run directory whoever starts them.
#include <filesystem>

namespace {
[[maybe_unused]] bool const inRunDirectory = [] {
    std::filesystem::current_path(TESSARA_TEST_RUN_DIR);
    return true;
}();
} // namespace
